#include <gtest/gtest.h>

#include <cmath>

#include "tree_build_helpers.h"

using namespace treetest;

namespace {

TEST(FunctionNode, ArgumentCountsAcrossTheInlineLimit)
{
    // POLY(x, x0, c0..cm) = sum c_i (x - x0)^i; with all c_i = 1 and x - x0 = 1
    // the value is the number of coefficients. With the last argument failing
    // instead, the error passes out after values already computed, on the
    // stack and on the heap path alike.
    for (int coefficients : {1, 6, 7, 8, 20, 31}) {
        for (bool failing : {false, true}) {
            CalcPtr e = MakeExpr([&](ICalculator* o) {
                INode** args = new INode*[coefficients + 2];
                args[0] = X(o, 0);
                for (int i = 1; i < coefficients + 2; ++i)
                    args[i] = C(1);
                if (failing) {
                    delete args[coefficients + 1];
                    args[coefficients + 1] = Bin(ADD, Vec3(1, 2, 3), C(1));
                }
                return new FunctionNode(Builtin(L"POLY"), args, coefficients + 2);
            });
            int code = 0;
            double value = 0;
            try {
                value = EvalScalar(e.get(), {2});
            } catch (int c) {
                code = c;
            }
            EXPECT_EQ(code, failing ? -10001 : 0) << coefficients;
            EXPECT_DOUBLE_EQ(value, failing ? 0 : coefficients) << coefficients;
        }
    }
}

TEST(FunctionNode, CallsEvaluateOrGiveNull)
{
    CalcPtr e = MakeExpr([](ICalculator* o) { return Fn(L"ATAN2", {X(o, 0), Bin(MUL, C(2), X(o, 1))}); });
    EXPECT_DOUBLE_EQ(EvalScalar(e.get(), {1, 0.5}), std::atan2(1.0, 1.0));
    CalcPtr refused = MakeExpr([](ICalculator* o) { return Fn(L"SQRT", {X(o, 0)}); });
    VEXA_Data r(7.0), p(-1.0);
    EXPECT_FALSE(refused->Evaluate(1, &p, r));
    EXPECT_EQ(r.getType(), DT_NULL);

    // Without arguments the function is not even called: "add" would throw.
    INode* none = Fn(L"add", {});
    EXPECT_EQ(none->Calculate().getType(), DT_NULL);
    EXPECT_FALSE(none->HasParam(0));
    INode* d = none->getDerivative(nullptr, 0);
    EXPECT_EQ(Infix(d), L"0");
    delete d;
    EXPECT_EQ(none->Simplify(), none);
    delete none;

    INode* throwing = Fn(L"add", {C(1)});
    EXPECT_THROW(throwing->Calculate(), int);
    delete throwing;
}

TEST(FunctionNode, WithoutCalculator)
{
    Expression* owner = new Expression();
    // The argument would fail if it were evaluated; the node must not get that far.
    INode* n = FnOver(nullptr, {X(owner, 0), Bin(ADD, Vec3(1, 2, 3), C(1))});
    owner->SetRoot(n);
    try {
        n->Calculate();
        ADD_FAILURE() << "no throw";
    } catch (int code) {
        EXPECT_EQ(code, -1000);
    }
    EXPECT_FALSE(n->HasParam(0));
    EXPECT_EQ(n->getNodeType(), 1);
    EXPECT_EQ(DumpOf(n, 1), (std::vector<std::wstring>{Line(2, L"v:0"), Line(3, L"vector"), Line(2, L"+"),
                                                       Line(3, L"1"), Line(1, L"")}));
    INode* d = n->getDerivative(owner, 0);
    EXPECT_EQ(Infix(d), L"0");
    delete d;
    INode* copy = n->Copy(owner);
    EXPECT_EQ(DumpOf(copy), DumpOf(n));
    delete copy;
    owner->Release();
}

TEST(FunctionNode, DumpsArgumentsThenName)
{
    Expression* owner = nullptr;
    INode* n = Bin(ADD, C(1), Fn(L"MAX", {X(owner, 3), Fn(L"cos", {C(2)})}));
    EXPECT_EQ(DumpOf(n), (std::vector<std::wstring>{Line(1, L"1"), L"+", Line(2, L"v:3"), Line(3, L"2"),
                                                    Line(2, L"cos"), Line(1, L"MAX")}));
    std::vector<VariableParam*> vars;
    n->getVariableParams(vars);
    ASSERT_EQ(vars.size(), 1u);
    EXPECT_EQ(vars[0]->m_index, 3);
    EXPECT_TRUE(n->HasParam(3));
    EXPECT_FALSE(n->HasParam(0));
    delete n;
}

TEST(FunctionNode, CopiesShareARegisteredCalculatorAndOutliveTheOriginal)
{
    // 2 * p0 + p1, registered: registration takes one reference, ours is the other.
    Expression* fn = new Expression();
    fn->SetRoot(Bin(ADD, Bin(MUL, C(2), X(fn, 0)), X(fn, 1)));
    VEXA_WString name(L"LINEAR2");
    ASSERT_TRUE(FunctionFactory::getInstance()->Register(name, fn));
    {
        CalcPtr e = MakeExpr([](ICalculator* o) { return Fn(L"LINEAR2", {X(o, 0), C(1)}); });
        CalcPtr copy(static_cast<Expression*>(e.get())->Copy());
        EXPECT_EQ(Infix(copy.get()), L"LINEAR2(v:0,1)");
        e.reset();
        EXPECT_DOUBLE_EQ(EvalScalar(copy.get(), {4}), 9);
    }
    FunctionFactory::getInstance()->UnRegister(name);
    EXPECT_FALSE(fn->Release());
    EXPECT_TRUE(fn->Release()) << "a node leaked a reference";
}

TEST(FunctionNode, SimplifyFoldsConstantArguments)
{
    INode* n = Fn(L"SIN", {Bin(MUL, C(2), C(0))});
    INode* r = n->Simplify();
    ASSERT_EQ(r->getNodeType(), 2);
    EXPECT_DOUBLE_EQ(r->Calculate().getValue()[0], 0);
    delete r;

    n = Fn(L"SQRT", {C(-1)});
    r = n->Simplify();
    ASSERT_EQ(r->getNodeType(), 2);
    EXPECT_EQ(r->Calculate().getType(), DT_NULL);
    delete r;

    Expression* owner = nullptr;
    n = Fn(L"MAX", {X(owner, 0), Bin(ADD, C(1), C(1))});
    EXPECT_EQ(n->Simplify(), n);
    EXPECT_EQ(Infix(n), L"MAX(v:0,2)");
    delete n;

    // The fold evaluates, so a failing function passes its error out.
    n = Fn(L"add", {C(1)});
    EXPECT_THROW(n->Simplify(), int);
    delete n;
}

}  // namespace
