#ifndef VEXA_COMPILED_EXACT_SHAPED_FORWARD_H
#define VEXA_COMPILED_EXACT_SHAPED_FORWARD_H

#include "vexa/compiled/program/shaped_program.h"
#include "vexa/core/data.h"

// First partial derivatives of a shaped program's value by the elements of
// one parameter, by forward mode over dual numbers, one run per element of
// that parameter. Internal.
namespace vexa_compiled {

// d value / d params[index] at the count values params (of the signature p
// was made for) into result: the value's shape where the parameter is a
// number, the parameter's shape where the value is a number, and the n x m
// Jacobian (row i: element i of a 1 x n value, column j: element j of a
// 1 x m parameter) where both are rows. False for any other pair of shapes
// and where the run stops (the tree would refuse or throw there).
bool ShapedPartials(const ShapedProgram& p, const VEXA_Data* params, int count, int index, VEXA_Data& result);

}  // namespace vexa_compiled

#endif
