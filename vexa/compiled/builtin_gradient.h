#ifndef VEXA_COMPILED_BUILTIN_GRADIENT_H
#define VEXA_COMPILED_BUILTIN_GRADIENT_H

#include "vexa/compiled/program.h"

// First derivatives of the built-ins. Internal.
namespace vexa_compiled {

// The built-in op (one that EvalBuiltin computes) at the n arguments v: its
// value exactly as EvalBuiltin gives it and, when partials is not null,
// partials[k] = d value / d v[k] for every k < n, the derivative of the
// branch the value takes where a built-in has branches. False where the
// built-in refuses v.
bool BuiltinGradient(Op op, const double* v, int n, double& value, double* partials);

}  // namespace vexa_compiled

#endif
