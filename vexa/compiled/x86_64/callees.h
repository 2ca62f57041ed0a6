#ifndef VEXA_COMPILED_CALLEES_H
#define VEXA_COMPILED_CALLEES_H

#include <cstdint>

#include "vexa/compiled/program/program.h"

// The C++ functions generated code calls, and the one question the lowerings
// ask about them. Each function computing a built-in wraps exactly the
// function the interpreter and the tree call, so the bits agree. Internal.
namespace vexa_compiled {

namespace x64 {

// What the code calls for an op.
struct CallTarget {
    // The function computing the op's value from doubles; 0 where there is
    // none (the code computes the op itself, or the op is no built-in).
    std::uint64_t value = 0;
    // -1: every argument goes in an xmm register. Otherwise this many lead
    // arguments go there and the rest follow as (const double*, int).
    int lead = -1;
    // Whether the op refuses some arguments: the code tests them before it
    // calls value, which does not.
    bool refuses = false;
    // The op's BuiltinGradient as a GradientKernel.
    std::uint64_t gradient = 0;
};

CallTarget CallTargetOf(Op op);

template <class F>
std::uint64_t Address(F* f)
{
    return reinterpret_cast<std::uint64_t>(f);
}

}  // namespace x64
}  // namespace vexa_compiled

#endif
