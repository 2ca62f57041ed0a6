// Node behaviour the parser never reaches: hand-built trees, missing operands
// and calculators, dump lines, copies and reduction.
#include <gtest/gtest.h>

#include "test_util.h"

using namespace testutil;
using namespace vexa;

namespace {

std::wstring Line(int level, const std::wstring& text) {
    return std::wstring(static_cast<std::size_t>(level) * 10, L' ') + text;
}

// Dump lines: each node's line indented ten blanks a level, in operand order.
TEST(Dump, LinesOfEveryNodeKind) {
    const std::wstring vector = L"vector";
    const struct {
        INode* node;
        int level;
        std::vector<std::wstring> lines;
    } cases[] = {
        {new ConstantParam(VEXA_Data(2.5)), 1, {Line(1, L"2")}},
        {new ConstantParam(RowVector({1, 2})), 0, {vector}},
        {new VariableParam(nullptr, 12), 2, {Line(2, L"v:12")}},
        {new VariableParam(nullptr, 3), -4, {L"v:3"}},
        {Bin(kAdd, X(nullptr, 0), Bin(kMul, X(nullptr, 1), X(nullptr, 2))), 0,
         {Line(1, L"v:0"), L"+", Line(2, L"v:1"), Line(1, L"*"), Line(2, L"v:2")}},
        {Bin(kDiv, C(-2.75), C(4)), 2, {Line(3, L"-2"), Line(2, L"/"), Line(3, L"4")}},
        {Bin(kSub, nullptr, nullptr), 0, {L"-"}},
        {Bin(kAdd, C(1), Fn(L"MAX", {X(nullptr, 3), Fn(L"cos", {C(2)})})), 0,
         {Line(1, L"1"), L"+", Line(2, L"v:3"), Line(3, L"2"), Line(2, L"cos"), Line(1, L"MAX")}},
    };
    for (auto& c : cases) {
        std::vector<std::wstring> lines{L"kept"};
        c.node->Dump(lines, c.level);
        lines.erase(lines.begin());
        EXPECT_EQ(lines, c.lines) << Narrow(Text(c.node));
        delete c.node;
    }
}

TEST(Leaves, WhatTheParserNeverMakes) {
    // A vector constant differentiates to the scalar zero and is never zero
    // or one; a variable without a calculator, or with a negative index,
    // has no value.
    ConstantParam v(RowVector({1, 1, 1}));
    std::unique_ptr<INode> d(v.getDerivative(nullptr, 0));
    EXPECT_EQ(Text(d.get()), L"0");
    EXPECT_FALSE(v.IsOne() || ConstantParam(RowVector({0, 0, 0})).IsZero() || ConstantParam(VEXA_Data()).IsZero());
    EXPECT_TRUE(ConstantParam(VEXA_Data(-9.9e-8)).IsZero());
    CalcRef e(new Expression());
    VEXA_Data one(1.0), r;
    e->Evaluate(1, &one, r);
    EXPECT_EQ(VariableParam(e.get(), -1).Calculate().getType(), DT_NULL);
    EXPECT_EQ(VariableParam(nullptr, 0).Calculate().getType(), DT_NULL);
}

TEST(OperatorNode, UnassignedKindsEvaluateToNullAndDumpBlank) {
    for (int kind : {5, 7, -1}) {
        std::unique_ptr<INode> n(Bin(kind, C(1), C(2)));
        EXPECT_EQ(n->Calculate().getType(), DT_NULL);
        EXPECT_EQ(DumpOf(n.get()), (std::vector<std::wstring>{Line(1, L"1"), L" ", Line(1, L"2")}));
    }
    OperaterNode n(5, X(nullptr, 0), C(1));
    EXPECT_EQ(n.getDerivative(nullptr, 0), nullptr);
    std::unique_ptr<INode> zero(n.getDerivative(nullptr, 1));
    EXPECT_EQ(Text(zero.get()), L"0");
}

TEST(OperatorNode, VariablesLeftToRightAndCopiesIndependent) {
    // Missing operands are skipped.
    OperaterNode empty(kSub, nullptr, nullptr);
    std::vector<VariableParam*> vars;
    empty.getVariableParams(vars);
    EXPECT_TRUE(vars.empty() && !empty.HasParam(0));
    Expression* a = new Expression();
    INode* tree = Bin(kMul, Bin(kAdd, X(a, 2), X(a, 0)), Bin(kPow, C(2), X(a, 2)));
    a->SetRoot(tree);
    EXPECT_TRUE(tree->HasParam(0) && tree->HasParam(2) && !tree->HasParam(1));
    tree->getVariableParams(vars);
    ASSERT_EQ(vars.size(), 3u);
    EXPECT_EQ(vars[0]->m_index * 100 + vars[1]->m_index * 10 + vars[2]->m_index, 202);
    Expression* b = new Expression();
    b->SetRoot(tree->Copy(b));
    EXPECT_EQ(DumpOf(a), DumpOf(b));
    Eval(a, {100, 100, 100});
    a->Release();
    EXPECT_DOUBLE_EQ(Eval(b, {2, 0, 1}), 6);  // (1 + 2) * 2^1
    b->Release();
}

TEST(OperatorNode, CrossProductDerivativeValue) {
    // (x a) % (x^2 b) has the derivative 3x^2 (a % b) = (0, 0, 12) at 2.
    CalcRef e = MakeExpr([](ICalculator* o) {
        return Bin(kCross, Bin(kMul, X(o, 0), Vec3(1, 0, 0)), Bin(kMul, Bin(kMul, X(o, 0), X(o, 0)), Vec3(0, 1, 0)));
    });
    CalcRef d(e->getDerivativeCalculator(0));
    VEXA_Data x(2.0), v;
    ASSERT_TRUE(d->Evaluate(1, &x, v));
    EXPECT_EQ(ValueText(v), L"[0, 0, 12]");
}

TEST(OperatorNode, SimplifyOfWhatTextCannotWrite) {
    // Vector constants are never zero or one; a % of two constants is left
    // alone; a failed fold keeps the node with its children reduced.
    std::unique_ptr<INode> zeros(Bin(kMul, X(nullptr, 0), Vec3(0, 0, 0)));
    EXPECT_EQ(zeros->Simplify(), zeros.get());
    std::unique_ptr<INode> cross(Bin(kCross, Vec3(1, 0, 0), Vec3(0, 1, 0)));
    EXPECT_EQ(cross->Simplify(), cross.get());
    std::unique_ptr<INode> bad(Bin(kAdd, Vec3(1, 2, 3), Bin(kMul, C(2), C(3))));
    EXPECT_THROW(bad->Simplify(), int);
    EXPECT_EQ(Text(bad.get()), L"[1, 2, 3]+6");
}

TEST(FunctionNode, ArgumentCountsAcrossTheInlineLimit) {
    // POLY(x, x0, c0..cm) with every c = 1 and x - x0 = 1 is the number of
    // coefficients. With the last argument failing instead, the error passes
    // out after values already computed, on the stack and on the heap path.
    for (int coefficients : {1, 6, 7, 8, 20, 31}) {
        for (bool failing : {false, true}) {
            CalcRef e = MakeExpr([&](ICalculator* o) {
                INode** args = new INode*[coefficients + 2];
                args[0] = X(o, 0);
                for (int i = 1; i < coefficients + 2; ++i)
                    args[i] = i == coefficients + 1 && failing ? Bin(kAdd, Vec3(1, 2, 3), C(1)) : C(1);
                return new FunctionNode(Builtin(L"POLY"), args, coefficients + 2);
            });
            EXPECT_EQ(OutcomeOf(e.get(), {2}), failing ? -10001 : coefficients) << coefficients;
        }
    }
}

TEST(FunctionNode, WithoutArgumentsOrCalculator) {
    // Without arguments the function is not even called: "add" would throw.
    std::unique_ptr<INode> none(Fn(L"add", {}));
    EXPECT_EQ(none->Calculate().getType(), DT_NULL);
    EXPECT_FALSE(none->HasParam(0));
    EXPECT_EQ(none->Simplify(), none.get());
    std::unique_ptr<INode> throwing(Fn(L"add", {C(1)}));
    EXPECT_THROW(throwing->Calculate(), int);
    EXPECT_THROW(throwing->Simplify(), int);

    Expression* owner = new Expression();
    // The argument would fail if it were evaluated; the node must not get that far.
    INode* n = FnOver(nullptr, {X(owner, 0), Bin(kAdd, Vec3(1, 2, 3), C(1))});
    owner->SetRoot(n);
    try {
        n->Calculate();
        ADD_FAILURE() << "no throw";
    } catch (int code) {
        EXPECT_EQ(code, -1000);
    }
    EXPECT_FALSE(n->HasParam(0));
    EXPECT_EQ(DumpOf(n, 1), (std::vector<std::wstring>{Line(2, L"v:0"), Line(3, L"vector"), Line(2, L"+"),
                                                       Line(3, L"1"), Line(1, L"")}));
    std::unique_ptr<INode> d(n->getDerivative(owner, 0));
    EXPECT_EQ(Text(d.get()), L"0");
    std::unique_ptr<INode> copy(n->Copy(owner));
    EXPECT_EQ(DumpOf(copy.get()), DumpOf(n));
    owner->Release();
}

TEST(FunctionNode, CopiesShareARegisteredCalculatorAndOutliveTheOriginal) {
    // 2 * p0 + p1, registered: registration takes one reference, ours is the other.
    Expression* fn = new Expression();
    fn->SetRoot(Bin(kAdd, Bin(kMul, C(2), X(fn, 0)), X(fn, 1)));
    VEXA_WString name(L"LINEAR2");
    ASSERT_TRUE(FunctionFactory::getInstance()->Register(name, fn));
    {
        CalcRef e = MakeExpr([](ICalculator* o) { return Fn(L"LINEAR2", {X(o, 0), C(1)}); });
        CalcRef copy(static_cast<Expression*>(e.get())->Copy());
        e.reset();
        EXPECT_DOUBLE_EQ(Eval(copy.get(), {4}), 9);
    }
    FunctionFactory::getInstance()->UnRegister(name);
    EXPECT_FALSE(fn->Release());
    EXPECT_TRUE(fn->Release()) << "a node leaked a reference";
}

}  // namespace
