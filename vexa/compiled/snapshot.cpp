#include "vexa/compiled/snapshot.h"

#include <map>
#include <memory>
#include <typeinfo>

#include "vexa/calc/calculator_access.h"
#include "vexa/calc/expression_access.h"
#include "vexa/compiled/stack_room.h"
#include "vexa/tree/constant_param.h"
#include "vexa/tree/function_node.h"
#include "vexa/tree/operater_node.h"
#include "vexa/tree/owning_step_calculator.h"
#include "vexa/tree/variable_param.h"

namespace vexa_compiled {

namespace {

using vexa_calc::CalculatorAccess;
using vexa_calc::ExpressionAccess;

// Registered functions can only call functions registered before them, so
// real chains are short; a longer one comes from a hand-made cycle.
constexpr int kMaxNesting = 64;

struct Unfaithful {
    const char* why;
};

// One counted reference, given back unless handed on.
struct Ref {
    ICalculator* calc = nullptr;
    Ref() = default;
    explicit Ref(ICalculator* c) : calc(c) {}
    Ref(const Ref&) = delete;
    Ref& operator=(const Ref&) = delete;
    ~Ref()
    {
        if (calc)
            calc->Release();
    }
    ICalculator* release()
    {
        ICalculator* c = calc;
        calc = nullptr;
        return c;
    }
};

class Copier {
public:
    ~Copier()
    {
        for (auto& entry : m_copies)
            entry.second->Release();
    }

    // A new reference to the copy of c.
    ICalculator* Calculator(ICalculator* c, int depth)
    {
        const auto found = m_copies.find(c);
        if (found != m_copies.end()) {
            found->second->AddRef();
            return found->second;
        }
        if (depth > kMaxNesting)
            throw Unfaithful{"functions call each other deeper than 64 levels"};
        Ref made(Make(c, depth));
        // The table keeps one reference of its own until the copy is done,
        // taken once the entry exists (the entry may fail to be made).
        m_copies.emplace(c, made.calc);
        made.calc->AddRef();
        return made.release();
    }

    Expression* Expr(Expression& e, int depth)
    {
        Expression* copy = new Expression();
        Ref hold(copy);
        copy->SetName(e.getName());
        if (INode* root = ExpressionAccess::Root(e))
            ExpressionAccess::AdoptTree(*copy, Node(root, &e, copy, depth).release());
        hold.release();
        return copy;
    }

private:
    ICalculator* Make(ICalculator* c, int depth)
    {
        const std::type_info& type = typeid(*c);
        if (type == typeid(Expression))
            return Expr(static_cast<Expression&>(*c), depth + 1);
        if (type == typeid(BuidInFunction))
            return new BuidInFunction(c->getName(), CalculatorAccess::Function(static_cast<BuidInFunction&>(*c)));
        if (type == typeid(ComplexStepCalculator) || type == typeid(vexa_tree::OwningStepCalculator)) {
            const ComplexStepCalculator& step = static_cast<ComplexStepCalculator&>(*c);
            Ref inner(CalculatorAccess::Inner(step) ? Calculator(CalculatorAccess::Inner(step), depth + 1) : nullptr);
            return new vexa_tree::OwningStepCalculator(inner.calc, CalculatorAccess::Index(step));
        }
        throw Unfaithful{"it calls a function calculator of a class the library does not know"};
    }

    std::unique_ptr<INode> Node(INode* node, ICalculator* from, ICalculator* to, int depth)
    {
        if (!node)
            return nullptr;
        if (!RoomForStep())
            throw Unfaithful{"the thread's stack has no room left to copy it"};
        const std::type_info& type = typeid(*node);
        if (type == typeid(ConstantParam))
            return std::unique_ptr<INode>(node->Copy(to));
        if (type == typeid(VariableParam)) {
            const VariableParam& leaf = static_cast<VariableParam&>(*node);
            if (leaf.m_calculator && leaf.m_calculator != from)
                throw Unfaithful{"a parameter leaf reads the parameters of another calculator"};
            return std::unique_ptr<INode>(new VariableParam(leaf.m_calculator ? to : nullptr, leaf.m_index));
        }
        if (type == typeid(OperaterNode)) {
            const OperaterNode& op = static_cast<OperaterNode&>(*node);
            std::unique_ptr<INode> left = Node(op.m_left, from, to, depth);
            std::unique_ptr<INode> right = Node(op.m_right, from, to, depth);
            std::unique_ptr<INode> made(new OperaterNode(op.m_kind, left.get(), right.get()));
            left.release();
            right.release();
            return made;
        }
        if (type == typeid(FunctionNode))
            return Call(static_cast<FunctionNode&>(*node), from, to, depth);
        throw Unfaithful{"its tree holds a node of a class the library does not know"};
    }

    std::unique_ptr<INode> Call(const FunctionNode& call, ICalculator* from, ICalculator* to, int depth)
    {
        // The arguments live in a holder until the node takes them over.
        struct Args {
            INode** list = nullptr;
            int count = 0;
            ~Args()
            {
                for (int i = 0; list && i < count; ++i)
                    delete list[i];
                delete[] list;
            }
        } args;
        if (call.m_args) {
            args.list = new INode*[call.m_arg_count > 0 ? call.m_arg_count : 0]();
            args.count = call.m_arg_count;
            for (int i = 0; i < call.m_arg_count; ++i)
                args.list[i] = Node(call.m_args[i], from, to, depth).release();
        }
        Ref fn(call.m_function ? Calculator(call.m_function, depth) : nullptr);
        std::unique_ptr<INode> made(new FunctionNode(fn.calc, args.list, call.m_arg_count));
        fn.release();
        args.list = nullptr;
        return made;
    }

    std::map<ICalculator*, ICalculator*> m_copies;
};

}  // namespace

Expression* PrivateCopy(Expression& e, std::string& why)
{
    try {
        Copier copier;
        return copier.Expr(e, 0);
    } catch (const Unfaithful& u) {
        why = u.why;
        return nullptr;
    }
}

}  // namespace vexa_compiled
