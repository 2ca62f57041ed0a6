// vexa::ExactDerivative and CompiledExpression::Hessian against independent
// references (tests/data/exact_derivatives.txt): Richardson-extrapolated
// central differences in long double away from kinks, hand-written partials
// at and beside them.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "compiled_expression_util.h"
#include "test_util.h"

using namespace form_test;
using testutil::Eval;

namespace {

struct Row {
    std::string line, text, names, expected;
    std::vector<double> point;
    std::vector<int> by;
};

std::vector<Row> Rows()
{
    std::vector<Row> rows;
    for (const testutil::CaseLine& c : testutil::ReadCases("exact_derivatives.txt")) {
        const std::string text = vexa::ToUtf8(c.fields[0]);
        Row r{"line " + std::to_string(c.line) + ": " + text, text, vexa::ToUtf8(c.fields[1]),
              vexa::ToUtf8(c.fields[4]), testutil::Numbers(vexa::ToUtf8(c.fields[2])), {}};
        for (double by : testutil::Numbers(vexa::ToUtf8(c.fields[3])))
            r.by.push_back(static_cast<int>(by));
        rows.push_back(r);
    }
    return rows;
}

// The calculator of the row's text (after the library's derivative for "D0:").
Calc Subject(const Row& r)
{
    const bool tree = r.text.compare(0, 3, "D0:") == 0;
    const std::wstring names(r.names.begin(), r.names.end());
    Calc c = Parse(tree ? r.text.substr(3) : r.text, names.c_str());
    return tree && c ? Calc(c->getDerivativeCalculator(0)) : std::move(c);
}

// The partial of calc by by[0..order) (order 0: calc itself).
Calc Partial(ICalculator* calc, const std::vector<int>& by, std::size_t order)
{
    calc->AddRef();
    Calc c(calc);
    for (std::size_t k = 0; k < order && c; ++k)
        c = Calc(vexa::ExactDerivative(c.get(), by[k]));
    return c;
}

// d/dx_k of f at point: central differences at h, h/2, h/4, h/8, extrapolated.
long double Richardson(ICalculator* f, std::vector<double> point, int k)
{
    const double x = point[static_cast<std::size_t>(k)];
    long double table[4];
    for (int level = 0; level < 4; ++level) {
        const double h = 1e-2 * std::max(1.0, std::fabs(x)) / (1 << level);
        point[static_cast<std::size_t>(k)] = x + h;
        const long double up = Eval(f, point);
        point[static_cast<std::size_t>(k)] = x - h;
        const long double down = Eval(f, point);
        table[level] = (up - down) / (2.0L * h);
    }
    for (int m = 1; m < 4; ++m)
        for (int level = 3; level >= m; --level)
            table[level] = (std::pow(4.0L, m) * table[level] - table[level - 1]) / (std::pow(4.0L, m) - 1.0L);
    return table[3];
}

TEST(ExactDerivative, MatchesReferencesOnEveryRowOfTheTable)
{
    Register(L"EXSQS", "a*a*SIN(b)", L"a,b");
    const std::vector<Row> rows = Rows();
    ASSERT_GT(rows.size(), 30u);
    for (const Row& r : rows) {
        Calc subject = Subject(r);
        ASSERT_TRUE(subject) << r.line;
        Calc d = Partial(subject.get(), r.by, r.by.size());
        ASSERT_TRUE(d) << r.line;
        std::vector<VEXA_Data> values(r.point.begin(), r.point.end());
        VEXA_Data out;
        bool ok = false;
        std::string got;
        try {
            ok = d->Evaluate(static_cast<int>(values.size()), values.data(), out);
            got = ok ? "" : "null";
        } catch (int code) {
            got = "throws " + std::to_string(code);
        }
        if (r.expected == "null" || r.expected.compare(0, 6, "throws") == 0) {
            EXPECT_EQ(got, r.expected) << r.line;
            continue;
        }
        ASSERT_TRUE(ok) << r.line << ": " << got;
        const double value = *out.getValue();
        double expected;
        if (r.expected == "fd") {
            Calc lower = Partial(subject.get(), r.by, r.by.size() - 1);
            expected = static_cast<double>(Richardson(lower.get(), r.point, r.by.back()));
        } else {
            expected = std::stod(r.expected);
        }
        EXPECT_NEAR(value, expected, 1e-6 * std::max(1.0, std::fabs(expected))) << r.line;
        if (r.by.size() == 2) {
            // The mixed partial does not depend on the order of nesting.
            Calc swapped = Partial(subject.get(), {r.by[1], r.by[0]}, 2);
            EXPECT_NEAR(Eval(swapped.get(), r.point), value, 1e-9 * std::max(1.0, std::fabs(value))) << r.line;
        }
    }
}

// Rows, columns and elements; a 1 x 1 value is a number.
VEXA_Data ValueOf(const std::string& s)
{
    const std::vector<double> n = testutil::Numbers(s);
    if (n.size() < 3)
        return VEXA_Data();
    if (n.size() == 3 && n[0] == 1 && n[1] == 1)
        return VEXA_Data(n[2]);
    VEXA_Data d(static_cast<int>(n[0]), static_cast<int>(n[1]));
    std::copy(n.begin() + 2, n.end(), d.getValue());
    return d;
}

TEST(ExactDerivative, ShapedValuesAndParametersGiveHandWrittenJacobians)
{
    const std::vector<testutil::CaseLine> cases = testutil::ReadCases("exact_jacobians.txt");
    ASSERT_GT(cases.size(), 7u);
    for (const testutil::CaseLine& c : cases) {
        SCOPED_TRACE("line " + std::to_string(c.line) + ": " + vexa::ToUtf8(c.fields[0]));
        Calc calc = Parse(vexa::ToUtf8(c.fields[0]), c.fields[1].c_str());
        ASSERT_TRUE(calc);
        Calc d(vexa::ExactDerivative(calc.get(), std::stoi(vexa::ToUtf8(c.fields[3]))));
        ASSERT_TRUE(d);
        std::vector<VEXA_Data> point;
        std::wstringstream values(c.fields[2]);
        for (std::wstring value; std::getline(values, value, L';');)
            point.push_back(ValueOf(vexa::ToUtf8(value)));
        const VEXA_Data expected = ValueOf(vexa::ToUtf8(c.fields[4]));
        VEXA_Data out;
        const bool ok = d->Evaluate(static_cast<int>(point.size()), point.data(), out);
        EXPECT_EQ(ok, expected.getType() != DT_NULL);
        EXPECT_TRUE(!ok || out == expected);
        // No second order of a shaped value.
        Calc d2(d->getDerivativeCalculator(0));
        EXPECT_FALSE(d2 && d2->Evaluate(static_cast<int>(point.size()), point.data(), out));
    }
}

TEST(ExactDerivative, RefusesIndicesOutOfRangeWithAReason)
{
    Calc calc = Parse("x*y", L"x,y");
    for (int index : {-1, 2, 7}) {
        std::string why;
        EXPECT_EQ(vexa::ExactDerivative(calc.get(), index, &why), nullptr) << index;
        EXPECT_NE(why.find("no parameter of index " + std::to_string(index)), std::string::npos) << why;
    }
    Calc d(vexa::ExactDerivative(calc.get(), 0));
    for (int index : {-1, 2})
        EXPECT_EQ(d->getDerivativeCalculator(index), nullptr) << index;
    // Past the highest order, and for a calculator it cannot compile.
    Calc d4 = Partial(calc.get(), {0, 1, 0, 1}, 4);
    ASSERT_TRUE(d4);
    EXPECT_EQ(d4->getDerivativeCalculator(0), nullptr);
    std::string why;
    EXPECT_EQ(vexa::ExactDerivative(nullptr, 0, &why), nullptr);
    EXPECT_FALSE(why.empty());
}

TEST(ExactDerivative, IsACalculatorLikeAnyOther)
{
    Calc calc = Parse("x*x*y", L"x,y");
    Calc d(vexa::ExactDerivative(calc.get(), 0));
    // Registered as a function and called from a text: 2xy.
    VEXA_WString name(L"EXDX");
    ASSERT_TRUE(FunctionFactory::getInstance()->Register(name, d.get()));
    Calc caller = Parse("EXDX(x, y) + 1", L"x,y");
    ASSERT_TRUE(caller);
    EXPECT_EQ(Eval(caller.get(), {3, 2}), 13.0);
    ASSERT_TRUE(FunctionFactory::getInstance()->UnRegister(name));
    d->Release();  // the registry's reference
    Calc copy(static_cast<vexa::ExactDerivativeCalculator*>(d.get())->Copy());
    d.reset();
    EXPECT_EQ(Eval(copy.get(), {3, 2}), 12.0);
    // Missing or non-scalar parameters give a null value.
    VEXA_Data one(1.0), vec(1, 3), out;
    EXPECT_FALSE(copy->Evaluate(1, &one, out));
    VEXA_Data mixed[2] = {vec, one};
    EXPECT_FALSE(copy->Evaluate(2, mixed, out));
}

TEST(ExactDerivative, HessianIsSymmetricAndMatchesNestedPartials)
{
    Calc calc = Parse("SIN(x*y)*EXP(z)+x^3*z+MAX(x,y)*y", L"x,y,z");
    const auto form = vexa::CompiledExpression::Make(calc.get(), 3);
    vexa::Workspace ws(*form);
    const std::vector<double> point = {0.4, 1.1, -0.3};
    double H[9];
    ASSERT_TRUE(form->Hessian(point.data(), H, ws).ok());
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            Calc d = Partial(calc.get(), {i, j}, 2);
            EXPECT_EQ(H[i * 3 + j], H[j * 3 + i]);
            EXPECT_NEAR(H[i * 3 + j], Eval(d.get(), point), 1e-12) << i << j;
        }
    Calc bad = Parse("1/(x-1)+y+z", L"x,y,z");
    const auto badForm = vexa::CompiledExpression::Make(bad.get(), 3);
    vexa::Workspace badWs(*badForm);
    const double at[3] = {1, 0, 0};
    const vexa::Outcome o = badForm->Hessian(at, H, badWs);
    EXPECT_EQ(o.failure, vexa::Failure::kThrown);
    EXPECT_TRUE(std::isnan(H[4]));
}

}  // namespace
