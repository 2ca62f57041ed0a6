#ifndef VEXA_COMPILED_BUILTIN_GRADIENT_H
#define VEXA_COMPILED_BUILTIN_GRADIENT_H

#include "vexa/calc/operation_math.h"
#include "vexa/compiled/program/program.h"

// First derivatives of the built-ins. Internal.
namespace vexa_compiled {

// The built-in op (one that EvalBuiltin computes) at the n arguments v: its
// value exactly as EvalBuiltin gives it and, when partials is not null,
// partials[k] = d value / d v[k] for every k < n, the derivative of the
// branch the value takes where a built-in has branches. False where the
// built-in refuses v (and for an op that is no built-in).
bool BuiltinGradient(Op op, const double* v, int n, double& value, double* partials);

// BuiltinGradient of one op, compiled for that op alone, as a function the
// gradient's machine code calls directly: kGoes, or kRefusal where the
// built-in refuses v. Null for an op out of range.
typedef int (*GradientKernel)(const double* v, int n, double* value, double* partials);
GradientKernel BuiltinGradientKernel(Op op);

// BuiltinGradient of one built-in op, inline: the runners call it where op
// is a constant, so that the built-ins that only select an argument or flip
// a sign (ABS, MAX, MIN, SIGN, IF) cost no call.
template <Op op>
inline bool GradientOf(const double* v, int n, double& value, double* g)
{
    if constexpr (IsBuiltin(op)) {
        if (!Accepts<kRows[op].refusal>(v))
            return false;
        value = Math<op>::Value(v, n);
        // Only where partials are asked for: the value alone compares
        // nothing the tree does not (a NaN compared would trap under an
        // unmasked invalid operation).
        if (g)
            Math<op>::Partials(v, n, value, g);
        return true;
    } else {
        return false;
    }
}

}  // namespace vexa_compiled

#endif
