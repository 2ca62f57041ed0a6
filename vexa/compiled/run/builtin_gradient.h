#ifndef VEXA_COMPILED_BUILTIN_GRADIENT_H
#define VEXA_COMPILED_BUILTIN_GRADIENT_H

#include "vexa/calc/builtin_math.h"
#include "vexa/compiled/program/program.h"

// First derivatives of the built-ins. Internal.
namespace vexa_compiled {

// The built-in op (one that EvalBuiltin computes) at the n arguments v: its
// value exactly as EvalBuiltin gives it and, when partials is not null,
// partials[k] = d value / d v[k] for every k < n, the derivative of the
// branch the value takes where a built-in has branches. False where the
// built-in refuses v.
bool BuiltinGradient(Op op, const double* v, int n, double& value, double* partials);

// BuiltinGradient of one op, compiled for that op alone, as a function the
// gradient's machine code calls directly: kGoes, or kRefusal where the
// built-in refuses v. Null for an op out of range.
typedef int (*GradientKernel)(const double* v, int n, double* value, double* partials);
GradientKernel BuiltinGradientKernel(Op op);

// BuiltinGradient of the built-ins that only select an argument or flip a
// sign (ABS, MAX, MIN, SIGN, IF), inline for the one-point runner, which
// meets them often and pays more for the call than for the work; false for
// every other op.
inline bool SelectionGradient(Op op, const double* v, double& value, double* g)
{
    using namespace vexa_math;
    const double x = v[0];
    // The slope of |x|, as SIGN(1, x) gives it: -1 at 0. Only where partials
    // are asked for: the value alone compares nothing the tree does not (a
    // NaN compared would trap under an unmasked invalid operation).
    auto slopeOfAbs = [x] { return x > 0.0 ? 1.0 : -1.0; };
    switch (op) {
    case kAbs:
        value = std::fabs(x);
        if (g)
            g[0] = slopeOfAbs();
        return true;
    case kMax:
        value = Max(x, v[1]);
        if (g) {
            g[0] = x >= v[1] ? 1.0 : 0.0;
            g[1] = 1.0 - g[0];
        }
        return true;
    case kMin:
        value = Min(x, v[1]);
        if (g) {
            g[1] = v[1] < x ? 1.0 : 0.0;
            g[0] = 1.0 - g[1];
        }
        return true;
    case kSign:
        value = Sign(x, v[1]);
        if (g) {
            g[0] = (v[1] > 0.0 ? 1.0 : -1.0) * slopeOfAbs();
            g[1] = 0.0;
        }
        return true;
    case kIf:
        value = If(x, v[1], v[2], v[3]);
        if (g) {
            g[0] = 0.0;
            g[1] = x < 0.0 ? 1.0 : 0.0;
            g[2] = x == 0.0 ? 1.0 : 0.0;
            g[3] = x < 0.0 || x == 0.0 ? 0.0 : 1.0;
        }
        return true;
    default:
        return false;
    }
}

}  // namespace vexa_compiled

#endif
