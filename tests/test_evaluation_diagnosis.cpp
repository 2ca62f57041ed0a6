// The cases of tests/data/evaluation_diagnoses.txt: what vexa::DiagnoseEvaluation
// names as the cause of a point without a value, and where in the text.
#include <gtest/gtest.h>

#include "test_util.h"
#include "vexa/parser/evaluation_diagnosis.h"

using namespace testutil;
using namespace vexa;

namespace {

VEXA_Data ValueOf(const std::wstring& word)
{
    std::vector<double> v;
    std::size_t from = 0;
    for (;;) {
        const std::size_t semi = word.find(L';', from);
        v.push_back(Number(word.substr(from, semi == std::wstring::npos ? semi : semi - from)));
        if (semi == std::wstring::npos)
            break;
        from = semi + 1;
    }
    if (v.size() == 1)
        return VEXA_Data(v[0]);
    VEXA_Data d(1, static_cast<int>(v.size()));
    std::copy(v.begin(), v.end(), d.getValue());
    return d;
}

EvaluationCause CauseOf(const std::wstring& word)
{
    const std::pair<const wchar_t*, EvaluationCause> causes[] = {
        {L"zero", EvaluationCause::kDivisionByZero}, {L"refused", EvaluationCause::kRefusedCall},
        {L"shapes", EvaluationCause::kShapes}, {L"failed", EvaluationCause::kCallFailed},
        {L"novalue", EvaluationCause::kParameterWithoutValue}};
    for (const auto& c : causes)
        if (word == c.first)
            return c.second;
    return EvaluationCause::kNone;
}

TEST(EvaluationDiagnosis, CasesFromTheDataFile)
{
    const std::vector<CaseLine> cases = ReadCases("evaluation_diagnoses.txt");
    ASSERT_GT(cases.size(), 10u);
    for (const CaseLine& c : cases) {
        SCOPED_TRACE("evaluation_diagnoses.txt:" + std::to_string(c.line) + ": " + Narrow(c.fields[0]));
        ASSERT_EQ(c.fields.size(), 6u);
        ParseResult r = Parse(c.fields[0], ListOf(c));
        ASSERT_TRUE(r.calc) << r.diagnosis.message;
        std::vector<VEXA_Data> point;
        for (const std::wstring& w : Words(c.fields[2]))
            point.push_back(ValueOf(w));
        ASSERT_EQ(point.size(), r.names.size());
        // The evaluation itself is unchanged: it still throws or gives null.
        const EvaluationDiagnosis d = DiagnoseEvaluation(r.calc.get(), static_cast<int>(point.size()),
                                                         point.data(), c.fields[0].c_str(), &r.names);
        EXPECT_EQ(d.cause, CauseOf(c.fields[3]));
        const std::vector<std::wstring> at = Words(c.fields[4]);
        EXPECT_EQ(d.position, std::stoi(at[0])) << d.message;
        EXPECT_EQ(d.length, std::stoi(at[1])) << d.message;
        EXPECT_NE(d.message.find(Narrow(c.fields[5])), std::string::npos) << d.message;
        // Without the text: the same cause, the pieces as the tree writes them.
        const EvaluationDiagnosis bare =
            DiagnoseEvaluation(r.calc.get(), static_cast<int>(point.size()), point.data());
        EXPECT_EQ(bare.cause, d.cause);
        EXPECT_EQ(bare.position, -1);
        EXPECT_EQ(bare.code, d.code);
    }
}

TEST(EvaluationDiagnosis, CallsThatFailAndParametersWithoutValue)
{
    Registered inverse(L"DIAGINV", L"1/(a-2)", L"a");
    ASSERT_TRUE(inverse.ok);
    ParseResult r = Parse(L"1 + DIAGINV(x)", L"x");
    ASSERT_TRUE(r.calc) << r.diagnosis.message;
    VEXA_Data x(2.0);
    const EvaluationDiagnosis d = DiagnoseEvaluation(r.calc.get(), 1, &x, L"1 + DIAGINV(x)", &r.names);
    EXPECT_EQ(d.cause, EvaluationCause::kCallFailed);
    EXPECT_EQ(d.code, -10001);
    EXPECT_EQ(d.function, L"DIAGINV");
    EXPECT_EQ(d.message, "'DIAGINV(x)': DIAGINV failed with code -10001 given (2) (at position 4)");
    EXPECT_EQ(d.position, 4);

    ParseResult y = Parse(L"x*y", L"x,y");
    VEXA_Data values[2] = {VEXA_Data(1.0), VEXA_Data()};
    const EvaluationDiagnosis n = DiagnoseEvaluation(y.calc.get(), 2, values, L"x*y", &y.names);
    EXPECT_EQ(n.cause, EvaluationCause::kParameterWithoutValue);
    EXPECT_NE(n.message.find("the parameter y was given no value"), std::string::npos) << n.message;
    EXPECT_EQ(n.position, 2);
}

TEST(EvaluationDiagnosis, TermsDroppedFromAValue)
{
    struct Case {
        const wchar_t* text;
        double x;
        std::vector<int> positions;  // of the calls told, in order; none where nothing is dropped
        const char* first;           // stands in the first message
    };
    const Case cases[] = {
        {L"LOG(x) + 5", -1, {0}, "'LOG(x)' has no value: LOG refuses (-1) (at position 0)"},
        {L"LOG(x) + SQRT(x) + 2", -1, {0, 9}, "LOG refuses (-1)"},
        {L"SQRT(x) + 1", 4, {}, ""},
        // no value at all: that is DiagnoseEvaluation's to explain
        {L"1 + SQRT(x)", -1, {}, ""},
        {L"SQRT(x)", -1, {}, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(Narrow(c.text));
        ParseResult r = Parse(c.text, L"x");
        ASSERT_TRUE(r.calc) << r.diagnosis.message;
        VEXA_Data x(c.x);
        const std::vector<EvaluationDiagnosis> dropped = DiagnoseDroppedTerms(r.calc.get(), 1, &x, c.text, &r.names);
        ASSERT_EQ(dropped.size(), c.positions.size());
        for (std::size_t i = 0; i < dropped.size(); ++i) {
            EXPECT_EQ(dropped[i].cause, EvaluationCause::kRefusedCall);
            EXPECT_EQ(dropped[i].position, c.positions[i]);
        }
        if (!dropped.empty()) {
            EXPECT_NE(dropped[0].message.find(c.first), std::string::npos) << dropped[0].message;
        }
    }
    // What cannot be diagnosed is told nothing rather than read.
    ParseResult r = Parse(L"LOG(x) + 5", L"x");
    EXPECT_TRUE(DiagnoseDroppedTerms(r.calc.get(), 1, nullptr).empty());
    EXPECT_TRUE(DiagnoseDroppedTerms(nullptr, 0, nullptr).empty());
}

}  // namespace
