#ifndef VEXA_COMPILED_BLOCK_RUN_H
#define VEXA_COMPILED_BLOCK_RUN_H

#include <cstdint>

#include "vexa/compiled/form.h"

// The many-point runner. Internal.
namespace vexa_compiled {

// Runs u's program (present, given enough arguments) over lanes points,
// lanes <= s.form.block: args[k] holds s.form.block readable values of
// argument k, lane by lane. Writes lanes results to out and, in stop (zeroed by the caller),
// the first reason each lane could not finish. A stopped lane's result is
// meaningless; the other lanes are exactly what the program computes for
// one point. Answers whether any lane stopped.
bool RunBlock(const Unit& u, Space& s, const double* const* args, int lanes, double* out, std::uint8_t* stop);

// RunBlock without the copy, for callers that read several results: register
// r's lanes are then at s.of(u).at[r].
void RunBlockSteps(const Unit& u, Space& s, const double* const* args, int lanes, std::uint8_t* stop);

}  // namespace vexa_compiled

#endif
