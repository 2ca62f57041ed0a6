// Hosts run one parser and their own calculators per thread. Nothing in the
// library is locked, so this only holds if every piece of state that two
// threads can reach at once is either read-only (the registry once built) or
// per thread (the string conversion buffer, the derivative node budget).
// scripts/tsan.sh runs this file under ThreadSanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "vexa/vexa.h"

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

// What one thread computes for one text: the value and the two first
// derivatives at fixed parameter values.
struct Result {
    bool ok = false;
    int params = 0;
    double value = 0, dx = 0, dy = 0;
    std::vector<std::wstring> dump;
};

double EvalScalar(ICalculator* c, std::vector<VEXA_Data>& p)
{
    VEXA_Data r;
    if (!c || !c->Evaluate(static_cast<int>(p.size()), p.data(), r) || r.getType() != DT_SCALAR)
        return NAN;
    return r.getValue()[0];
}

Result Compute(const wchar_t* text)
{
    Result res;
    VexaParser parser;
    ICalculator* calc = nullptr;
    wchar_t list[] = L"x,y";
    try {
        if (!parser.parse(text, list, &calc))
            return res;
    } catch (int) {
        if (calc)
            calc->Release();
        return res;
    }
    res.params = parser.getParamsNum();
    std::vector<VEXA_Data> values;
    for (int i = 0; i < res.params; ++i)
        values.push_back(VEXA_Data(0.3 + 0.2 * i));
    Expression* copy = static_cast<Expression*>(calc)->Copy();
    res.value = EvalScalar(copy, values);
    copy->Dump(res.dump);
    ICalculator* dx = calc->getDerivativeCalculator(0);
    ICalculator* dy = calc->getDerivativeCalculator(1);
    res.dx = EvalScalar(dx, values);
    res.dy = EvalScalar(dy, values);
    res.ok = dx && dy;
    if (dy)
        dy->Release();
    if (dx)
        dx->Release();
    copy->Release();
    calc->Release();
    return res;
}

bool Same(const Result& a, const Result& b)
{
    auto eq = [](double u, double v) { return std::memcmp(&u, &v, sizeof u) == 0; };
    return a.ok == b.ok && a.params == b.params && eq(a.value, b.value) && eq(a.dx, b.dx) && eq(a.dy, b.dy) &&
           a.dump == b.dump;
}

// Nested MAX in the first argument doubles the derivative tree per level, so
// this derivative always runs into the node budget.
std::wstring ExplodingText(int depth)
{
    std::wstring t = L"x";
    for (int i = 0; i < depth; ++i)
        t = L"MAX(" + t + L",1)";
    return t;
}

}  // namespace

TEST(Threads, ParallelParseEvaluateDifferentiateMatchSerialResults)
{
    // The registry is built without a lock, so it must exist before threads
    // use it.
    FunctionFactory::getInstance();

    std::vector<Result> expected;
    for (const wchar_t* t : kTexts) {
        expected.push_back(Compute(t));
        ASSERT_TRUE(expected.back().ok) << "serial run failed for a text";
        ASSERT_FALSE(std::isnan(expected.back().value));
    }

    const int kThreads = 4;
    const int kRounds = 15;
    std::atomic<int> mismatches{0};
    std::atomic<int> budget_misses{0};
    std::atomic<int> conversion_clobbered{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            // The conversion string is per thread: a text converted here must
            // stay as it is while the other threads convert texts of their own
            // (this thread's own library calls may overwrite it, so it is
            // checked right after the conversion).
            std::wstring mine = L"thread " + std::to_wstring(t);
            VEXA_WString name(mine.c_str());
            for (int round = 0; round < kRounds; ++round) {
                for (std::size_t i = 0; i < std::size(kTexts); ++i) {
                    if (!Same(Compute(kTexts[(i + t) % std::size(kTexts)]), expected[(i + t) % std::size(kTexts)]))
                        ++mismatches;
                    std::wstring& converted = name;
                    for (int k = 0; k < 100; ++k)
                        if (converted != mine)
                            ++conversion_clobbered;
                }
                // One thread hitting the node budget must not spend or reset
                // the budget of another thread's derivative.
                if (t % 2 == 0 && round == t) {
                    VexaParser parser;
                    ICalculator* calc = nullptr;
                    std::wstring text = ExplodingText(24);
                    parser.parse(text.c_str(), nullptr, &calc);
                    ICalculator* d = calc->getDerivativeCalculator(0);
                    if (d) {
                        ++budget_misses;
                        d->Release();
                    }
                    calc->Release();
                }
            }
        });
    }
    for (std::thread& th : threads)
        th.join();

    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_EQ(conversion_clobbered.load(), 0);
    EXPECT_EQ(budget_misses.load(), 0);
}
