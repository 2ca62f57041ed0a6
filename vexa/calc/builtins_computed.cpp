#include <cmath>

#include "vexa/calc/builtins_args.h"
#include "vexa/calc/builtins_impl.h"
#include "vexa/calc/operation_math.h"

namespace vexa_builtins {

namespace {

using vexa_ops::Kind;
using vexa_ops::kRows;
using vexa_ops::Op;

// Reads a call's arguments the way the row's kind says: scalars only, or for
// a series x and x0 as scalars and the rest (w and the coefficients) by
// their first element, since those are not kind-checked.
template <Op op>
bool ReadArguments(int count, const VEXA_Data* args, double* v)
{
    constexpr vexa_ops::Row row = kRows[op];
    if (count < row.fewest || count > row.most)
        return false;
    if constexpr (row.kind != Kind::kSeries) {
        return ReadScalars(args, count, v);
    } else {
        if (!ReadScalars(args, 2, v))
            return false;
        for (int i = 2; i < count; ++i) {
            if (!ReadFirst(args[i], v[i]))
                return false;
        }
        return true;
    }
}

// Every computed built-in: its arguments, its refusal, its value, by the
// formula the compiled evaluation calls too.
template <Op op>
bool Computed(int count, VEXA_Data* args, VEXA_Data& result)
{
    double v[kRows[op].most];
    if (!ReadArguments<op>(count, args, v))
        return false;
    double out;
    if (!vexa_ops::Evaluate<op>(v, count, out))
        return false;
    return Store(result, out);
}

template <Op op>
constexpr BuildInFunctionPtr ImplementationOf()
{
    if constexpr (vexa_ops::IsBuiltin(op))
        return Computed<op>;
    else
        return nullptr;
}

constexpr BuildInFunctionPtr kImplementations[vexa_ops::kOpCount] = {
#define VEXA_IMPLEMENTATION(Name, ...) ImplementationOf<vexa_ops::k##Name>(),
    VEXA_OPERATIONS(VEXA_IMPLEMENTATION)
#undef VEXA_IMPLEMENTATION
};

}  // namespace

BuildInFunctionPtr Implementation(Op op)
{
    return op < vexa_ops::kOpCount ? kImplementations[op] : nullptr;
}

// The shape alone decides, but a null value can still report 1 x 3 after a
// null was assigned to it, so the elements must exist as well.
bool Mag(int count, VEXA_Data* args, VEXA_Data& result) {
    if (count != 1 || args == nullptr) return false;
    int rows = 0;
    int cols = 0;
    args[0].getDataInfo(rows, cols);
    const double* v = args[0].getValue();
    if (rows != 1 || cols != 3 || v == nullptr) return false;
    const double sum = std::pow(v[0], 2.0) + std::pow(v[1], 2.0) + std::pow(v[2], 2.0);
    return Store(result, std::sqrt(sum));
}

}  // namespace vexa_builtins
