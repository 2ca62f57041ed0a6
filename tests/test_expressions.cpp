// The cases of tests/data/expressions.txt: values, trees, parameter orders,
// error codes with their diagnoses, and derivatives of parsed texts.
#include <gtest/gtest.h>

#include "test_util.h"

using namespace testutil;
using namespace vexa;

namespace {

std::wstring Join(const std::vector<std::wstring>& items, const wchar_t* separator) {
    std::wstring out;
    for (std::size_t i = 0; i < items.size(); ++i)
        out += (i ? separator : L"") + items[i];
    return out;
}

void ExpectValue(double got, const std::wstring& want) {
    if (want == L"null") {
        EXPECT_TRUE(std::isnan(got)) << got;
        return;
    }
    const double w = Number(want);
    EXPECT_NEAR(got, w, 1e-13 * std::fmax(1.0, std::fabs(w)));
}

// The derivative by parameter index against a central difference of the
// expression itself, at a few points of its first parameter.
void ExpectDerivativeNear(ICalculator* f, int index, double tolerance) {
    CalcRef d(f->getDerivativeCalculator(index));
    ASSERT_TRUE(d);
    for (double x : {0.3, 1.0, 1.7, 2.5}) {
        const double h = 1e-4, want = (Eval(f, {x + h}) - Eval(f, {x - h})) / (2 * h);
        EXPECT_NEAR(Eval(d.get(), {x}), want, tolerance * (1 + std::fabs(want))) << "at " << x;
    }
}

void Check(const CaseLine& c) {
    const std::wstring& text = c.fields[0];
    ParseResult r = Parse(text, ListOf(c));
    const ParseDiagnosis& d = r.diagnosis;
    std::vector<double> at;
    std::wstring rest = c.fields.size() > 2 ? c.fields[2] : L"";
    while (!rest.empty()) {
        const std::size_t end = rest.find(L" ; ");
        const std::wstring e = rest.substr(0, end);
        rest = end == std::wstring::npos ? L"" : rest.substr(end + 3);
        const std::vector<std::wstring> w = Words(e);
        const std::wstring& key = w[0];
        const std::wstring arg = e.size() > key.size() + 1 ? e.substr(key.size() + 1) : L"";
        SCOPED_TRACE(Narrow(e));
        if (key == L"error") {
            EXPECT_EQ(d.outcome, ParseOutcome::kSyntaxError);
            EXPECT_EQ(d.code, std::stoi(arg));
        } else if (key == L"rejected") {
            EXPECT_EQ(d.outcome, ParseOutcome::kListRejected);
        } else if (key == L"pos") {
            EXPECT_EQ(d.position, std::stoi(w[1]));
            EXPECT_EQ(d.length, std::stoi(w[2]));
        } else if (key == L"says") {
            EXPECT_NE(d.message.find(Narrow(arg)), std::string::npos) << d.message;
        } else if (key == L"in") {
            std::vector<std::wstring> calls;
            for (const EnclosingCall& call : d.calls)
                calls.push_back(call.function + L":" + std::to_wstring(call.argument));
            EXPECT_EQ(Join(calls, L" "), arg);
        } else if (key == L"suggests") {
            EXPECT_EQ(Join(d.suggestions, L","), arg);
        } else if (key == L"warns" || key == L"nowarning") {
            // warns KIND P L: ReviewText gives that warning at that piece.
            std::wstring got;
            for (const TextWarning& t : ReviewText(text.c_str(), ListOf(c)))
                got += std::to_wstring(static_cast<int>(t.kind)) + L"@" + std::to_wstring(t.position) + L":" +
                       std::to_wstring(t.length) + L" ";
            if (key == L"nowarning")
                EXPECT_EQ(got, L"");
            else
                EXPECT_NE(got.find(w[1] + L"@" + w[2] + L":" + w[3] + L" "), std::wstring::npos) << Narrow(got);
        } else if (key == L"calls") {
            std::vector<std::wstring> calls;
            for (const CallSpan& call : LocateCalls(text.c_str()))
                calls.push_back(call.function + L"@" + std::to_wstring(call.position) + L":" +
                                std::to_wstring(call.length));
            EXPECT_EQ(Join(calls, L" "), arg);
        } else if (key == L"names") {
            EXPECT_EQ(Join(r.names, L","), arg);
        } else if (key == L"plot" || key == L"noplot") {
            EXPECT_EQ(r.can_plot, key == L"plot");
        } else if (!r.calc) {
            ADD_FAILURE() << "did not parse: " << d.message;
        } else if (key == L"tree") {
            EXPECT_EQ(TreeText(r.calc.get()), arg);
        } else if (key == L"at") {
            at.clear();
            for (std::size_t i = 1; i < w.size(); ++i)
                at.push_back(Number(w[i]));
        } else if (key == L"=") {
            ExpectValue(Eval(r.calc.get(), at), arg);
        } else if (key == L"d") {
            CalcRef derivative(r.calc->getDerivativeCalculator(std::stoi(w[1])));
            ASSERT_TRUE(derivative);
            if (w[2] == L"tree")
                EXPECT_EQ(TreeText(derivative.get()), e.substr(e.find(L"tree ") + 5));
            else
                ExpectValue(Eval(derivative.get(), at), w[3]);
        } else if (key == L"dcheck") {
            ExpectDerivativeNear(r.calc.get(), std::stoi(w[1]), Number(w[2]));
        } else if (key == L"simplify") {
            INode* root = nullptr;
            WalkTree(r.calc.get(), [&root](const TreeNodeInfo& n) { return !(root = n.node); });
            INode* copy = root->Copy(nullptr);
            std::unique_ptr<INode> reduced(copy->Simplify());
            const bool same = arg.size() > 5 && arg.substr(arg.size() - 5) == L" same";
            EXPECT_EQ(TreeText(reduced.get()), same ? arg.substr(0, arg.size() - 5) : arg);
            EXPECT_EQ(reduced.get() == copy, same);
        } else {
            ADD_FAILURE() << "unknown expectation";
        }
    }
}

TEST(Expressions, CasesFromTheDataFile) {
    const std::vector<CaseLine> cases = ReadCases("expressions.txt");
    ASSERT_GT(cases.size(), 100u);
    for (const CaseLine& c : cases) {
        SCOPED_TRACE("expressions.txt:" + std::to_string(c.line) + ": " + Narrow(c.fields[0]));
        Check(c);
    }
}

}  // namespace
