#include <gtest/gtest.h>

#include <cfenv>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

// The fast powers are hidden inside the shared library, so the test builds
// its own copy of them.
#include "vexa/core/exact_pow.cpp"
#include "test_util.h"

namespace {

using vexa_math::kMaxFastExponent;
// The library's own bit casts: its source is compiled into this test.
constexpr auto BitsOf = vexa_math::Bits;
constexpr auto FromBitsOf = vexa_math::FromBits;

// The C library's pow with an exponent the compiler cannot see (it would
// turn pow(x, 2.0) into x * x).
double Reference(double x, double y)
{
    volatile double hidden = y;
    return std::pow(x, hidden);
}

// A floating-point environment a host may set, applied for the lifetime of
// the object and restored after.
struct Environment {
    const char* name;
    int rounding;
    bool flushToZero;  // FTZ and DAZ together
};

const Environment kEnvironments[] = {
    {"nearest", FE_TONEAREST, false}, {"downward", FE_DOWNWARD, false}, {"upward", FE_UPWARD, false},
    {"toward zero", FE_TOWARDZERO, false}, {"nearest, FTZ+DAZ", FE_TONEAREST, true},
    {"downward, FTZ+DAZ", FE_DOWNWARD, true},
};

class InEnvironment {
public:
    explicit InEnvironment(const Environment& e)
    {
        std::fegetenv(&m_saved);
        std::fesetround(e.rounding);
#if defined(__x86_64__)
        if (e.flushToZero)
            _mm_setcsr(_mm_getcsr() | 0x8040);
#endif
    }
    ~InEnvironment()
    {
        std::fesetenv(&m_saved);
#if defined(__x86_64__)
        _mm_setcsr(m_mxcsr);  // not restored by every C library's fesetenv
#endif
    }

private:
    std::fenv_t m_saved;
#if defined(__x86_64__)
    unsigned m_mxcsr = _mm_getcsr();
#endif
};

// Compares with pow bit for bit, and the flags raised: the fast path may
// raise fewer than pow (an exact product raises none) but never another.
void ExpectSame(double x, double y, const char* env, const char* what)
{
    std::feclearexcept(FE_ALL_EXCEPT);
    const double want = Reference(x, y);
    const int wantFlags = std::fetestexcept(FE_ALL_EXCEPT);
    std::feclearexcept(FE_ALL_EXCEPT);
    const double got = vexa_math::Pow(x, y);
    const int gotFlags = std::fetestexcept(FE_ALL_EXCEPT);
    EXPECT_EQ(BitsOf(got), BitsOf(want)) << env << ", " << what << ": " << std::hexfloat << x << " ^ " << y
                                         << " gives " << got << ", pow " << want;
    EXPECT_EQ(gotFlags & ~wantFlags, 0) << env << ", " << what << ": flags for " << std::hexfloat << x << " ^ "
                                        << y;
}

// Odd mantissas m whose n-th power has exactly `bits` significant bits, as
// doubles near 1: 53 bits give exact powers, 54 exact midpoints, 55 and 56
// quarter points.
std::vector<double> ExactPowers(int n, int bits, int most)
{
    std::vector<double> found;
    const double first = std::ceil(std::ldexp(1.0, (bits - 1) / n) * std::pow(2.0, ((bits - 1) % n) / double(n)));
    for (std::uint64_t m = static_cast<std::uint64_t>(first) | 1; found.size() < static_cast<std::size_t>(most); m += 2) {
        unsigned __int128 p = 1;
        for (int i = 0; i < n; ++i)
            p *= m;
        if (p >> bits != 0)
            break;
        if (p >> (bits - 1) == 1)
            found.push_back(std::ldexp(static_cast<double>(m), -static_cast<int>(std::log2(m))));
    }
    return found;
}

// Inputs of every class for exponent n: signed zeros, subnormals, the
// smallest and largest normals, infinities, NaNs (quiet and signalling, with
// payloads), small integers, exact powers and midpoints, and the few ulps
// around each threshold: where x^n over- or underflows, turns subnormal,
// and where the fast path's range ends.
std::vector<double> ClassInputs(int n)
{
    const double inf = std::numeric_limits<double>::infinity();
    const double tiny = std::numeric_limits<double>::denorm_min(), nan = std::numeric_limits<double>::quiet_NaN();
    std::vector<double> base = {0.0, tiny, FromBitsOf(0x000fffffffffffffull), FromBitsOf(0x0000000012345678ull),
                                DBL_MIN, DBL_MAX, inf, nan, FromBitsOf(0x7ff8000000abcdefull),
                                FromBitsOf(0x7ff0000000000001ull), FromBitsOf(0x7ff4000000012345ull),
                                1.0, 2.0, 3.0, 0.5, 1.5, 0.1, 10.0, std::nextafter(1.0, 2.0), std::nextafter(1.0, 0.0)};
    for (int bits = 53; bits <= 56; ++bits)
        for (double v : ExactPowers(n, bits, 12))
            base.push_back(v);
    const double thresholds[] = {std::pow(DBL_MAX, 1.0 / n), std::pow(DBL_MIN, 1.0 / n), std::pow(tiny, 1.0 / n),
                                 std::ldexp(1.0, 256 / n), std::ldexp(1.0, -256 / n), std::ldexp(1.0, -11)};
    for (double t : thresholds) {
        double up = t, down = t;
        for (int i = 0; i < 6; ++i) {
            base.push_back(up);
            base.push_back(down);
            up = std::nextafter(up, inf);
            down = std::nextafter(down, 0.0);
        }
    }
    std::vector<double> all;
    for (double v : base) {
        all.push_back(v);
        all.push_back(-v);
    }
    return all;
}

TEST(CoreExactPow, EveryClassOfInputInEveryEnvironment)
{
    for (const Environment& env : kEnvironments) {
        InEnvironment in(env);
        for (int n = 2; n <= kMaxFastExponent; ++n)
            for (double x : ClassInputs(n))
                ExpectSame(x, n, env.name, "class");
    }
}

// Exponents the fast path leaves to pow, and the ones next to them.
TEST(CoreExactPow, OtherExponentsGoToPow)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const double exponents[] = {0.0, -0.0, 1.0, -1.0, -2.0, -3.0, 17.0, 32.0, 1.5, 2.5,
                                std::nextafter(2.0, 0.0), std::nextafter(2.0, 3.0), std::nextafter(16.0, 17.0),
                                nan, -nan, FromBitsOf(0x7ff0000000000001ull), inf, -inf, 1e300};
    for (const Environment& env : kEnvironments) {
        InEnvironment in(env);
        for (double y : exponents)
            for (double x : ClassInputs(3))
                ExpectSame(x, y, env.name, "other exponent");
    }
}

// Random inputs: uniform bits (every magnitude) and uniform values (the
// common case), a million per exponent under rounding to nearest and fewer
// in the other environments. The offline sweep (bench/pow_sweep.cpp) runs
// many more.
TEST(CoreExactPow, RandomInputs)
{
    for (const Environment& env : kEnvironments) {
        InEnvironment in(env);
        const int count = env.rounding == FE_TONEAREST && !env.flushToZero ? 1000000 : 100000;
        for (int n = 2; n <= kMaxFastExponent; ++n) {
            std::mt19937_64 random(static_cast<std::uint64_t>(n) * 7919u);
            std::uniform_real_distribution<double> values(-4.0, 4.0);
            int mismatches = 0;
            for (int i = 0; i < count && mismatches < 5; ++i) {
                const double x = i % 2 ? FromBitsOf(random()) : values(random);
                const double got = vexa_math::Pow(x, n);
                const double want = Reference(x, n);
                if (BitsOf(got) != BitsOf(want)) {
                    ++mismatches;
                    ADD_FAILURE() << env.name << ": " << std::hexfloat << x << " ^ " << n << " gives " << got
                                  << ", pow " << want;
                }
            }
        }
    }
}

// The whole way: the tree, the interpreter and the machine code (from the
// 65th evaluation on) all give pow's bits for ^ and for the powers in POLY.
TEST(CoreExactPow, ExpressionsGivePowsBits)
{
    std::vector<double> inputs = {1.5, -2.25, 0.1, 3.0, 7.0, 1e-30, -1e20};
    std::mt19937_64 random(11);
    std::uniform_real_distribution<double> values(-3.0, 3.0);
    while (inputs.size() < 200)
        inputs.push_back(values(random));
    for (int n : {2, 3, 4, 7, 8, 16}) {
        const std::wstring text = L"a^" + std::to_wstring(n);
        vexa::ParseResult parsed = testutil::Parse(text);
        ASSERT_TRUE(parsed.calc) << testutil::Narrow(text);
        for (int round = 0; round < 2; ++round)
            for (double x : inputs)
                ASSERT_EQ(BitsOf(testutil::Eval(parsed.calc.get(), {x})), BitsOf(Reference(x, n)))
                    << testutil::Narrow(text) << " at " << std::hexfloat << x;
    }
    vexa::ParseResult poly = testutil::Parse(L"POLY(a, 0.25, 1.5, -2, 3, 0.7, 5, 6, 7.5)");
    ASSERT_TRUE(poly.calc);
    const double c[] = {1.5, -2, 3, 0.7, 5, 6, 7.5};
    for (int round = 0; round < 2; ++round)
        for (double x : inputs) {
            double s = 0.0;
            for (int i = 0; i < 7; ++i)
                s += Reference(x - 0.25, i) * c[i];
            ASSERT_EQ(BitsOf(testutil::Eval(poly.calc.get(), {x})), BitsOf(s)) << std::hexfloat << x;
        }
}

}  // namespace
