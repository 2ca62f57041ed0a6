#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "tree_build_helpers.h"

using namespace treetest;

namespace {

struct KindCase {
    int kind;
    double a, b, expected;
};

TEST(OperatorNode, EvaluatesEachKindLeftOperandFirst)
{
    const KindCase cases[] = {
        {ADD, 7, 2, 9}, {SUB, 7, 2, 5}, {MUL, 7, 2, 14}, {DIV, 7, 2, 3.5}, {POW, 2, 3, 8},
    };
    for (const KindCase& c : cases) {
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
}

TEST(OperatorNode, DumpIsInOperandOrder)
{
    // x + y * z
    CalcPtr e = MakeExpr([](ICalculator* o) { return Bin(ADD, X(o, 0), Bin(MUL, X(o, 1), X(o, 2))); });
    EXPECT_EQ(DumpOf(e.get()), (std::vector<std::wstring>{Line(1, L"v:0"), L"+", Line(2, L"v:1"),
                                                          Line(1, L"*"), Line(2, L"v:2")}));

    std::vector<std::wstring> lines;
    OperaterNode n(DIV, C(-2.75), C(4));
    n.Dump(lines, 2);
    EXPECT_EQ(lines, (std::vector<std::wstring>{Line(3, L"-2"), Line(2, L"/"), Line(3, L"4")}));
}

TEST(OperatorNode, ToleratesMissingOperandsWhereDocumented)
{
    OperaterNode n(SUB, nullptr, nullptr);
    EXPECT_FALSE(n.HasParam(0));
    std::vector<VariableParam*> vars;
    n.getVariableParams(vars);
    EXPECT_TRUE(vars.empty());
    EXPECT_EQ(DumpOf(&n), std::vector<std::wstring>{L"-"});
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
    INode* copy = tree->Copy(b);
    b->SetRoot(copy);
    EXPECT_EQ(DumpOf(a), DumpOf(b));

    // The copy reads its own owner's parameters and survives the original.
    EvalScalar(a, {100, 100});
    a->Release();
    EXPECT_DOUBLE_EQ(EvalScalar(b, {2, 1}), 5);
    b->Release();
}

using Builder = std::function<INode*(ICalculator*)>;

struct ShapeCase {
    const char* what;
    Builder tree;
    Builder expected;  // the derivative with respect to parameter 0
};

TEST(OperatorNode, DerivativeShapes)
{
    const ShapeCase cases[] = {
        {"x + 3", [](ICalculator* o) { return Bin(ADD, X(o, 0), C(3)); },
         [](ICalculator*) { return Bin(ADD, C(1), C(0)); }},
        {"y + 3", [](ICalculator* o) { return Bin(ADD, X(o, 1), C(3)); },
         [](ICalculator*) { return C(0); }},
        {"x - y", [](ICalculator* o) { return Bin(SUB, X(o, 0), X(o, 1)); },
         [](ICalculator*) { return Bin(SUB, C(1), C(0)); }},
        {"3 * x", [](ICalculator* o) { return Bin(MUL, C(3), X(o, 0)); },
         [](ICalculator*) { return Bin(MUL, C(3), C(1)); }},
        {"x * 3", [](ICalculator* o) { return Bin(MUL, X(o, 0), C(3)); },
         [](ICalculator*) { return Bin(MUL, C(1), C(3)); }},
        {"x * y", [](ICalculator* o) { return Bin(MUL, X(o, 0), X(o, 1)); },
         [](ICalculator* o) { return Bin(ADD, Bin(MUL, C(1), X(o, 1)), Bin(MUL, X(o, 0), C(0))); }},
        {"x / y", [](ICalculator* o) { return Bin(DIV, X(o, 0), X(o, 1)); },
         [](ICalculator* o) {
             return Bin(DIV, Bin(SUB, Bin(MUL, C(1), X(o, 1)), Bin(MUL, X(o, 0), C(0))),
                        Bin(MUL, X(o, 1), X(o, 1)));
         }},
        {"x / 2 has no constant shortcut", [](ICalculator* o) { return Bin(DIV, X(o, 0), C(2)); },
         [](ICalculator* o) {
             return Bin(DIV, Bin(SUB, Bin(MUL, C(1), C(2)), Bin(MUL, X(o, 0), C(0))),
                        Bin(MUL, C(2), C(2)));
         }},
        {"x ^ 2", [](ICalculator* o) { return Bin(POW, X(o, 0), C(2)); },
         [](ICalculator* o) {
             return Bin(MUL, Bin(MUL, C(2), Bin(POW, X(o, 0), Bin(SUB, C(2), C(1)))), C(1));
         }},
        {"2 ^ x", [](ICalculator* o) { return Bin(POW, C(2), X(o, 0)); },
         [](ICalculator* o) {
             return Bin(MUL, Bin(MUL, Fn(L"LOG", {C(2)}), C(1)), Bin(POW, C(2), X(o, 0)));
         }},
        {"x ^ x", [](ICalculator* o) { return Bin(POW, X(o, 0), X(o, 0)); },
         [](ICalculator* o) {
             return Bin(MUL, Bin(POW, X(o, 0), X(o, 0)),
                        Bin(ADD, Bin(MUL, C(1), Fn(L"LOG", {X(o, 0)})),
                            Bin(DIV, Bin(MUL, X(o, 0), C(1)), X(o, 0))));
         }},
        {"u % v, both refer", [](ICalculator* o) { return Bin(CROSS, X(o, 0), X(o, 0)); },
         [](ICalculator* o) { return Bin(ADD, Bin(CROSS, C(1), X(o, 0)), Bin(CROSS, X(o, 0), C(1))); }},
        {"u % w, left refers", [](ICalculator* o) { return Bin(CROSS, X(o, 0), X(o, 1)); },
         [](ICalculator* o) { return Bin(CROSS, C(1), X(o, 1)); }},
        {"w % u, right refers", [](ICalculator* o) { return Bin(CROSS, X(o, 1), X(o, 0)); },
         [](ICalculator* o) { return Bin(CROSS, X(o, 1), C(1)); }},
    };
    for (const ShapeCase& c : cases) {
        CalcPtr e = MakeExpr(c.tree);
        CalcPtr d(e->getDerivativeCalculator(0));
        ASSERT_NE(d, nullptr) << c.what;
        CalcPtr want = MakeExpr(c.expected);
        EXPECT_EQ(DumpOf(d.get()), DumpOf(want.get())) << c.what;
    }
}

TEST(OperatorNode, DerivativeOfUnassignedKindIsNoTree)
{
    Expression* owner = nullptr;
    OperaterNode n(5, X(owner, 0), C(1));
    EXPECT_EQ(n.getDerivative(owner, 0), nullptr);
    INode* zero = n.getDerivative(owner, 1);
    EXPECT_EQ(DumpOf(zero), std::vector<std::wstring>{L"0"});
    delete zero;
}

TEST(OperatorNode, CrossProductDerivativeValues)
{
    // (x a) % (x^2 b) has the derivative 3x^2 (a % b); a % b = (0, 0, 1).
    CalcPtr e = MakeExpr([](ICalculator* o) {
        return Bin(CROSS, Bin(MUL, X(o, 0), Vec3(1, 0, 0)),
                   Bin(MUL, Bin(MUL, X(o, 0), X(o, 0)), Vec3(0, 1, 0)));
    });
    CalcPtr d(e->getDerivativeCalculator(0));
    VEXA_Data v = Eval(d.get(), {2});
    ASSERT_EQ(v.getType(), DT_VECTOR);
    EXPECT_DOUBLE_EQ(v.getValue()[0], 0);
    EXPECT_DOUBLE_EQ(v.getValue()[1], 0);
    EXPECT_DOUBLE_EQ(v.getValue()[2], 12);

    // With one operand constant no scalar-zero % vector term may appear, or
    // the evaluation would fail.
    struct OneSided {
        Builder tree;
        double e0, e1;
    };
    const OneSided oneSided[] = {
        {[](ICalculator* o) { return Bin(CROSS, Vec3(0, 0, 1), Bin(MUL, X(o, 0), Vec3(1, 0, 0))); }, 0, 1},
        {[](ICalculator* o) { return Bin(CROSS, Bin(MUL, X(o, 0), Vec3(0, -1, 0)), Vec3(0, 0, 1)); }, -1, 0},
    };
    for (const OneSided& c : oneSided) {
        CalcPtr f = MakeExpr(c.tree);
        CalcPtr df(f->getDerivativeCalculator(0));
        v = Eval(df.get(), {5});
        ASSERT_EQ(v.getType(), DT_VECTOR);
        EXPECT_DOUBLE_EQ(v.getValue()[0], c.e0);
        EXPECT_DOUBLE_EQ(v.getValue()[1], c.e1);
    }
}

struct ValueCase {
    const char* what;
    Builder tree;
    std::vector<double> at;
    double expected;
};

TEST(OperatorNode, DerivativeWorkedValues)
{
    const ValueCase cases[] = {
        {"x ^ 2 at 3", [](ICalculator* o) { return Bin(POW, X(o, 0), C(2)); }, {3}, 6},
        {"x ^ x at 2", [](ICalculator* o) { return Bin(POW, X(o, 0), X(o, 0)); }, {2},
         4 * (std::log(2.0) + 1)},
        {"2 ^ x at 3", [](ICalculator* o) { return Bin(POW, C(2), X(o, 0)); }, {3}, 8 * std::log(2.0)},
        {"y ^ x at (2, 3)", [](ICalculator* o) { return Bin(POW, X(o, 1), X(o, 0)); }, {2, 3},
         9 * std::log(3.0)},
        {"x / y at (2, 4)", [](ICalculator* o) { return Bin(DIV, X(o, 0), X(o, 1)); }, {2, 4}, 0.25},
        {"y / x at (2, 4)", [](ICalculator* o) { return Bin(DIV, X(o, 1), X(o, 0)); }, {2, 4}, -1},
    };
    for (const ValueCase& c : cases) {
        CalcPtr e = MakeExpr(c.tree);
        CalcPtr d(e->getDerivativeCalculator(0));
        EXPECT_NEAR(EvalScalar(d.get(), c.at), c.expected, 1e-12) << c.what;
    }
}

// Central difference of the original: its error is about h^2/6 times the
// third derivative, far below the tolerance at these points.
double CentralDifference(ICalculator* f, double x)
{
    const double h = 1e-4;
    return (EvalScalar(f, {x + h}) - EvalScalar(f, {x - h})) / (2 * h);
}

TEST(OperatorNode, DerivativeAgreesWithCentralDifference)
{
    const std::pair<const char*, Builder> trees[] = {
        {"(x*x - 3x) / (x + 4)", [](ICalculator* o) {
             return Bin(DIV, Bin(SUB, Bin(MUL, X(o, 0), X(o, 0)), Bin(MUL, C(3), X(o, 0))),
                        Bin(ADD, X(o, 0), C(4)));
         }},
        {"(x + 1) ^ (x / 2)", [](ICalculator* o) {
             return Bin(POW, Bin(ADD, X(o, 0), C(1)), Bin(DIV, X(o, 0), C(2)));
         }},
        {"(2x) ^ 3 ^ (x / 4)", [](ICalculator* o) {
             return Bin(POW, Bin(MUL, C(2), X(o, 0)), Bin(POW, C(3), Bin(DIV, X(o, 0), C(4))));
         }},
        {"x ^ 0.5 * x ^ -1", [](ICalculator* o) {
             return Bin(MUL, Bin(POW, X(o, 0), C(0.5)), Bin(POW, X(o, 0), C(-1)));
         }},
        {"1.5 ^ (x * x)", [](ICalculator* o) { return Bin(POW, C(1.5), Bin(MUL, X(o, 0), X(o, 0))); }},
    };
    for (const auto& t : trees) {
        CalcPtr e = MakeExpr(t.second);
        CalcPtr d(e->getDerivativeCalculator(0));
        for (double x : {0.3, 1.0, 1.7, 2.5}) {
            const double want = CentralDifference(e.get(), x);
            EXPECT_NEAR(EvalScalar(d.get(), {x}), want, 1e-6 * (1 + std::fabs(want)))
                << t.first << " at " << x;
        }
    }
}

struct SimplifyCase {
    const char* what;
    Builder tree;
    std::vector<std::wstring> expected;
    bool sameNode;  // reduced to nothing: the node itself comes back
};

TEST(OperatorNode, SimplifyTable)
{
    const std::vector<std::wstring> x = {L"v:0"};
    const std::vector<std::wstring> zero = {L"0"}, one = {L"1"};
    const SimplifyCase cases[] = {
        {"x + 0", [](ICalculator* o) { return Bin(ADD, X(o, 0), C(0)); }, x, false},
        {"0 + x", [](ICalculator* o) { return Bin(ADD, C(0), X(o, 0)); }, x, false},
        {"x - 0", [](ICalculator* o) { return Bin(SUB, X(o, 0), C(0)); }, x, false},
        {"x * 0", [](ICalculator* o) { return Bin(MUL, X(o, 0), C(0)); }, zero, false},
        {"x * 1", [](ICalculator* o) { return Bin(MUL, X(o, 0), C(1)); }, x, false},
        {"0 * x", [](ICalculator* o) { return Bin(MUL, C(0), X(o, 0)); }, zero, false},
        {"1 * x", [](ICalculator* o) { return Bin(MUL, C(1), X(o, 0)); }, x, false},
        {"x / 1", [](ICalculator* o) { return Bin(DIV, X(o, 0), C(1)); }, x, false},
        {"1 ^ x", [](ICalculator* o) { return Bin(POW, C(1), X(o, 0)); }, one, false},
        {"x ^ 0", [](ICalculator* o) { return Bin(POW, X(o, 0), C(0)); }, one, false},
        {"x ^ 1", [](ICalculator* o) { return Bin(POW, X(o, 0), C(1)); }, x, false},
        {"x + 1e-8", [](ICalculator* o) { return Bin(ADD, X(o, 0), C(1e-8)); }, x, false},
        {"x * 1.00000009", [](ICalculator* o) { return Bin(MUL, X(o, 0), C(1.00000009)); }, x, false},
        {"children first: (x * 1) + (0 * x)",
         [](ICalculator* o) { return Bin(ADD, Bin(MUL, X(o, 0), C(1)), Bin(MUL, C(0), X(o, 0))); }, x,
         false},
        {"(1 + 1) * x", [](ICalculator* o) { return Bin(MUL, Bin(ADD, C(1), C(1)), X(o, 0)); },
         {Line(1, L"2"), L"*", Line(1, L"v:0")}, true},
        {"0 - x", [](ICalculator* o) { return Bin(SUB, C(0), X(o, 0)); },
         {Line(1, L"0"), L"-", Line(1, L"v:0")}, true},
        {"0 / x", [](ICalculator* o) { return Bin(DIV, C(0), X(o, 0)); },
         {Line(1, L"0"), L"/", Line(1, L"v:0")}, true},
        {"x / x", [](ICalculator* o) { return Bin(DIV, X(o, 0), X(o, 0)); },
         {Line(1, L"v:0"), L"/", Line(1, L"v:0")}, true},
        {"x + 1e-7", [](ICalculator* o) { return Bin(ADD, X(o, 0), C(1e-7)); },
         {Line(1, L"v:0"), L"+", Line(1, L"0")}, true},
        {"x % 0", [](ICalculator* o) { return Bin(CROSS, X(o, 0), C(0)); },
         {Line(1, L"v:0"), L"%", Line(1, L"0")}, true},
        {"0 ^ x", [](ICalculator* o) { return Bin(POW, C(0), X(o, 0)); },
         {Line(1, L"0"), L"^", Line(1, L"v:0")}, true},
        {"x * a zero vector", [](ICalculator* o) { return Bin(MUL, X(o, 0), Vec3(0, 0, 0)); },
         {Line(1, L"v:0"), L"*", Line(1, L"vector")}, true},
    };
    for (const SimplifyCase& c : cases) {
        Expression* owner = nullptr;
        INode* n = c.tree(owner);
        INode* r = n->Simplify();
        EXPECT_EQ(DumpOf(r), c.expected) << c.what;
        EXPECT_EQ(r == n, c.sameNode) << c.what;
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
}

TEST(OperatorNode, FailedFoldKeepsNodeWithReducedChildren)
{
    INode* n = Bin(ADD, Vec3(1, 2, 3), Bin(MUL, C(2), C(3)));
    EXPECT_THROW(n->Simplify(), int);
    EXPECT_EQ(DumpOf(n), (std::vector<std::wstring>{Line(1, L"vector"), L"+", Line(1, L"6")}));
    delete n;
}

}  // namespace
