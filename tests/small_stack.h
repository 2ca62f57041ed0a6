#ifndef VEXA_TESTS_SMALL_STACK_H
#define VEXA_TESTS_SMALL_STACK_H

#include <gtest/gtest.h>

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <pthread.h>
#if defined(__unix__)
#include <unistd.h>
#endif
#endif

#include <cstddef>

// The library promises that its deepest inputs stay within a 1 MiB thread
// stack (a common default on Windows) in an optimised build. Unoptimised and
// sanitizer builds have far bigger frames, so there the same work runs on a
// roomier stack and only shows that nothing else goes wrong.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(NDEBUG)
constexpr bool kGuaranteeBuild = false;
constexpr std::size_t kStackBytes = std::size_t(64) << 20;
#else
constexpr bool kGuaranteeBuild = true;
constexpr std::size_t kStackBytes = std::size_t(1) << 20;
#endif

// Whether a thread can have a 64 KiB stack: Wine gives every thread at
// least 1 MiB, AArch64 Linux 128 KiB.
inline bool SmallStacksHonoured()
{
#if defined(_WIN32)
    auto measure = [](void* p) -> DWORD {
        ULONG_PTR low = 0, high = 0;
        GetCurrentThreadStackLimits(&low, &high);
        *static_cast<std::size_t*>(p) = static_cast<std::size_t>(high - low);
        return 0;
    };
    std::size_t given = 0;
    HANDLE thread = CreateThread(nullptr, 64 << 10, measure, &given, STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
    if (!thread)
        return false;
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
    return given != 0 && given <= (256 << 10);
#elif defined(_SC_THREAD_STACK_MIN)
    const long least = sysconf(_SC_THREAD_STACK_MIN);
    return least <= (64 << 10);
#else
    return true;
#endif
}

template <class F>
void RunOnSmallStack(F work, std::size_t bytes = kStackBytes)
{
#if defined(_WIN32)
    // The size must be the stack's reservation: given as its first commit
    // (as the threads library does) it leaves the program's default stack.
    auto entry = [](void* p) -> DWORD {
        (*static_cast<F*>(p))();
        return 0;
    };
    HANDLE thread = CreateThread(nullptr, bytes, entry, &work, STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
    ASSERT_NE(thread, nullptr);
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
#else
#if defined(_SC_THREAD_STACK_MIN)
    // Systems with large pages refuse smaller stacks (AArch64 Linux: 128 KiB).
    const long least = sysconf(_SC_THREAD_STACK_MIN);
    if (least > 0 && bytes < static_cast<std::size_t>(least))
        bytes = static_cast<std::size_t>(least);
#endif
    pthread_attr_t attr;
    ASSERT_EQ(pthread_attr_init(&attr), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attr, bytes), 0);
    pthread_t thread;
    auto entry = [](void* p) -> void* {
        (*static_cast<F*>(p))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attr, entry, &work), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
#endif
}

#endif
