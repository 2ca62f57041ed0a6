#ifndef VEXA_COMPILED_VALUE_CALL_H
#define VEXA_COMPILED_VALUE_CALL_H

#include <cstddef>
#include <utility>

#include "vexa/calc/operation_math.h"

// The functions every processor's machine code calls for a built-in, made
// from its one formula in the table of operations, so that they give the
// interpreter's bits: Of takes every argument as a double (in floating-point
// registers), Series takes a series' lead arguments so and the rest as
// (const double*, int). Internal.
namespace vexa_compiled {

template <vexa_ops::Op op, typename Indices>
struct ValueCall;

template <vexa_ops::Op op, std::size_t... I>
struct ValueCall<op, std::index_sequence<I...>> {
    static double Of(decltype(I, double())... a)
    {
        const double v[] = {a...};
        return vexa_ops::Math<op>::Value(v, static_cast<int>(sizeof...(I)));
    }
    static double Series(decltype(I, double())... a, const double* c, int m)
    {
        double v[vexa_ops::kMostArguments] = {a...};
        for (int k = 0; k < m; ++k)
            v[sizeof...(I) + static_cast<std::size_t>(k)] = c[k];
        return vexa_ops::Math<op>::Value(v, static_cast<int>(sizeof...(I)) + m);
    }
};

}  // namespace vexa_compiled

#endif
