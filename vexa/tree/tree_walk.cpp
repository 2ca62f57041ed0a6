#include "vexa/tree/tree_walk.h"

#include <algorithm>
#include <utility>

#include "vexa/calc/buidin_function.h"
#include "vexa/calc/complex_step_calculator.h"
#include "vexa/calc/expression.h"
#include "vexa/calc/expression_access.h"
#include "vexa/core/platform.h"
#include "vexa/tree/constant_param.h"
#include "vexa/tree/function_node.h"
#include "vexa/tree/node_util.h"
#include "vexa/tree/variable_param.h"

namespace vexa {

namespace {

INode* RootOf(ICalculator* calc)
{
    Expression* e = dynamic_cast<Expression*>(calc);
    return e ? vexa_calc::ExpressionAccess::Root(*e) : nullptr;
}

CallKind KindOfCall(ICalculator* function)
{
    if (!function)
        return CallKind::kNone;
    if (dynamic_cast<BuidInFunction*>(function))
        return CallKind::kBuiltIn;
    if (dynamic_cast<ComplexStepCalculator*>(function))
        return CallKind::kNumericDerivative;
    if (dynamic_cast<Expression*>(function))
        return CallKind::kRegistered;
    return CallKind::kOther;
}

// What Dump writes for a call: the calculator's name, "NULL" for an unnamed one.
const wchar_t* CallName(const FunctionNode& call)
{
    if (!call.m_function)
        return L"";
    const wchar_t* name = call.m_function->getName().getWChar_t();
    return name ? name : L"NULL";
}

// The children of a node in order; missing operands and arguments are left out,
// as Dump leaves them out.
void ChildrenOf(INode* node, std::vector<INode*>& out)
{
    out.clear();
    if (OperaterNode* op = dynamic_cast<OperaterNode*>(node)) {
        for (INode* child : {op->m_left, op->m_right}) {
            if (child)
                out.push_back(child);
        }
    } else if (FunctionNode* call = dynamic_cast<FunctionNode*>(node)) {
        for (int i = 0; call->m_args && i < call->m_arg_count; ++i) {
            if (call->m_args[i])
                out.push_back(call->m_args[i]);
        }
    }
}

void Describe(INode* node, const std::vector<std::wstring>* names, TreeNodeInfo& info)
{
    info.node = node;
    if (OperaterNode* op = dynamic_cast<OperaterNode*>(node)) {
        info.kind = NodeKind::kOperator;
        info.op = static_cast<OperatorKind>(op->m_kind);
        info.symbol = OperatorSymbol(op->m_kind);
    } else if (FunctionNode* call = dynamic_cast<FunctionNode*>(node)) {
        info.kind = NodeKind::kCall;
        info.call = KindOfCall(call->m_function);
        info.function = CallName(*call);
        info.numeric_derivative = call->m_function && !vexa_tree::HasSymbolicRule(*call);
    } else if (ConstantParam* constant = dynamic_cast<ConstantParam*>(node)) {
        info.kind = NodeKind::kConstant;
        info.value = constant->Calculate();
    } else if (VariableParam* variable = dynamic_cast<VariableParam*>(node)) {
        info.kind = NodeKind::kParameter;
        info.parameter = variable->m_index;
        if (names && variable->m_index >= 0 && static_cast<std::size_t>(variable->m_index) < names->size())
            info.parameter_name = (*names)[static_cast<std::size_t>(variable->m_index)];
    }
}

// Length of the text of a node's own dump line, indentation left out.
std::size_t LineLength(const TreeNodeInfo& n)
{
    switch (n.kind) {
    case NodeKind::kOperator: return 1;
    case NodeKind::kCall: return n.function.size();
    case NodeKind::kConstant: return static_cast<std::wstring>(n.value).size();
    case NodeKind::kParameter: return 2 + vexa_platform::FormatInt(n.parameter).size();
    default: {
        // A class of the host's own: ask it, without its indentation.
        std::vector<std::wstring> lines;
        n.node->Dump(lines, 0);
        return lines.empty() ? 0 : lines.back().size();
    }
    }
}

}  // namespace

bool WalkTree(INode* root, const TreeVisitor& visit, const std::vector<std::wstring>* names)
{
    if (!root)
        return false;
    std::vector<std::pair<INode*, int>> stack{{root, 0}};
    std::vector<INode*> children;
    while (!stack.empty()) {
        const std::pair<INode*, int> top = stack.back();
        stack.pop_back();
        ChildrenOf(top.first, children);
        TreeNodeInfo info;
        Describe(top.first, names, info);
        info.depth = top.second;
        info.child_count = static_cast<int>(children.size());
        if (!visit(info))
            return false;
        for (auto it = children.rbegin(); it != children.rend(); ++it)
            stack.push_back({*it, top.second + 1});
    }
    return true;
}

bool WalkTree(ICalculator* calc, const TreeVisitor& visit, const std::vector<std::wstring>* names)
{
    return WalkTree(RootOf(calc), visit, names);
}

TreeMeasure MeasureTree(INode* root)
{
    TreeMeasure m;
    WalkTree(root, [&m](const TreeNodeInfo& n) {
        ++m.nodes;
        m.depth = std::max(m.depth, n.depth + 1);
        m.dump_chars += 10 * static_cast<std::uint64_t>(n.depth) + LineLength(n);
        return true;
    });
    return m;
}

TreeMeasure MeasureTree(ICalculator* calc)
{
    return MeasureTree(RootOf(calc));
}

}  // namespace vexa
