// Hosts run one parser and their own calculators per thread. Nothing in the
// library is locked, so this only holds if every piece of state that two
// threads can reach at once is either read-only (the registry once built),
// per thread (the string conversion buffer, the derivative node budget) or
// changed atomically (reference counts, the in-use mark of a registered
// function). scripts/tsan.sh runs this file under ThreadSanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "test_util.h"

using namespace testutil;

namespace {

// Only built-in functions: a registered function is one calculator shared by
// every call, which hosts must not evaluate from two threads.
const wchar_t* const kTexts[] = {
    L"SIN(x)*EXP(y)+MAX(x,y)^2",
    L"STEP(x,0,0,1,1)+POLY(y,0,1,2)*COS(x)",
    L"ATAN2(y,x)+SQRT(ABS(x*y))-LOG(1+x)",
    L"IF(x-0.5: -1, 0, x*y)+{p}*2/y",
    L"HAVSIN(x,0,0,1,1)*STEP5(y,0,0,1,2)+MIN(x,SIGN(2,y))",
};

// Everything one thread computes for one text, bit for bit: a copy's tree,
// then the value and the two first derivatives at fixed parameter values.
std::wstring Compute(const wchar_t* text) {
    vexa::ParseResult p = Parse(text, L"x,y");
    if (!p.calc)
        return L"error " + std::to_wstring(p.diagnosis.code);
    std::vector<double> values;
    for (std::size_t i = 0; i < p.names.size(); ++i)
        values.push_back(0.3 + 0.2 * static_cast<double>(i));
    vexa::CalcRef copy(static_cast<Expression*>(p.calc.get())->Copy());
    std::wstring out = vexa::TreeText(copy.get());
    vexa::CalcRef d0(p.calc->getDerivativeCalculator(0)), d1(p.calc->getDerivativeCalculator(1));
    for (ICalculator* c : {p.calc.get(), d0.get(), d1.get()}) {
        const double v = Eval(c, values);
        std::uint64_t bits;
        std::memcpy(&bits, &v, sizeof bits);
        out += c ? L" " + std::to_wstring(bits) : L" null";
    }
    return out;
}

TEST(Threads, ExpressionsSharingARegisteredFunctionCopyParseEvaluateAndRelease) {
    FunctionFactory::getInstance();
    // Long enough that two calls overlapping in time would mix their values.
    auto shared = std::make_unique<Registered>(L"SHAREDF", L"a*a+SIN(a)" + Repeat(L"+0*a", 60));
    ASSERT_TRUE(shared->ok);
    ICalculator* f = shared->parsed.calc.get();
    const int kThreads = 4, kRounds = 200;
    const auto want = [](double x) { return 2 * (x * x + std::sin(x)) + 1; };
    std::atomic<int> wrong{0}, parsed{0}, evaluated{0};
    {
        vexa::ParseResult common = Parse(L"SHAREDF(x)+SHAREDF(x)+1", L"x");
        ASSERT_TRUE(common.calc);
        OnThreads(kThreads, [&](int t) {
            const double x = t + 0.5;
            for (int round = 0; round < kRounds; ++round) {
                // Copies and releases only count references to the
                // shared calculator.
                static_cast<Expression*>(common.calc.get())->Copy()->Release();
                // Parses and evaluations call it: each either gets the
                // one calculator to itself or is refused, never a value
                // computed from another thread's arguments.
                vexa::ParseResult own = Parse(L"SHAREDF(x)+SHAREDF(x)+1", L"x");
                if (!own.calc) {
                    if (own.diagnosis.code != vexa::kFunctionInUse)
                        ++wrong;
                    continue;
                }
                ++parsed;
                vexa::CalcRef copy(static_cast<Expression*>(own.calc.get())->Copy());
                for (ICalculator* c : {own.calc.get(), copy.get()}) {
                    // Enough evaluations for the machine code to take over.
                    for (int k = 0; k < 80; ++k) {
                        const double v = OutcomeOf(c, {x});
                        if (v == vexa::kFunctionInUse)
                            continue;
                        ++evaluated;
                        if (v != want(x))
                            ++wrong;
                    }
                }
            }
        });
    }
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_GT(parsed.load(), 0);
    EXPECT_GT(evaluated.load(), 0);
    // Every reference taken was given back: the registry's is the last.
    f->AddRef();
    shared.reset();
    EXPECT_TRUE(f->Release());
}

}  // namespace

TEST(Threads, ParallelParseEvaluateDifferentiateMatchSerialResults) {
    // The registry is built without a lock, so it must exist before threads
    // use it.
    FunctionFactory::getInstance();

    std::vector<std::wstring> expected;
    for (const wchar_t* t : kTexts) {
        expected.push_back(Compute(t));
        const std::wstring& e = expected.back();
        ASSERT_TRUE(e.find(L"error") == e.npos && e.find(L"null") == e.npos) << Narrow(e);
    }
    const int kThreads = 4, kRounds = 15;
    std::atomic<int> mismatches{0}, budget_misses{0}, conversion_clobbered{0};
    OnThreads(kThreads, [&](int t) {
        // The conversion string is per thread: a text converted here must
        // stay as it is while the other threads convert texts of their own
        // (this thread's own library calls may overwrite it, so it is
        // checked right after the conversion).
        std::wstring mine = L"thread " + std::to_wstring(t);
        VEXA_WString name(mine.c_str());
        for (int round = 0; round < kRounds; ++round) {
            for (std::size_t i = 0; i < std::size(kTexts); ++i) {
                const std::size_t k = (i + t) % std::size(kTexts);
                if (Compute(kTexts[k]) != expected[k])
                    ++mismatches;
                std::wstring& converted = name;
                for (int n = 0; n < 100; ++n)
                    if (converted != mine)
                        ++conversion_clobbered;
            }
            // One thread hitting the node budget must not spend or reset
            // the budget of another thread's derivative. Nested MAX in the
            // first argument doubles the derivative tree per level.
            if (t % 2 == 0 && round == t) {
                vexa::ParseResult p = Parse(Repeat(L"MAX(", 24) + L"x" + Repeat(L",1)", 24));
                if (vexa::CalcRef(p.calc->getDerivativeCalculator(0)))
                    ++budget_misses;
            }
        }
    });
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_EQ(conversion_clobbered.load(), 0);
    EXPECT_EQ(budget_misses.load(), 0);
}
