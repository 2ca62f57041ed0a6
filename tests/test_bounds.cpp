// Derivative trees are not reduced, so some legal texts have derivatives that
// grow exponentially (nested MAX/MIN repeat a derivative, products and powers
// copy whole subtrees, quotients nest three levels deep per level). The
// library must answer those with a null derivative calculator once the node
// budget is spent or the tree is too deep to evaluate, and leave everything
// else intact.
// M_PI on Windows too.
#define _USE_MATH_DEFINES
#include <gtest/gtest.h>

#if !defined(_WIN32)
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <cmath>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "test_util.h"

using namespace testutil;

namespace {

double At(ICalculator* c, double x) { return Eval(c, {x}); }

bool Near(double got, double want, double rel) {
    return std::fabs(got - want) <= rel * std::fmax(1.0, std::fabs(want));
}

}  // namespace

TEST(Bounds, RepeatedDerivativesMatchClosedFormsAndEndInNullNotAHang) {
    const double x = 0.7, lx = std::log(x), xx = std::pow(x, x);
    struct Case {
        std::wstring text;
        int steps;
        std::size_t reached;                // derivatives that must fit the node budget
        std::function<double(int)> closed;  // NaN where only finiteness is checked
    };
    const Case cases[] = {
        {L"SIN(X)*EXP(X)", 10, 10,
         [&](int n) { return std::pow(2.0, n / 2.0) * std::exp(x) * std::sin(x + n * M_PI / 4); }},
        {L"x^x", 10, 2,
         [&](int n) { return n == 1 ? xx * (lx + 1) : n == 2 ? xx * ((lx + 1) * (lx + 1) + 1 / x) : NAN; }},
        {L"x^3^2", 6, 2, [&](int n) { return n == 1 ? 9 * std::pow(x, 8) : n == 2 ? 72 * std::pow(x, 7) : NAN; }},
        {L"EXP(x)^2", 6, 2, [&](int n) { return std::pow(2.0, n) * std::exp(2 * x); }},
        {L"SQRT(x)*LOG(x)", 6, 2, [&](int n) {
             return n == 1 ? (lx + 2) / (2 * std::sqrt(x)) : n == 2 ? -lx / (4 * std::pow(x, 1.5)) : NAN;
         }},
    };
    for (const Case& c : cases) {
        vexa::ParseResult f = Parse(c.text, L"x");
        ASSERT_TRUE(f.calc) << Narrow(c.text);
        // Released last made first: each may borrow function calculators from
        // the one it was made from.
        std::vector<ICalculator*> chain;
        for (ICalculator* d = f.calc.get(); chain.size() < std::size_t(c.steps);) {
            if (!(d = d->getDerivativeCalculator(0)))
                break;
            chain.push_back(d);
            const int n = static_cast<int>(chain.size());
            const double v = At(d, x), want = c.closed(n);
            EXPECT_TRUE(std::isnan(want) ? std::isfinite(v) : Near(v, want, 1e-9))
                << Narrow(c.text) << " derivative " << n << ": " << v << " vs " << want;
        }
        EXPECT_GE(chain.size(), c.reached) << Narrow(c.text);
        for (auto it = chain.rbegin(); it != chain.rend(); ++it)
            (*it)->Release();
    }
}

TEST(Bounds, ExplodingDerivativesGiveNullAndLeaveTheExpressionIntact) {
    const auto cases = Section("long_texts.txt", "explode");
    ASSERT_EQ(cases.size(), 3u);
    for (const auto& c : cases) {
        vexa::ParseResult f = Parse(Expand(c[0]), L"x");
        ASSERT_TRUE(f.calc) << c[0];
        const double before = At(f.calc.get(), 0.5);
        EXPECT_FALSE(vexa::CalcRef(f.calc->getDerivativeCalculator(0))) << c[0];
        // The half-built derivative is gone; the expression and its copies
        // work as before.
        EXPECT_EQ(At(f.calc.get(), 0.5), before);
        vexa::CalcRef copy(static_cast<Expression*>(f.calc.get())->Copy());
        EXPECT_EQ(At(copy.get(), 0.5), before);
        // The budget belongs to one derivative: the next starts afresh.
        EXPECT_EQ(At(vexa::CalcRef(Parse(L"MAX(MAX(x, 2*x), 3*x)").calc->getDerivativeCalculator(0)).get(), 1), 3);
    }
}

TEST(Bounds, NestedCallChainsDifferentiateLikeTheirDifferenceQuotient) {
    const auto cases = Section("long_texts.txt", "chain");
    ASSERT_EQ(cases.size(), 3u);
    for (const auto& c : cases) {
        const double x = std::stod(c[1]);
        const std::string& what = c[0];
        vexa::ParseResult f = Parse(Expand(c[0]), L"x");
        ASSERT_TRUE(f.calc) << what;
        const double h = 1e-5, quotient = (At(f.calc.get(), x + h) - At(f.calc.get(), x - h)) / (2 * h);
        vexa::CalcRef d(f.calc->getDerivativeCalculator(0));
        ASSERT_TRUE(d) << what;
        EXPECT_TRUE(Near(At(d.get(), x), quotient, 1e-4)) << what << ": " << At(d.get(), x) << " vs " << quotient;
        vexa::CalcRef dd(d->getDerivativeCalculator(0));  // may or may not fit the budget
        if (dd) {
            EXPECT_FALSE(std::isnan(At(dd.get(), x))) << what;
        }
    }
}

TEST(Bounds, ExhaustedMemoryReachesTheHostAsBadAlloc)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's allocator aborts instead of throwing";
#elif defined(_WIN32)
    GTEST_SKIP() << "needs fork and an address-space limit, which Windows lacks";
#else
    if (std::getenv("VEXA_EMULATED"))
        GTEST_SKIP() << "under an emulator the limit caps the emulator's memory, not the program's";
    // A 46340 x 2 by 2 x 46340 product asks for 17 GB: in a child whose
    // address space is capped it fails for certain. The host must get
    // std::bad_alloc, not a terminated process, and a working expression.
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const rlimit cap{rlim_t(4) << 30, rlim_t(4) << 30};
        setrlimit(RLIMIT_AS, &cap);
        vexa::ParseResult p = Parse(L"A*B", L"A,B");
        VEXA_Data big[2] = {VEXA_Data(46340, 2), VEXA_Data(2, 46340)};
        try {
            VEXA_Data result;
            p.calc->Evaluate(2, big, result);
        } catch (const std::bad_alloc&) {
            _exit(Eval(p.calc.get(), {2, 3}) == 6 ? 0 : 2);
        }
        _exit(1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
#endif
}
