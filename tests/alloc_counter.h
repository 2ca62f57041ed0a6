#ifndef VEXA_TESTS_ALLOC_COUNTER_H
#define VEXA_TESTS_ALLOC_COUNTER_H

// Replaces the global allocation functions of a test program with counting
// ones, which can also be made to fail; the library's own allocations go
// through them too. Include in one source file of a test program only.
#include <cstdlib>
#include <new>

namespace alloc_counter {
inline bool counting = false;
inline long allocations = 0;
inline long countdown = -1;  // the allocation that fails: 1 the next; <= 0 none

// Out of line, so that the optimizer, seeing the replaced operator new, does
// not take free here for a mismatched deallocation.
__attribute__((noinline)) inline void FreeBlock(void* p)
{
    std::free(p);
}

// The allocations made while f runs.
template <class F>
long Count(F f)
{
    allocations = 0;
    counting = true;
    f();
    counting = false;
    return allocations;
}
}  // namespace alloc_counter

void* operator new(std::size_t size)
{
    if (alloc_counter::counting)
        ++alloc_counter::allocations;
    if (alloc_counter::countdown > 0 && --alloc_counter::countdown == 0)
        throw std::bad_alloc();
    if (void* p = std::malloc(size == 0 ? 1 : size))
        return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* p) noexcept { alloc_counter::FreeBlock(p); }
void operator delete[](void* p) noexcept { alloc_counter::FreeBlock(p); }
void operator delete(void* p, std::size_t) noexcept { alloc_counter::FreeBlock(p); }
void operator delete[](void* p, std::size_t) noexcept { alloc_counter::FreeBlock(p); }

#endif
