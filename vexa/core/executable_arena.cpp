#include "vexa/core/executable_arena.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#if defined(__unix__) || defined(__APPLE__)
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>
#define VEXA_HAS_MMAP 1
#endif
#if defined(__linux__)
#define VEXA_HAS_DOUBLE_MAP 1
#endif
#if defined(__aarch64__)
#define VEXA_NEVER_REUSE_CODE_ADDRESSES 1
#endif

// How the arena keeps code from ever being writable where it runs.
//
// An expression that switches to machine code runs it at once, so its bytes
// must be executable as soon as they are copied. With one mapping sealed per
// program that is easy, and a million expressions take a million mappings,
// past the system's limit. Packing programs into shared pages needs a way to
// add code to a page that already holds running code. Making the page
// writable again for that would fault (or, worse, expose) a thread running
// there, since the arena cannot know which programs are running; sealing a
// page only once it is full would leave the code before it not runnable.
//
// So a chunk is a memory file mapped twice. Its executable view is mapped
// read-only, made executable and never made writable. While the chunk is
// filled it also has a writable view, never executable, at another address;
// a new program is copied through it into bytes no program occupies (and
// starts on a 64-byte boundary, so no cache line holds two programs), so no
// byte that may run ever changes. When the chunk is full its writable view
// is unmapped: at most one chunk of the process is writable, nowhere
// executable. A page no program is left on, and that no program will be
// copied into, is punched out of the file (its memory returns without
// splitting the mapping); a chunk with no program left is unmapped.
//
// A forked child shares the files. At a fork both sides stop filling their
// current chunk and leave every chunk they had unpunched, so neither writes
// into or takes away memory the other may run; each unmaps its own views.
//
// Where the platform has no such files (or refuses them), each program gets
// a private mapping of its own, written, then sealed, as before; their
// number is capped, past which the interpreter runs, so that they never use
// up the host's mappings. Every refused call ends in a null answer, memory
// mapped on the way is unmapped, and a mapping that cannot be unmapped is
// kept and tried again on later calls instead of being forgotten. Windows
// has its own arena (executable_arena_windows.cpp).
//
// On AArch64 no executable address is ever used for a second program. The
// instruction cache is cleaned through the executable view after each copy,
// which the processor needs; but an emulator (qemu-user) that translates
// code notices changes only through writes it sees at that address, and
// the writable view is another address: a second program where a first
// one ran would run the first one's translation. So there a chunk whose
// programs are all released goes on being filled after them, not from its
// start again, and the executable view of a chunk that goes is replaced by
// an inaccessible reservation (its memory returns, its addresses stay
// taken) instead of being unmapped. Reservations of neighbouring chunks
// merge into one mapping; the cost is address space only.
#if !defined(_WIN32)

namespace vexa_platform {

struct ArenaChunk {
    unsigned char* exec = nullptr;   // the executable view
    unsigned char* write = nullptr;  // the writable view while filled
    std::size_t size = 0;            // bytes, whole pages
    std::size_t used = 0;            // bytes handed out, from the start
    std::size_t live = 0;            // programs placed and not released
    std::vector<std::uint32_t> pages;  // live programs touching each page
    bool single = false;  // a private mapping of one program
    bool shared = false;  // a forked process maps it too
    bool stuck = false;   // an unmapping failed: tried again later
    ArenaChunk* prev = nullptr;
    ArenaChunk* next = nullptr;
};

#if VEXA_HAS_MMAP

namespace {

constexpr std::size_t kAlign = 64;
constexpr std::size_t kChunkBytes = 256 * 1024;
// Private mappings of one program each, at most: far below the usual limit
// of 65,530 mappings a process has.
constexpr std::size_t kMostSingle = 4096;
const unsigned char kTrap = 0xCC;  // int3 fills the gaps between programs

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

    unsigned char* Place(const unsigned char* code, std::size_t size, ArenaChunk*& chunk);
    void Release(ArenaChunk* chunk, unsigned char* at, std::size_t size);
    ArenaStats Stats();
    void SetFaults(unsigned faults);

private:
    Arena();
    static void BeforeFork() { Get().m_lock.lock(); }
    static void AfterFork() { Get().Forked(); }
    void Forked();

    bool Fails(unsigned kind) const { return (m_faults & kind) != 0; }
    bool Unmap(unsigned char*& at, std::size_t size);
    bool Retract(unsigned char*& at, std::size_t size);
    bool Protect(unsigned char* at, std::size_t size, int prot);

    ArenaChunk* NewShared(std::size_t size);
    unsigned char* Single(const unsigned char* code, std::size_t size, ArenaChunk*& chunk);
    unsigned char* Put(ArenaChunk& c, const unsigned char* code, std::size_t size);
    void Retire(ArenaChunk* c);
    void Drop(ArenaChunk* c);
    void Punch(ArenaChunk& c, std::size_t page);
    // Whether no program will be copied into the page any more.
    bool Closed(const ArenaChunk& c, std::size_t page) const
    {
        return &c != m_current || (page + 1) * m_page <= c.used;
    }
    void Link(ArenaChunk* c);
    void Unlink(ArenaChunk* c);
    void RetryStuck();

    std::mutex m_lock;
    std::size_t m_page = 4096;
    ArenaChunk* m_head = nullptr;
    ArenaChunk* m_current = nullptr;  // the chunk being filled
    std::size_t m_single = 0;
    std::size_t m_stuck = 0;
    std::size_t m_kept = 0;
    unsigned m_faults = 0;
};

Arena::Arena()
{
    const long page = sysconf(_SC_PAGESIZE);
    if (page > 0)
        m_page = static_cast<std::size_t>(page);
    pthread_atfork(BeforeFork, AfterFork, AfterFork);
}

void Arena::Forked()
{
    for (ArenaChunk* c = m_head; c; c = c->next)
        c->shared = true;
    ArenaChunk* current = m_current;
    m_current = nullptr;
    Retire(current);
    m_lock.unlock();
}

bool Arena::Unmap(unsigned char*& at, std::size_t size)
{
    if (!at)
        return true;
    if (Fails(kFailUnmap) || munmap(at, size) != 0)
        return false;
    at = nullptr;
    return true;
}

// The executable view's unmapping: see the top of the file.
bool Arena::Retract(unsigned char*& at, std::size_t size)
{
#if VEXA_NEVER_REUSE_CODE_ADDRESSES
    if (!at)
        return true;
    if (Fails(kFailUnmap) || mmap(at, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED | MAP_NORESERVE,
                                  -1, 0) == MAP_FAILED)
        return false;
    at = nullptr;
    return true;
#else
    return Unmap(at, size);
#endif
}

bool Arena::Protect(unsigned char* at, std::size_t size, int prot)
{
    return !Fails(kFailProtect) && mprotect(at, size, prot) == 0;
}

void Arena::Link(ArenaChunk* c)
{
    c->next = m_head;
    if (m_head)
        m_head->prev = c;
    m_head = c;
}

void Arena::Unlink(ArenaChunk* c)
{
    (c->prev ? c->prev->next : m_head) = c->next;
    if (c->next)
        c->next->prev = c->prev;
}

// Unmaps both views and forgets the chunk, or keeps it for another try.
void Arena::Drop(ArenaChunk* c)
{
    const bool write = Unmap(c->write, c->size);
    // Where no program was ever put (a chunk whose making failed) nothing
    // can have been translated: its addresses go back.
    const bool exec = c->used == 0 ? Unmap(c->exec, c->size) : Retract(c->exec, c->size);
    if (!write || !exec) {
        if (!c->stuck)
            ++m_stuck;
        c->stuck = true;
        return;
    }
    if (c->stuck)
        --m_stuck;
    if (c->single)
        --m_single;
    Unlink(c);
    delete c;
}

void Arena::RetryStuck()
{
    if (m_stuck == 0 || m_faults)
        return;
    ArenaChunk* c = m_head;
    while (c) {
        ArenaChunk* next = c->next;
        if (c->stuck) {
            // A chunk still holding programs only lost its writable view.
            if (c->live == 0)
                Drop(c);
            else if (Unmap(c->write, c->size)) {
                c->stuck = false;
                --m_stuck;
            }
        }
        c = next;
    }
}

void Arena::Punch(ArenaChunk& c, std::size_t page)
{
#if VEXA_HAS_DOUBLE_MAP
    // Older kernels punch only through a writable view; where refused, the
    // page returns with its chunk.
    unsigned char* view = c.write ? c.write : c.exec;
    if (!c.shared && view && madvise(view + page * m_page, m_page, MADV_REMOVE) != 0)
        ++m_kept;
#else
    (void)c;
    (void)page;
#endif
}

// The chunk takes no more programs.
void Arena::Retire(ArenaChunk* c)
{
    if (!c)
        return;
    if (!Unmap(c->write, c->size)) {
        // Never written again all the same: only the current chunk is.
        if (!c->stuck)
            ++m_stuck;
        c->stuck = true;
    }
    if (c->live == 0) {
        Drop(c);
        return;
    }
    // The page the last program ends on is closed now.
    const std::size_t last = c->used / m_page;
    if (c->used % m_page != 0 && c->pages[last] == 0)
        Punch(*c, last);
}

ArenaChunk* Arena::NewShared(std::size_t size)
{
#if VEXA_HAS_DOUBLE_MAP
    if (Fails(kFailMap))
        return nullptr;
    std::unique_ptr<ArenaChunk> made(new ArenaChunk());
    made->pages.assign(size / m_page, 0);
    made->size = size;
    ArenaChunk* c = made.release();
    Link(c);
    const int fd = memfd_create("vexa-code", MFD_CLOEXEC);
    bool ok = fd >= 0 && ftruncate(fd, static_cast<off_t>(size)) == 0;
    if (ok) {
        void* w = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (w != MAP_FAILED)
            c->write = static_cast<unsigned char*>(w);
        void* x = mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
        if (x != MAP_FAILED)
            c->exec = static_cast<unsigned char*>(x);
        ok = c->write && c->exec && Protect(c->exec, size, PROT_READ | PROT_EXEC);
    }
    // The mappings keep the file; the descriptor is not needed any more.
    if (fd >= 0)
        close(fd);
    if (!ok) {
        Drop(c);
        return nullptr;
    }
    return c;
#else
    (void)size;
    return nullptr;
#endif
}

unsigned char* Arena::Put(ArenaChunk& c, const unsigned char* code, std::size_t size)
{
    const std::size_t at = c.used;
    const std::size_t taken = RoundUp(size, kAlign);
    std::memcpy(c.write + at, code, size);
    std::memset(c.write + at + size, kTrap, taken - size);
    c.used += taken;
    for (std::size_t p = at / m_page; p <= (at + size - 1) / m_page; ++p)
        ++c.pages[p];
    ++c.live;
    unsigned char* entry = c.exec + at;
    __builtin___clear_cache(reinterpret_cast<char*>(entry), reinterpret_cast<char*>(entry + size));
    return entry;
}

unsigned char* Arena::Single(const unsigned char* code, std::size_t size, ArenaChunk*& chunk)
{
    if (m_single >= kMostSingle || Fails(kFailMap))
        return nullptr;
    const std::size_t length = RoundUp(size, m_page);
    ArenaChunk* c = new ArenaChunk();
    void* p = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) {
        delete c;
        return nullptr;
    }
    c->single = true;
    c->exec = static_cast<unsigned char*>(p);
    c->size = length;
    Link(c);
    ++m_single;
    std::memcpy(c->exec, code, size);
    if (!Protect(c->exec, length, PROT_READ | PROT_EXEC)) {
        Drop(c);
        return nullptr;
    }
    c->live = 1;
    chunk = c;
    return c->exec;
}

// Exhausted memory (for the chunk's bookkeeping) passes to the caller with
// nothing mapped or changed.
unsigned char* Arena::Place(const unsigned char* code, std::size_t size, ArenaChunk*& chunk)
{
    std::lock_guard<std::mutex> hold(m_lock);
    RetryStuck();
    if (m_faults) {
        ArenaChunk* current = m_current;
        m_current = nullptr;
        Retire(current);
    }
    const std::size_t taken = RoundUp(size, kAlign);
    if (m_current && m_current->size - m_current->used >= taken) {
        chunk = m_current;
        return Put(*m_current, code, size);
    }
    ArenaChunk* fresh = NewShared(std::max(kChunkBytes, RoundUp(taken, m_page)));
    if (!fresh)
        return Single(code, size, chunk);
    unsigned char* entry = Put(*fresh, code, size);
    chunk = fresh;
    // A program larger than a chunk has one of its own; the current chunk
    // goes on being filled.
    if (taken > kChunkBytes) {
        Retire(fresh);
    } else {
        ArenaChunk* full = m_current;
        m_current = fresh;
        Retire(full);
    }
    return entry;
}

void Arena::Release(ArenaChunk* c, unsigned char* at, std::size_t size)
{
    std::lock_guard<std::mutex> hold(m_lock);
    RetryStuck();
    if (!c->single) {
        const std::size_t offset = static_cast<std::size_t>(at - c->exec);
        for (std::size_t p = offset / m_page; p <= (offset + size - 1) / m_page; ++p) {
            if (--c->pages[p] == 0 && Closed(*c, p))
                Punch(*c, p);
        }
    }
    if (--c->live != 0)
        return;
    if (c == m_current) {
#if !VEXA_NEVER_REUSE_CODE_ADDRESSES
        c->used = 0;  // no program left to run there: fill it again
#endif
    } else {
        Drop(c);
    }
}

ArenaStats Arena::Stats()
{
    std::lock_guard<std::mutex> hold(m_lock);
    ArenaStats s;
    s.kept = m_kept;
    for (const ArenaChunk* c = m_head; c; c = c->next) {
        s.programs += c->live;
        s.single += c->single ? 1 : 0;
        s.chunks += !c->single && c->exec ? 1 : 0;
        s.writable += c->write ? 1 : 0;
        s.mapped += (c->exec ? c->size : 0) + (c->write ? c->size : 0);
        s.stuck += c->stuck ? 1 : 0;
    }
    return s;
}

void Arena::SetFaults(unsigned faults)
{
    std::lock_guard<std::mutex> hold(m_lock);
    m_faults = faults;
    RetryStuck();
}

}  // namespace

unsigned char* PlaceCode(const unsigned char* code, std::size_t size, const unsigned char*, std::size_t,
                         ArenaChunk*& chunk)
{
    return Arena::Get().Place(code, size, chunk);
}

void ReleaseCode(ArenaChunk* chunk, unsigned char* at, std::size_t size)
{
    Arena::Get().Release(chunk, at, size);
}

ArenaStats ExecutableArenaStats()
{
    return Arena::Get().Stats();
}

void SetExecutableArenaFaults(unsigned faults)
{
    Arena::Get().SetFaults(faults);
}

#else

unsigned char* PlaceCode(const unsigned char*, std::size_t, const unsigned char*, std::size_t, ArenaChunk*&)
{
    return nullptr;
}

void ReleaseCode(ArenaChunk*, unsigned char*, std::size_t) {}

ArenaStats ExecutableArenaStats()
{
    return ArenaStats();
}

void SetExecutableArenaFaults(unsigned) {}

#endif

}  // namespace vexa_platform

#endif
