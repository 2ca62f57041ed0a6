#ifndef VEXA_COMPILED_STACK_ROOM_H
#define VEXA_COMPILED_STACK_ROOM_H

#include <cstddef>

#include "vexa/core/platform.h"

// How the compiled form keeps off the end of the thread's stack. Its
// runners recurse once per call of another expression (and once per
// central-difference wrapper around it), and making the form recurses once
// per tree level and per called expression; a host's thread may be far
// smaller than the library's guarantee. Every such step asks first, and
// the point (or the form) is refused with vexa::kCallsTooDeep instead, as
// Evaluate refuses a registered call. Internal.
namespace vexa_compiled {

// What one step may use before the next one asks again: the frames of a
// unit's run down to the built-ins at the bottom (nested central
// differences of a built-in hold 34 values a level, 64 levels deep). The
// same reserve as a registered call of the tree asks for, so a thread too
// small for Evaluate's calls is too small for the runners' too. Frames of
// sanitizer and unoptimised builds are several times larger.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(__OPTIMIZE__)
constexpr std::size_t kStepReserve = std::size_t(256) << 10;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr std::size_t kStepReserve = std::size_t(256) << 10;
#else
constexpr std::size_t kStepReserve = std::size_t(64) << 10;
#endif
#else
constexpr std::size_t kStepReserve = std::size_t(64) << 10;
#endif

inline bool RoomForStep()
{
    return vexa_platform::StackLeft() >= kStepReserve;
}

}  // namespace vexa_compiled

#endif
