#ifndef VEXA_TESTS_TREE_BUILD_HELPERS_H
#define VEXA_TESTS_TREE_BUILD_HELPERS_H

// Builders for expression trees assembled by hand, shared by the node tests.

#include <initializer_list>
#include <memory>

#include "parser_test_util.h"  // the whole public interface, and the infix form of trees

namespace treetest {

enum { ADD = 0, SUB = 1, MUL = 2, DIV = 3, CROSS = 4, POW = 6 };

inline INode* X(ICalculator* owner, int index) { return new VariableParam(owner, index); }
inline INode* C(double v) { return new ConstantParam(VEXA_Data(v)); }
inline INode* Vec3(double a, double b, double c)
{
    VEXA_Data v(1, 3);
    v.getValue()[0] = a;
    v.getValue()[1] = b;
    v.getValue()[2] = c;
    return new ConstantParam(v);
}
inline INode* Bin(int kind, INode* l, INode* r) { return new OperaterNode(kind, l, r); }

inline INode* FnOver(ICalculator* fn, std::initializer_list<INode*> args)
{
    INode** a = new INode*[args.size()];
    int n = 0;
    for (INode* arg : args)
        a[n++] = arg;
    return new FunctionNode(fn, a, n);
}

inline ICalculator* Builtin(const wchar_t* name)
{
    VEXA_WString key(name);
    return FunctionFactory::getInstance()->CreateFunction(key);
}

inline INode* Fn(const wchar_t* name, std::initializer_list<INode*> args)
{
    return FnOver(Builtin(name), args);
}

struct CalcRelease {
    void operator()(ICalculator* c) const
    {
        if (c)
            c->Release();
    }
};
using CalcPtr = std::unique_ptr<ICalculator, CalcRelease>;

// An expression whose tree is built by make(e), e being the new expression
// that variable leaves bind to.
template <class Make>
CalcPtr MakeExpr(Make make)
{
    Expression* e = new Expression();
    e->SetRoot(make(static_cast<ICalculator*>(e)));
    return CalcPtr(e);
}

inline VEXA_Data Eval(ICalculator* c, std::vector<double> xs)
{
    std::vector<VEXA_Data> params(xs.begin(), xs.end());
    VEXA_Data r;
    c->Evaluate(static_cast<int>(params.size()), params.data(), r);
    return r;
}

inline double EvalScalar(ICalculator* c, std::vector<double> xs)
{
    VEXA_Data r = Eval(c, xs);
    return r.getType() == DT_SCALAR ? r.getValue()[0] : -12345.678;
}

inline std::vector<std::wstring> DumpOf(INode* node, int level = 0)
{
    std::vector<std::wstring> lines;
    node->Dump(lines, level);
    return lines;
}

inline std::vector<std::wstring> DumpOf(ICalculator* c)
{
    std::vector<std::wstring> lines;
    if (Expression* e = dynamic_cast<Expression*>(c))
        e->Dump(lines);
    return lines;
}

// The compact infix form of a tree, as the parser tests write it.
inline std::wstring Infix(INode* node) { return parser_test::InfixOfDump(DumpOf(node)); }
inline std::wstring Infix(ICalculator* c) { return parser_test::InfixOfDump(DumpOf(c)); }

// One expected dump line: the indentation for level, then text.
inline std::wstring Line(int level, const std::wstring& text)
{
    return std::wstring(static_cast<size_t>(level) * 10, L' ') + text;
}

}  // namespace treetest

#endif
