#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

#include "tree_build_helpers.h"

using namespace treetest;
using parser_test::Narrow;

namespace {

using Builder = std::function<INode*(ICalculator*)>;

CalcPtr Derive(ICalculator* f)
{
    return CalcPtr(f->getDerivativeCalculator(0));
}

TEST(FunctionDerivative, WorkedValuesAtKinksAndTies)
{
    const struct {
        Builder tree;
        double at, expected;
    } cases[] = {
        {[](ICalculator* o) { return Fn(L"ABS", {X(o, 0)}); }, 0, -1},
        {[](ICalculator* o) { return Fn(L"MAX", {C(2), X(o, 0)}); }, 2, 0},
        {[](ICalculator* o) { return Fn(L"MAX", {X(o, 0), Bin(MUL, C(2), X(o, 0))}); }, 0, 1},
        {[](ICalculator* o) { return Fn(L"MIN", {C(2), X(o, 0)}); }, 2, 0},
        {[](ICalculator* o) { return Fn(L"SIGN", {X(o, 0), C(0)}); }, 2, -1},
        {[](ICalculator* o) { return Fn(L"SIGN", {X(o, 0), C(5)}); }, -2, -1},
        {[](ICalculator* o) { return Fn(L"STEP", {X(o, 0), C(0), C(0), C(1), C(1)}); }, 0.5, 1.499998},
        // The numeric rule follows only the first argument.
        {[](ICalculator* o) { return Fn(L"ATAN2", {C(1), X(o, 0)}); }, 2, 0},
    };
    for (const auto& c : cases) {
        CalcPtr e = MakeExpr(c.tree);
        EXPECT_NEAR(EvalScalar(Derive(e.get()).get(), {c.at}), c.expected, 1e-9) << Narrow(Infix(e.get())) << " at "
                                                                                  << c.at;
    }
}

TEST(FunctionDerivative, SymbolicShapes)
{
    // Calls over x (index 0) and y (index 1), differentiated in x.
    const std::pair<Builder, const wchar_t*> cases[] = {
        {[](ICalculator* o) { return Fn(L"SIN", {X(o, 0)}); }, L"(COS(v:0)*1)"},
        {[](ICalculator* o) { return Fn(L"COS", {X(o, 0)}); }, L"((0-SIN(v:0))*1)"},
        {[](ICalculator* o) { return Fn(L"LOG", {X(o, 0)}); }, L"((1/v:0)*1)"},
        {[](ICalculator* o) { return Fn(L"LOG10", {X(o, 0)}); }, L"((0/v:0)*1)"},
        {[](ICalculator* o) { return Fn(L"SQRT", {X(o, 0)}); }, L"((0/SQRT(v:0))*1)"},
        {[](ICalculator* o) { return Fn(L"EXP", {X(o, 0)}); }, L"(EXP(v:0)*1)"},
        {[](ICalculator* o) { return Fn(L"TAN", {X(o, 0)}); }, L"((1/(COS(v:0)*COS(v:0)))*1)"},
        {[](ICalculator* o) { return Fn(L"ATAN", {X(o, 0)}); }, L"((COS(ATAN(v:0))*COS(ATAN(v:0)))*1)"},
        {[](ICalculator* o) { return Fn(L"ASIN", {X(o, 0)}); }, L"((1/COS(ASIN(v:0)))*1)"},
        {[](ICalculator* o) { return Fn(L"ACOS", {X(o, 0)}); }, L"((-1/SIN(ACOS(v:0)))*1)"},
        {[](ICalculator* o) { return Fn(L"IF", {X(o, 0), X(o, 0), C(0), X(o, 1)}); }, L"IF(v:0,1,0,0)"},
        {[](ICalculator* o) { return Fn(L"MIN", {X(o, 0), X(o, 1)}); }, L"IF((v:1-v:0),0,1,1)"},
        {[](ICalculator* o) { return Fn(L"MAX", {X(o, 0), X(o, 1)}); }, L"IF((v:1-v:0),1,1,0)"},
        {[](ICalculator* o) { return Fn(L"ABS", {X(o, 0)}); }, L"(SIGN(1,v:0)*1)"},
        {[](ICalculator* o) { return Fn(L"SIGN", {X(o, 0), X(o, 1)}); }, L"(SIGN(1,(v:0*v:1))*1)"},
        {[](ICalculator* o) { return Fn(L"SIN", {Bin(MUL, X(o, 0), X(o, 1))}); },
         L"(COS((v:0*v:1))*((1*v:1)+(v:0*0)))"},
        {[](ICalculator* o) { return Fn(L"STEP", {X(o, 0), C(0), C(0), C(1), C(1)}); },
         L"(wrap:STEP(v:0,0,0,1,1)*1)"},
        // No dependence on the parameter gives a plain zero.
        {[](ICalculator* o) { return Fn(L"SIN", {X(o, 1)}); }, L"0"},
        {[](ICalculator* o) { return Fn(L"STEP", {X(o, 1), C(0), X(o, 2), C(1), C(1)}); }, L"0"},
    };
    for (const auto& c : cases) {
        CalcPtr e = MakeExpr(c.first);
        EXPECT_EQ(Infix(Derive(e.get()).get()), c.second) << Narrow(Infix(e.get()));
    }
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

TEST(FunctionDerivative, AgreesWithCentralDifference)
{
    const double sym = 1e-6, num = 1e-5;
    auto x = [](ICalculator* o) { return X(o, 0); };
    auto sq = [](ICalculator* o) { return Bin(MUL, X(o, 0), X(o, 0)); };
    // Relative tolerances: the numeric rule has its own O(h^2) error.
    const std::pair<Builder, double> cases[] = {
        {[&](ICalculator* o) { return Fn(L"SIN", {sq(o)}); }, sym},
        {[&](ICalculator* o) { return Fn(L"COS", {Bin(MUL, C(3), x(o))}); }, sym},
        {[&](ICalculator* o) { return Fn(L"LOG", {Bin(ADD, sq(o), C(1))}); }, sym},
        {[&](ICalculator* o) { return Fn(L"LOG10", {Bin(ADD, x(o), C(2))}); }, sym},
        {[&](ICalculator* o) { return Fn(L"SQRT", {Bin(ADD, x(o), C(2))}); }, sym},
        {[&](ICalculator* o) { return Fn(L"EXP", {Fn(L"SIN", {x(o)})}); }, sym},
        {[&](ICalculator* o) { return Fn(L"TAN", {Bin(DIV, x(o), C(2))}); }, sym},
        {[&](ICalculator* o) { return Fn(L"ATAN", {sq(o)}); }, sym},
        {[&](ICalculator* o) { return Fn(L"ASIN", {Bin(DIV, x(o), C(3))}); }, sym},
        {[&](ICalculator* o) { return Fn(L"ACOS", {Bin(DIV, x(o), C(3))}); }, sym},
        {[&](ICalculator* o) { return Fn(L"ABS", {Fn(L"SIN", {Bin(MUL, C(3), x(o))})}); }, sym},
        {[&](ICalculator* o) { return Fn(L"MIN", {sq(o), Bin(MUL, C(2), x(o))}); }, sym},
        {[&](ICalculator* o) { return Fn(L"MAX", {Fn(L"SIN", {x(o)}), Fn(L"COS", {x(o)})}); }, sym},
        {[&](ICalculator* o) { return Fn(L"IF", {Bin(SUB, x(o), C(1.2)), sq(o), C(0), Fn(L"EXP", {x(o)})}); }, sym},
        {[&](ICalculator* o) { return Fn(L"SIGN", {sq(o), Bin(SUB, x(o), C(1.2))}); }, sym},
        {[&](ICalculator* o) { return Bin(POW, Fn(L"SIN", {x(o)}), Fn(L"COS", {x(o)})); }, sym},
        {[&](ICalculator* o) { return Fn(L"STEP", {x(o), C(0), C(0), C(3), C(1)}); }, num},
        {[&](ICalculator* o) { return Fn(L"HAVSIN", {x(o), C(0), C(0), C(3), C(2)}); }, num},
        {[&](ICalculator* o) { return Fn(L"POLY", {sq(o), C(0), C(1), C(2), C(3)}); }, num},
        {[&](ICalculator* o) { return Fn(L"TANH", {sq(o)}); }, num},
        {[&](ICalculator* o) { return Fn(L"ATAN2", {x(o), C(2)}); }, num},
        {[&](ICalculator* o) { return Fn(L"SHF", {x(o), C(0), C(2), C(3), C(0.5), C(1)}); }, num},
    };
    for (const auto& c : cases) {
        CalcPtr e = MakeExpr(c.first);
        CalcPtr d = Derive(e.get());
        for (double at : {0.3, 1.0, 1.7, 2.5}) {
            const double h = 1e-4, want = (EvalScalar(e.get(), {at + h}) - EvalScalar(e.get(), {at - h})) / (2 * h);
            EXPECT_NEAR(EvalScalar(d.get(), {at}), want, c.second * (1 + std::fabs(want)))
                << Narrow(Infix(e.get())) << " at " << at;
        }
    }
}

TEST(FunctionDerivative, SecondDerivatives)
{
    CalcPtr s = MakeExpr([](ICalculator* o) { return Fn(L"SIN", {X(o, 0)}); });
    CalcPtr ds = Derive(s.get());
    CalcPtr dds = Derive(ds.get());
    EXPECT_NEAR(EvalScalar(dds.get(), {0.7}), -std::sin(0.7), 1e-12);

    // Numeric of numeric: STEP's second derivative 6 - 12x at x = 0.25, read
    // after the calculators it was made from are gone.
    CalcPtr st = MakeExpr([](ICalculator* o) { return Fn(L"STEP", {X(o, 0), C(0), C(0), C(1), C(1)}); });
    CalcPtr dst = Derive(st.get());
    CalcPtr ddst = Derive(dst.get());
    st.reset();
    dst.reset();
    EXPECT_NEAR(EvalScalar(ddst.get(), {0.25}), 3, 1e-4);
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
    EXPECT_EQ(Infix(d.get()), L"(wrap:SQPLUS((3*v:0),v:0)*(3*1))");
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
