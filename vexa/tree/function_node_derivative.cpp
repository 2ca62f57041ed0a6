#include <cwchar>

#include "vexa/tree/function_node.h"
#include "vexa/tree/node_build.h"
#include "vexa/tree/node_util.h"
#include "vexa/tree/operater_node.h"
#include "vexa/tree/owning_step_calculator.h"

using vexa_tree::ArgArray;
using vexa::CalcRef;
using vexa_tree::Call;
using vexa_tree::K;
using vexa_tree::NodePtr;
using vexa_tree::Op;

using vexa::kDiv;
using vexa::kMul;
using vexa::kSub;

namespace {

// What a symbolic rule needs of the call being differentiated.
class Rule {
public:
    Rule(FunctionNode& node, ICalculator* owner, int index)
        : m_node(node), m_owner(owner), m_index(index)
    {
    }

    NodePtr arg(int k) { return vexa_tree::CopyOf(m_node.m_args[k], m_owner); }
    NodePtr darg(int k) { return vexa_tree::DerivOf(m_node.m_args[k], m_owner, m_index); }
    NodePtr self() { return NodePtr(m_node.Copy(m_owner)); }
    // The chain rule: D times the derivative of the first argument.
    NodePtr chain(NodePtr outer) { return Op(kMul, std::move(outer), darg(0)); }

private:
    FunctionNode& m_node;
    ICalculator* m_owner;
    int m_index;
};

struct SymbolicRule {
    const wchar_t* name;
    int arg_count;
    NodePtr (*build)(Rule& r);
};

const SymbolicRule kSymbolicRules[] = {
    {L"SIN", 1, [](Rule& r) { return r.chain(Call(L"COS", r.arg(0))); }},
    {L"COS", 1, [](Rule& r) { return r.chain(Op(kSub, K(0.0), Call(L"SIN", r.arg(0)))); }},
    {L"LOG", 1, [](Rule& r) { return r.chain(Op(kDiv, K(1.0), r.arg(0))); }},
    // 1 / ln 10
    {L"LOG10", 1, [](Rule& r) { return r.chain(Op(kDiv, K(0.43429448190325176), r.arg(0))); }},
    {L"SQRT", 1, [](Rule& r) { return r.chain(Op(kDiv, K(0.5), Call(L"SQRT", r.arg(0)))); }},
    {L"EXP", 1, [](Rule& r) { return r.chain(r.self()); }},
    {L"TAN", 1,
     [](Rule& r) {
         return r.chain(Op(kDiv, K(1.0), Op(kMul, Call(L"COS", r.arg(0)), Call(L"COS", r.arg(0)))));
     }},
    // cos^2(atan u)
    {L"ATAN", 1,
     [](Rule& r) { return r.chain(Op(kMul, Call(L"COS", r.self()), Call(L"COS", r.self()))); }},
    // 1 / cos(asin u)
    {L"ASIN", 1, [](Rule& r) { return r.chain(Op(kDiv, K(1.0), Call(L"COS", r.self()))); }},
    // -1 / sin(acos u)
    {L"ACOS", 1, [](Rule& r) { return r.chain(Op(kDiv, K(-1.0), Call(L"SIN", r.self()))); }},
    // The condition's own dependence on the parameter is ignored.
    {L"IF", 4, [](Rule& r) { return Call(L"IF", r.arg(0), r.darg(1), r.darg(2), r.darg(3)); }},
    // IF(b - a, ...) picks the derivative of the smaller (larger) argument;
    // a tie takes the first.
    {L"MIN", 2,
     [](Rule& r) { return Call(L"IF", Op(kSub, r.arg(1), r.arg(0)), r.darg(1), r.darg(0), r.darg(0)); }},
    {L"MAX", 2,
     [](Rule& r) { return Call(L"IF", Op(kSub, r.arg(1), r.arg(0)), r.darg(0), r.darg(0), r.darg(1)); }},
    {L"ABS", 1, [](Rule& r) { return Op(kMul, Call(L"SIGN", K(1.0), r.arg(0)), r.darg(0)); }},
    {L"SIGN", 2,
     [](Rule& r) {
         return Op(kMul, Call(L"SIGN", K(1.0), Op(kMul, r.arg(0), r.arg(1))), r.darg(0));
     }},
};

const SymbolicRule* FindRule(const wchar_t* name)
{
    if (!name)
        return nullptr;
    for (const SymbolicRule& rule : kSymbolicRules) {
        if (std::wcscmp(rule.name, name) == 0)
            return &rule;
    }
    return nullptr;
}

}  // namespace

bool vexa_tree::HasSymbolicRule(const FunctionNode& call)
{
    return call.m_function && FindRule(call.m_function->getName().getWChar_t()) != nullptr;
}

INode* FunctionNode::getDerivative(ICalculator* owner, int index)
{
    if (!HasParam(index))
        return K(0.0).release();

    if (const SymbolicRule* rule = FindRule(m_function->getName().getWChar_t())) {
        if (m_arg_count != rule->arg_count)
            throw 1000;
        Rule r(*this, owner, index);
        return rule->build(r).release();
    }

    // No symbolic rule: differentiate numerically in the first argument.
    vexa_tree::ChargeNode();
    CalcRef wrap(new vexa_tree::OwningStepCalculator(m_function));
    ArgArray args(m_arg_count);
    for (int i = 0; i < m_arg_count; ++i)
        args.set(i, vexa_tree::CopyOf(m_args[i], owner));
    NodePtr numeric = vexa_tree::MakeCall(wrap, args);
    return Op(kMul, std::move(numeric), vexa_tree::DerivOf(m_args[0], owner, index)).release();
}
