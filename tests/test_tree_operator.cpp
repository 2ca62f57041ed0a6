#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "tree_build_helpers.h"

using namespace treetest;
using parser_test::Narrow;

namespace {

using Builder = std::function<INode*(ICalculator*)>;

TEST(OperatorNode, EvaluatesEachKindLeftOperandFirst)
{
    const struct {
        int kind;
        double a, b, expected;
    } cases[] = {{ADD, 7, 2, 9}, {SUB, 7, 2, 5}, {MUL, 7, 2, 14}, {DIV, 7, 2, 3.5}, {POW, 2, 3, 8}};
    for (const auto& c : cases) {
        CalcPtr e = MakeExpr([&](ICalculator* o) { return Bin(c.kind, X(o, 0), X(o, 1)); });
        EXPECT_DOUBLE_EQ(EvalScalar(e.get(), {c.a, c.b}), c.expected) << "kind " << c.kind;
    }
}

TEST(OperatorNode, UnassignedKindsEvaluateToNullAndDumpBlank)
{
    for (int kind : {5, 7, -1}) {
        INode* n = Bin(kind, C(1), C(2));
        EXPECT_EQ(n->Calculate().getType(), DT_NULL);
        EXPECT_EQ(DumpOf(n), (std::vector<std::wstring>{Line(1, L"1"), L" ", Line(1, L"2")}));
        delete n;
    }
    Expression* owner = nullptr;
    OperaterNode n(5, X(owner, 0), C(1));
    EXPECT_EQ(n.getDerivative(owner, 0), nullptr);
    INode* zero = n.getDerivative(owner, 1);
    EXPECT_EQ(Infix(zero), L"0");
    delete zero;
}

TEST(OperatorNode, DumpIsInOperandOrderAndToleratesMissingOperands)
{
    // x + y * z
    CalcPtr e = MakeExpr([](ICalculator* o) { return Bin(ADD, X(o, 0), Bin(MUL, X(o, 1), X(o, 2))); });
    EXPECT_EQ(DumpOf(e.get()), (std::vector<std::wstring>{Line(1, L"v:0"), L"+", Line(2, L"v:1"),
                                                          Line(1, L"*"), Line(2, L"v:2")}));
    std::vector<std::wstring> lines;
    OperaterNode n(DIV, C(-2.75), C(4));
    n.Dump(lines, 2);
    EXPECT_EQ(lines, (std::vector<std::wstring>{Line(3, L"-2"), Line(2, L"/"), Line(3, L"4")}));

    OperaterNode empty(SUB, nullptr, nullptr);
    EXPECT_FALSE(empty.HasParam(0));
    std::vector<VariableParam*> vars;
    empty.getVariableParams(vars);
    EXPECT_TRUE(vars.empty());
    EXPECT_EQ(DumpOf(&empty), std::vector<std::wstring>{L"-"});
}

TEST(OperatorNode, HasParamAndVariablesLeftToRight)
{
    Expression* owner = nullptr;
    INode* n = Bin(MUL, Bin(ADD, X(owner, 2), X(owner, 0)), Bin(POW, C(2), X(owner, 2)));
    EXPECT_TRUE(n->HasParam(0));
    EXPECT_TRUE(n->HasParam(2));
    EXPECT_FALSE(n->HasParam(1));
    std::vector<VariableParam*> vars;
    n->getVariableParams(vars);
    ASSERT_EQ(vars.size(), 3u);
    EXPECT_EQ(vars[0]->m_index, 2);
    EXPECT_EQ(vars[1]->m_index, 0);
    EXPECT_EQ(vars[2]->m_index, 2);
    EXPECT_EQ(n->getNodeType(), 0);
    delete n;
}

TEST(OperatorNode, CopyIsIndependentAndRebound)
{
    Expression* a = new Expression();
    INode* tree = Bin(SUB, Bin(MUL, X(a, 0), C(3)), X(a, 1));
    a->SetRoot(tree);
    Expression* b = new Expression();
    b->SetRoot(tree->Copy(b));
    EXPECT_EQ(DumpOf(a), DumpOf(b));
    // The copy reads its own owner's parameters and survives the original.
    EvalScalar(a, {100, 100});
    a->Release();
    EXPECT_DOUBLE_EQ(EvalScalar(b, {2, 1}), 5);
    b->Release();
}

TEST(OperatorNode, DerivativeShapes)
{
    const std::pair<Builder, const wchar_t*> cases[] = {
        {[](ICalculator* o) { return Bin(ADD, X(o, 0), C(3)); }, L"(1+0)"},
        {[](ICalculator* o) { return Bin(ADD, X(o, 1), C(3)); }, L"0"},
        {[](ICalculator* o) { return Bin(SUB, X(o, 0), X(o, 1)); }, L"(1-0)"},
        {[](ICalculator* o) { return Bin(MUL, C(3), X(o, 0)); }, L"(3*1)"},
        {[](ICalculator* o) { return Bin(MUL, X(o, 0), C(3)); }, L"(1*3)"},
        {[](ICalculator* o) { return Bin(MUL, X(o, 0), X(o, 1)); }, L"((1*v:1)+(v:0*0))"},
        {[](ICalculator* o) { return Bin(DIV, X(o, 0), X(o, 1)); }, L"(((1*v:1)-(v:0*0))/(v:1*v:1))"},
        // No shortcut for a constant divisor.
        {[](ICalculator* o) { return Bin(DIV, X(o, 0), C(2)); }, L"(((1*2)-(v:0*0))/(2*2))"},
        {[](ICalculator* o) { return Bin(POW, X(o, 0), C(2)); }, L"((2*(v:0^(2-1)))*1)"},
        {[](ICalculator* o) { return Bin(POW, C(2), X(o, 0)); }, L"((LOG(2)*1)*(2^v:0))"},
        {[](ICalculator* o) { return Bin(POW, X(o, 0), X(o, 0)); },
         L"((v:0^v:0)*((1*LOG(v:0))+((v:0*1)/v:0)))"},
        {[](ICalculator* o) { return Bin(CROSS, X(o, 0), X(o, 0)); }, L"((1%v:0)+(v:0%1))"},
        {[](ICalculator* o) { return Bin(CROSS, X(o, 0), X(o, 1)); }, L"(1%v:1)"},
        {[](ICalculator* o) { return Bin(CROSS, X(o, 1), X(o, 0)); }, L"(v:1%1)"},
    };
    for (const auto& c : cases) {
        CalcPtr e = MakeExpr(c.first);
        CalcPtr d(e->getDerivativeCalculator(0));
        ASSERT_NE(d, nullptr) << Narrow(Infix(e.get()));
        EXPECT_EQ(Infix(d.get()), c.second) << Narrow(Infix(e.get()));
    }
}

TEST(OperatorNode, CrossProductDerivativeValue)
{
    // (x a) % (x^2 b) has the derivative 3x^2 (a % b) = (0, 0, 12) at 2.
    CalcPtr e = MakeExpr([](ICalculator* o) {
        return Bin(CROSS, Bin(MUL, X(o, 0), Vec3(1, 0, 0)), Bin(MUL, Bin(MUL, X(o, 0), X(o, 0)), Vec3(0, 1, 0)));
    });
    CalcPtr d(e->getDerivativeCalculator(0));
    VEXA_Data v = Eval(d.get(), {2});
    ASSERT_EQ(v.getType(), DT_VECTOR);
    EXPECT_EQ(std::vector<double>(v.getValue(), v.getValue() + 3), (std::vector<double>{0, 0, 12}));
}

TEST(OperatorNode, DerivativeAgreesWithCentralDifference)
{
    const Builder trees[] = {
        // (x*x - 3x) / (x + 4)
        [](ICalculator* o) {
            return Bin(DIV, Bin(SUB, Bin(MUL, X(o, 0), X(o, 0)), Bin(MUL, C(3), X(o, 0))), Bin(ADD, X(o, 0), C(4)));
        },
        // (x + 1) ^ (x / 2)
        [](ICalculator* o) { return Bin(POW, Bin(ADD, X(o, 0), C(1)), Bin(DIV, X(o, 0), C(2))); },
        // (2x) ^ 3 ^ (x / 4)
        [](ICalculator* o) { return Bin(POW, Bin(MUL, C(2), X(o, 0)), Bin(POW, C(3), Bin(DIV, X(o, 0), C(4)))); },
        // x ^ 0.5 * x ^ -1
        [](ICalculator* o) { return Bin(MUL, Bin(POW, X(o, 0), C(0.5)), Bin(POW, X(o, 0), C(-1))); },
        // y / x with y = 3: the parameter only in the divisor
        [](ICalculator* o) { return Bin(DIV, C(3), X(o, 0)); },
    };
    for (const Builder& t : trees) {
        CalcPtr e = MakeExpr(t);
        CalcPtr d(e->getDerivativeCalculator(0));
        for (double x : {0.3, 1.0, 1.7, 2.5}) {
            // Its error is about h^2/6 times the third derivative, far below
            // the tolerance at these points.
            const double h = 1e-4, want = (EvalScalar(e.get(), {x + h}) - EvalScalar(e.get(), {x - h})) / (2 * h);
            EXPECT_NEAR(EvalScalar(d.get(), {x}), want, 1e-6 * (1 + std::fabs(want)))
                << Narrow(Infix(e.get())) << " at " << x;
        }
    }
}

TEST(OperatorNode, SimplifyTable)
{
    const struct {
        Builder tree;
        const wchar_t* expected;
        bool sameNode;  // reduced to nothing: the node itself comes back
    } cases[] = {
        {[](ICalculator* o) { return Bin(ADD, X(o, 0), C(0)); }, L"v:0", false},
        {[](ICalculator* o) { return Bin(ADD, C(0), X(o, 0)); }, L"v:0", false},
        {[](ICalculator* o) { return Bin(SUB, X(o, 0), C(0)); }, L"v:0", false},
        {[](ICalculator* o) { return Bin(MUL, X(o, 0), C(0)); }, L"0", false},
        {[](ICalculator* o) { return Bin(MUL, X(o, 0), C(1)); }, L"v:0", false},
        {[](ICalculator* o) { return Bin(MUL, C(0), X(o, 0)); }, L"0", false},
        {[](ICalculator* o) { return Bin(MUL, C(1), X(o, 0)); }, L"v:0", false},
        {[](ICalculator* o) { return Bin(DIV, X(o, 0), C(1)); }, L"v:0", false},
        {[](ICalculator* o) { return Bin(POW, C(1), X(o, 0)); }, L"1", false},
        {[](ICalculator* o) { return Bin(POW, X(o, 0), C(0)); }, L"1", false},
        {[](ICalculator* o) { return Bin(POW, X(o, 0), C(1)); }, L"v:0", false},
        {[](ICalculator* o) { return Bin(ADD, X(o, 0), C(1e-8)); }, L"v:0", false},
        {[](ICalculator* o) { return Bin(MUL, X(o, 0), C(1.00000009)); }, L"v:0", false},
        // Children first: (x * 1) + (0 * x).
        {[](ICalculator* o) { return Bin(ADD, Bin(MUL, X(o, 0), C(1)), Bin(MUL, C(0), X(o, 0))); }, L"v:0", false},
        {[](ICalculator* o) { return Bin(MUL, Bin(ADD, C(1), C(1)), X(o, 0)); }, L"(2*v:0)", true},
        {[](ICalculator* o) { return Bin(SUB, C(0), X(o, 0)); }, L"(0-v:0)", true},
        {[](ICalculator* o) { return Bin(DIV, C(0), X(o, 0)); }, L"(0/v:0)", true},
        {[](ICalculator* o) { return Bin(DIV, X(o, 0), X(o, 0)); }, L"(v:0/v:0)", true},
        {[](ICalculator* o) { return Bin(ADD, X(o, 0), C(1e-7)); }, L"(v:0+0)", true},
        {[](ICalculator* o) { return Bin(CROSS, X(o, 0), C(0)); }, L"(v:0%0)", true},
        {[](ICalculator* o) { return Bin(POW, C(0), X(o, 0)); }, L"(0^v:0)", true},
        {[](ICalculator* o) { return Bin(MUL, X(o, 0), Vec3(0, 0, 0)); }, L"(v:0*vector)", true},
    };
    for (const auto& c : cases) {
        INode* n = c.tree(nullptr);
        const std::string what = Narrow(Infix(n));
        INode* r = n->Simplify();
        EXPECT_EQ(Infix(r), c.expected) << what;
        EXPECT_EQ(r == n, c.sameNode) << what;
        delete r;
    }
}

TEST(OperatorNode, SimplifyFoldsConstants)
{
    INode* n = Bin(ADD, C(2), C(3));
    INode* r = n->Simplify();
    EXPECT_EQ(r->getNodeType(), 2);
    EXPECT_DOUBLE_EQ(r->Calculate().getValue()[0], 5);
    delete r;
    // A % of two constants is left alone.
    n = Bin(CROSS, Vec3(1, 0, 0), Vec3(0, 1, 0));
    EXPECT_EQ(n->Simplify(), n);
    delete n;
    // A failed fold keeps the node, with its children reduced.
    n = Bin(ADD, Vec3(1, 2, 3), Bin(MUL, C(2), C(3)));
    EXPECT_THROW(n->Simplify(), int);
    EXPECT_EQ(Infix(n), L"(vector+6)");
    delete n;
}

}  // namespace
