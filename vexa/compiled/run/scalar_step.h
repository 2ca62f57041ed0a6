#ifndef VEXA_COMPILED_SCALAR_STEP_H
#define VEXA_COMPILED_SCALAR_STEP_H

#include <cstdint>
#include <type_traits>

#include "vexa/calc/operation_math.h"
#include "vexa/compiled/program/program.h"
#include "vexa/core/inline_hints.h"

// One instruction of a built-in or an operator over scalar registers, for
// the interpreters of the scalar and the shaped programs alike. Internal.
namespace vexa_compiled {

enum class Next { kGo, kUseTree, kDone };

// What a run returns where a step ends it (any Next but kGo).
VEXA_FORCE_INLINE RunResult Ending(Next next)
{
    return next == Next::kDone ? RunResult::kDone : RunResult::kUseTree;
}

// Accepts over registers of any number type: the refusal rules look at the
// values alone.
template <Refusal r, typename T>
VEXA_FORCE_INLINE bool AcceptsValues(const T* v)
{
    if constexpr (std::is_same<T, double>::value) {
        return Accepts<r>(v);
    } else {
        const double values[2] = {Scalar(v[0]), r == Refusal::kDivisor ? Scalar(v[1]) : 0.0};
        return Accepts<r>(values);
    }
}

// The row's formula over the registers r, read from its operand shape: one
// register in a, two in a and b, or a list (first index into lists in a,
// count in b). kReturn is done; the program's other own instructions are not
// this function's and stop. The registers are doubles, or the dual numbers
// of the exact derivatives.
template <Op op, typename In, typename T>
VEXA_FORCE_INLINE Next ScalarStep(const In* ip, T* r, const std::uint32_t* lists)
{
    constexpr Operands shape = OperandsOf(op);
    if constexpr (op == kReturn) {
        return Next::kDone;
    } else if constexpr (kRows[op].kind == Kind::kInternal) {
        return Next::kUseTree;
    } else if constexpr (shape == Operands::kOne) {
        const T* v = r + ip->a;
        if (!AcceptsValues<kRows[op].refusal>(v))
            return Next::kUseTree;
        r[ip->d] = Math<op>::Value(v, 1);
        return Next::kGo;
    } else if constexpr (shape == Operands::kTwo) {
        const T v[2] = {r[ip->a], r[ip->b]};
        if (!AcceptsValues<kRows[op].refusal>(v))
            return Next::kUseTree;
        r[ip->d] = Math<op>::Value(v, 2);
        return Next::kGo;
    } else {
        // Lists of built-ins refuse nothing they were compiled for.
        static_assert(kRows[op].refusal == Refusal::kNone, "a list built-in that refuses needs a stop here");
        T v[kMostArguments];
        const std::uint32_t* regs = lists + ip->a;
        const int n = static_cast<int>(ip->b);
        for (int k = 0; k < n; ++k)
            v[k] = r[regs[k]];
        r[ip->d] = Math<op>::Value(v, n);
        return Next::kGo;
    }
}

}  // namespace vexa_compiled

#endif
