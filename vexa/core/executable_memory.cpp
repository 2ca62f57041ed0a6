#include "vexa/core/executable_memory.h"

#include "vexa/core/executable_arena.h"

namespace vexa_platform {

ExecutableMemory::~ExecutableMemory()
{
    if (m_chunk)
        ReleaseCode(m_chunk, m_data, m_size);
}

bool ExecutableMemory::Load(const unsigned char* code, std::size_t size, const unsigned char* unwind,
                            std::size_t unwind_size)
{
    if (m_chunk || !code || size == 0 || (unwind_size != 0 && !unwind))
        return false;
    m_data = PlaceCode(code, size, unwind, unwind_size, m_chunk);
    if (!m_data) {
        m_chunk = nullptr;
        return false;
    }
    m_size = size;
    return true;
}

}  // namespace vexa_platform
