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

// The instructions of RunPoint alone, for callers that read several results:
// the registers (and, with partials, the tape) are left in s.of(u).
StopReason RunSteps(const Unit& u, Space& s, const double* args, bool partials);

// u's registers, tape and adjoints in s, made on first use (all or none).
void PrepareSpace(const Unit& u, UnitSpace& us);
inline UnitSpace& PreparedSpace(const Unit& u, Space& s)
{
    // Inline: a gradient at one point pays for every call around it.
    UnitSpace& us = s.of(u);
    if (us.regs.empty())
        PrepareSpace(u, us);
    return us;
}

// One instruction of RunPoint: its value into the registers r and, with
// tape (the unit's partials), its partials when its result depends on a
// parameter. For machine code that does the rest of a run itself.
StopReason RunStep(const Unit& u, Space& s, const Unit::Step& step, double* r, double* tape);

}  // namespace vexa_compiled

#endif
