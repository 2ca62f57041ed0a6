#include "vexa/core/exact_pow.h"
#include "vexa/core/bits.h"

#include <cmath>
#include <cstdint>
#include <cstring>

// Why a product can stand in for pow. The pow of the C library (glibc 2.28
// and later) computes exp(y * log(x)) as a value P close to the exact x^y
// and rounds P once. Its own analysis bounds the total error under rounding
// to nearest by 0.54 ulp = ulperr_exp (0.509 ulp, 0.511 without fma) +
// 1024 * ln2 * relerr_log (1.3 * 2^-68, 1.5 * 2^-68 without fma) * 2^53:
// everything above the final rounding's 0.5 ulp is the error of P. The log
// term scales with |y * log(x)|; the fast path only takes results between
// 2^-256 and 2^256, where it is at most 256 * ln2 * 1.5 * 2^-68 * 2^53
// < 0.0082 ulp, so |P - x^n| < 0.0082 + 0.011 < 0.02 ulp of the result.
//
// The fast path computes x^n as an unevaluated sum W = q + s of two doubles
// (error-free products through fma, the low parts carried along), with a
// relative error below n^2 * 2^-100, i.e. under 2^-30 ulp for n <= 16. The
// result hi = q + s is rounded to nearest by the addition, and
// r = (q - hi) + s is W - hi to within 2^-52 ulp (q - hi is exact). If W
// lies more than a margin of 1/16 ulp from the midpoints next to hi, then
// W, x^n and P round to the same double: hi is pow's result. The margin is
// three times the bound above, and sends one result in eight to pow.
//
// Only under rounding to nearest. In the directed modes the same pow is off
// by a whole ulp for about 0.4 % of squares and for nearly every exact power
// (its intermediate steps round in the host's mode too), so no margin can
// be proven there and every call goes to pow. The mode is read by arithmetic, which sees the mode the products
// used and costs far less than reading the control register.
//
// Everything stays normal: |x| is limited so that every partial power lies
// in [2^-256, 2^256] and every nonzero intermediate, a multiple of
// ulp(x)^n, is at least 2^-1022. So no operation overflows, underflows or
// meets a subnormal (flush-to-zero and denormals-are-zero change nothing),
// and none raises a flag pow would not raise: the products are inexact only
// when x^n is, and the mode test's inexact is discussed below. Everything
// else (zeros, subnormals, infinities, NaNs, huge and tiny results, other
// exponents) is pow's own.
//
// An offline sweep (bench/pow_sweep.cpp) compared this with std::pow on
// 2 * 10^9 random inputs per exponent 2..8: no difference, and pow's own
// error seen no larger than 0.0093 ulp; its header has the counts.
namespace vexa_math {

namespace {

const int kResultLimit = 256;  // results within [2^-256, 2^256]

using vexa_core::Bits;

double FromBits(std::uint64_t b)
{
    double v;
    std::memcpy(&v, &b, sizeof v);
    return v;
}

// Rounding to nearest is the only mode in which 1 + 3/4 ulp rounds up and
// -1 - 3/4 ulp rounds down. Volatile so that no compiler folds the sums in
// its own (nearest) mode.
volatile double g_one = 1.0;
volatile double g_threeQuartersUlp = 0x1.8p-53;

bool RoundsToNearest()
{
    const double one = g_one, small = g_threeQuartersUlp;
    return one + small > one && -one - small < -one;
}

// Bounds on the bits of |x| per exponent: the biased exponent e of x must
// satisfy n * e >= -256, n * (e + 1) <= 256, and n * (e - 52) >= -1022.
struct Range {
    std::uint64_t low;   // smallest allowed bits of |x|
    std::uint64_t span;  // allowed bits are low .. low + span - 1
};

constexpr int CeilDiv(int a, int b) { return a >= 0 ? (a + b - 1) / b : -((-a) / b); }
constexpr int FloorDiv(int a, int b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }

constexpr Range MakeRange(int n)
{
    const int byResult = CeilDiv(-kResultLimit, n);
    const int byQuantum = 52 + CeilDiv(-1022, n);
    const int lowExponent = byResult > byQuantum ? byResult : byQuantum;
    const int endExponent = FloorDiv(kResultLimit, n);  // first exponent not allowed
    const std::uint64_t low = static_cast<std::uint64_t>(1023 + lowExponent) << 52;
    const std::uint64_t end = static_cast<std::uint64_t>(1023 + endExponent) << 52;
    return Range{low, end - low};
}

constexpr Range kRanges[kMaxFastExponent + 1] = {
    {0, 0},        {0, 0},         MakeRange(2),  MakeRange(3),  MakeRange(4),  MakeRange(5),
    MakeRange(6),  MakeRange(7),   MakeRange(8),  MakeRange(9),  MakeRange(10), MakeRange(11),
    MakeRange(12), MakeRange(13),  MakeRange(14), MakeRange(15), MakeRange(16),
};

// x^n as q + s. Multiplying by x: q * x = p + e exactly, and s * x + e
// joins the low part in one rounding. Squaring drops s^2 (below 2^-100 of
// the result).
struct Pair {
    double q, s;
};

#if defined(__GNUC__)
#define VEXA_NOINLINE __attribute__((noinline))
#define VEXA_ALWAYS_INLINE __attribute__((always_inline)) inline
#define VEXA_FMA(a, b, c) __builtin_fma(a, b, c)
#else
#define VEXA_NOINLINE
#define VEXA_ALWAYS_INLINE inline
#define VEXA_FMA(a, b, c) std::fma(a, b, c)
#endif

template <int N>
struct Power {
    static VEXA_ALWAYS_INLINE Pair Of(double x)
    {
        if constexpr (N % 2 == 0) {
            const Pair h = Power<N / 2>::Of(x);
            const double p = h.q * h.q;
            const double e = VEXA_FMA(h.q, h.q, -p);
            return Pair{p, VEXA_FMA(h.q + h.q, h.s, e)};
        } else {
            const Pair h = Power<N - 1>::Of(x);
            const double p = h.q * x;
            const double e = VEXA_FMA(h.q, x, -p);
            return Pair{p, VEXA_FMA(h.s, x, e)};
        }
    }
};

template <>
struct Power<1> {
    static VEXA_ALWAYS_INLINE Pair Of(double x) { return Pair{x, 0.0}; }
};

// The C library's pow with an exponent the compiler cannot see: it would
// turn pow(x, 2.0) with a known 2 into x * x, which rounds differently.
VEXA_NOINLINE double LibraryPow(double x, double y)
{
#if defined(__GNUC__)
    __asm__("" : "+m"(y));
#endif
    return std::pow(x, y);
}

template <int N>
VEXA_ALWAYS_INLINE double Fast(double x)
{
    const Pair w = Power<N>::Of(x);
    const double hi = w.q + w.s;
    const double r = (w.q - hi) + w.s;
    const std::uint64_t hb = Bits(hi);
    // (1/2 - 1/16) ulp of hi = 7/16 ulp = 1.75 * 2^(exponent - 54); hi
    // is normal and far from the ends of the range.
    const double limit = FromBits(((hb >> 52 & 0x7ff) - 54) << 52 | 0xc000000000000ull);
    // Below a power of two the spacing halves; those few go to pow.
    const bool powerOfTwo = (hb << 12) == 0;
    // Reading the mode raises the inexact flag even when x^n is exact (short
    // mantissas, common in models). pow raises it too for every exact result
    // that is not a power of two (it never tracks exactness), so a trap on
    // inexact fires either way; the test checks that.
    if (std::fabs(r) < limit && !powerOfTwo && RoundsToNearest())
        return hi;
    return LibraryPow(x, N);
}

using Kernel = double (*)(double);

template <int N>
double Generic(double x)
{
    return Fast<N>(x);
}

#if defined(__GNUC__) && defined(__x86_64__)
#define VEXA_HAVE_FMA_KERNELS 1
// The same with the fma instruction inline: without it, every fma is a call
// into the C library.
template <int N>
__attribute__((target("fma"))) double WithFma(double x)
{
    return Fast<N>(x);
}
#endif

const Kernel kGeneric[kMaxFastExponent + 1] = {
    nullptr,     nullptr,     Generic<2>,  Generic<3>,  Generic<4>,  Generic<5>,
    Generic<6>,  Generic<7>,  Generic<8>,  Generic<9>,  Generic<10>, Generic<11>,
    Generic<12>, Generic<13>, Generic<14>, Generic<15>, Generic<16>,
};

#ifdef VEXA_HAVE_FMA_KERNELS
const Kernel kWithFma[kMaxFastExponent + 1] = {
    nullptr,     nullptr,     WithFma<2>,  WithFma<3>,  WithFma<4>,  WithFma<5>,
    WithFma<6>,  WithFma<7>,  WithFma<8>,  WithFma<9>,  WithFma<10>, WithFma<11>,
    WithFma<12>, WithFma<13>, WithFma<14>, WithFma<15>, WithFma<16>,
};

const Kernel* ChooseKernels()
{
    __builtin_cpu_init();
    return __builtin_cpu_supports("fma") ? kWithFma : kGeneric;
}
#else
const Kernel* ChooseKernels() { return kGeneric; }
#endif

const Kernel* const g_kernels = ChooseKernels();

// y as an integer 2..kMaxFastExponent, or 0. Read from the bits: comparing
// or converting y could raise a flag (or trap) that pow would not.
int SmallExponent(double y)
{
    const std::uint64_t b = Bits(y);
    const std::uint64_t two = 0x4000000000000000ull;
    const std::uint64_t max = static_cast<std::uint64_t>(1023 + 4) << 52;  // 16.0
    if (b - two > max - two)
        return 0;
    const int e = static_cast<int>(b >> 52) - 1023;  // 1..4
    if (b << (12 + e) != 0)
        return 0;  // a fraction
    return static_cast<int>(((b & 0xfffffffffffffull) | 1ull << 52) >> (52 - e));
}

}  // namespace

// The fast path gives the correctly rounded power, which is pow's wherever
// the C library rounds pow correctly (glibc's does). MinGW-w64's does not
// (0.85 ulp off for (-1.501)^3, and no inexact flag for exact results), so
// there its own pow stays the reference and is always called.
#if defined(_WIN32)
constexpr bool kLibraryPowRoundsCorrectly = false;
#else
constexpr bool kLibraryPowRoundsCorrectly = true;
#endif

double IntPow(double x, int n)
{
    if (!kLibraryPowRoundsCorrectly || n < 2 || n > kMaxFastExponent)
        return LibraryPow(x, n);
    const Range& range = kRanges[n];
    if ((Bits(x) & 0x7fffffffffffffffull) - range.low >= range.span)
        return LibraryPow(x, n);
    // Before static initialisation (a constructor elsewhere evaluating)
    // the table may not be chosen yet.
    const Kernel* kernels = g_kernels ? g_kernels : kGeneric;
    return kernels[n](x);
}

double Pow(double x, double y)
{
    const int n = SmallExponent(y);
    if (n == 0)
        return LibraryPow(x, y);
    return IntPow(x, n);
}

}  // namespace vexa_math
