// Unit tests of the program's own pieces; the program as a whole is tested
// through cli_cases.txt.
#include <gtest/gtest.h>

#include <cmath>
#include <algorithm>
#include <sstream>

#include "tools/dot_tree.h"
#include "tools/numbers.h"
#include "tools/session.h"
#include "tools/svg_plot.h"
#include "tools/sweep.h"
#include "tools/syntax_locate.h"
#include "tools/values.h"
#include "tools/wide.h"

using namespace vexa_cli;

TEST(PreProcess, MatchesTheParsersRewriting) {
    const struct {
        const wchar_t* in;
        const wchar_t* out;
    } cases[] = {
        {L"1 + 2", L"1+2"},   {L"2 * * 3", L"2^3"},     {L"2***3", L"2^3"},     {L"2**-3", L"2^@3"},
        {L"+x", L"!x"},       {L"f(a,-b)", L"f(a,@b)"}, {L"(x)-y", L"(x)-y"},   {L"1E-5", L"1E-5"},
        {L"{a}-1", L"{a}-1"}, {L"{p q-r}", L"{p q-r}"}, {L"x\t\n", L"x"},       {L"x \t+1", L"x\t+1"},
        {L"x-y", L"x-y"},     {L"   ", L""},
    };
    for (const auto& c : cases) EXPECT_EQ(PreProcess(c.in), c.out) << ToUtf8(c.in);
}

TEST(LocateSyntaxError, AgreesWithTheLibraryAndNamesTheLevel) {
    const struct {
        const wchar_t* text;
        std::size_t depth;  // nesting of the failing level
        bool refused;
        const char* reason;  // part of the reason, or of the level text for refusals
    } cases[] = {
        {L"x(y)", 0, false, "two operands"},
        {L"()", 0, false, "no operand"},
        {L"1E5E2", 0, false, "second exponent"},
        {L"1E2.5", 0, false, "exponent cannot have a decimal point"},
        {L"1R2R", 0, false, "radian mark"},
        {L"SIN(x, 1#)", 1, false, "cannot start a token"},
        {L"MAX(1, SIN(2 +))", 2, false, "missing an operand"},
        {L"IF(x: 1, 2, (3)", 0, false, "not closed"},
        {L"MAX(x, POLY(x))", 1, true, "POLY"},
        {L"BISTOP({a}, {b}, {c}, 1, 1, 1, 1, 1)", 0, true, "BISTOP"},
        {L"MAG(x)", 0, true, "MAG"},
    };
    for (const auto& c : cases) {
        int code = -1;
        ASSERT_FALSE(ParsesAlone(c.text, std::nullopt, &code)) << ToUtf8(c.text);
        const SyntaxLocation loc = LocateSyntaxError(c.text, std::nullopt, code);
        EXPECT_TRUE(loc.agrees) << ToUtf8(c.text) << " library " << code << " tool " << loc.code;
        EXPECT_EQ(loc.path.size(), c.depth) << ToUtf8(c.text);
        EXPECT_EQ(loc.refused_call, c.refused) << ToUtf8(c.text);
        const std::string seen = c.refused ? ToUtf8(loc.call_name) : loc.reason;
        EXPECT_NE(seen.find(c.reason), std::string::npos) << ToUtf8(c.text) << ": " << seen;
    }
}

TEST(CallsIn, SplitsLikeTheParser) {
    const std::vector<CallPiece> calls = CallsIn(L"2*MAX(x, IF(y: 1, 2, 3)) + 1E5 - SIN(-z)");
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].name, L"MAX");
    EXPECT_EQ(calls[0].args, (std::vector<std::wstring>{L"x", L"IF(y:1,2,3)"}));
    EXPECT_EQ(calls[1].args, (std::vector<std::wstring>{L"@z"}));
    const std::vector<CallPiece> inner = CallsIn(calls[0].args[1]);
    ASSERT_EQ(inner.size(), 1u);
    EXPECT_EQ(inner[0].args, (std::vector<std::wstring>{L"y", L"1", L"2", L"3"}));
}

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

namespace {

std::string Prefix(const TreeNode& n) {
    std::string s = n.text;
    if (!n.children.empty()) {
        s += "(";
        for (std::size_t i = 0; i < n.children.size(); ++i) s += (i ? "," : "") + Prefix(*n.children[i]);
        s += ")";
    }
    return s;
}

}  // namespace

TEST(TreeFromDump, RebuildsTheLibrarysTrees) {
    const struct {
        const wchar_t* text;
        const char* prefix;
    } cases[] = {
        {L"x + y*z", "+(v:0,*(v:1,v:2))"},
        {L"x - MAX(y, 2) - z", "-(-(v:0,MAX(v:1,2)),v:2)"},
        {L"STEP(x, 0, MIN(x, y)*2, 1, 2) ^ -x", "^(STEP(v:0,0,*(MIN(v:0,v:1),2),1,2),-(0,v:0))"},
        {L"MAX(x - y, SIN(z))", "MAX(-(v:0,v:1),SIN(v:2))"},
        {L"5", "5"},
    };
    for (const auto& c : cases) {
        Parsed p = ParseText(c.text, std::nullopt);
        ASSERT_EQ(p.status, ParseStatus::Ok) << ToUtf8(c.text);
        std::vector<std::wstring> lines;
        dynamic_cast<Expression*>(p.calc.get())->Dump(lines);
        std::unique_ptr<TreeNode> tree = TreeFromDump(lines);
        ASSERT_TRUE(tree) << ToUtf8(c.text);
        EXPECT_EQ(Prefix(*tree), c.prefix) << ToUtf8(c.text);
    }
    EXPECT_FALSE(TreeFromDump({L"          v:0", L"          v:1"}));
}

TEST(Wide, Utf8RoundTrip) {
    const std::string s = "x \xC2\xB0 \xE2\x82\xAC \xF0\x9F\x98\x80";
    EXPECT_EQ(ToUtf8(ToWide(s)), s);
    EXPECT_EQ(ToWide("a\xFF"), std::wstring(L"a\xFFFD"));
    EXPECT_TRUE(SameNoCase(L"Time", L"TIME"));
    EXPECT_FALSE(SameNoCase(L"TIME", L"TIMES"));
}

#include "tools/errors.h"
#include "tools/explain.h"

TEST(DescribeListRejection, PointsAtTheCause) {
    const struct {
        const wchar_t* list;
        const char* cause;
    } cases[] = {
        {L"x_y", "an underscore"}, {L"a}", "'}'"}, {L"  ", "ends in a space"}, {L"x\ty", "a tab"},
    };
    for (const auto& c : cases) {
        std::wstring copy = c.list;
        EXPECT_EQ(ParseText(L"1", copy).status, ParseStatus::ListRejected) << ToUtf8(c.list);
        const std::string msg = DescribeListRejection(c.list);
        EXPECT_NE(msg.find(c.cause), std::string::npos) << msg;
    }
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
        std::vector<Assignment> given{{L"x", VEXA_Data(c.x), "x"}};
        const std::string blamed = FindRefusedCall(c.text, std::nullopt, given);
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
    std::vector<std::wstring> lines;
    dynamic_cast<Expression*>(p.calc.get())->Dump(lines);
    std::unique_ptr<TreeNode> tree = TreeFromDump(lines);
    ASSERT_TRUE(tree);
    const std::string dot = RenderDot({{"say \"hi\"", tree.get()}}, p.params);
    EXPECT_NE(dot.find("label=\"say \\\"hi\\\"\""), std::string::npos) << dot;
    EXPECT_NE(dot.find("g0n0 -> g0n1"), std::string::npos) << dot;
}

TEST(DescribeSyntaxError, FallsBackToTheLibrarysCodeWhenItCannotRetrace) {
    // A code the tool cannot reproduce: show the top-level text and say that
    // the position may count in an argument.
    const std::string msg = DescribeSyntaxError(L"SIN(x) + 1", std::nullopt, 4);
    EXPECT_NE(msg.find("position 4"), std::string::npos) << msg;
    EXPECT_NE(msg.find("argument's own text"), std::string::npos) << msg;
    EXPECT_NE(msg.find("    SIN(x)+1\n        ^"), std::string::npos) << msg;
    const std::string refused = DescribeSyntaxError(L"SIN(x) + 1", std::nullopt, 100);
    EXPECT_NE(refused.find("refused by its function"), std::string::npos) << refused;
}
