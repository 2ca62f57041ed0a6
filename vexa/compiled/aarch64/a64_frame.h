#ifndef VEXA_COMPILED_A64_FRAME_H
#define VEXA_COMPILED_A64_FRAME_H

#include <cstdint>

#include "vexa/compiled/aarch64/a64_emitter.h"
#include "vexa/compiled/aarch64/a64_value_lowering.h"

// The frame of every AArch64 entry the library writes: the scratch room at
// sp, then the frame record, then the kept registers x19..x24, which the
// code may then use across its calls. Internal.
namespace vexa_compiled {
namespace a64 {

constexpr std::int32_t kRecord = 8 * static_cast<std::int32_t>(kScratchSlots);
constexpr std::int32_t kFrameBytes = kRecord + 64;
static_assert(kFrameBytes % 16 == 0, "sp stays a multiple of 16");

inline void Prologue(Emitter& em)
{
    em.SubImm(sp, sp, kFrameBytes);
    em.Stp(x29, x30, sp, kRecord, PairMode::kOffset);
    em.AddImm(x29, sp, kRecord);
    em.Stp(x19, x20, sp, kRecord + 16, PairMode::kOffset);
    em.Stp(x21, x22, sp, kRecord + 32, PairMode::kOffset);
    em.Stp(x23, x24, sp, kRecord + 48, PairMode::kOffset);
}

inline void Epilogue(Emitter& em)
{
    em.Ldp(x19, x20, sp, kRecord + 16, PairMode::kOffset);
    em.Ldp(x21, x22, sp, kRecord + 32, PairMode::kOffset);
    em.Ldp(x23, x24, sp, kRecord + 48, PairMode::kOffset);
    em.Ldp(x29, x30, sp, kRecord, PairMode::kOffset);
    em.AddImm(sp, sp, kFrameBytes);
}

}  // namespace a64
}  // namespace vexa_compiled

#endif
