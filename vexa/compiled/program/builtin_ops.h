#ifndef VEXA_COMPILED_BUILTIN_OPS_H
#define VEXA_COMPILED_BUILTIN_OPS_H

#include "vexa/calc/buidin_function.h"
#include "vexa/compiled/program/program.h"

// How the compiled evaluation treats a call of a built-in implementation.
// Internal to the library.
namespace vexa_compiled {

enum class BuiltinKind {
    kComputed,     // an instruction computes it: op
    kPlaceholder,  // the fixed value 12 for counts 1 .. most
    kRefused,      // refuses every scalar call (or has no implementation)
};

struct BuiltinInfo {
    BuiltinKind kind;
    Op op;
    int fewest;  // argument counts the implementation accepts
    int most;
};

// What function stands for; kRefused for an implementation the table of
// operations does not know, so an unknown implementation is never guessed at.
BuiltinInfo DescribeBuiltin(BuildInFunctionPtr function);

// Whether count arguments are a call the implementation accepts.
inline bool AcceptsCount(const BuiltinInfo& info, int count)
{
    return info.kind != BuiltinKind::kRefused && count >= info.fewest && count <= info.most;
}

// The built-in op over scalar arguments, with the implementation's own
// formula; false where the implementation refuses the values (and for an op
// that is no built-in).
bool EvalBuiltin(Op op, const double* args, int count, double& out);

}  // namespace vexa_compiled

#endif
