// vexa::CompiledExpression::EvaluateShapedMany against the calculator's own
// Evaluate with vectors and matrices, point by point: every element bit for
// bit, every failed point NaN throughout and reported with Evaluate's
// failure and code, over strides that interleave, hold and run contiguous,
// on one thread and on two.
#include <gtest/gtest.h>

#include <map>
#include <stdexcept>

#include "compiled_expression_util.h"

using namespace form_test;

namespace {

struct Shape {
    int rows, cols;
    std::size_t size() const { return static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols); }
};

// How a column lies: contiguous, interleaved with other data, held.
enum Lay { kTight, kGapped, kHeld };

// Evaluate at one point, its elements and failure.
vexa::Outcome ShapedReference(ICalculator* calc, std::vector<VEXA_Data>& values, Shape want, std::vector<double>& out)
{
    VEXA_Data result;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    out.assign(want.size(), nan);
    try {
        calc->Evaluate(static_cast<int>(values.size()), values.data(), result);
    } catch (int code) {
        return {nan, vexa::Failure::kThrown, code};
    }
    if (result.getType() == DT_NULL)
        return {nan, vexa::Failure::kNull, 0};
    int rows = 0, cols = 0;
    result.getDataInfo(rows, cols);
    if (rows != want.rows || cols != want.cols)
        return {nan, vexa::Failure::kWrongShape, 0};
    out.assign(result.getValue(), result.getValue() + want.size());
    return {out[0], vexa::Failure::kNone, 0};
}

struct Case {
    const char* text;
    const wchar_t* names;
    std::vector<Shape> shapes;
    Shape result;
    vexa::Failure everywhere;  // what every point gets, kNone: Evaluate decides
};

const Case kCases[] = {
    {"R%F", L"R,F", {{1, 3}, {1, 3}}, {1, 3}, vexa::Failure::kNone},
    {"u*M", L"u,M", {{1, 3}, {3, 3}}, {1, 3}, vexa::Failure::kNone},
    {"M*M+M", L"M", {{3, 3}}, {3, 3}, vexa::Failure::kNone},
    {"k*V", L"k,V", {{1, 1}, {1, 3}}, {1, 3}, vexa::Failure::kNone},
    {"u*M*k-u", L"u,M,k", {{1, 3}, {3, 3}, {1, 1}}, {1, 3}, vexa::Failure::kNone},
    {"A*B", L"A,B", {{2, 3}, {3, 4}}, {2, 4}, vexa::Failure::kNone},
    // A division by zero throws at the points where k is 0 alone.
    {"V*(1/k)+V", L"V,k", {{1, 3}, {1, 1}}, {1, 3}, vexa::Failure::kNone},
    // A number from vectors that take no part in it.
    {"SIN(k)*2", L"k,V", {{1, 1}, {1, 3}}, {1, 1}, vexa::Failure::kNone},
    // There is no product of two vectors, nor a sum of a vector and a matrix.
    {"(u%v)*w", L"u,v,w", {{1, 3}, {1, 3}, {1, 3}}, {1, 3}, vexa::Failure::kThrown},
    {"R+M", L"R,M", {{1, 3}, {3, 3}}, {1, 3}, vexa::Failure::kThrown},
    // The result is not of the shape asked for.
    {"R%F", L"R,F", {{1, 3}, {1, 3}}, {3, 3}, vexa::Failure::kWrongShape},
    {"M", L"M", {{3, 3}}, {1, 1}, vexa::Failure::kWrongShape},
    {"k+1", L"k,V", {{1, 1}, {1, 3}}, {1, 3}, vexa::Failure::kWrongShape},
    {"x*y", L"x,y", {{1, 1}, {1, 1}}, {1, 1}, vexa::Failure::kNone},
};

TEST(CompiledShapedBulk, EveryElementMatchesEvaluateBitForBit)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> value(-3.0, 3.0);
    const std::size_t n = 150;  // two whole blocks and a part
    for (const Case& c : kCases) {
        Calc calc = Parse(c.text, c.names);
        ASSERT_TRUE(calc) << c.text;
        const auto form = vexa::CompiledExpression::Make(calc.get(), static_cast<int>(c.shapes.size()));
        ASSERT_TRUE(form) << c.text;
        for (Lay lay : {kTight, kGapped, kHeld}) {
            for (int threads : {1, 2}) {
                SCOPED_TRACE(std::string(c.text) + " lay " + std::to_string(lay) + " threads " +
                             std::to_string(threads));
                // Each column lies as `lay` says, the last one always tight.
                std::vector<std::vector<double>> data(c.shapes.size());
                std::vector<vexa::ShapedColumn> columns;
                for (std::size_t k = 0; k < c.shapes.size(); ++k) {
                    const Shape s = c.shapes[k];
                    const Lay here = k + 1 == c.shapes.size() ? kTight : lay;
                    const std::ptrdiff_t stride = here == kHeld ? 0 : static_cast<std::ptrdiff_t>(s.size()) + (here == kGapped ? 2 : 0);
                    data[k].resize(here == kHeld ? s.size() : n * static_cast<std::size_t>(stride));
                    for (std::size_t e = 0; e < data[k].size(); ++e)
                        data[k][e] = (s.size() == 1 && e % 7 == 3) ? 0.0 : value(rng);
                    columns.push_back({data[k].data(), stride, s.rows, s.cols});
                }
                std::vector<double> results(n * c.result.size(), -7.0);
                vexa::Options options;
                options.threads = threads;
                options.max_reported = n;
                const vexa::Report report =
                    form->EvaluateShapedMany(n, columns.data(), c.result.rows, c.result.cols, results.data(), options);

                std::map<std::size_t, vexa::PointFailure> reported;
                for (const vexa::PointFailure& p : report.first)
                    reported[p.index] = p;
                EXPECT_EQ(report.failed, reported.size());
                std::vector<VEXA_Data> values(c.shapes.size());
                std::vector<double> want;
                for (std::size_t i = 0; i < n; ++i) {
                    for (std::size_t k = 0; k < c.shapes.size(); ++k) {
                        const double* at = columns[k].data + static_cast<std::ptrdiff_t>(i) * columns[k].stride;
                        values[k] = VEXA_Data(c.shapes[k].rows, c.shapes[k].cols);
                        std::copy(at, at + c.shapes[k].size(), values[k].getValue());
                    }
                    const vexa::Outcome o = ShapedReference(calc.get(), values, c.result, want);
                    if (c.everywhere != vexa::Failure::kNone) {
                        EXPECT_EQ(o.failure, c.everywhere) << "point " << i;
                    }
                    const auto told = reported.find(i);
                    if (o.ok()) {
                        EXPECT_EQ(told, reported.end()) << "point " << i;
                    } else if (told == reported.end()) {
                        ADD_FAILURE() << "point " << i << " not reported";
                    } else {
                        EXPECT_EQ(told->second.failure, o.failure) << "point " << i;
                        EXPECT_EQ(told->second.code, o.code) << "point " << i;
                    }
                    for (std::size_t e = 0; e < want.size(); ++e) {
                        const double got = results[i * c.result.size() + e];
                        if (o.ok())
                            EXPECT_EQ(Bits(got), Bits(want[e])) << "point " << i << " element " << e;
                        else
                            EXPECT_TRUE(std::isnan(got)) << "point " << i << " element " << e;
                    }
                }
            }
        }
    }
}

// Numbers throughout run as EvaluateMany does, strictness included.
TEST(CompiledShapedBulk, NumbersThroughoutKeepStrictness)
{
    Calc calc = Parse("LOG(x)+5", L"x");
    const auto form = vexa::CompiledExpression::Make(calc.get(), 1);
    ASSERT_TRUE(form);
    const double x[] = {1.0, -1.0};
    const vexa::ShapedColumn column = {x, 1, 1, 1};
    double out[2];
    vexa::Options strict;
    strict.strict = true;
    vexa::Report r = form->EvaluateShapedMany(2, &column, 1, 1, out, strict);
    EXPECT_EQ(r.by_kind[static_cast<int>(vexa::Failure::kRefused)], 1u);
    EXPECT_EQ(out[0], 5.0);
    r = form->EvaluateShapedMany(2, &column, 1, 1, out);
    EXPECT_TRUE(r.ok());
    EXPECT_EQ(out[1], 5.0);
}

// Shapes the language has not and counts no buffer can match are refused
// before a value is written, by the form and by the entry for any
// calculator alike.
TEST(CompiledShapedBulk, ShapesAndReachesOutOfRangeAreRefused)
{
    const std::size_t kMax = static_cast<std::size_t>(-1);
    Calc calc = Parse("R*k", L"R,k");
    const auto form = vexa::CompiledExpression::Make(calc.get(), 2);
    ASSERT_TRUE(form);
    const double data[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    struct Case {
        Shape param, result;
        std::size_t n;
        std::ptrdiff_t stride;
        bool shape;  // a shape refused, else a reach
    } cases[] = {
        {{1, 3}, {0, 3}, 2, 3, true},          {{3, 1}, {1, 3}, 2, 3, true},
        {{1, 0}, {1, 3}, 2, 3, true},          {{1, 3}, {2, 1}, 2, 3, true},
        {{-1, -3}, {1, 3}, 2, 3, true},        {{65536, 65536}, {1, 3}, 1, 0, true},
        {{1, 3}, {1, 3}, kMax, 3, false},      {{1, 3}, {3, 3}, kMax / 9 + 1, 0, false},
        {{1, 3}, {1, 3}, 5, PTRDIFF_MAX / 4, false}, {{1, 3}, {1, 3}, 2, PTRDIFF_MIN, false},
        {{1, 3}, {46340, 46340}, std::size_t(1) << 30, 0, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.param.rows) + "x" + std::to_string(c.param.cols) + " n " + std::to_string(c.n));
        const vexa::ShapedColumn columns[] = {{data, c.stride, c.param.rows, c.param.cols}, {data, 0, 1, 1}};
        double out[9] = {-7, -7, -7};
        for (bool anyCalculator : {false, true}) {
            auto call = [&] {
                if (anyCalculator)
                    vexa::EvaluateShapedMany(calc.get(), 2, c.n, columns, c.result.rows, c.result.cols, out);
                else
                    form->EvaluateShapedMany(c.n, columns, c.result.rows, c.result.cols, out);
            };
            if (c.shape)
                EXPECT_THROW(call(), std::invalid_argument);
            else
                EXPECT_THROW(call(), std::length_error);
            EXPECT_EQ(out[0], -7);
        }
    }
}

// Without a form (no calculator at all) every point is null, NaN throughout.
TEST(CompiledShapedBulk, NoCalculatorGivesNullPoints)
{
    const double r[3] = {1, 2, 3};
    const vexa::ShapedColumn column = {r, 0, 1, 3};
    double out[6] = {0, 0, 0, 0, 0, 0};
    const vexa::Report report = vexa::EvaluateShapedMany(nullptr, 1, 2, &column, 1, 3, out);
    EXPECT_EQ(report.by_kind[static_cast<int>(vexa::Failure::kNull)], 2u);
    for (double v : out)
        EXPECT_TRUE(std::isnan(v));
}

}  // namespace
