#ifndef VEXA_COMPILED_EXACT_DUAL_H
#define VEXA_COMPILED_EXACT_DUAL_H

#include <cmath>

#include "vexa/core/exact_pow.h"
#include "vexa/core/float_ops.h"

// Dual numbers v + d e with e^2 = 0, nested once per order of derivative:
// Dual<Dual<double>> carries a value, two first partials and the mixed
// second one. The built-ins' formulas run over them unchanged (their
// templates in builtin_math_generic.h), so every branch is the one the
// value takes: comparisons look at the value alone.
//
// The value part of every operation is the double operation itself, in the
// operand order the value arithmetic uses, so a derivative is always that of
// the very value Evaluate computes. A slope is only formed where a
// derivative flows in: a constant operand of SQRT(0) or LOG(0) then adds
// nothing rather than 0 * infinity, as in the reverse sweep. Internal.
namespace vexa_exact {

inline double Scalar(double v) { return v; }
inline bool IsZero(double v) { return v == 0.0; }

template <typename T>
struct Dual {
    T v;
    T d;

    Dual() : v(0.0), d(0.0) {}
    Dual(double c) : v(c), d(0.0) {}  // NOLINT: constants mix freely
    Dual(const T& value, const T& slope) : v(value), d(slope) {}

    friend double Scalar(const Dual& a) { return Scalar(a.v); }
    friend bool IsZero(const Dual& a) { return IsZero(a.v) && IsZero(a.d); }

    // slope * d, or nothing where no derivative flows in.
    template <typename Slope>
    static T Chain(const T& d, Slope slope)
    {
        return IsZero(d) ? T(0.0) : slope() * d;
    }

    friend Dual Sum(const Dual& a, const Dual& b)
    {
        using vexa_core::Sum;
        return Dual(Sum(a.v, b.v), a.d + b.d);
    }
    friend Dual Difference(const Dual& a, const Dual& b)
    {
        using vexa_core::Difference;
        return Dual(Difference(a.v, b.v), a.d - b.d);
    }
    friend Dual Product(const Dual& a, const Dual& b)
    {
        using vexa_core::Product;
        return Dual(Product(a.v, b.v), a.d * b.v + a.v * b.d);
    }
    friend Dual Quotient(const Dual& a, const Dual& b)
    {
        using vexa_core::Quotient;
        const T q = Quotient(a.v, b.v);
        return Dual(q, (a.d - q * b.d) / b.v);
    }

    friend Dual operator+(const Dual& a, const Dual& b) { return Dual(a.v + b.v, a.d + b.d); }
    friend Dual operator-(const Dual& a, const Dual& b) { return Dual(a.v - b.v, a.d - b.d); }
    friend Dual operator*(const Dual& a, const Dual& b) { return Dual(a.v * b.v, a.d * b.v + a.v * b.d); }
    friend Dual operator/(const Dual& a, const Dual& b)
    {
        const T q = a.v / b.v;
        return Dual(q, (a.d - q * b.d) / b.v);
    }
    friend Dual operator-(const Dual& a) { return Dual(-a.v, -a.d); }
    Dual& operator+=(const Dual& b) { return *this = *this + b; }

    friend bool operator<(const Dual& a, const Dual& b) { return Scalar(a) < Scalar(b); }
    friend bool operator>(const Dual& a, const Dual& b) { return Scalar(a) > Scalar(b); }
    friend bool operator<=(const Dual& a, const Dual& b) { return Scalar(a) <= Scalar(b); }
    friend bool operator>=(const Dual& a, const Dual& b) { return Scalar(a) >= Scalar(b); }
    friend bool operator==(const Dual& a, const Dual& b) { return Scalar(a) == Scalar(b); }

    // x^y: through the base unless the exponent varies, as the reverse sweep
    // forms it (the logarithm of a negative base is never taken for a
    // constant exponent, nor that of a zero base).
    friend Dual Pow(const Dual& x, const Dual& y)
    {
        using std::log;
        using vexa_math::Pow;
        const T p = Pow(x.v, y.v);
        T d = Chain(x.d, [&] { return y.v * Pow(x.v, y.v - T(1.0)); });
        if (!IsZero(y.d) && Scalar(p) != 0.0)
            d = d + p * log(x.v) * y.d;
        return Dual(p, d);
    }

    friend Dual fabs(const Dual& a)
    {
        using std::fabs;
        // Slope -1 at 0, as SIGN(1, x) gives it.
        return Dual(fabs(a.v), Scalar(a) > 0.0 ? a.d : -a.d);
    }
    friend Dual sqrt(const Dual& a)
    {
        using std::sqrt;
        const T s = sqrt(a.v);
        return Dual(s, Chain(a.d, [&] { return T(0.5) / s; }));
    }
    friend Dual exp(const Dual& a)
    {
        using std::exp;
        const T e = exp(a.v);
        return Dual(e, Chain(a.d, [&] { return e; }));
    }
    friend Dual log(const Dual& a)
    {
        using std::log;
        return Dual(log(a.v), Chain(a.d, [&] { return T(1.0) / a.v; }));
    }
    friend Dual log10(const Dual& a)
    {
        using std::log10;
        return Dual(log10(a.v), Chain(a.d, [&] { return T(0.43429448190325176) / a.v; }));
    }
    friend Dual sin(const Dual& a)
    {
        using std::cos;
        using std::sin;
        return Dual(sin(a.v), Chain(a.d, [&] { return cos(a.v); }));
    }
    friend Dual cos(const Dual& a)
    {
        using std::cos;
        using std::sin;
        return Dual(cos(a.v), Chain(a.d, [&] { return -sin(a.v); }));
    }
    friend Dual tan(const Dual& a)
    {
        using std::tan;
        const T t = tan(a.v);
        return Dual(t, Chain(a.d, [&] { return T(1.0) + t * t; }));
    }
    friend Dual sinh(const Dual& a)
    {
        using std::cosh;
        using std::sinh;
        return Dual(sinh(a.v), Chain(a.d, [&] { return cosh(a.v); }));
    }
    friend Dual cosh(const Dual& a)
    {
        using std::cosh;
        using std::sinh;
        return Dual(cosh(a.v), Chain(a.d, [&] { return sinh(a.v); }));
    }
    friend Dual tanh(const Dual& a)
    {
        using std::cosh;
        using std::tanh;
        return Dual(tanh(a.v), Chain(a.d, [&] { return T(1.0) / (cosh(a.v) * cosh(a.v)); }));
    }
    friend Dual atan(const Dual& a)
    {
        using std::atan;
        return Dual(atan(a.v), Chain(a.d, [&] { return T(1.0) / (T(1.0) + a.v * a.v); }));
    }
    friend Dual asin(const Dual& a)
    {
        using std::asin;
        using std::sqrt;
        return Dual(asin(a.v), Chain(a.d, [&] { return T(1.0) / sqrt((T(1.0) - a.v) * (T(1.0) + a.v)); }));
    }
    friend Dual acos(const Dual& a)
    {
        using std::acos;
        using std::sqrt;
        return Dual(acos(a.v), Chain(a.d, [&] { return T(-1.0) / sqrt((T(1.0) - a.v) * (T(1.0) + a.v)); }));
    }
    friend Dual atan2(const Dual& y, const Dual& x)
    {
        using std::atan2;
        const T r2 = x.v * x.v + y.v * y.v;
        return Dual(atan2(y.v, x.v), Chain(y.d, [&] { return x.v / r2; }) - Chain(x.d, [&] { return y.v / r2; }));
    }
};

}  // namespace vexa_exact

#endif
