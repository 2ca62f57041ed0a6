#ifndef VEXA_COMPILED_COMPILED_ROOT_H
#define VEXA_COMPILED_COMPILED_ROOT_H

#include "vexa/core/data.h"

class Expression;

namespace vexa_calc {
struct CompiledRoot;
}

// An Expression's tree as a program (and, once it has run often enough, as
// machine code), made on its first evaluation and kept beside the tree; the
// library hands these to vexa/calc through its table of tree operations.
// Internal to the library.
namespace vexa_compiled {

// Evaluates e's tree through its compiled form, made on first use, into
// result and returns true; false, with result untouched, where the tree must
// be evaluated instead.
bool CalculateCompiled(Expression& e, VEXA_Data& result);
void DestroyCompiled(vexa_calc::CompiledRoot* compiled);

}  // namespace vexa_compiled

#endif
