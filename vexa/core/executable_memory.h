#ifndef VEXA_CORE_EXECUTABLE_MEMORY_H
#define VEXA_CORE_EXECUTABLE_MEMORY_H

#include <cstddef>

// A place for machine code the library writes at run time, taken from the
// process's executable arena (vexa/core/executable_arena.h): many programs
// share its pages, which are never writable and executable through the same
// address. Part of the portability layer; where the platform refuses
// executable memory, Load answers false and callers keep to code compiled
// ahead of time. Internal to the library.
namespace vexa_platform {

struct ArenaChunk;

class ExecutableMemory {
public:
    ExecutableMemory() = default;
    // Gives the place back: the arena returns the pages its last program
    // leaves.
    ~ExecutableMemory();
    ExecutableMemory(const ExecutableMemory&) = delete;
    ExecutableMemory& operator=(const ExecutableMemory&) = delete;

    // Copies size bytes of code to an executable place aligned to 64 bytes;
    // false (holding nothing) where no executable memory can be had. Once.
    // Where the platform's unwinder reads a table of the code's frames
    // (Windows), unwind is the entry's description, registered for the
    // whole code while it is held; elsewhere it is not needed.
    bool Load(const unsigned char* code, std::size_t size, const unsigned char* unwind = nullptr,
              std::size_t unwind_size = 0);
    // The code's first byte; null before a successful Load.
    unsigned char* data() const { return m_data; }

private:
    unsigned char* m_data = nullptr;
    std::size_t m_size = 0;
    ArenaChunk* m_chunk = nullptr;
};

}  // namespace vexa_platform

#endif
