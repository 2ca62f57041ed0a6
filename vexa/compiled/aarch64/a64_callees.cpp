#include "vexa/compiled/aarch64/a64_callees.h"

#include <utility>

#include "vexa/calc/operation_math.h"
#include "vexa/compiled/value_call.h"

namespace vexa_compiled {
namespace a64 {

namespace {

// d0..d7 carry floating-point arguments under the procedure call standard.
constexpr int kMostDArguments = 8;

template <class F>
std::uint64_t Address(F* f)
{
    return reinterpret_cast<std::uint64_t>(f);
}

template <Op op>
std::uint64_t ValueFunctionOf(int& lead)
{
    constexpr vexa_ops::Row row = kRows[op];
    if constexpr (row.kind == vexa_ops::Kind::kSeries) {
        // x, x0 and, for the Fourier series, w lead.
        lead = row.fewest - 1;
        return Address(&ValueCall<op, std::make_index_sequence<row.fewest - 1>>::Series);
    } else if constexpr ((IsBuiltin(op) || op == kPow) && row.fewest == row.most && row.most <= kMostDArguments) {
        return Address(&ValueCall<op, std::make_index_sequence<row.most>>::Of);
    } else {
        return 0;
    }
}

}  // namespace

CallTarget CallTargetOf(Op op)
{
    CallTarget t;
    switch (op) {
#define VEXA_A64_CALLEE_CASE(Name, ...) \
    case k##Name: t.value = ValueFunctionOf<k##Name>(t.lead); break;
        VEXA_OPERATIONS(VEXA_A64_CALLEE_CASE)
#undef VEXA_A64_CALLEE_CASE
    default: break;
    }
    return t;
}

}  // namespace a64
}  // namespace vexa_compiled
