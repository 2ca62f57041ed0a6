#include "vexa/core/executable_arena.h"

// The executable memory of a Windows build: each program in an allocation
// of its own, written while it is read-write only, then made read-execute
// and never written again, so no address is ever writable and executable
// at once. The code's frame description and its one-entry function table
// follow the code in the same allocation (the table's addresses are offsets
// from its start), and the table is registered with the system, so that
// exception dispatch and debuggers can walk through the code; it is removed
// before the memory goes. The allocations are capped, past which the
// interpreter runs: the system hands out memory in 64 KiB steps of address
// space. A refused call ends in a null answer with nothing left allocated;
// an allocation that cannot be freed is kept and tried again on later calls.
#if defined(_WIN32)

#include <windows.h>

#include <cstdint>
#include <cstring>
#include <mutex>
#include <new>
#include <vector>

namespace vexa_platform {

struct ArenaChunk {
    unsigned char* at = nullptr;
    std::size_t size = 0;                // bytes allocated
    RUNTIME_FUNCTION* table = nullptr;   // registered, inside the allocation
};

namespace {

constexpr std::size_t kMostPrograms = 16384;

std::size_t RoundUp(std::size_t n, std::size_t unit)
{
    return (n + unit - 1) / unit * unit;
}

class Arena {
public:
    static Arena& Get()
    {
        // Never destroyed: code may still run while static objects go.
        static Arena* arena = new Arena();
        return *arena;
    }

    unsigned char* Place(const unsigned char* code, std::size_t size, const unsigned char* unwind,
                         std::size_t unwind_size, ArenaChunk*& chunk);
    void Release(ArenaChunk* chunk);
    ArenaStats Stats();
    void SetFaults(unsigned faults);

private:
    Arena()
    {
        SYSTEM_INFO info;
        GetSystemInfo(&info);
        if (info.dwPageSize > 0)
            m_page = info.dwPageSize;
    }
    bool Fails(unsigned kind) const { return (m_faults & kind) != 0; }
    // Frees c's memory and c, or keeps it for another try.
    void Free(ArenaChunk* c);
    void RetryStuck();

    std::mutex m_lock;
    std::size_t m_page = 4096;
    std::size_t m_programs = 0;
    std::size_t m_mapped = 0;
    std::vector<ArenaChunk*> m_stuck;
    unsigned m_faults = 0;
};

void Arena::Free(ArenaChunk* c)
{
    if (Fails(kFailUnmap) || !VirtualFree(c->at, 0, MEM_RELEASE)) {
        m_stuck.push_back(c);
        return;
    }
    m_mapped -= RoundUp(c->size, m_page);
    delete c;
}

void Arena::RetryStuck()
{
    if (m_stuck.empty() || m_faults)
        return;
    std::vector<ArenaChunk*> stuck;
    stuck.swap(m_stuck);
    for (ArenaChunk* c : stuck)
        Free(c);
}

unsigned char* Arena::Place(const unsigned char* code, std::size_t size, const unsigned char* unwind,
                            std::size_t unwind_size, ArenaChunk*& chunk)
{
    std::lock_guard<std::mutex> hold(m_lock);
    RetryStuck();
    // The table's offsets are 32-bit and its entries 4-byte aligned.
    const std::size_t codeBytes = RoundUp(size, 4);
    const std::size_t tableAt = codeBytes + RoundUp(unwind_size, 4);
    const std::size_t total = tableAt + (unwind_size ? sizeof(RUNTIME_FUNCTION) : 0);
    if (m_programs >= kMostPrograms || Fails(kFailMap) || total > 0x7FFFFFFF)
        return nullptr;
    ArenaChunk* c = new (std::nothrow) ArenaChunk();
    if (!c)
        return nullptr;
    c->at = static_cast<unsigned char*>(VirtualAlloc(nullptr, total, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
    if (!c->at) {
        delete c;
        return nullptr;
    }
    c->size = total;
    m_mapped += RoundUp(total, m_page);
    std::memcpy(c->at, code, size);
    // int3 up to the description.
    std::memset(c->at + size, 0xCC, codeBytes - size);
    if (unwind_size) {
        std::memcpy(c->at + codeBytes, unwind, unwind_size);
        c->table = reinterpret_cast<RUNTIME_FUNCTION*>(c->at + tableAt);
        c->table->BeginAddress = 0;
        c->table->EndAddress = static_cast<DWORD>(size);
        c->table->UnwindData = static_cast<DWORD>(codeBytes);
    }
    DWORD before = 0;
    if (Fails(kFailProtect) || !VirtualProtect(c->at, total, PAGE_EXECUTE_READ, &before)) {
        c->table = nullptr;
        Free(c);
        return nullptr;
    }
    FlushInstructionCache(GetCurrentProcess(), c->at, total);
    if (c->table && !RtlAddFunctionTable(c->table, 1, reinterpret_cast<DWORD64>(c->at))) {
        c->table = nullptr;
        Free(c);
        return nullptr;
    }
    ++m_programs;
    chunk = c;
    return c->at;
}

void Arena::Release(ArenaChunk* c)
{
    std::lock_guard<std::mutex> hold(m_lock);
    RetryStuck();
    if (c->table)
        RtlDeleteFunctionTable(c->table);
    c->table = nullptr;
    --m_programs;
    Free(c);
}

ArenaStats Arena::Stats()
{
    std::lock_guard<std::mutex> hold(m_lock);
    ArenaStats s;
    s.programs = m_programs;
    s.chunks = m_programs + m_stuck.size();
    s.mapped = m_mapped;
    s.stuck = m_stuck.size();
    return s;
}

void Arena::SetFaults(unsigned faults)
{
    std::lock_guard<std::mutex> hold(m_lock);
    m_faults = faults;
    RetryStuck();
}

}  // namespace

unsigned char* PlaceCode(const unsigned char* code, std::size_t size, const unsigned char* unwind,
                         std::size_t unwind_size, ArenaChunk*& chunk)
{
    return Arena::Get().Place(code, size, unwind, unwind_size, chunk);
}

void ReleaseCode(ArenaChunk* chunk, unsigned char*, std::size_t)
{
    Arena::Get().Release(chunk);
}

ArenaStats ExecutableArenaStats()
{
    return Arena::Get().Stats();
}

void SetExecutableArenaFaults(unsigned faults)
{
    Arena::Get().SetFaults(faults);
}

}  // namespace vexa_platform

#endif
