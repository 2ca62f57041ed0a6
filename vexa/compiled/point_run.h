#ifndef VEXA_COMPILED_POINT_RUN_H
#define VEXA_COMPILED_POINT_RUN_H

#include "vexa/compiled/form.h"

// The one-point runner, with reverse-mode differentiation. Internal.
namespace vexa_compiled {

// Runs u's program (present, given enough arguments) at the point args
// (count values) into value, bit for bit what the program computes. With
// partials, also partials[k] = d value / d args[k] for every k < count. The
// answer is kGoes, or the first reason the point could not finish.
StopReason RunPoint(const Unit& u, Space& s, const double* args, int count, double& value, double* partials);

}  // namespace vexa_compiled

#endif
