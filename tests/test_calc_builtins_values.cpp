// Values of the computing built-ins, worked out by hand from their formulas.
// Inputs are chosen so that most results are exact binary fractions.
#include <gtest/gtest.h>

#include <cmath>
#include <cwchar>
#include <limits>
#include <string>
#include <vector>

#include "builtin_call.h"

namespace {

const double kPi = 3.14159265358979323846;
const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kRefused = kNaN;  // marks a row whose call must be refused

struct Case {
    const wchar_t* name;
    std::vector<double> args;
    double expected;      // kRefused when the call must fail
    double tolerance;     // 0: exact
};

void Check(const Case& c) {
    SCOPED_TRACE(testing::Message() << std::string(c.name, c.name + std::wcslen(c.name))
                                    << testing::PrintToString(c.args));
    std::vector<VEXA_Data> args(c.args.begin(), c.args.end());
    VEXA_Data result = RowVector({7.0, 8.0});
    const bool ok = CallFunction(c.name, args, result);
    if (std::isnan(c.expected)) {
        EXPECT_FALSE(ok);
        EXPECT_TRUE(IsSentinel(result));
        return;
    }
    ASSERT_TRUE(ok);
    ASSERT_EQ(result.getType(), DT_SCALAR);
    if (c.tolerance == 0.0) {
        EXPECT_EQ(result.getValue()[0], c.expected);
    } else {
        EXPECT_NEAR(result.getValue()[0], c.expected, c.tolerance);
    }
}

TEST(BuiltinValues, ByFormula) {
    const double t = 1e-12;
    const Case cases[] = {
        {L"ABS", {-2}, 2, 0},
        {L"SIN", {0.5}, std::sin(0.5), t},
        {L"sin", {0.5}, std::sin(0.5), t},
        {L"COS", {0.5}, std::cos(0.5), t},
        {L"cos", {0.5}, std::cos(0.5), t},
        {L"TAN", {0.5}, std::tan(0.5), t},
        {L"SINH", {0.5}, std::sinh(0.5), t},
        {L"COSH", {0.5}, std::cosh(0.5), t},
        {L"TANH", {0.5}, std::tanh(0.5), t},
        {L"ATAN", {1}, kPi / 4, t},
        {L"EXP", {1}, 2.718281828459045, 1e-15},
        {L"ASIN", {1}, kPi / 2, t},
        {L"ASIN", {-1.0000001}, kRefused, 0},
        {L"ACOS", {1}, 0, 0},
        {L"ACOS", {-1}, kPi, t},
        {L"ACOS", {1.5}, kRefused, 0},
        {L"LOG", {1}, 0, 0},
        {L"LOG", {0}, kRefused, 0},
        {L"LOG10", {1000}, 3, t},
        {L"LOG10", {0}, kRefused, 0},
        {L"SQRT", {0}, 0, 0},
        {L"SQRT", {2.25}, 1.5, 0},
        {L"SQRT", {-1}, kRefused, 0},
        {L"AINT", {-2.7}, -2, 0},
        {L"AINT", {3e9}, -2147483648.0, 0},
        {L"ANINT", {2.5}, 3, 0},
        {L"ANINT", {-2.5}, -3, 0},
        {L"ANINT", {0}, 0, 0},
        {L"ANINT", {-0.4}, 0, 0},
        {L"ATAN2", {1, 0}, kPi / 2, t},  // first argument is the ordinate
        {L"ATAN2", {0, -1}, kPi, t},
        {L"MAX", {1, 2}, 2, 0},
        {L"MAX", {kNaN, 1}, 1, 0},  // a >= b fails for NaN: b wins
        {L"MIN", {1, 2}, 1, 0},
        {L"MIN", {1, kNaN}, 1, 0},  // b < a fails for NaN: a wins
        {L"MOD", {7, 3}, 1, 0},
        {L"MOD", {-7, 3}, -1, 0},
        {L"MOD", {7, -3}, 1, 0},
        {L"MOD", {7.5, 2}, 1.5, 0},
        {L"MOD", {5, 0}, 5, 0},
        {L"SIGN", {3, 0}, -3, 0},
        {L"SIGN", {-3, 2}, 3, 0},
        {L"IF", {0, 1, 2, 3}, 2, 0},
        {L"IF", {-1, 1, 2, 3}, 1, 0},
        {L"IF", {5, 1, 2, 3}, 3, 0},
        {L"IF", {kNaN, 1, 2, 3}, 3, 0},
        {L"STEP", {0.5, 0, 0, 1, 1}, 0.5, 0},
        {L"STEP", {0.25, 0, 0, 1, 1}, 0.15625, 0},
        {L"STEP", {0.25, 0, 1, 1, 0}, 0.84375, 0},
        {L"STEP", {0, 0, 5, 1, 7}, 5, 0},
        {L"STEP", {1, 0, 5, 1, 7}, 7, 0},
        {L"STEP", {kNaN, 0, 5, 1, 7}, 5, 0},
        {L"STEP5", {0.5, 0, 0, 1, 1}, 0.5, 0},
        {L"STEP5", {0.25, 0, 0, 1, 1}, 0.103515625, 0},
        {L"STEP5", {1, 0, 5, 1, 7}, 7, 0},
        {L"STEP5", {kNaN, 0, 5, 1, 7}, 5, 0},
        {L"HAVSIN", {0.5, 0, 0, 1, 2}, 1, 0},
        {L"HAVSIN", {0.25, 0, 0, 1, 2}, 1 - std::sqrt(0.5), 1e-15},
        {L"HAVSIN", {0, 0, 3, 1, 5}, 3, 0},
        {L"SHF", {2, 1, 2, 0.5, 0.5, 3}, 3, 0},
        {L"SHF", {1, 0, 2, 1, 0, 1}, 2 * std::sin(1.0) + 1, 1e-15},
        // With d = 0.5 and x halfway into the damping ramp the cubic step is
        // cmax / 2 = 5; (x1 - x)^2 * 64 = 4.
        {L"IMPACT", {2, 5, 1, 100, 2, 10, 0.1}, 0, 0},
        {L"IMPACT", {0.5, 0, 1, 100, 2, 10, 0.1}, 25, 0},
        {L"IMPACT", {0.75, -2, 1, 64, 2, 10, 0.5}, 14, 0},
        {L"IMPACT", {0.75, 2, 1, 64, 2, 10, 0.5}, 0, 0},
        {L"IMPACT", {0.5, kNaN, 1, 100, 2, 10, 0.1}, 0, 0},
        {L"BISTOP", {2, 5, 1, 3, 64, 2, 10, 0.5}, 0, 0},
        {L"BISTOP", {0.75, -2, 1, 3, 64, 2, 10, 0.5}, 14, 0},
        {L"BISTOP", {3.25, 2, 1, 3, 64, 2, 10, 0.5}, -14, 0},
        {L"BISTOP", {3.25, -2, 1, 3, 64, 2, 10, 0.5}, 0, 0},
        {L"BISTOP", {4, 0, 1, 3, 64, 2, 10, 0.5}, -64, 0},
        // Silent for x <= 0 wherever the frequency window lies.
        {L"SWEEP", {-1, 2, -5, 1, 5, 3, 1}, 0, 0},
        {L"SWEEP", {-0.5, 2, 0.25, 1, 5, 3, 1}, 0, 0},
        // Before x0: phase 2 pi f0 x = pi / 2.
        {L"SWEEP", {2, 3, 5, 0.125, 6, 1, 1}, 3, t},
        // Halfway up the amplitude ramp, STEP5 gives 0.5.
        {L"SWEEP", {0.5, 3, 5, 0.5, 6, 1, 1}, 1.5, t},
        // Inside the window: k = 0.25, phase = pi / 4 + pi.
        {L"SWEEP", {2, 3, 1, 0.25, 3, 0.75, 1}, -3 * std::sqrt(0.5), t},
        // Past x1: k = 0.1875, phase = 0.75 pi + 2.75 pi.
        {L"SWEEP", {4, 3, 1, 0.25, 3, 0.625, 1}, -3, t},
        {L"POLY", {2, 1, 1, 2, 3}, 6, 0},
        {L"POLY", {1, 1, 5, 7}, 5, 0},  // 0^0 is 1
        {L"CHEBY", {1.5, 1, 0, 0, 1}, -0.5, 0},
        {L"CHEBY", {3, 1, 1, 1, 1, 1}, 36, 0},  // T = 1, 2, 7, 26 at t = 2
        {L"FORCOS", {123, 1, 7, 4}, 4, 0},
        {L"FORCOS", {1, 0, kPi, 1, 2}, -1, t},
        {L"FORCOS", {1, 0, kPi / 2, 1, 2, 3}, -2, t},  // 1 + 2 cos(pi/2) + 3 cos(pi)
        {L"FORSIN", {0.5, 0, kPi, 1, 2}, 3, t},
        {L"FORSIN", {0.25, 0, kPi, 1, 2, 3}, 4 + std::sqrt(2.0), t},
    };
    for (const Case& c : cases) Check(c);
}

// The curves are part of the solver's contract to the last bit, so the
// grouping of their arithmetic is fixed; these inputs are not binary fractions
// and would expose a regrouped formula.
TEST(BuiltinValues, StepsKeepTheirOrderOfOperations) {
    const double xs[] = {0.1, 0.3, 0.7, 0.9};
    const double x0 = 0.05, h0 = 0.3, x1 = 1.3, h1 = 2.7;
    for (double x : xs) {
        SCOPED_TRACE(x);
        const double a = (x - x0) / (x1 - x0);
        const double cubic = (3 - (a + a)) * (h1 - h0) * (a * a) + h0;
        const double quintic = ((6 * a) * a + (10 - 15 * a)) * (h1 - h0) * a * (a * a) + h0;
        Check({L"STEP", {x, x0, h0, x1, h1}, cubic, 0});
        Check({L"STEP5", {x, x0, h0, x1, h1}, quintic, 0});
    }
}

TEST(BuiltinValues, SeriesTakeFirstElementOfCoefficientValues) {
    VEXA_Data matrix(2, 2);
    matrix.getValue()[0] = 3.0;
    matrix.getValue()[1] = matrix.getValue()[2] = matrix.getValue()[3] = 100.0;
    VEXA_Data result;
    ASSERT_TRUE(CallFunction(L"POLY", {2.0, 1.0, RowVector({1, 99}), 2.0, matrix}, result));
    EXPECT_EQ(result.getValue()[0], 6.0);
    ASSERT_TRUE(CallFunction(L"FORCOS", {1.0, 0.0, RowVector({kPi, 9}), 1.0, 2.0}, result));
    EXPECT_NEAR(result.getValue()[0], -1.0, 1e-15);
}

TEST(BuiltinValues, Mag) {
    VEXA_Data stale = RowVector({3, 4, 12});
    stale = VEXA_Data();  // reports 1 x 3 but holds nothing
    VEXA_Data square(3, 3);
    for (int i = 0; i < 9; ++i) square.getValue()[i] = 1.0;

    VEXA_Data result = RowVector({7.0, 8.0});
    ASSERT_TRUE(CallFunction(L"MAG", {RowVector({3, 4, 12})}, result));
    EXPECT_EQ(result.getType(), DT_SCALAR);
    EXPECT_EQ(result.getValue()[0], 13.0);

    const std::vector<std::vector<VEXA_Data>> refused = {
        {13.0}, {RowVector({3, 4})}, {RowVector({3, 4, 12, 1})}, {square},
        {stale}, {VEXA_Data()}, {RowVector({3, 4, 12}), RowVector({3, 4, 12})}, {}};
    for (std::size_t i = 0; i < refused.size(); ++i) {
        SCOPED_TRACE(i);
        VEXA_Data untouched = RowVector({7.0, 8.0});
        EXPECT_FALSE(CallFunction(L"MAG", refused[i], untouched));
        EXPECT_TRUE(IsSentinel(untouched));
    }
}

}  // namespace
