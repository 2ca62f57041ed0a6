#include "vexa/calc/builtin_math.h"

#include "vexa/core/float_ops.h"

namespace vexa_math {

using vexa_core::Difference;
using vexa_core::Product;
using vexa_core::Quotient;
using vexa_core::Sum;

namespace {

// h0 unless x > x0 (so a NaN x stays at h0), h1 from x1 on, otherwise the
// ramp at the fraction a = (x - x0) / (x1 - x0) of the way.
template <typename Ramp>
double Step(double x, double x0, double h0, double x1, double h1, Ramp ramp)
{
    if (!(x > x0))
        return h0;
    if (x >= x1)
        return h1;
    return ramp(Quotient(Difference(x, x0), Difference(x1, x0)));
}

// Penetration force below the lower stop; damping ramps in over depth d.
double LowerContact(double x, double v, double x1, double k, double e, double cmax, double d)
{
    const double f = k * vexa_math::Pow(x1 - x, e) - CubicStep(x, x1 - d, cmax, x1, 0.0) * v;
    return f > 0.0 ? f : 0.0;
}

// c[0] + sum over i >= 1 of wave((i * w) * (x - x0)) * c[i], i < n
template <typename Wave>
double Fourier(double x, double x0, double w, const double* c, int n, Wave wave)
{
    const double t = x - x0;
    double s = c[0];
    for (int i = 1; i < n; ++i)
        s += wave((static_cast<double>(i) * w) * t) * c[i];
    return s;
}

}  // namespace

double Anint(double x)
{
    return x > 0.0 ? Trunc(x + 0.5) : Trunc(x - 0.5);
}

double Mod(double a, double b)
{
    return a - Trunc(a / b) * b;
}

// The two polynomial steps spell out the order of their operands, so that
// the compiled evaluation's machine code, which writes them out, matches them
// to the NaN: (3 - (a + a)) (h1 - h0) (a a) + h0, and
// ((6a) a + (10 - 15a)) (h1 - h0) a (a a) + h0, left to right.
double CubicStep(double x, double x0, double h0, double x1, double h1)
{
    return Step(x, x0, h0, x1, h1, [&](double a) {
        const double rise = Product(Difference(3.0, Sum(a, a)), Difference(h1, h0));
        return Sum(Product(rise, Product(a, a)), h0);
    });
}

double QuinticStep(double x, double x0, double h0, double x1, double h1)
{
    return Step(x, x0, h0, x1, h1, [&](double a) {
        const double shape = Sum(Product(Product(6.0, a), a), Difference(10.0, Product(15.0, a)));
        const double rise = Product(Product(shape, Difference(h1, h0)), a);
        return Sum(Product(rise, Product(a, a)), h0);
    });
}

double Havsin(double x, double x0, double h0, double x1, double h1)
{
    return Step(x, x0, h0, x1, h1,
                [&](double a) { return ((h1 + h0) + (h1 - h0) * std::sin(kPi * a - kPi / 2.0)) * 0.5; });
}

double Shf(double x, double x0, double a, double w, double phi, double b)
{
    return a * std::sin(w * (x - x0) - phi) + b;
}

double Impact(double x, double v, double x1, double k, double e, double cmax, double d)
{
    return x < x1 ? LowerContact(x, v, x1, k, e, cmax, d) : 0.0;
}

double Bistop(double x, double v, double x1, double x2, double k, double e, double cmax, double d)
{
    if (x < x1)
        return LowerContact(x, v, x1, k, e, cmax, d);
    if (x > x2) {
        const double f = -k * vexa_math::Pow(x - x2, e) - CubicStep(x, x2, 0.0, x2 + d, cmax) * v;
        return f < 0.0 ? f : 0.0;
    }
    return 0.0;
}

// The amplitude ramps in from x = 0, not from x0: the sweep is silent for
// every x <= 0 whatever its frequency window.
double Sweep(double x, double a, double x0, double f0, double x1, double f1, double dx)
{
    const double k = (f1 - f0) / (x1 - x0);
    double phase;
    if (!(x > x0))
        phase = kTwoPi * f0 * x;
    else if (x <= x1)
        phase = k * (x - x0) * (kPi * (x - x0)) + kTwoPi * f0 * x;
    else
        phase = k * (x1 - x0) * (kPi * (x1 - x0)) + kTwoPi * (f1 * (x - x1) + f0 * x1);
    return std::sin(phase) * (QuinticStep(x, 0.0, 0.0, dx, 1.0) * a);
}

// sum of c[i] (x - x0)^i
double Poly(double x, double x0, const double* c, int n)
{
    const double t = x - x0;
    double s = 0.0;
    for (int i = 0; i < n; ++i)
        s += vexa_math::Pow(t, static_cast<double>(i)) * c[i];
    return s;
}

// Chebyshev polynomials of the first kind by the two-term recurrence
// T(i) = 2t T(i-1) - T(i-2), T(0) = 1, T(1) = t.
double Cheby(double x, double x0, const double* c, int n)
{
    const double t = x - x0;
    double before = 1.0;  // T(i-2)
    double last = t;      // T(i-1)
    double s = 0.0;
    for (int i = 0; i < n; ++i) {
        double ti;
        if (i == 0) {
            ti = 1.0;
        } else if (i == 1) {
            ti = t;
        } else {
            ti = (2.0 * t) * last - before;
            before = last;
            last = ti;
        }
        s += ti * c[i];
    }
    return s;
}

double Forcos(double x, double x0, double w, const double* c, int n)
{
    return Fourier(x, x0, w, c, n, [](double a) { return std::cos(a); });
}

double Forsin(double x, double x0, double w, const double* c, int n)
{
    return Fourier(x, x0, w, c, n, [](double a) { return std::sin(a); });
}

}  // namespace vexa_math
