#include <gtest/gtest.h>

#include <cmath>

#include "tree_build_helpers.h"

using namespace treetest;

namespace {

TEST(FunctionNode, EvaluatesThroughItsCalculator)
{
    CalcPtr e = MakeExpr([](ICalculator* o) { return Fn(L"ATAN2", {X(o, 0), Bin(MUL, C(2), X(o, 1))}); });
    EXPECT_DOUBLE_EQ(EvalScalar(e.get(), {1, 0.5}), std::atan2(1.0, 1.0));
}

TEST(FunctionNode, ArgumentCountsAcrossTheInlineLimit)
{
    // POLY(x, x0, c0..cm) = sum c_i (x - x0)^i; with all c_i = 1 and x - x0 = 1
    // the value is the number of coefficients.
    for (int coefficients : {1, 6, 7, 8, 20, 31}) {
        CalcPtr e = MakeExpr([&](ICalculator* o) {
            INode** args = new INode*[coefficients + 2];
            args[0] = X(o, 0);
            args[1] = C(1);
            for (int i = 0; i < coefficients; ++i)
                args[i + 2] = C(1);
            return new FunctionNode(Builtin(L"POLY"), args, coefficients + 2);
        });
        EXPECT_DOUBLE_EQ(EvalScalar(e.get(), {2}), coefficients) << coefficients;
    }
}

TEST(FunctionNode, ArgumentFailureMidwayPassesOutCleanly)
{
    // The failing argument comes after values already computed, on the stack
    // and on the heap path alike.
    for (int count : {4, 12}) {
        INode** args = new INode*[count];
        for (int i = 0; i < count; ++i)
            args[i] = C(1);
        delete args[count - 1];
        args[count - 1] = Bin(ADD, Vec3(1, 2, 3), C(1));
        FunctionNode n(Builtin(L"POLY"), args, count);
        try {
            n.Calculate();
            ADD_FAILURE() << "no throw for " << count;
        } catch (int code) {
            EXPECT_EQ(code, -10001);
        }
    }
}

TEST(FunctionNode, RefusedAndArgumentlessCallsAreNull)
{
    CalcPtr refused = MakeExpr([](ICalculator* o) { return Fn(L"SQRT", {X(o, 0)}); });
    VEXA_Data r(7.0);
    VEXA_Data p(-1.0);
    EXPECT_FALSE(refused->Evaluate(1, &p, r));
    EXPECT_EQ(r.getType(), DT_NULL);

    // Without arguments the function is not even called: "add" would throw.
    INode* none = Fn(L"add", {});
    EXPECT_EQ(none->Calculate().getType(), DT_NULL);
    EXPECT_FALSE(none->HasParam(0));
    INode* d = none->getDerivative(nullptr, 0);
    EXPECT_EQ(DumpOf(d), std::vector<std::wstring>{L"0"});
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
    EXPECT_EQ(DumpOf(d), std::vector<std::wstring>{L"0"});
    delete d;
    INode* copy = n->Copy(owner);
    EXPECT_EQ(DumpOf(copy), DumpOf(n));
    delete copy;
    owner->Release();
}

TEST(FunctionNode, DumpsArgumentsThenName)
{
    CalcPtr e = MakeExpr([](ICalculator* o) { return Fn(L"SIN", {X(o, 0)}); });
    EXPECT_EQ(DumpOf(e.get()), (std::vector<std::wstring>{Line(1, L"v:0"), L"SIN"}));

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

// A host expression registered under a name: 2 * p0 + p1.
class Registered : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_fn = new Expression();
        m_fn->SetRoot(Bin(ADD, Bin(MUL, C(2), X(m_fn, 0)), X(m_fn, 1)));
        VEXA_WString name(L"LINEAR2");
        ASSERT_TRUE(FunctionFactory::getInstance()->Register(name, m_fn));
    }
    void TearDown() override
    {
        VEXA_WString name(L"LINEAR2");
        FunctionFactory::getInstance()->UnRegister(name);
        // Registration took one reference; ours is the other.
        EXPECT_FALSE(m_fn->Release());
        EXPECT_TRUE(m_fn->Release()) << "a node leaked a reference";
    }
    Expression* m_fn = nullptr;
};

TEST_F(Registered, CopiesShareTheCalculatorAndOutliveTheOriginal)
{
    CalcPtr e = MakeExpr([](ICalculator* o) { return Fn(L"LINEAR2", {X(o, 0), C(1)}); });
    CalcPtr copy(static_cast<Expression*>(e.get())->Copy());
    EXPECT_EQ(DumpOf(copy.get()), (std::vector<std::wstring>{Line(1, L"v:0"), Line(1, L"1"), L"LINEAR2"}));
    e.reset();
    EXPECT_DOUBLE_EQ(EvalScalar(copy.get(), {4}), 9);
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
    EXPECT_EQ(DumpOf(n), (std::vector<std::wstring>{Line(1, L"v:0"), Line(1, L"2"), L"MAX"}));
    delete n;

    // The fold evaluates, so a failing function passes its error out.
    n = Fn(L"add", {C(1)});
    EXPECT_THROW(n->Simplify(), int);
    delete n;
}

}  // namespace
