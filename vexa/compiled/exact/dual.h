#ifndef VEXA_COMPILED_EXACT_DUAL_H
#define VEXA_COMPILED_EXACT_DUAL_H

#include <cmath>

#include "vexa/calc/operation_math.h"
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
    // The elementary functions: the value as the double function gives it,
    // the slope by the formula the partials of the table of operations use.
#define VEXA_DUAL_UNARY(fn, Name)                                                                     \
    friend Dual fn(const Dual& a)                                                                     \
    {                                                                                                 \
        using std::fn;                                                                                \
        const T y = fn(a.v);                                                                          \
        return Dual(y, Chain(a.d, [&] { return vexa_ops::Math<vexa_ops::k##Name>::Slope(a.v, y); })); \
    }
    VEXA_DUAL_UNARY(sqrt, Sqrt)
    VEXA_DUAL_UNARY(exp, Exp)
    VEXA_DUAL_UNARY(log, Log)
    VEXA_DUAL_UNARY(log10, Log10)
    VEXA_DUAL_UNARY(sin, Sin)
    VEXA_DUAL_UNARY(cos, Cos)
    VEXA_DUAL_UNARY(tan, Tan)
    VEXA_DUAL_UNARY(sinh, Sinh)
    VEXA_DUAL_UNARY(cosh, Cosh)
    VEXA_DUAL_UNARY(tanh, Tanh)
    VEXA_DUAL_UNARY(atan, Atan)
    VEXA_DUAL_UNARY(asin, Asin)
    VEXA_DUAL_UNARY(acos, Acos)
#undef VEXA_DUAL_UNARY
    friend Dual atan2(const Dual& y, const Dual& x)
    {
        using std::atan2;
        const T r2 = x.v * x.v + y.v * y.v;
        return Dual(atan2(y.v, x.v), Chain(y.d, [&] { return x.v / r2; }) - Chain(x.d, [&] { return y.v / r2; }));
    }
};

}  // namespace vexa_exact

#endif
