#ifndef VEXA_BENCH_NATIVE_FUNCTIONS_H
#define VEXA_BENCH_NATIVE_FUNCTIONS_H

#include <algorithm>
#include <cmath>

// The language's functions as a C++ programmer would write them by hand: the
// "native" side of the comparison benchmarks, and the callbacks the peer
// parser is given for what it lacks. Not the library's formulas.
namespace native {

const double kPi = 3.14159265358979323846;

inline double step(double x, double x0, double h0, double x1, double h1)
{
    if (x <= x0)
        return h0;
    if (x >= x1)
        return h1;
    const double a = (x - x0) / (x1 - x0);
    return h0 + (h1 - h0) * a * a * (3.0 - 2.0 * a);
}

inline double step5(double x, double x0, double h0, double x1, double h1)
{
    if (x <= x0)
        return h0;
    if (x >= x1)
        return h1;
    const double a = (x - x0) / (x1 - x0);
    return h0 + (h1 - h0) * a * a * a * (10.0 - 15.0 * a + 6.0 * a * a);
}

inline double havsin(double x, double x0, double h0, double x1, double h1)
{
    if (x <= x0)
        return h0;
    if (x >= x1)
        return h1;
    const double a = (x - x0) / (x1 - x0);
    return 0.5 * ((h0 + h1) + (h1 - h0) * std::sin(kPi * (a - 0.5)));
}

inline double shf(double x, double x0, double a, double w, double phi, double b)
{
    return a * std::sin(w * (x - x0) - phi) + b;
}

inline double contact(double pen, double v, double k, double e, double damping)
{
    const double f = k * std::pow(pen, e) - damping * v;
    return f > 0.0 ? f : 0.0;
}

inline double impact(double x, double v, double x1, double k, double e, double cmax, double d)
{
    if (x >= x1)
        return 0.0;
    return contact(x1 - x, v, k, e, step(x, x1 - d, cmax, x1, 0.0));
}

inline double bistop(double x, double v, double x1, double x2, double k, double e, double cmax, double d)
{
    if (x < x1)
        return contact(x1 - x, v, k, e, step(x, x1 - d, cmax, x1, 0.0));
    if (x > x2)
        return -contact(x - x2, -v, k, e, step(x, x2, 0.0, x2 + d, cmax));
    return 0.0;
}

inline double sweep(double x, double a, double x0, double f0, double x1, double f1, double dx)
{
    const double k = (f1 - f0) / (x1 - x0);
    double phase;
    if (x <= x0)
        phase = 2.0 * kPi * f0 * x;
    else if (x <= x1)
        phase = kPi * k * (x - x0) * (x - x0) + 2.0 * kPi * f0 * x;
    else
        phase = kPi * k * (x1 - x0) * (x1 - x0) + 2.0 * kPi * (f1 * (x - x1) + f0 * x1);
    return a * step5(x, 0.0, 0.0, dx, 1.0) * std::sin(phase);
}

// The language defines POLY as the sum of c[i] (x - x0)^i with the powers
// taken by pow, and an evaluator that must match it bit for bit cannot use
// Horner's rule (another formula, rounding differently); so neither does the
// native side, which would otherwise measure the choice of formula rather
// than the cost of evaluating one.
inline double poly(double x, double x0, const double* c, int n)
{
    const double t = x - x0;
    double s = 0.0;
    for (int i = 0; i < n; ++i)
        s += std::pow(t, static_cast<double>(i)) * c[i];
    return s;
}

inline double cheby(double x, double x0, const double* c, int n)
{
    const double t = x - x0;
    double prev = 1.0, cur = t, s = c[0];
    if (n > 1)
        s += c[1] * t;
    for (int i = 2; i < n; ++i) {
        const double next = 2.0 * t * cur - prev;
        prev = cur;
        cur = next;
        s += c[i] * cur;
    }
    return s;
}

inline double forcos(double x, double x0, double w, const double* c, int n)
{
    double s = c[0];
    for (int i = 1; i < n; ++i)
        s += c[i] * std::cos(i * w * (x - x0));
    return s;
}

inline double forsin(double x, double x0, double w, const double* c, int n)
{
    double s = c[0];
    for (int i = 1; i < n; ++i)
        s += c[i] * std::sin(i * w * (x - x0));
    return s;
}

inline double if4(double x, double n, double z, double p)
{
    return x < 0.0 ? n : (x == 0.0 ? z : p);
}

inline double max(double a, double b)
{
    return a >= b ? a : b;
}

inline double min(double a, double b)
{
    return b < a ? b : a;
}

inline double sign(double a, double b)
{
    return b > 0.0 ? std::fabs(a) : -std::fabs(a);
}

inline double mod(double a, double b)
{
    return std::fmod(a, b);
}

}  // namespace native

#endif
