#ifndef VEXA_CORE_EXECUTABLE_ARENA_H
#define VEXA_CORE_EXECUTABLE_ARENA_H

#include <cstddef>

#include "vexa/core/export.h"

// The process's executable memory: programs of machine code packed into
// shared chunks, so that a million compiled expressions take a few thousand
// mappings instead of a million. ExecutableMemory is its user;
// ExecutableArenaStats and SetExecutableArenaFaults are exported for tests
// and measurements only and are no part of the interface a host programs
// against.
namespace vexa_platform {

struct ArenaChunk;

// Copies size bytes of code into the arena; answers its executable address
// and the chunk that holds it, or null where no executable memory can be
// had. unwind describes the code's frame where the platform's unwinder reads
// one (see ExecutableMemory::Load). Any thread.
unsigned char* PlaceCode(const unsigned char* code, std::size_t size, const unsigned char* unwind,
                         std::size_t unwind_size, ArenaChunk*& chunk);
// Gives back what PlaceCode answered. Any thread.
void ReleaseCode(ArenaChunk* chunk, unsigned char* at, std::size_t size);

struct ArenaStats {
    std::size_t programs = 0;     // placed and not yet released
    std::size_t chunks = 0;       // shared chunks mapped (each one executable view)
    std::size_t writable = 0;     // writable views mapped (at most one in use)
    std::size_t single = 0;       // programs in mappings of their own (no shared chunks here)
    std::size_t mapped = 0;       // bytes of all those mappings
    std::size_t stuck = 0;        // mappings an unmapping failed for, kept to be tried again
    std::size_t kept = 0;         // emptied pages the system would not take back before their chunk goes
};
VEXA_API ArenaStats ExecutableArenaStats();

// Makes the calls into the platform fail, for tests of the paths that must
// end in the interpreter: a bit for each kind. While any bit is set, every
// program asks for a chunk of its own, so that each call is reached. Zero
// ends the faults (and the stuck mappings are then tried again).
enum ArenaFault : unsigned {
    kFailMap = 1,      // memfd_create, ftruncate, mmap (VirtualAlloc)
    kFailProtect = 2,  // mprotect (VirtualProtect, RtlAddFunctionTable)
    kFailUnmap = 4,    // munmap (VirtualFree)
};
VEXA_API void SetExecutableArenaFaults(unsigned faults);

}  // namespace vexa_platform

#endif
