#ifndef VEXA_CORE_EXECUTABLE_MEMORY_H
#define VEXA_CORE_EXECUTABLE_MEMORY_H

#include <cstddef>

// Memory for machine code the library writes at run time: writable while it
// is filled, then executable and no longer writable. Part of the portability
// layer; where the platform refuses executable memory, Allocate answers null
// and callers keep to code compiled ahead of time. Internal to the library.
namespace vexa_platform {

class ExecutableMemory {
public:
    ExecutableMemory() = default;
    ~ExecutableMemory();
    ExecutableMemory(const ExecutableMemory&) = delete;
    ExecutableMemory& operator=(const ExecutableMemory&) = delete;

    // Reserves at least size writable bytes; false where the platform gives
    // none.
    bool Allocate(std::size_t size);
    unsigned char* data() const { return m_data; }
    // Makes the bytes executable and read-only; false where that is refused.
    bool Seal();
    // Allocate, copy size bytes of code in, Seal: false where any step fails.
    bool Load(const unsigned char* code, std::size_t size);

private:
    unsigned char* m_data = nullptr;
    std::size_t m_size = 0;
};

}  // namespace vexa_platform

#endif
