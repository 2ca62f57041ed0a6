// What the parser promises beyond single texts: the out-pointer and the name
// list on failure, copies of a parser, length limits, registered functions,
// long host lists, and the diagnosis through deep nesting.
#include <gtest/gtest.h>

#include "test_util.h"

using namespace testutil;

namespace {

std::vector<std::wstring> NamesOf(VexaParser& parser) {
    std::vector<std::wstring> names;
    for (int i = 0; i < parser.getParamsNum(); ++i)
        names.push_back(parser.getParam(i).getWChar_t());
    return names;
}

TEST(Parser, FailureLeavesARootlessExpressionAndTheNamesSoFar) {
    VexaParser parser;
    EXPECT_FALSE(parser.canPlot());
    vexa::CalcRef calc;
    wchar_t list[] = L"x";
    EXPECT_THROW(parser.parse(L"a+b+#", list, calc.receive()), int);
    ASSERT_TRUE(calc);
    EXPECT_TRUE(DumpOf(calc.get()).empty());
    EXPECT_TRUE(std::isnan(Eval(calc.get(), {})));
    EXPECT_EQ(NamesOf(parser), (std::vector<std::wstring>{L"x", L"a", L"b"}));
    EXPECT_EQ(vexa::DiagnoseLastParse(parser).code, 4);

    // A rejected list returns false and leaves the out-pointer alone.
    wchar_t bad[] = L"x1";
    ICalculator* const untouched = reinterpret_cast<ICalculator*>(0x1);
    ICalculator* out = untouched;
    EXPECT_FALSE(parser.parse(L"1", bad, &out));
    EXPECT_EQ(out, untouched);
    EXPECT_EQ(vexa::DiagnoseLastParse(parser).outcome, vexa::ParseOutcome::kListRejected);

    // Without an out-pointer nothing leaks; a null text is an empty one.
    EXPECT_TRUE(parser.parse(L"x+1", nullptr, nullptr));
    EXPECT_EQ(vexa::DiagnoseLastParse(parser).outcome, vexa::ParseOutcome::kParsed);
    EXPECT_THROW(parser.parse(L"x+", nullptr, nullptr), int);
    EXPECT_EQ(Parse(L"").diagnosis.code, vexa::TryParse(nullptr, nullptr).diagnosis.code);
}

TEST(Parser, CopiesTakeNamesFlagAndDiagnosis) {
    VexaParser parser;
    wchar_t list[] = L"x";
    EXPECT_THROW(parser.parse(L"x+y+#", list, nullptr), int);
    VexaParser copy(parser);
    VexaParser assigned;
    assigned = parser;
    for (VexaParser* other : {&copy, &assigned}) {
        EXPECT_EQ(NamesOf(*other), (std::vector<std::wstring>{L"x", L"y"}));
        EXPECT_TRUE(other->canPlot());
        EXPECT_EQ(vexa::DiagnoseLastParse(*other).position, 4);
    }
    ASSERT_TRUE(parser.parse(L"1", nullptr, nullptr));
    EXPECT_EQ(copy.getParamsNum(), 2);
}

// Which texts are too long: data/long_texts.txt.
TEST(Parser, LengthLimits) {
    const std::wstring sum = L"1" + Repeat(L"+1", 2047);  // 4095 characters
    EXPECT_EQ(Eval(Parse(sum).calc.get(), {}), 2048);
    const vexa::ParseDiagnosis tooLong = Parse(std::wstring(5000, L'1')).diagnosis;
    EXPECT_EQ(tooLong.position, 4095);
    EXPECT_EQ(tooLong.length, 905);
    const std::wstring longest = L"x," + std::wstring(255, L'a');
    EXPECT_EQ(Parse(L"1", longest.c_str()).names.size(), 2u);
    EXPECT_EQ(Parse(L"1", (longest + L"a").c_str()).diagnosis.problem, vexa::ParseProblem::kListNameTooLong);
}

TEST(Parser, RegisteredFunctions) {
    Registered twice(L"TWICE", L"2*a"), lower(L"Lower", L"a"), cross(L"CROSSY", L"a%a");
    ASSERT_TRUE(twice.ok && lower.ok && cross.ok);
    vexa::ParseResult p = Parse(L"twice(3)+TWICE(x)");
    EXPECT_EQ(vexa::TreeText(p.calc.get()), L"TWICE(3)+TWICE(v:0)");
    EXPECT_EQ(Eval(p.calc.get(), {1}), 8);
    // Without an argument the expression yields no value: the call is refused.
    EXPECT_EQ(Parse(L"TWICE()").diagnosis.code, 100);
    // Only an upper-case registration is reachable from text.
    const vexa::ParseDiagnosis unreachable = Parse(L"Lower(1)").diagnosis;
    EXPECT_EQ(unreachable.problem, vexa::ParseProblem::kUnknownFunction);
    EXPECT_NE(unreachable.message.find("'Lower'"), std::string::npos);
    // A code thrown while the call is tried passes through unchanged.
    const vexa::ParseDiagnosis thrown = Parse(L"1+MAX(CROSSY(2),1)").diagnosis;
    EXPECT_EQ(thrown.code, -10001);
    EXPECT_EQ(thrown.problem, vexa::ParseProblem::kCallFailed);
    EXPECT_EQ(thrown.position, 6);
    EXPECT_EQ(thrown.function, L"CROSSY");
}

TEST(Parser, HostListsOfManyNamesAreLookedUpQuickly) {
    // 400,000 names and 1,365 references to names near the end: a linear
    // search per reference took seconds. Bounds test only: no time is measured.
    // Two-letter names that are neither functions nor constants.
    const std::wstring firsts = L"bcghjklnoqrs";
    const int count = 400000, pairs = static_cast<int>(firsts.size()) * 26;
    auto pair = [&](int t) { return std::wstring{firsts[t / 26], static_cast<wchar_t>(L'a' + t % 26)}; };
    std::wstring list;
    for (int i = 0; i < count; ++i) {
        std::wstring name = L"pqr";
        for (int k = i; k > 0; k /= 26)
            name += static_cast<wchar_t>(L'a' + k % 26);
        if (i >= count - pairs)
            name = pair(i - (count - pairs));
        // An earlier spelling of the last pair, in other case: the first name wins.
        list += (i ? L"," : L"") + (i == 7 ? L"SZ" : name);
    }
    std::wstring text;
    for (int k = 0; k < 1365; ++k)
        text += (k ? L"+" : L"") + pair(k % pairs);
    vexa::ParseResult r = Parse(text, list.c_str());
    ASSERT_TRUE(r.calc) << r.diagnosis.message;
    EXPECT_EQ(r.names.size(), static_cast<std::size_t>(count));
    std::vector<int> indices;
    vexa::WalkTree(r.calc.get(), [&](const vexa::TreeNodeInfo& n) {
        if (n.kind == vexa::NodeKind::kParameter)
            indices.push_back(n.parameter);
        return true;
    });
    ASSERT_EQ(indices.size(), 1365u);
    for (int k = 0; k < 1365; ++k) {
        const int t = k % pairs;
        EXPECT_EQ(indices[static_cast<std::size_t>(k)], t == pairs - 1 ? 7 : count - pairs + t) << k;
    }
}

TEST(Parser, DiagnosisFollowsEveryLevelOfNesting) {
    // 100 nested calls, the fault in the innermost argument, with spaces and
    // signs that pre-processing removes at every level.
    const std::wstring text = Repeat(L"ABS( - ", 100) + L"x + #" + Repeat(L")", 100);
    const vexa::ParseDiagnosis d = Parse(text).diagnosis;
    EXPECT_EQ(d.code, 3);  // in the innermost argument's text, pre-processed to @x+#
    EXPECT_EQ(d.position, static_cast<int>(text.find(L'#')));
    ASSERT_EQ(d.calls.size(), 100u);
    EXPECT_EQ(d.calls[0].position, 0);
    EXPECT_EQ(d.calls[0].length, static_cast<int>(text.size()));
    EXPECT_EQ(d.calls[99].position, 99 * 7);
    EXPECT_EQ(d.calls[99].argument, 1);
}

}  // namespace
