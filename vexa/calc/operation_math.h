#ifndef VEXA_CALC_OPERATION_MATH_H
#define VEXA_CALC_OPERATION_MATH_H

#include <cmath>

#include "vexa/calc/builtin_math.h"
#include "vexa/calc/builtin_math_generic.h"
#include "vexa/calc/operations.h"
#include "vexa/core/data.h"
#include "vexa/core/float_ops.h"

// The mathematics of each built-in of the table of operations:
//   Value(v, n)          its value at the n scalar arguments v (accepted by
//                        the row's refusal rule), the one formula the tree,
//                        the interpreter, the runners and the machine code
//                        all call, so that every path gives the same bits;
//                        a template over the number type, which the exact
//                        derivatives instantiate with dual numbers;
//   Partials(v, n, y, g) g[k] = d value / d v[k] for every k < n at the
//                        value y, the derivative of the branch the value
//                        takes where a built-in has branches.
// Internal to the library.
namespace vexa_ops {

template <Op op>
struct Math;  // one specialization per built-in row

// Partials of the built-ins whose rules are long (vexa/calc/operation_math.cpp).
void StepPartials(Op op, const double* v, double* g);
void ImpactPartials(const double* v, double* g);
void BistopPartials(const double* v, double* g);
void SweepPartials(const double* v, double* g);
void SeriesPartials(Op op, const double* v, int n, double* g);
void FourierPartials(Op op, const double* v, int n, double* g);

// The operators over scalars, in the operand order of the value arithmetic
// (a + b is computed b + a), and over values, for constant folding. Their
// partials are each runner's own.
#define VEXA_OPERATOR_MATH(Name, scalar, value)                                  \
    template <>                                                                   \
    struct Math<k##Name> {                                                        \
        template <typename T>                                                     \
        static T Value(const T* v, int)                                           \
        {                                                                         \
            using vexa_core::Sum; using vexa_core::Difference;                    \
            using vexa_core::Product; using vexa_core::Quotient;                  \
            using vexa_math::Pow;                                                 \
            return scalar;                                                        \
        }                                                                         \
        static VEXA_Data Fold(const VEXA_Data& a, const VEXA_Data& b) { return value; } \
    };
VEXA_OPERATOR_MATH(Add, Sum(v[1], v[0]), a + b)
VEXA_OPERATOR_MATH(Sub, Difference(v[0], v[1]), a - b)
VEXA_OPERATOR_MATH(Mul, Product(v[0], v[1]), a * b)
VEXA_OPERATOR_MATH(Div, Quotient(v[0], v[1]), a / b)
VEXA_OPERATOR_MATH(Pow, Pow(v[0], v[1]), a ^ b)
#undef VEXA_OPERATOR_MATH

// The slope of |x|, as SIGN(1, x) gives it: -1 at 0.
inline double SlopeOfAbs(double x) { return x > 0.0 ? 1.0 : -1.0; }

// The functions of <cmath> a value may call, for double and, found beside
// it, for any other number type.
#define VEXA_MATH_NAMES                                                                  \
    using std::sin; using std::cos; using std::tan; using std::sinh; using std::cosh;   \
    using std::tanh; using std::atan; using std::exp; using std::asin; using std::acos; \
    using std::log; using std::log10; using std::sqrt; using std::fabs; using std::atan2

// Slope is a template too, so that forward differentiation over any number
// type forms each slope by the very formula the partials use.
#define VEXA_UNARY_MATH(Name, value, slope)                                            \
    template <>                                                                         \
    struct Math<k##Name> {                                                              \
        template <typename T>                                                           \
        static T Value(const T* v, int)                                                 \
        {                                                                               \
            VEXA_MATH_NAMES;                                                            \
            const T x = v[0];                                                           \
            return value;                                                               \
        }                                                                               \
        template <typename T>                                                           \
        static T Slope(const T& x, const T& y)                                          \
        {                                                                               \
            VEXA_MATH_NAMES;                                                            \
            (void)x;                                                                    \
            (void)y;                                                                    \
            return slope;                                                               \
        }                                                                               \
        static void Partials(const double* v, int, double y, double* g) { g[0] = Slope(v[0], y); } \
    };

// Slopes may use the value y where that is how they are best computed.
VEXA_UNARY_MATH(Abs, fabs(x), SlopeOfAbs(x))
VEXA_UNARY_MATH(Sin, sin(x), cos(x))
VEXA_UNARY_MATH(Cos, cos(x), -sin(x))
VEXA_UNARY_MATH(Tan, tan(x), 1.0 + y * y)
VEXA_UNARY_MATH(Sinh, sinh(x), cosh(x))
VEXA_UNARY_MATH(Cosh, cosh(x), sinh(x))
// 1 - tanh^2 loses every digit where tanh rounds to 1; cosh overflows where
// tanh does not, so it is computed with the slope only.
VEXA_UNARY_MATH(Tanh, tanh(x), 1.0 / (cosh(x) * cosh(x)))
VEXA_UNARY_MATH(Atan, atan(x), 1.0 / (1.0 + x * x))
VEXA_UNARY_MATH(Exp, exp(x), y)
VEXA_UNARY_MATH(Aint, vexa_math::Trunc(x), 0.0)
VEXA_UNARY_MATH(Anint, vexa_math::Anint(x), 0.0)
VEXA_UNARY_MATH(Asin, asin(x), 1.0 / sqrt((1.0 - x) * (1.0 + x)))
VEXA_UNARY_MATH(Acos, acos(x), -1.0 / sqrt((1.0 - x) * (1.0 + x)))
VEXA_UNARY_MATH(Log, log(x), 1.0 / x)
VEXA_UNARY_MATH(Log10, log10(x), 0.43429448190325176 / x)  // 1 / ln 10
VEXA_UNARY_MATH(Sqrt, sqrt(x), 0.5 / y)
#undef VEXA_UNARY_MATH
#undef VEXA_MATH_NAMES

template <>
struct Math<kAtan2> {
    template <typename T>
    static T Value(const T* v, int)
    {
        using std::atan2;
        return atan2(v[0], v[1]);
    }
    static void Partials(const double* v, int, double, double* g)
    {
        // atan2(a, b): a is the ordinate; scaled so that no square overflows.
        const double r = std::hypot(v[0], v[1]);
        g[0] = v[1] / r / r;
        g[1] = -v[0] / r / r;
    }
};

template <>
struct Math<kMax> {
    template <typename T>
    static T Value(const T* v, int) { return vexa_math::Max(v[0], v[1]); }
    static void Partials(const double* v, int, double, double* g)
    {
        g[0] = v[0] >= v[1] ? 1.0 : 0.0;
        g[1] = 1.0 - g[0];
    }
};

template <>
struct Math<kMin> {
    template <typename T>
    static T Value(const T* v, int) { return vexa_math::Min(v[0], v[1]); }
    static void Partials(const double* v, int, double, double* g)
    {
        g[1] = v[1] < v[0] ? 1.0 : 0.0;
        g[0] = 1.0 - g[1];
    }
};

template <>
struct Math<kMod> {
    template <typename T>
    static T Value(const T* v, int) { return vexa_math::Mod(v[0], v[1]); }
    static void Partials(const double* v, int, double, double* g)
    {
        g[0] = 1.0;
        g[1] = -vexa_math::Trunc(v[0] / v[1]);
    }
};

template <>
struct Math<kSign> {
    template <typename T>
    static T Value(const T* v, int) { return vexa_math::Sign(v[0], v[1]); }
    static void Partials(const double* v, int, double, double* g)
    {
        g[0] = (v[1] > 0.0 ? 1.0 : -1.0) * SlopeOfAbs(v[0]);
        g[1] = 0.0;
    }
};

template <>
struct Math<kIf> {
    template <typename T>
    static T Value(const T* v, int) { return vexa_math::If(v[0], v[1], v[2], v[3]); }
    static void Partials(const double* v, int, double, double* g)
    {
        const double x = v[0];
        g[0] = 0.0;
        g[1] = x < 0.0 ? 1.0 : 0.0;
        g[2] = x == 0.0 ? 1.0 : 0.0;
        g[3] = x < 0.0 || x == 0.0 ? 0.0 : 1.0;
    }
};

#define VEXA_STEP_MATH(Name, formula)                                                          \
    template <>                                                                                 \
    struct Math<k##Name> {                                                                      \
        template <typename T>                                                                   \
        static T Value(const T* v, int) { return formula(v[0], v[1], v[2], v[3], v[4]); }       \
        static void Partials(const double* v, int, double, double* g) { StepPartials(k##Name, v, g); } \
    };
VEXA_STEP_MATH(Step, vexa_math::CubicStep)
VEXA_STEP_MATH(Step5, vexa_math::QuinticStep)
VEXA_STEP_MATH(Havsin, vexa_math::Havsin)
#undef VEXA_STEP_MATH

template <>
struct Math<kShf> {
    template <typename T>
    static T Value(const T* v, int) { return vexa_math::Shf(v[0], v[1], v[2], v[3], v[4], v[5]); }
    static void Partials(const double* v, int, double, double* g)
    {
        // a sin(w (x - x0) - phi) + b
        const double t = v[0] - v[1];
        const double u = v[3] * t - v[4];
        const double c = v[2] * std::cos(u);
        g[0] = c * v[3];
        g[1] = -c * v[3];
        g[2] = std::sin(u);
        g[3] = c * t;
        g[4] = -c;
        g[5] = 1.0;
    }
};

template <>
struct Math<kImpact> {
    template <typename T>
    static T Value(const T* v, int) { return vexa_math::Impact(v[0], v[1], v[2], v[3], v[4], v[5], v[6]); }
    static void Partials(const double* v, int, double, double* g) { ImpactPartials(v, g); }
};

template <>
struct Math<kSweep> {
    template <typename T>
    static T Value(const T* v, int) { return vexa_math::Sweep(v[0], v[1], v[2], v[3], v[4], v[5], v[6]); }
    static void Partials(const double* v, int, double, double* g) { SweepPartials(v, g); }
};

template <>
struct Math<kBistop> {
    template <typename T>
    static T Value(const T* v, int)
    {
        return vexa_math::Bistop(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]);
    }
    static void Partials(const double* v, int, double, double* g) { BistopPartials(v, g); }
};

template <>
struct Math<kPoly> {
    template <typename T>
    static T Value(const T* v, int n) { return vexa_math::Poly(v[0], v[1], v + 2, n - 2); }
    static void Partials(const double* v, int n, double, double* g) { SeriesPartials(kPoly, v, n, g); }
};

template <>
struct Math<kCheby> {
    template <typename T>
    static T Value(const T* v, int n) { return vexa_math::Cheby(v[0], v[1], v + 2, n - 2); }
    static void Partials(const double* v, int n, double, double* g) { SeriesPartials(kCheby, v, n, g); }
};

template <>
struct Math<kForcos> {
    template <typename T>
    static T Value(const T* v, int n) { return vexa_math::Forcos(v[0], v[1], v[2], v + 3, n - 3); }
    static void Partials(const double* v, int n, double, double* g) { FourierPartials(kForcos, v, n, g); }
};

template <>
struct Math<kForsin> {
    template <typename T>
    static T Value(const T* v, int n) { return vexa_math::Forsin(v[0], v[1], v[2], v + 3, n - 3); }
    static void Partials(const double* v, int n, double, double* g) { FourierPartials(kForsin, v, n, g); }
};

// The built-in op at the n arguments v into out; false where its refusal
// rule refuses them. Inlined where op is a constant.
template <Op op>
inline bool Evaluate(const double* v, int n, double& out)
{
    if (!Accepts<kRows[op].refusal>(v))
        return false;
    out = Math<op>::Value(v, n);
    return true;
}

}  // namespace vexa_ops

#endif
