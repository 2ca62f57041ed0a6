#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>

#include "vexa/core/data.h"

namespace {

VEXA_Data Mat(int rows, int cols, std::initializer_list<double> values) {
    VEXA_Data d(rows, cols);
    int e = 0;
    for (double v : values) d.getValue()[e++] = v;
    return d;
}

VEXA_Data Vec(std::initializer_list<double> values) {
    return Mat(1, static_cast<int>(values.size()), values);
}

// A null value that still reports the shape it had before a null was assigned.
VEXA_Data KeptNull(int rows, int cols) {
    VEXA_Data d(rows, cols);
    d = VEXA_Data();
    return d;
}

VEXA_Data CopiedNull() {
    const VEXA_Data null;
    return VEXA_Data(null);
}

// Plain functions rather than std::function: a result must reach the caller
// without a copy, since a copy of a kindless value (3 x 1) is a null one.
using Op = VEXA_Data (*)(const VEXA_Data&, const VEXA_Data&);
VEXA_Data Mul(const VEXA_Data& a, const VEXA_Data& b) { return a * b; }
VEXA_Data Sub(const VEXA_Data& a, const VEXA_Data& b) { return a - b; }
VEXA_Data Add(const VEXA_Data& a, const VEXA_Data& b) { return a + b; }
VEXA_Data Div(const VEXA_Data& a, const VEXA_Data& b) { return a / b; }
VEXA_Data Cross(const VEXA_Data& a, const VEXA_Data& b) { return a % b; }
VEXA_Data Pow(const VEXA_Data& a, const VEXA_Data& b) { return a ^ b; }

struct Case {
    const char* what;
    Op op;
    VEXA_Data a, b, expected;
};

TEST(CoreArith, Results) {
    const Case cases[] = {
        {"s*s", Mul, VEXA_Data(3), VEXA_Data(4), VEXA_Data(12)},
        {"s*v", Mul, VEXA_Data(2), Vec({1, 2, 3}), Vec({2, 4, 6})}, {"v*s", Mul, Vec({1, 2, 3}), VEXA_Data(2), Vec({2, 4, 6})},
        {"v*m", Mul, Vec({1, 2}), Mat(2, 2, {1, 2, 3, 4}), Vec({7, 10})},
        {"m*m", Mul, Mat(2, 2, {1, 2, 3, 4}), Mat(2, 2, {5, 6, 7, 8}), Mat(2, 2, {19, 22, 43, 50})},
        {"2x3*3x2", Mul, Mat(2, 3, {1, 2, 3, 4, 5, 6}), Mat(3, 2, {7, 8, 9, 10, 11, 12}), Mat(2, 2, {58, 64, 139, 154})},
        {"s*heap", Mul, VEXA_Data(0.5), Mat(1, 10, {2, 4, 6, 8, 10, 12, 14, 16, 18, 20}),
         Mat(1, 10, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10})},
        {"v-v", Sub, Vec({5, 7}), Vec({1, 2}), Vec({4, 5})}, {"null-v", Sub, VEXA_Data(), Vec({1, 2}), VEXA_Data()},
        {"copied null-v", Sub, CopiedNull(), Vec({1, 2}), VEXA_Data()},
        {"kept null-v", Sub, KeptNull(1, 2), Vec({1, 2}), Vec({-1, -2})},
        {"3x1-3x1 negates b", Sub, Mat(3, 1, {9, 9, 9}), Mat(3, 1, {1, 2, 3}), Mat(3, 1, {-1, -2, -3})},
        {"v+v", Add, Vec({1, 2}), Vec({3, 4}), Vec({4, 6})}, {"null+v", Add, VEXA_Data(), Vec({1, 2}), Vec({1, 2})},
        {"3x1+v copies b", Add, Mat(3, 1, {1, 2, 3}), Vec({1, 2}), Vec({1, 2})},
        {"v/s", Div, Vec({2, 4}), VEXA_Data(2), Vec({1, 2})}, {"null/s", Div, VEXA_Data(), VEXA_Data(2), VEXA_Data()},
        {"3x1/s", Div, Mat(3, 1, {2, 4, 6}), VEXA_Data(-2), Mat(3, 1, {-1, -2, -3})},
        {"x%y", Cross, Vec({1, 0, 0}), Vec({0, 1, 0}), Vec({0, 0, 1})},
        {"y%x", Cross, Vec({0, 1, 0}), Vec({1, 0, 0}), Vec({0, 0, -1})},
        {"general %", Cross, Vec({1, 2, 3}), Vec({4, 5, 6}), Vec({-3, 6, -3})},
        {"2^3", Pow, VEXA_Data(2), VEXA_Data(3), VEXA_Data(8)}, {"0^0", Pow, VEXA_Data(0), VEXA_Data(0), VEXA_Data(1)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const VEXA_Data r = c.op(c.a, c.b);
        // Equality also compares the reported shapes, so null results must
        // report the 0 x 0 of a default value.
        EXPECT_EQ(r.getType(), c.expected.getType());
        EXPECT_TRUE(r == c.expected);
    }
    const VEXA_Data nan = VEXA_Data(-8) ^ VEXA_Data(1.0 / 3.0);
    EXPECT_TRUE(std::isnan(nan.getValue()[0]));
}

TEST(CoreArith, NullOperandsOfProduct) {
    for (const Case& c : {Case{"null*v", Mul, VEXA_Data(), Vec({1, 2}), {}},
                          Case{"v*null", Mul, Vec({1, 2}), VEXA_Data(), {}},
                          Case{"kept null*v", Mul, KeptNull(1, 2), Vec({1, 2}), {}}}) {
        SCOPED_TRACE(c.what);
        const VEXA_Data r = c.op(c.a, c.b);
        EXPECT_EQ(r.getValue(), nullptr);
        EXPECT_TRUE(r == VEXA_Data());
    }
    // A product too large to address has no storage rather than a short one.
    VEXA_Data tall(50000, 2), wide(2, 50000);
    for (int e = 0; e < 100000; ++e) tall.getValue()[e] = wide.getValue()[e] = 1.0;
    EXPECT_EQ((tall * wide).getValue(), nullptr);
}

TEST(CoreArith, Failures) {
    const Case cases[] = {
        {"v*v", Mul, Vec({1, 2, 3}), Vec({4, 5, 6}), {}}, {"m*v", Mul, Mat(2, 2, {1, 2, 3, 4}), Vec({1, 2}), {}},
        {"-v", Sub, VEXA_Data(0), Vec({1, 2}), {}}, {"+v", Add, VEXA_Data(0), Vec({1, 2}), {}},
        {"v-null", Sub, Vec({1, 2}), VEXA_Data(), {}}, {"v+null", Add, Vec({1, 2}), VEXA_Data(), {}},
        {"v-kept", Sub, Vec({1, 2}), KeptNull(1, 2), {}}, {"v+kept", Add, Vec({1, 2}), KeptNull(1, 2), {}},
        {"kept-s", Sub, KeptNull(1, 2), VEXA_Data(1), {}}, {"kept-kept", Sub, KeptNull(1, 2), KeptNull(1, 2), {}},
        {"/0", Div, VEXA_Data(1), VEXA_Data(0.0), {}}, {"/-0", Div, VEXA_Data(1), VEXA_Data(-0.0), {}},
        {"/NaN", Div, VEXA_Data(1), VEXA_Data(std::nan("")), {}}, {"/v", Div, VEXA_Data(2), Vec({1, 2}), {}},
        {"/null", Div, Vec({1, 2}), VEXA_Data(), {}}, {"kept/s", Div, KeptNull(2, 2), VEXA_Data(2), {}},
        {"1x2%1x3", Cross, Vec({1, 2}), Vec({1, 2, 3}), {}}, {"1x3%1x4", Cross, Vec({1, 2, 3}), Vec({1, 2, 3, 4}), {}},
        {"kept%v", Cross, KeptNull(1, 3), Vec({1, 2, 3}), {}}, {"v%kept", Cross, Vec({1, 2, 3}), KeptNull(1, 3), {}},
        {"v^s", Pow, Vec({1, 2}), VEXA_Data(2), {}}, {"s^null", Pow, VEXA_Data(2), VEXA_Data(), {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        try {
            c.op(c.a, c.b);
            ADD_FAILURE() << "no failure";
        } catch (int code) {
            EXPECT_EQ(code, -10001);
        }
    }
}

}  // namespace
