#include "vexa/compiled/program/builtin_ops.h"

#include "vexa/calc/builtins_impl.h"
#include "vexa/calc/operation_math.h"

namespace vexa_compiled {

namespace {

struct Placeholder {
    BuildInFunctionPtr function;
    int most;
};

// The measure names answer 12 for 1 .. most arguments.
const Placeholder kPlaceholders[] = {
    {vexa_builtins::placeholder1, 1},
    {vexa_builtins::placeholder1to2, 2},
    {vexa_builtins::placeholder1to3, 3},
    {vexa_builtins::placeholder1to4, 4},
};

template <Op op>
bool EvaluateIfBuiltin(const double* v, int n, double& out)
{
    if constexpr (IsBuiltin(op))
        return vexa_ops::Evaluate<op>(v, n, out);
    else
        return false;
}

}  // namespace

BuiltinInfo DescribeBuiltin(BuildInFunctionPtr function)
{
    if (function) {
        for (int op = 0; op < kOpCount; ++op) {
            if (vexa_builtins::Implementation(static_cast<Op>(op)) == function)
                return {BuiltinKind::kComputed, static_cast<Op>(op), kRows[op].fewest, kRows[op].most};
        }
        for (const Placeholder& p : kPlaceholders) {
            if (p.function == function)
                return {BuiltinKind::kPlaceholder, kStop, 1, p.most};
        }
    }
    // MAG refuses every scalar, alwaysFails everything, and a name without
    // implementation throws: none of them finishes in a program.
    return {BuiltinKind::kRefused, kStop, 0, -1};
}

bool EvalBuiltin(Op op, const double* v, int n, double& out)
{
    switch (op) {
#define VEXA_EVAL_CASE(Name, ...) \
    case k##Name: return EvaluateIfBuiltin<k##Name>(v, n, out);
        VEXA_OPERATIONS(VEXA_EVAL_CASE)
#undef VEXA_EVAL_CASE
    default: return false;
    }
}

}  // namespace vexa_compiled
