#include "vexa/core/platform.h"

#include <cstdint>
#include <limits>

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#if defined(_MSC_VER)
#include <intrin.h>
#endif
#elif defined(__linux__)
#include <pthread.h>
#endif

namespace vexa_platform {

namespace {

// The bounds of this thread's stack, asked for once per thread: the query
// is a system call (for the main thread it even reads the process's memory
// map), while the answer never changes for the life of the thread.
struct StackBounds {
    bool asked = false;
    std::uintptr_t low = 0;
    std::uintptr_t high = 0;
};

thread_local StackBounds t_bounds;

void Locate(StackBounds& b)
{
    b.asked = true;
#if defined(_WIN32)
    ULONG_PTR low = 0, high = 0;
    GetCurrentThreadStackLimits(&low, &high);
    b.low = static_cast<std::uintptr_t>(low);
    b.high = static_cast<std::uintptr_t>(high);
#elif defined(__linux__)
    pthread_attr_t attr;
    if (pthread_getattr_np(pthread_self(), &attr) != 0)
        return;
    void* address = nullptr;
    std::size_t size = 0;
    // The range excludes the guard page, so what is left above low is usable.
    if (pthread_attr_getstack(&attr, &address, &size) == 0) {
        b.low = reinterpret_cast<std::uintptr_t>(address);
        b.high = b.low + size;
    }
    pthread_attr_destroy(&attr);
#endif
}

}  // namespace

std::size_t StackLeft()
{
    StackBounds& b = t_bounds;
    if (!b.asked)
        Locate(b);
    // The frame address is the real stack even where a sanitizer moves
    // local variables elsewhere.
#if defined(_MSC_VER)
    const auto here = reinterpret_cast<std::uintptr_t>(_AddressOfReturnAddress());
#else
    const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
#endif
    if (b.low == b.high || here <= b.low || here > b.high)
        return std::numeric_limits<std::size_t>::max();
    return static_cast<std::size_t>(here - b.low);
}

}  // namespace vexa_platform
