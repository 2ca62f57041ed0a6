// Unit tests of the program's own pieces; the program as a whole is tested
// through cli_cases.txt.
#include <gtest/gtest.h>

#include <cmath>
#include <algorithm>
#include <sstream>

#include "tools/dot_tree.h"
#include "tools/explain.h"
#include "tools/numbers.h"
#include "tools/session.h"
#include "tools/svg_plot.h"
#include "tools/sweep.h"
#include "tools/values.h"
#include "tools/wide.h"

using namespace vexa_cli;

TEST(ParseValue, ShapesAndErrors) {
    const struct {
        const char* text;
        bool ok;
        const char* shape_or_error;
        std::vector<double> elements;
    } cases[] = {
        {"1.5", true, "scalar", {1.5}},
        {" -2e-3 ", true, "scalar", {-2e-3}},
        {"+4", true, "scalar", {4}},
        {"[7]", true, "scalar", {7}},
        {"[1, 2,3]", true, "1 x 3 vector", {1, 2, 3}},
        {"[[1,2],[3,4]]", true, "2 x 2 matrix", {1, 2, 3, 4}},
        {"[[1,2,3]]", true, "1 x 3 vector", {1, 2, 3}},
        {"", false, "expected a number", {}},
        {"[]", false, "empty brackets", {}},
        {"[1,[2]]", false, "not further brackets", {}},
        {"1.5x", false, "not a number", {}},
        {"++1", false, "not a number", {}},
    };
    for (const auto& c : cases) {
        VEXA_Data v;
        std::string err;
        std::size_t col = 0;
        const bool ok = ParseValue(c.text, v, err, col);
        ASSERT_EQ(ok, c.ok) << c.text << ": " << err;
        if (ok) {
            EXPECT_EQ(DescribeShape(v), c.shape_or_error) << c.text;
            EXPECT_EQ(Elements(v), c.elements) << c.text;
        } else {
            EXPECT_NE(err.find(c.shape_or_error), std::string::npos) << c.text << ": " << err;
            EXPECT_LE(col, std::string(c.text).size()) << c.text;
        }
    }
}

TEST(Assignment, BracedNamesMayHoldEquals) {
    Assignment a;
    std::string err;
    ASSERT_TRUE(ParseAssignment("{a=b}=2", a, err)) << err;
    EXPECT_EQ(a.name, L"{a=b}");
    EXPECT_FALSE(ParseAssignment("x", a, err));
}

TEST(Numbers, RoundTripAndNoLocale) {
    for (double v : {0.1, 1.0 / 3.0, -2.5e-300, 6.02214076e23, 123456789.0}) {
        auto back = ParseNumber(FormatExact(v));
        ASSERT_TRUE(back.has_value());
        EXPECT_EQ(*back, v);
    }
    EXPECT_EQ(FormatExact(-0.0), "0");
    EXPECT_FALSE(ParseNumber("1,5").has_value());
    EXPECT_FALSE(ParseNumber("").has_value());
    EXPECT_EQ(FormatShort(0.30000000000000004, 6), "0.3");
}

TEST(NiceTicks, StepsOfOneTwoFiveInsideTheRange) {
    const std::pair<double, double> ranges[] = {{0, 1}, {0, 2}, {-0.02, 0.02}, {0, 3}, {-60, 60}, {1e-6, 5e-6},
                                                {0.2, 0.7}, {-23162, 0}, {100, 101}};
    for (auto [lo, hi] : ranges) {
        const std::vector<double> t = NiceTicks(lo, hi);
        ASSERT_GE(t.size(), 3u) << lo << " " << hi;
        EXPECT_LE(t.size(), 12u) << lo << " " << hi;
        const double step = t[1] - t[0];
        const double mant = step / std::pow(10.0, std::floor(std::log10(step)));
        EXPECT_TRUE(std::fabs(mant - 1) < 1e-9 || std::fabs(mant - 2) < 1e-9 || std::fabs(mant - 5) < 1e-9)
            << "step " << step;
        for (double v : t) {
            EXPECT_GE(v, lo - step * 1e-6);
            EXPECT_LE(v, hi + step * 1e-6);
        }
    }
}

TEST(SweepPoints, EndsAreExact) {
    const std::vector<double> xs = SweepPoints(0.1, 0.7, 7);
    ASSERT_EQ(xs.size(), 7u);
    EXPECT_EQ(xs.front(), 0.1);
    EXPECT_EQ(xs.back(), 0.7);
    EXPECT_EQ(SweepPoints(2, 3, 1), std::vector<double>{2});
}

TEST(RenderSvg, GapsAndEscapes) {
    PlotPage page;
    page.title = "a<b & c";
    page.xlabel = "x";
    page.xs = {0, 1, 2, 3};
    page.panels.push_back({"value", {{"f", {1, NAN, 2, 3}}}});
    const std::string svg = RenderSvg(page);
    EXPECT_NE(svg.find("a&lt;b &amp; c"), std::string::npos);
    // The missing point splits the curve into two pieces.
    const std::size_t path = svg.find("<path");
    ASSERT_NE(path, std::string::npos);
    const std::string d = svg.substr(path, svg.find("/>", path) - path);
    EXPECT_EQ(std::count(d.begin(), d.end(), 'M'), 2);
}

TEST(Wide, Utf8RoundTrip) {
    const std::string s = "x \xC2\xB0 \xE2\x82\xAC \xF0\x9F\x98\x80";
    EXPECT_EQ(ToUtf8(ToWide(s)), s);
    EXPECT_EQ(ToWide("a\xFF"), std::wstring(L"a\xFFFD"));
    EXPECT_TRUE(SameNoCase(L"Time", L"TIME"));
    EXPECT_FALSE(SameNoCase(L"TIME", L"TIMES"));
}

TEST(BindValues, OrderCaseAndGaps) {
    auto given = [](std::vector<std::pair<const char*, double>> v) {
        std::vector<Assignment> out;
        for (auto& [n, x] : v) out.push_back({ToWide(n), VEXA_Data(x), n});
        return out;
    };
    std::vector<VEXA_Data> values;
    std::string err;
    std::vector<std::string> unused;
    ASSERT_TRUE(BindValues({L"a", L"TIME", L"a"}, given({{"time", 2}, {"A", 1}, {"z", 9}}), values, err, &unused));
    EXPECT_EQ(Elements(values[0]), std::vector<double>{1});
    EXPECT_EQ(Elements(values[1]), std::vector<double>{2});
    EXPECT_EQ(Elements(values[2]), std::vector<double>{1});
    EXPECT_EQ(unused, std::vector<std::string>{"z"});
    EXPECT_FALSE(BindValues({L"a", L"b", L"c"}, given({{"b", 1}}), values, err, nullptr));
    EXPECT_NE(err.find("parameters a, c"), std::string::npos) << err;
}

TEST(FindRefusedCall, BlamesTheInnermostRefusal) {
    const struct {
        const wchar_t* text;
        double x;
        const char* blamed;  // empty: nothing to blame
    } cases[] = {
        {L"SQRT(x)", -1, "SQRT(x) has no value"},
        {L"SQRT(MAX(x, SQRT(x)))", -4, "SQRT(x) has no value"},
        {L"ASIN(x) + SQRT(x)", 2, "ASIN(x) has no value"},
        {L"SQRT(x)", 4, ""},
    };
    for (const auto& c : cases) {
        Parsed p = ParseText(c.text, std::nullopt);
        std::vector<VEXA_Data> values{VEXA_Data(c.x)};
        EvaluateAt(p.calc.get(), values);
        const std::string blamed = FindRefusedCall(p.calc.get(), p.params);
        if (*c.blamed == '\0')
            EXPECT_EQ(blamed, "") << ToUtf8(c.text);
        else
            EXPECT_EQ(blamed.rfind(c.blamed, 0), 0u) << ToUtf8(c.text) << ": " << blamed;
    }
}

TEST(RunSweep, ValuesDerivativesAndMissingPoints) {
    Parsed p = ParseText(L"SQRT(x)*k", std::nullopt);
    ASSERT_EQ(p.status, ParseStatus::Ok);
    const SweepRequest req{0, -1, 3, 5, {0, 1}};
    SweepResult r;
    std::string err;
    ASSERT_TRUE(RunSweep(p.calc.get(), p.params, {VEXA_Data(0.0), VEXA_Data(2.0)}, req, r, err)) << err;
    ASSERT_EQ(r.quantities.size(), 3u);
    EXPECT_EQ(r.quantities[0].missing, 1);
    EXPECT_TRUE(std::isnan(r.quantities[0].series[0].ys[0]));
    EXPECT_DOUBLE_EQ(r.quantities[0].series[0].ys[4], std::sqrt(3.0) * 2);
    EXPECT_NEAR(r.quantities[1].series[0].ys[2], 1.0, 1e-6);  // d/dx of 2*sqrt(x) at 1
    EXPECT_NEAR(r.quantities[2].series[0].ys[3], std::sqrt(2.0), 1e-9);
    std::ostringstream table;
    PrintTable(table, r, 3);
    std::istringstream lines(table.str());
    std::vector<std::string> rows;
    for (std::string l; std::getline(lines, l);) rows.push_back(l);
    ASSERT_EQ(rows.size(), 4u);  // header, first, middle, last
    EXPECT_NE(rows[1].find("-1"), std::string::npos);
    EXPECT_NE(rows[3].find(" 3 "), std::string::npos);
}

TEST(WriteCsv, QuotesLabelsWithCommas) {
    Parsed p = ParseText(L"m*x", std::nullopt);
    ASSERT_EQ(p.status, ParseStatus::Ok);
    VEXA_Data m;
    std::string err;
    std::size_t col = 0;
    ASSERT_TRUE(ParseValue("[[1,2],[3,4]]", m, err, col));
    const SweepRequest req{1, 0, 1, 2, {}};
    SweepResult r;
    ASSERT_TRUE(RunSweep(p.calc.get(), p.params, {m, VEXA_Data(0.0)}, req, r, err)) << err;
    std::ostringstream csv;
    WriteCsv(csv, r);
    EXPECT_EQ(csv.str().substr(0, csv.str().find('\n')), "x,\"value[0,0]\",\"value[0,1]\",\"value[1,0]\",\"value[1,1]\"");
    EXPECT_NE(csv.str().find("\n1,1,2,3,4\n"), std::string::npos) << csv.str();
}

TEST(RenderDot, NamesVariablesAndEscapesTitles) {
    Parsed p = ParseText(L"SIN(speed)", std::nullopt);
    ASSERT_EQ(p.status, ParseStatus::Ok);
    const std::string dot = RenderDot({{"say \"hi\"", p.calc.get()}}, p.params);
    EXPECT_NE(dot.find("label=\"say \\\"hi\\\"\""), std::string::npos) << dot;
    EXPECT_NE(dot.find("g0n0 -> g0n1"), std::string::npos) << dot;
}
