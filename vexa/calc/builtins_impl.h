#ifndef VEXA_CALC_BUILTINS_IMPL_H
#define VEXA_CALC_BUILTINS_IMPL_H

#include "vexa/calc/buidin_function.h"

// The built-in implementations the table refers to. Internal to the library.
// Each one returns true after writing a fresh scalar to result, or false with
// result untouched; none keeps state, allocates or throws.
namespace vexa_builtins {

// Elementary mathematics.
bool Abs(int count, VEXA_Data* args, VEXA_Data& result);
bool Sin(int count, VEXA_Data* args, VEXA_Data& result);
bool Cos(int count, VEXA_Data* args, VEXA_Data& result);
bool Tan(int count, VEXA_Data* args, VEXA_Data& result);
bool Sinh(int count, VEXA_Data* args, VEXA_Data& result);
bool Cosh(int count, VEXA_Data* args, VEXA_Data& result);
bool Tanh(int count, VEXA_Data* args, VEXA_Data& result);
bool Atan(int count, VEXA_Data* args, VEXA_Data& result);
bool Exp(int count, VEXA_Data* args, VEXA_Data& result);
bool Asin(int count, VEXA_Data* args, VEXA_Data& result);
bool Acos(int count, VEXA_Data* args, VEXA_Data& result);
bool Log(int count, VEXA_Data* args, VEXA_Data& result);
bool Log10(int count, VEXA_Data* args, VEXA_Data& result);
bool Sqrt(int count, VEXA_Data* args, VEXA_Data& result);
bool Aint(int count, VEXA_Data* args, VEXA_Data& result);
bool Anint(int count, VEXA_Data* args, VEXA_Data& result);
bool Atan2(int count, VEXA_Data* args, VEXA_Data& result);
bool Max(int count, VEXA_Data* args, VEXA_Data& result);
bool Min(int count, VEXA_Data* args, VEXA_Data& result);
bool Mod(int count, VEXA_Data* args, VEXA_Data& result);
bool Sign(int count, VEXA_Data* args, VEXA_Data& result);
bool If(int count, VEXA_Data* args, VEXA_Data& result);
bool Mag(int count, VEXA_Data* args, VEXA_Data& result);

// Shaped functions of the solver's language.
bool Step(int count, VEXA_Data* args, VEXA_Data& result);
bool Step5(int count, VEXA_Data* args, VEXA_Data& result);
bool Havsin(int count, VEXA_Data* args, VEXA_Data& result);
bool Shf(int count, VEXA_Data* args, VEXA_Data& result);
bool Impact(int count, VEXA_Data* args, VEXA_Data& result);
bool Bistop(int count, VEXA_Data* args, VEXA_Data& result);
bool Sweep(int count, VEXA_Data* args, VEXA_Data& result);

// Series.
bool Poly(int count, VEXA_Data* args, VEXA_Data& result);
bool Cheby(int count, VEXA_Data* args, VEXA_Data& result);
bool Forcos(int count, VEXA_Data* args, VEXA_Data& result);
bool Forsin(int count, VEXA_Data* args, VEXA_Data& result);

// Measure, force and spline names: fixed value by argument count, or refusal.
bool placeholder1(int count, VEXA_Data* args, VEXA_Data& result);
bool placeholder1to2(int count, VEXA_Data* args, VEXA_Data& result);
bool placeholder1to3(int count, VEXA_Data* args, VEXA_Data& result);
bool placeholder1to4(int count, VEXA_Data* args, VEXA_Data& result);
bool alwaysFails(int count, VEXA_Data* args, VEXA_Data& result);

}  // namespace vexa_builtins

#endif
