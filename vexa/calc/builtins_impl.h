#ifndef VEXA_CALC_BUILTINS_IMPL_H
#define VEXA_CALC_BUILTINS_IMPL_H

#include "vexa/calc/buidin_function.h"
#include "vexa/calc/operations.h"

// The built-in implementations the table refers to. Internal to the library.
// Each one returns true after writing a fresh scalar to result, or false with
// result untouched; none keeps state, allocates or throws.
namespace vexa_builtins {

// The implementation of a built-in of the table of operations (null for an
// operator or an instruction of the program's own).
BuildInFunctionPtr Implementation(vexa_ops::Op op);

// MAG: the length of a 1 x 3 vector, refused for scalars.
bool Mag(int count, VEXA_Data* args, VEXA_Data& result);

// Measure, force and spline names: fixed value by argument count, or refusal.
bool placeholder1(int count, VEXA_Data* args, VEXA_Data& result);
bool placeholder1to2(int count, VEXA_Data* args, VEXA_Data& result);
bool placeholder1to3(int count, VEXA_Data* args, VEXA_Data& result);
bool placeholder1to4(int count, VEXA_Data* args, VEXA_Data& result);
bool alwaysFails(int count, VEXA_Data* args, VEXA_Data& result);

}  // namespace vexa_builtins

#endif
