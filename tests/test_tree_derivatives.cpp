// Derivatives beyond the tree shapes of tests/data/expressions.txt: wrong
// argument counts, higher orders, registered functions and lifetimes.
#include <gtest/gtest.h>

#include <algorithm>

#include "test_util.h"

using namespace testutil;
using namespace vexa;

namespace {

CalcRef Derive(ICalculator* f) {
    return CalcRef(f->getDerivativeCalculator(0));
}

TEST(Derivative, WrongArgumentCountThrowsBeforeBuilding) {
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
            CalcRef e = MakeExpr([&](ICalculator* o) {
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
    // partial tree (the sanitizer build checks).
    CalcRef nested = MakeExpr([](ICalculator* o) {
        return Bin(kMul, Fn(L"EXP", {X(o, 0)}), Fn(L"COS", {FnOver(Builtin(L"SIN"), {X(o, 0), X(o, 0)})}));
    });
    EXPECT_THROW(Derive(nested.get()), int);
}

TEST(Derivative, SecondOrderSymbolicAndNumeric) {
    ParseResult s = Parse(L"SIN(x)");
    EXPECT_NEAR(Eval(Derive(Derive(s.calc.get()).get()).get(), {0.7}), -std::sin(0.7), 1e-12);
    // Numeric of numeric: STEP's second derivative 6 - 12x at x = 0.25, read
    // after the calculators it was made from are gone.
    ParseResult st = Parse(L"STEP(x, 0, 0, 1, 1)");
    CalcRef dst = Derive(st.calc.get());
    CalcRef ddst = Derive(dst.get());
    st.calc.reset();
    dst.reset();
    EXPECT_NEAR(Eval(ddst.get(), {0.25}), 3, 1e-4);
}

TEST(Derivative, NumericDerivativeOfRegisteredFunctionHoldsItsCalculator) {
    // x * x + p1, registered; the host then gives every reference of its own back.
    ParseResult sq = Parse(L"x*x + y", L"x,y");
    VEXA_WString name(L"SQPLUS");
    ASSERT_TRUE(FunctionFactory::getInstance()->Register(name, sq.calc.get()));
    ParseResult e = Parse(L"SQPLUS(3*x, x)");
    CalcRef d = Derive(e.calc.get());
    EXPECT_EQ(TreeText(d.get()), L"wrap:SQPLUS(3*v:0, v:0)*(3*1)");
    e.calc.reset();
    FunctionFactory::getInstance()->UnRegister(name);
    ICalculator* held = sq.calc.release();
    EXPECT_FALSE(held->Release());
    EXPECT_FALSE(held->Release());  // the derivative still holds it
    // d/dx (9x^2 + x) numerically in the first argument only: 18x.
    EXPECT_NEAR(Eval(d.get(), {2}), 36, 1e-9);
    d.reset();  // frees the registered expression; the sanitizer build checks it
}

TEST(Derivative, ReleaseOrderDoesNotMatter) {
    int order[] = {0, 1, 2};
    do {
        CalcRef held[3];
        held[0] = std::move(Parse(L"STEP(x, 0, 0, 1, 1) * SIN(x)").calc);
        held[1].reset(static_cast<Expression*>(held[0].get())->Copy());
        held[2] = Derive(held[0].get());
        const double want[] = {Eval(held[0].get(), {0.5}), Eval(held[1].get(), {0.5}), Eval(held[2].get(), {0.5})};
        for (int gone : order) {
            held[gone].reset();
            for (int i = 0; i < 3; ++i) {
                if (held[i]) {
                    EXPECT_DOUBLE_EQ(Eval(held[i].get(), {0.5}), want[i]);
                }
            }
        }
    } while (std::next_permutation(order, order + 3));
}

}  // namespace
