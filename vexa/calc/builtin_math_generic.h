#ifndef VEXA_CALC_BUILTIN_MATH_GENERIC_H
#define VEXA_CALC_BUILTIN_MATH_GENERIC_H

#include <cmath>

#include "vexa/calc/builtin_math.h"
#include "vexa/core/float_ops.h"

// The computing built-ins of builtin_math.h as templates over the number
// type. The double functions there are these very templates, instantiated
// once in builtin_math.cpp, so that the exact derivatives, which run them
// over dual numbers, follow each formula and each branch the value takes
// without a second copy of the mathematics that could drift from the first.
//
// A number type T besides double: constructible from a double, the four
// operations and the comparisons (of the values alone), and Sum, Difference,
// Product, Quotient, Pow, sin, cos and fabs found beside T by argument-
// dependent lookup, with Scalar, the double value it carries: a truncation
// (AINT, ANINT, the quotient inside MOD) has slope 0. Internal.
namespace vexa_math {

inline double Scalar(double v) { return v; }

template <typename T>
T Trunc(const T& v)
{
    return T(Trunc(Scalar(v)));
}

template <typename T>
T Max(const T& a, const T& b)
{
    return a >= b ? a : b;
}

template <typename T>
T Min(const T& a, const T& b)
{
    return b < a ? b : a;
}

template <typename T>
T Sign(const T& a, const T& b)
{
    using std::fabs;
    const T magnitude = fabs(a);
    return b > 0.0 ? magnitude : -magnitude;
}

template <typename T>
T If(const T& x, const T& n, const T& z, const T& p)
{
    if (x < 0.0)
        return n;
    if (x == 0.0)
        return z;
    return p;
}

template <typename T>
T Anint(const T& x)
{
    return x > 0.0 ? Trunc(x + 0.5) : Trunc(x - 0.5);
}

template <typename T>
T Mod(const T& a, const T& b)
{
    return a - Trunc(a / b) * b;
}

namespace generic {

using vexa_core::Difference;
using vexa_core::Product;
using vexa_core::Quotient;
using vexa_core::Sum;

// h0 unless x > x0 (so a NaN x stays at h0), h1 from x1 on, otherwise the
// ramp at the fraction a = (x - x0) / (x1 - x0) of the way.
template <typename T, typename Ramp>
T Step(const T& x, const T& x0, const T& h0, const T& x1, const T& h1, Ramp ramp)
{
    if (!(x > x0))
        return h0;
    if (x >= x1)
        return h1;
    return ramp(Quotient(Difference(x, x0), Difference(x1, x0)));
}

// c[0] + sum over i >= 1 of wave((i * w) * (x - x0)) * c[i], i < n
template <typename T, typename Wave>
T Fourier(const T& x, const T& x0, const T& w, const T* c, int n, Wave wave)
{
    const T t = x - x0;
    T s = c[0];
    for (int i = 1; i < n; ++i)
        s += wave((static_cast<double>(i) * w) * t) * c[i];
    return s;
}

}  // namespace generic

// The two polynomial steps spell out the order of their operands, so that
// the compiled evaluation's machine code, which writes them out, matches them
// to the NaN: (3 - (a + a)) (h1 - h0) (a a) + h0, and
// ((6a) a + (10 - 15a)) (h1 - h0) a (a a) + h0, left to right.
template <typename T>
T CubicStep(const T& x, const T& x0, const T& h0, const T& x1, const T& h1)
{
    using namespace generic;
    return Step(x, x0, h0, x1, h1, [&](const T& a) {
        const T rise = Product(Difference(T(3.0), Sum(a, a)), Difference(h1, h0));
        return Sum(Product(rise, Product(a, a)), h0);
    });
}

template <typename T>
T QuinticStep(const T& x, const T& x0, const T& h0, const T& x1, const T& h1)
{
    using namespace generic;
    return Step(x, x0, h0, x1, h1, [&](const T& a) {
        const T shape = Sum(Product(Product(T(6.0), a), a), Difference(T(10.0), Product(T(15.0), a)));
        const T rise = Product(Product(shape, Difference(h1, h0)), a);
        return Sum(Product(rise, Product(a, a)), h0);
    });
}

template <typename T>
T Havsin(const T& x, const T& x0, const T& h0, const T& x1, const T& h1)
{
    using std::sin;
    return generic::Step(x, x0, h0, x1, h1,
                         [&](const T& a) { return ((h1 + h0) + (h1 - h0) * sin(kPi * a - kPi / 2.0)) * 0.5; });
}

template <typename T>
T Shf(const T& x, const T& x0, const T& a, const T& w, const T& phi, const T& b)
{
    using std::sin;
    return a * sin(w * (x - x0) - phi) + b;
}

namespace generic {

// Penetration force below the lower stop; damping ramps in over depth d.
template <typename T>
T LowerContact(const T& x, const T& v, const T& x1, const T& k, const T& e, const T& cmax, const T& d)
{
    const T f = k * Pow(x1 - x, e) - CubicStep<T>(x, x1 - d, cmax, x1, T(0.0)) * v;
    return f > 0.0 ? f : T(0.0);
}

}  // namespace generic

template <typename T>
T Impact(const T& x, const T& v, const T& x1, const T& k, const T& e, const T& cmax, const T& d)
{
    return x < x1 ? generic::LowerContact(x, v, x1, k, e, cmax, d) : T(0.0);
}

template <typename T>
T Bistop(const T& x, const T& v, const T& x1, const T& x2, const T& k, const T& e, const T& cmax, const T& d)
{
    if (x < x1)
        return generic::LowerContact(x, v, x1, k, e, cmax, d);
    if (x > x2) {
        const T f = -k * Pow(x - x2, e) - CubicStep<T>(x, x2, T(0.0), x2 + d, cmax) * v;
        return f < 0.0 ? f : T(0.0);
    }
    return T(0.0);
}

// The amplitude ramps in from x = 0, not from x0: the sweep is silent for
// every x <= 0 whatever its frequency window.
template <typename T>
T Sweep(const T& x, const T& a, const T& x0, const T& f0, const T& x1, const T& f1, const T& dx)
{
    using std::sin;
    const T k = (f1 - f0) / (x1 - x0);
    T phase(0.0);
    if (!(x > x0))
        phase = kTwoPi * f0 * x;
    else if (x <= x1)
        phase = k * (x - x0) * (kPi * (x - x0)) + kTwoPi * f0 * x;
    else
        phase = k * (x1 - x0) * (kPi * (x1 - x0)) + kTwoPi * (f1 * (x - x1) + f0 * x1);
    return sin(phase) * (QuinticStep<T>(x, T(0.0), T(0.0), dx, T(1.0)) * a);
}

// sum of c[i] (x - x0)^i
template <typename T>
T Poly(const T& x, const T& x0, const T* c, int n)
{
    const T t = x - x0;
    T s(0.0);
    for (int i = 0; i < n; ++i)
        s += Pow(t, T(static_cast<double>(i))) * c[i];
    return s;
}

// Chebyshev polynomials of the first kind by the two-term recurrence
// T(i) = 2t T(i-1) - T(i-2), T(0) = 1, T(1) = t.
template <typename T>
T Cheby(const T& x, const T& x0, const T* c, int n)
{
    const T t = x - x0;
    T before(1.0);  // T(i-2)
    T last = t;     // T(i-1)
    T s(0.0);
    for (int i = 0; i < n; ++i) {
        T ti(1.0);
        if (i == 1) {
            ti = t;
        } else if (i > 1) {
            ti = (2.0 * t) * last - before;
            before = last;
            last = ti;
        }
        s += ti * c[i];
    }
    return s;
}

template <typename T>
T Forcos(const T& x, const T& x0, const T& w, const T* c, int n)
{
    using std::cos;
    return generic::Fourier(x, x0, w, c, n, [](const T& a) { return cos(a); });
}

template <typename T>
T Forsin(const T& x, const T& x0, const T& w, const T* c, int n)
{
    using std::sin;
    return generic::Fourier(x, x0, w, c, n, [](const T& a) { return sin(a); });
}

}  // namespace vexa_math

#endif
