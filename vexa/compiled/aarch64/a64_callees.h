#ifndef VEXA_COMPILED_A64_CALLEES_H
#define VEXA_COMPILED_A64_CALLEES_H

#include <cstdint>

#include "vexa/compiled/program/program.h"

// The C++ functions the AArch64 value code calls for the built-ins it does
// not write out. Each wraps the very formula the interpreter and the tree
// call, so the bits agree. Internal.
namespace vexa_compiled {
namespace a64 {

struct CallTarget {
    // The function computing the op's value from doubles; 0 where there is
    // none (the code computes the op itself, or the op is no built-in).
    std::uint64_t value = 0;
    // -1: every argument goes in a d register. Otherwise this many lead
    // arguments go there and the rest follow as (const double*, int).
    int lead = -1;
};

CallTarget CallTargetOf(Op op);

}  // namespace a64
}  // namespace vexa_compiled

#endif
