#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

#include "vexa/calc/complex_step_calculator.h"

#include "tree_build_helpers.h"

using namespace treetest;

namespace {

using Builder = std::function<INode*(ICalculator*)>;

CalcPtr Derive(ICalculator* f, int index = 0)
{
    return CalcPtr(f->getDerivativeCalculator(index));
}

struct WorkedCase {
    const char* what;
    Builder tree;
    double at;
    double expected;
};

TEST(FunctionDerivative, WorkedValues)
{
    const WorkedCase cases[] = {
        {"SIN at 0", [](ICalculator* o) { return Fn(L"SIN", {X(o, 0)}); }, 0, 1},
        {"COS at 0", [](ICalculator* o) { return Fn(L"COS", {X(o, 0)}); }, 0, 0},
        {"LOG10 at 10", [](ICalculator* o) { return Fn(L"LOG10", {X(o, 0)}); }, 10, 0.043429448190325175},
        {"SQRT at 4", [](ICalculator* o) { return Fn(L"SQRT", {X(o, 0)}); }, 4, 0.25},
        {"EXP at 0", [](ICalculator* o) { return Fn(L"EXP", {X(o, 0)}); }, 0, 1},
        {"TAN at 0", [](ICalculator* o) { return Fn(L"TAN", {X(o, 0)}); }, 0, 1},
        {"ATAN at 1", [](ICalculator* o) { return Fn(L"ATAN", {X(o, 0)}); }, 1, 0.5},
        {"ASIN at 0", [](ICalculator* o) { return Fn(L"ASIN", {X(o, 0)}); }, 0, 1},
        {"ACOS at 0", [](ICalculator* o) { return Fn(L"ACOS", {X(o, 0)}); }, 0, -1},
        {"ABS at -3", [](ICalculator* o) { return Fn(L"ABS", {X(o, 0)}); }, -3, -1},
        {"ABS at 0", [](ICalculator* o) { return Fn(L"ABS", {X(o, 0)}); }, 0, -1},
        {"MAX(x, 2) at 3", [](ICalculator* o) { return Fn(L"MAX", {X(o, 0), C(2)}); }, 3, 1},
        {"MAX(x, 2) at 1", [](ICalculator* o) { return Fn(L"MAX", {X(o, 0), C(2)}); }, 1, 0},
        {"MAX(2, x) at 2, a tie", [](ICalculator* o) { return Fn(L"MAX", {C(2), X(o, 0)}); }, 2, 0},
        {"MAX(x, 2x) at 0, a tie", [](ICalculator* o) { return Fn(L"MAX", {X(o, 0), Bin(MUL, C(2), X(o, 0))}); },
         0, 1},
        {"MIN(x, 2) at 1", [](ICalculator* o) { return Fn(L"MIN", {X(o, 0), C(2)}); }, 1, 1},
        {"MIN(x, 2) at 3", [](ICalculator* o) { return Fn(L"MIN", {X(o, 0), C(2)}); }, 3, 0},
        {"MIN(2, x) at 2, a tie", [](ICalculator* o) { return Fn(L"MIN", {C(2), X(o, 0)}); }, 2, 0},
        {"IF(x, x, 0, 2x) at 1",
         [](ICalculator* o) { return Fn(L"IF", {X(o, 0), X(o, 0), C(0), Bin(MUL, C(2), X(o, 0))}); }, 1, 2},
        {"IF(x, x, 0, 2x) at -1",
         [](ICalculator* o) { return Fn(L"IF", {X(o, 0), X(o, 0), C(0), Bin(MUL, C(2), X(o, 0))}); }, -1, 1},
        {"SIGN(x, -1) at 2", [](ICalculator* o) { return Fn(L"SIGN", {X(o, 0), C(-1)}); }, 2, -1},
        {"SIGN(x, 0) at 2", [](ICalculator* o) { return Fn(L"SIGN", {X(o, 0), C(0)}); }, 2, -1},
        {"SIGN(x, 5) at -2", [](ICalculator* o) { return Fn(L"SIGN", {X(o, 0), C(5)}); }, -2, -1},
        {"STEP(x, 0, 0, 1, 1) at 0.5",
         [](ICalculator* o) { return Fn(L"STEP", {X(o, 0), C(0), C(0), C(1), C(1)}); }, 0.5, 1.499998},
        {"ATAN2(1, x) follows only the first argument",
         [](ICalculator* o) { return Fn(L"ATAN2", {C(1), X(o, 0)}); }, 2, 0},
    };
    for (const WorkedCase& c : cases) {
        CalcPtr e = MakeExpr(c.tree);
        CalcPtr d = Derive(e.get());
        EXPECT_NEAR(EvalScalar(d.get(), {c.at}), c.expected, 1e-9) << c.what;
    }
}

struct ShapeCase {
    const wchar_t* name;
    Builder tree;      // a call over x (index 0) and y (index 1)
    Builder expected;  // its derivative with respect to x
};

TEST(FunctionDerivative, SymbolicShapes)
{
    const ShapeCase cases[] = {
        {L"SIN", [](ICalculator* o) { return Fn(L"SIN", {X(o, 0)}); },
         [](ICalculator* o) { return Bin(MUL, Fn(L"COS", {X(o, 0)}), C(1)); }},
        {L"COS", [](ICalculator* o) { return Fn(L"COS", {X(o, 0)}); },
         [](ICalculator* o) { return Bin(MUL, Bin(SUB, C(0), Fn(L"SIN", {X(o, 0)})), C(1)); }},
        {L"LOG", [](ICalculator* o) { return Fn(L"LOG", {X(o, 0)}); },
         [](ICalculator* o) { return Bin(MUL, Bin(DIV, C(1), X(o, 0)), C(1)); }},
        {L"LOG10", [](ICalculator* o) { return Fn(L"LOG10", {X(o, 0)}); },
         [](ICalculator* o) { return Bin(MUL, Bin(DIV, C(0.4), X(o, 0)), C(1)); }},
        {L"SQRT", [](ICalculator* o) { return Fn(L"SQRT", {X(o, 0)}); },
         [](ICalculator* o) { return Bin(MUL, Bin(DIV, C(0.5), Fn(L"SQRT", {X(o, 0)})), C(1)); }},
        {L"EXP", [](ICalculator* o) { return Fn(L"EXP", {X(o, 0)}); },
         [](ICalculator* o) { return Bin(MUL, Fn(L"EXP", {X(o, 0)}), C(1)); }},
        {L"TAN", [](ICalculator* o) { return Fn(L"TAN", {X(o, 0)}); },
         [](ICalculator* o) {
             return Bin(MUL, Bin(DIV, C(1), Bin(MUL, Fn(L"COS", {X(o, 0)}), Fn(L"COS", {X(o, 0)}))), C(1));
         }},
        {L"ATAN", [](ICalculator* o) { return Fn(L"ATAN", {X(o, 0)}); },
         [](ICalculator* o) {
             return Bin(MUL,
                        Bin(MUL, Fn(L"COS", {Fn(L"ATAN", {X(o, 0)})}), Fn(L"COS", {Fn(L"ATAN", {X(o, 0)})})),
                        C(1));
         }},
        {L"ASIN", [](ICalculator* o) { return Fn(L"ASIN", {X(o, 0)}); },
         [](ICalculator* o) { return Bin(MUL, Bin(DIV, C(1), Fn(L"COS", {Fn(L"ASIN", {X(o, 0)})})), C(1)); }},
        {L"ACOS", [](ICalculator* o) { return Fn(L"ACOS", {X(o, 0)}); },
         [](ICalculator* o) { return Bin(MUL, Bin(DIV, C(-1), Fn(L"SIN", {Fn(L"ACOS", {X(o, 0)})})), C(1)); }},
        {L"IF", [](ICalculator* o) { return Fn(L"IF", {X(o, 0), X(o, 0), C(0), X(o, 1)}); },
         [](ICalculator* o) { return Fn(L"IF", {X(o, 0), C(1), C(0), C(0)}); }},
        {L"MIN", [](ICalculator* o) { return Fn(L"MIN", {X(o, 0), X(o, 1)}); },
         [](ICalculator* o) { return Fn(L"IF", {Bin(SUB, X(o, 1), X(o, 0)), C(0), C(1), C(1)}); }},
        {L"MAX", [](ICalculator* o) { return Fn(L"MAX", {X(o, 0), X(o, 1)}); },
         [](ICalculator* o) { return Fn(L"IF", {Bin(SUB, X(o, 1), X(o, 0)), C(1), C(1), C(0)}); }},
        {L"ABS", [](ICalculator* o) { return Fn(L"ABS", {X(o, 0)}); },
         [](ICalculator* o) { return Bin(MUL, Fn(L"SIGN", {C(1), X(o, 0)}), C(1)); }},
        {L"SIGN", [](ICalculator* o) { return Fn(L"SIGN", {X(o, 0), X(o, 1)}); },
         [](ICalculator* o) { return Bin(MUL, Fn(L"SIGN", {C(1), Bin(MUL, X(o, 0), X(o, 1))}), C(1)); }},
        {L"chain through SIN(x * y)", [](ICalculator* o) { return Fn(L"SIN", {Bin(MUL, X(o, 0), X(o, 1))}); },
         [](ICalculator* o) {
             return Bin(MUL, Fn(L"COS", {Bin(MUL, X(o, 0), X(o, 1))}),
                        Bin(ADD, Bin(MUL, C(1), X(o, 1)), Bin(MUL, X(o, 0), C(0))));
         }},
    };
    for (const ShapeCase& c : cases) {
        CalcPtr e = MakeExpr(c.tree);
        CalcPtr d = Derive(e.get());
        CalcPtr want = MakeExpr(c.expected);
        EXPECT_EQ(DumpOf(d.get()), DumpOf(want.get())) << c.name;
    }
}

TEST(FunctionDerivative, NoDependenceGivesPlainZero)
{
    CalcPtr e = MakeExpr([](ICalculator* o) { return Fn(L"STEP", {X(o, 1), C(0), X(o, 0), C(1), C(1)}); });
    EXPECT_EQ(DumpOf(Derive(e.get(), 2).get()), std::vector<std::wstring>{L"0"});
    CalcPtr s = MakeExpr([](ICalculator* o) { return Fn(L"SIN", {X(o, 1)}); });
    EXPECT_EQ(DumpOf(Derive(s.get(), 0).get()), std::vector<std::wstring>{L"0"});
}

TEST(FunctionDerivative, NumericRuleShape)
{
    CalcPtr e = MakeExpr([](ICalculator* o) { return Fn(L"STEP", {X(o, 0), C(0), C(0), C(1), C(1)}); });
    CalcPtr d = Derive(e.get());
    EXPECT_EQ(DumpOf(d.get()), (std::vector<std::wstring>{Line(2, L"v:0"), Line(2, L"0"), Line(2, L"0"),
                                                          Line(2, L"1"), Line(2, L"1"), Line(1, L"wrap:STEP"),
                                                          L"*", Line(1, L"1")}));
}

TEST(FunctionDerivative, WrongArgumentCountThrowsBeforeBuilding)
{
    const struct {
        const wchar_t* name;
        int count;
    } rules[] = {{L"SIN", 1}, {L"COS", 1}, {L"LOG", 1}, {L"LOG10", 1}, {L"SQRT", 1},
                 {L"EXP", 1}, {L"TAN", 1}, {L"ATAN", 1}, {L"ASIN", 1}, {L"ACOS", 1},
                 {L"IF", 4},  {L"MIN", 2}, {L"MAX", 2}, {L"ABS", 1},   {L"SIGN", 2}};
    for (const auto& r : rules) {
        for (int count : {r.count - 1, r.count + 1}) {
            if (count < 1)
                continue;
            CalcPtr e = MakeExpr([&](ICalculator* o) {
                INode** args = new INode*[count];
                for (int i = 0; i < count; ++i)
                    args[i] = X(o, 0);
                return new FunctionNode(Builtin(r.name), args, count);
            });
            try {
                Derive(e.get());
                ADD_FAILURE() << "no throw";
            } catch (int code) {
                EXPECT_EQ(code, 1000);
            }
        }
    }
    // Nested below other nodes the error still passes out and frees the
    // partial tree.
    CalcPtr nested = MakeExpr([](ICalculator* o) {
        return Bin(MUL, Fn(L"EXP", {X(o, 0)}), Fn(L"COS", {FnOver(Builtin(L"SIN"), {X(o, 0), X(o, 0)})}));
    });
    EXPECT_THROW(Derive(nested.get()), int);
}

double CentralDifference(ICalculator* f, double x)
{
    const double h = 1e-4;
    return (EvalScalar(f, {x + h}) - EvalScalar(f, {x - h})) / (2 * h);
}

struct AgreementCase {
    const char* what;
    Builder tree;
    double tolerance;  // relative; the numeric rule has its own O(h^2) error
};

TEST(FunctionDerivative, AgreesWithCentralDifference)
{
    const double sym = 1e-6, num = 1e-5;
    auto x = [](ICalculator* o) { return X(o, 0); };
    auto sq = [](ICalculator* o) { return Bin(MUL, X(o, 0), X(o, 0)); };
    const AgreementCase cases[] = {
        {"SIN(x^2)", [&](ICalculator* o) { return Fn(L"SIN", {sq(o)}); }, sym},
        {"COS(3x)", [&](ICalculator* o) { return Fn(L"COS", {Bin(MUL, C(3), x(o))}); }, sym},
        {"LOG(x^2 + 1)", [&](ICalculator* o) { return Fn(L"LOG", {Bin(ADD, sq(o), C(1))}); }, sym},
        {"LOG10(x + 2)", [&](ICalculator* o) { return Fn(L"LOG10", {Bin(ADD, x(o), C(2))}); }, sym},
        {"SQRT(x + 2)", [&](ICalculator* o) { return Fn(L"SQRT", {Bin(ADD, x(o), C(2))}); }, sym},
        {"EXP(SIN(x))", [&](ICalculator* o) { return Fn(L"EXP", {Fn(L"SIN", {x(o)})}); }, sym},
        {"TAN(x / 2)", [&](ICalculator* o) { return Fn(L"TAN", {Bin(DIV, x(o), C(2))}); }, sym},
        {"ATAN(x^2)", [&](ICalculator* o) { return Fn(L"ATAN", {sq(o)}); }, sym},
        {"ASIN(x / 3)", [&](ICalculator* o) { return Fn(L"ASIN", {Bin(DIV, x(o), C(3))}); }, sym},
        {"ACOS(x / 3)", [&](ICalculator* o) { return Fn(L"ACOS", {Bin(DIV, x(o), C(3))}); }, sym},
        {"ABS(x - 5)", [&](ICalculator* o) { return Fn(L"ABS", {Bin(SUB, x(o), C(5))}); }, sym},
        {"ABS(SIN(3x))", [&](ICalculator* o) { return Fn(L"ABS", {Fn(L"SIN", {Bin(MUL, C(3), x(o))})}); }, sym},
        {"MIN(x^2, 2x)", [&](ICalculator* o) { return Fn(L"MIN", {sq(o), Bin(MUL, C(2), x(o))}); }, sym},
        {"MAX(SIN x, COS x)",
         [&](ICalculator* o) { return Fn(L"MAX", {Fn(L"SIN", {x(o)}), Fn(L"COS", {x(o)})}); }, sym},
        {"IF(x - 1.2, x^2, 0, EXP x)",
         [&](ICalculator* o) { return Fn(L"IF", {Bin(SUB, x(o), C(1.2)), sq(o), C(0), Fn(L"EXP", {x(o)})}); },
         sym},
        {"SIGN(x^2, x - 1.2)", [&](ICalculator* o) { return Fn(L"SIGN", {sq(o), Bin(SUB, x(o), C(1.2))}); }, sym},
        {"SIGN(x - 3, 1)", [&](ICalculator* o) { return Fn(L"SIGN", {Bin(SUB, x(o), C(3)), C(1)}); }, sym},
        {"SIN(x) ^ COS(x)", [&](ICalculator* o) { return Bin(POW, Fn(L"SIN", {x(o)}), Fn(L"COS", {x(o)})); }, sym},
        {"STEP(x, 0, 0, 3, 1)", [&](ICalculator* o) { return Fn(L"STEP", {x(o), C(0), C(0), C(3), C(1)}); }, num},
        {"HAVSIN(x, 0, 0, 3, 2)",
         [&](ICalculator* o) { return Fn(L"HAVSIN", {x(o), C(0), C(0), C(3), C(2)}); }, num},
        {"POLY(x^2, 0, 1, 2, 3)", [&](ICalculator* o) { return Fn(L"POLY", {sq(o), C(0), C(1), C(2), C(3)}); },
         num},
        {"TANH(x^2)", [&](ICalculator* o) { return Fn(L"TANH", {sq(o)}); }, num},
        {"ATAN2(x, 2)", [&](ICalculator* o) { return Fn(L"ATAN2", {x(o), C(2)}); }, num},
        {"SHF(x, 0, 2, 3, 0.5, 1)",
         [&](ICalculator* o) { return Fn(L"SHF", {x(o), C(0), C(2), C(3), C(0.5), C(1)}); }, num},
    };
    for (const AgreementCase& c : cases) {
        CalcPtr e = MakeExpr(c.tree);
        CalcPtr d = Derive(e.get());
        for (double at : {0.3, 1.0, 1.7, 2.5}) {
            const double want = CentralDifference(e.get(), at);
            EXPECT_NEAR(EvalScalar(d.get(), {at}), want, c.tolerance * (1 + std::fabs(want)))
                << c.what << " at " << at;
        }
    }
}

TEST(FunctionDerivative, SecondDerivatives)
{
    CalcPtr s = MakeExpr([](ICalculator* o) { return Fn(L"SIN", {X(o, 0)}); });
    CalcPtr ds = Derive(s.get());
    CalcPtr dds = Derive(ds.get());
    EXPECT_NEAR(EvalScalar(dds.get(), {0.7}), -std::sin(0.7), 1e-12);

    // Numeric of numeric: STEP's second derivative 6 - 12x at x = 0.25.
    CalcPtr st = MakeExpr([](ICalculator* o) { return Fn(L"STEP", {X(o, 0), C(0), C(0), C(1), C(1)}); });
    CalcPtr dst = Derive(st.get());
    CalcPtr ddst = Derive(dst.get());
    st.reset();
    dst.reset();
    EXPECT_NEAR(EvalScalar(ddst.get(), {0.25}), 3, 1e-4);
}

TEST(FunctionDerivative, NumericDerivativeOutlivesTheOriginal)
{
    CalcPtr e = MakeExpr([](ICalculator* o) { return Fn(L"STEP", {X(o, 0), C(0), C(0), C(1), C(1)}); });
    CalcPtr d = Derive(e.get());
    e.reset();
    EXPECT_NEAR(EvalScalar(d.get(), {0.5}), 1.499998, 1e-9);
}

TEST(FunctionDerivative, NumericDerivativeOfRegisteredFunction)
{
    // x * x + p1, registered; the host then gives every reference of its own back.
    Expression* sq = new Expression();
    sq->SetRoot(Bin(ADD, Bin(MUL, X(sq, 0), X(sq, 0)), X(sq, 1)));
    VEXA_WString name(L"SQPLUS");
    ASSERT_TRUE(FunctionFactory::getInstance()->Register(name, sq));

    CalcPtr e = MakeExpr([](ICalculator* o) { return Fn(L"SQPLUS", {Bin(MUL, C(3), X(o, 0)), X(o, 0)}); });
    CalcPtr d = Derive(e.get());
    const std::vector<std::wstring> lines = DumpOf(d.get());
    EXPECT_NE(std::find(lines.begin(), lines.end(), Line(1, L"wrap:SQPLUS")), lines.end());
    e.reset();
    FunctionFactory::getInstance()->UnRegister(name);
    EXPECT_FALSE(sq->Release());
    EXPECT_FALSE(sq->Release());  // the derivative still holds it

    // d/dx (9x^2 + x) numerically in the first argument only: 18x.
    EXPECT_NEAR(EvalScalar(d.get(), {2}), 36, 1e-9);
    d.reset();  // frees the registered expression; the sanitizer build checks it
}

TEST(FunctionDerivative, ReleaseOrderDoesNotMatter)
{
    int order[] = {0, 1, 2};
    do {
        CalcPtr held[3];
        held[0] = MakeExpr([](ICalculator* o) {
            return Bin(MUL, Fn(L"STEP", {X(o, 0), C(0), C(0), C(1), C(1)}), Fn(L"SIN", {X(o, 0)}));
        });
        held[1].reset(static_cast<Expression*>(held[0].get())->Copy());
        held[2] = Derive(held[0].get());
        const double want[] = {EvalScalar(held[0].get(), {0.5}), EvalScalar(held[1].get(), {0.5}),
                               EvalScalar(held[2].get(), {0.5})};
        for (int gone : order) {
            held[gone].reset();
            for (int i = 0; i < 3; ++i) {
                if (held[i]) {
                    EXPECT_DOUBLE_EQ(EvalScalar(held[i].get(), {0.5}), want[i]);
                }
            }
        }
    } while (std::next_permutation(order, order + 3));
}

// MAX repeats the derivative of its first argument, so a left-nested chain
// of MAX calls has a derivative that doubles with every level.
INode* MaxChain(ICalculator* o, int depth)
{
    INode* n = X(o, 0);
    for (int i = 0; i < depth; ++i)
        n = Fn(L"MAX", {n, Bin(MUL, C(0.5), X(o, 0))});
    return n;
}

TEST(FunctionDerivative, NodeBudgetStopsExplosiveDerivatives)
{
    CalcPtr small = MakeExpr([](ICalculator* o) { return MaxChain(o, 6); });
    CalcPtr ds = Derive(small.get());
    ASSERT_NE(ds, nullptr);
    EXPECT_DOUBLE_EQ(EvalScalar(ds.get(), {2}), 1);
    EXPECT_DOUBLE_EQ(EvalScalar(ds.get(), {-2}), 0.5);

    CalcPtr huge = MakeExpr([](ICalculator* o) { return MaxChain(o, 40); });
    EXPECT_EQ(Derive(huge.get()), nullptr);
    // The budget belongs to one derivative: the next one starts afresh.
    EXPECT_NE(Derive(small.get()), nullptr);
}

}  // namespace
