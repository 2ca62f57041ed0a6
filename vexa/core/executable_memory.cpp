#include "vexa/core/executable_memory.h"

#include <cstring>

#if defined(__unix__) || defined(__APPLE__)
#include <sys/mman.h>
#include <unistd.h>
#define VEXA_HAS_MMAP 1
#endif

namespace vexa_platform {

bool ExecutableMemory::Load(const unsigned char* code, std::size_t size)
{
    if (!Allocate(size))
        return false;
    std::memcpy(m_data, code, size);
    return Seal();
}

#if VEXA_HAS_MMAP

ExecutableMemory::~ExecutableMemory()
{
    if (m_data)
        munmap(m_data, m_size);
}

bool ExecutableMemory::Allocate(std::size_t size)
{
    const long page = sysconf(_SC_PAGESIZE);
    const std::size_t unit = page > 0 ? static_cast<std::size_t>(page) : 4096;
    const std::size_t rounded = (size + unit - 1) / unit * unit;
    void* p = mmap(nullptr, rounded, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED)
        return false;
    m_data = static_cast<unsigned char*>(p);
    m_size = rounded;
    return true;
}

bool ExecutableMemory::Seal()
{
    return m_data && mprotect(m_data, m_size, PROT_READ | PROT_EXEC) == 0;
}

#else

ExecutableMemory::~ExecutableMemory() {}

bool ExecutableMemory::Allocate(std::size_t)
{
    return false;
}

bool ExecutableMemory::Seal()
{
    return false;
}

#endif

}  // namespace vexa_platform
