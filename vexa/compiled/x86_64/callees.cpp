#include "vexa/compiled/x86_64/callees.h"

#include <cmath>
#include <utility>

#include "vexa/calc/operation_math.h"
#include "vexa/compiled/value_call.h"
#include "vexa/calc/callee.h"
#include "vexa/calc/icalculator.h"
#include "vexa/compiled/run/builtin_gradient.h"
#include "vexa/core/data_access.h"

namespace vexa_compiled {
namespace x64 {

namespace {

using vexa_core::DataAccess;

// Arguments the calling convention can pass in xmm registers.
constexpr int kMostXmmArguments = 8;

template <Op op>
std::uint64_t ValueFunctionOf(int& lead)
{
    constexpr vexa_ops::Row row = kRows[op];
    if constexpr (row.kind == vexa_ops::Kind::kSeries) {
        // x, x0 and, for the Fourier series, w lead.
        lead = row.fewest - 1;
        return Address(&ValueCall<op, std::make_index_sequence<row.fewest - 1>>::Series);
    } else if constexpr ((IsBuiltin(op) || op == kPow) && row.fewest == row.most &&
                         row.most <= kMostXmmArguments) {
        return Address(&ValueCall<op, std::make_index_sequence<row.most>>::Of);
    } else {
        return 0;
    }
}

// The value's function of op and the form of its arguments.
std::uint64_t ValueFunction(Op op, int& lead, bool& refuses)
{
    lead = -1;
    refuses = op < kOpCount && kRows[op].refusal != vexa_ops::Refusal::kNone;
    switch (op) {
#define VEXA_CALLEE_CASE(Name, ...) \
    case k##Name: return ValueFunctionOf<k##Name>(lead);
        VEXA_OPERATIONS(VEXA_CALLEE_CASE)
#undef VEXA_CALLEE_CASE
    default: return 0;
    }
}

}  // namespace

CallTarget CallTargetOf(Op op)
{
    CallTarget t;
    t.value = ValueFunction(op, t.lead, t.refuses);
    t.gradient = Address(BuiltinGradientKernel(op));
    return t;
}

}  // namespace x64
}  // namespace vexa_compiled
