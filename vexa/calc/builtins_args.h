#ifndef VEXA_CALC_BUILTINS_ARGS_H
#define VEXA_CALC_BUILTINS_ARGS_H

#include "vexa/core/data.h"

// Argument reading shared by the built-in implementations. Internal.
namespace vexa_builtins {

// Reads the first n arguments, which must all be scalars, into out. Callers
// check the count first; a null array is refused rather than trusted.
inline bool ReadScalars(const VEXA_Data* args, int n, double* out) {
    if (args == nullptr) return false;
    for (int i = 0; i < n; ++i) {
        if (args[i].getType() != DT_SCALAR) return false;
        out[i] = args[i].getValue()[0];
    }
    return true;
}

// An exact count of arguments, every one of them a scalar.
inline bool ReadExactly(int count, const VEXA_Data* args, int n, double* out) {
    return count == n && ReadScalars(args, n, out);
}

// Coefficients are not kind-checked, so a vector or matrix contributes its
// first element; a value without any element cannot contribute one.
inline bool ReadFirst(const VEXA_Data& arg, double& out) {
    const double* p = arg.getValue();
    if (p == nullptr) return false;
    out = p[0];
    return true;
}

// Every implementation answers with a scalar, which lives in the value's
// inline buffer: assigning it never touches the heap.
inline bool Store(VEXA_Data& result, double v) {
    result = VEXA_Data(v);
    return true;
}

}  // namespace vexa_builtins

#endif
