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
#include <string>
#include <thread>
#include <vector>

#include "parser_test_util.h"

using namespace parser_test;

namespace {

const wchar_t* const kTexts[] = {
    L"SIN(x)*EXP(y)+MAX(x,y)^2",
    L"STEP(x,0,0,1,1)+POLY(y,0,1,2)*COS(x)",
    L"ATAN2(y,x)+SQRT(ABS(x*y))-LOG(1+x)",
    L"IF(x-0.5: -1, 0, x*y)+{p}*2/y",
    L"HAVSIN(x,0,0,1,1)*STEP5(y,0,0,1,2)+MIN(x,SIGN(2,y))",
};

// Everything one thread computes for one text, bit for bit: a copy's tree,
// then the value and the two first derivatives at fixed parameter values.
std::wstring Compute(const wchar_t* text)
{
    Parsed p(text, L"x,y");
    if (!p.ok())
        return L"error " + std::to_wstring(p.code);
    std::vector<double> values;
    for (int i = 0; i < p.parser.getParamsNum(); ++i)
        values.push_back(0.3 + 0.2 * i);
    ICalculator* copy = static_cast<Expression*>(p.calc)->Copy();
    std::wstring out = TreeOf(copy);
    copy->Release();
    for (ICalculator* c : {p.calc, p.calc->getDerivativeCalculator(0), p.calc->getDerivativeCalculator(1)}) {
        const double v = EvaluateWith(c, values);
        std::uint64_t bits;
        std::memcpy(&bits, &v, sizeof bits);
        out += c ? L" " + std::to_wstring(bits) : L" null";
        if (c && c != p.calc)
            c->Release();
    }
    return out;
}

// Runs body(t) on threads t = 0 .. count-1 at once and waits for them all.
template <class Body>
void OnThreads(int count, Body body)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < count; ++t)
        threads.emplace_back(body, t);
    for (std::thread& th : threads)
        th.join();
}

}  // namespace

TEST(Threads, ParallelParseEvaluateDifferentiateMatchSerialResults)
{
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
                Parsed p((Repeat(L"MAX(", 24) + L"x" + Repeat(L",1)", 24)).c_str());
                if (ICalculator* d = p.calc->getDerivativeCalculator(0)) {
                    ++budget_misses;
                    d->Release();
                }
            }
        }
    });
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_EQ(conversion_clobbered.load(), 0);
    EXPECT_EQ(budget_misses.load(), 0);
}

TEST(Threads, ExpressionsSharingARegisteredFunctionCopyParseEvaluateAndRelease)
{
    FunctionFactory::getInstance();
    // Long enough that two calls overlapping in time would mix their values.
    auto* shared = new Registered(L"SHAREDF", (L"a*a+SIN(a)" + Repeat(L"+0*a", 60)).c_str());
    ASSERT_TRUE(shared->ok);
    ICalculator* f = shared->parsed.calc;
    const int kThreads = 4, kRounds = 200;
    const auto want = [](double x) { return 2 * (x * x + std::sin(x)) + 1; };
    std::atomic<int> wrong{0}, parsed{0}, evaluated{0};
    {
        Parsed common(L"SHAREDF(x)+SHAREDF(x)+1", L"x");
        ASSERT_TRUE(common.ok());
        OnThreads(kThreads, [&](int t) {
            const double x = t + 0.5;
            for (int round = 0; round < kRounds; ++round) {
                // Copies and releases only count references to the
                // shared calculator.
                static_cast<Expression*>(common.calc)->Copy()->Release();
                // Parses and evaluations call it: each either gets the
                // one calculator to itself or is refused, never a value
                // computed from another thread's arguments.
                Parsed own(L"SHAREDF(x)+SHAREDF(x)+1", L"x");
                if (own.code == vexa::kFunctionInUse)
                    continue;
                ++parsed;
                Expression* copy = static_cast<Expression*>(own.calc)->Copy();
                for (ICalculator* c : {own.calc, static_cast<ICalculator*>(copy)}) {
                    const double v = OutcomeOf(c, {x});
                    if (v == vexa::kFunctionInUse)
                        continue;
                    ++evaluated;
                    if (v != want(x))
                        ++wrong;
                }
                copy->Release();
            }
        });
    }
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_GT(parsed.load(), 0);
    EXPECT_GT(evaluated.load(), 0);
    // Every reference taken was given back: the registry's is the last.
    f->AddRef();
    delete shared;
    EXPECT_TRUE(f->Release());
}
