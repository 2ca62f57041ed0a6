#ifndef VEXA_CALC_BUILTIN_MATH_H
#define VEXA_CALC_BUILTIN_MATH_H

#include <cmath>

#include "vexa/core/exact_pow.h"
#include "vexa/core/platform.h"

// The computing built-ins as functions of doubles. The built-in
// implementations read their arguments into doubles and call these; the
// compiled evaluation calls them directly. The order of operations follows
// the language's definitions exactly: do not regroup the arithmetic.
//
// Those that compute are defined once, out of line (builtin_math.cpp), so
// that every caller runs the same machine code: a compiler may order the
// operands of + and * differently wherever it inlines a formula, and with
// two NaN operands the order decides which NaN comes out. Those that only
// select, test or flip a sign stay inline. Every formula is written once, as
// a template over the number type (builtin_math_generic.h); these are its
// double instances. Internal.
namespace vexa_math {

const double kPi = 3.14159265358979323846;
const double kTwoPi = 2.0 * kPi;
// At most 31 coefficients follow the leading arguments of every series.
const int kMaxCoefficients = 31;

inline double Trunc(double v)
{
    return static_cast<double>(vexa_platform::Trunc32(v));
}

// Domain tests written so that a NaN argument passes them: only the listed
// out-of-domain values are refused, a NaN just propagates.
inline bool InArcDomain(double x) { return !(std::fabs(x) > 1.0); }
inline bool InLogDomain(double x) { return !(x <= 0.0); }
inline bool InSqrtDomain(double x) { return !(x < 0.0); }

// MAX selects by a compare, which the machine code writes out as a compare
// and a move: under denormals-are-zero both compare a subnormal as zero and
// keep its bits.
inline double Max(double a, double b) { return a >= b ? a : b; }

// b < a ? b : a is exactly minsd b, a (a NaN or two zeros give a), the
// instruction compilers pick for it; spelt out so that every caller and the
// machine code run that very instruction, which under denormals-are-zero
// returns a subnormal as a zero of its sign.
#if defined(__GNUC__) && defined(__x86_64__)
inline double Min(double a, double b)
{
    __asm__("minsd %1, %0" : "+x"(b) : "xm"(a));
    return b;
}
#else
inline double Min(double a, double b) { return b < a ? b : a; }
#endif

inline double Sign(double a, double b)
{
    const double magnitude = std::fabs(a);
    return b > 0.0 ? magnitude : -magnitude;
}

// A NaN selector is neither negative nor zero, so it picks the last branch.
inline double If(double x, double n, double z, double p)
{
    if (x < 0.0)
        return n;
    if (x == 0.0)
        return z;
    return p;
}

double Anint(double x);
// The quotient goes through the 32-bit truncation, so a zero divisor gives
// a - (-2147483648 * 0) = a instead of a NaN.
double Mod(double a, double b);

// The steps hold h0 "unless x > x0" rather than "for x <= x0": a NaN x stays
// at h0.
double CubicStep(double x, double x0, double h0, double x1, double h1);
double QuinticStep(double x, double x0, double h0, double x1, double h1);
double Havsin(double x, double x0, double h0, double x1, double h1);
double Shf(double x, double x0, double a, double w, double phi, double b);
double Impact(double x, double v, double x1, double k, double e, double cmax, double d);
double Bistop(double x, double v, double x1, double x2, double k, double e, double cmax, double d);
double Sweep(double x, double a, double x0, double f0, double x1, double f1, double dx);

// The series over n coefficients c, summed in ascending order of the index:
// reordering a sum changes the last bits of the result.
double Poly(double x, double x0, const double* c, int n);
double Cheby(double x, double x0, const double* c, int n);
double Forcos(double x, double x0, double w, const double* c, int n);
double Forsin(double x, double x0, double w, const double* c, int n);

}  // namespace vexa_math

#endif
