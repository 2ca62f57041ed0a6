// The machine code's frame under calling conventions given as data: code
// with every number of kept registers, with and without scratch room, runs
// with the stack aligned for calls, fills its whole scratch room, clobbers
// what it keeps, and hands every register its caller keeps back unchanged.
// And arguments are placed as each convention counts them.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "vexa/compiled/x86_64/call_convention.h"
#include "vexa/compiled/x86_64/frame.h"
#include "vexa/compiled/x86_64/x64_emitter.h"

#if defined(__x86_64__) && defined(__linux__)
#include <sys/mman.h>
#define VEXA_TEST_RUNS_CODE 1
#endif

using namespace vexa_compiled::x64;

namespace {

// Argument registers by position, kept registers from rdi and rsi on, 32
// bytes of shadow space: a convention unlike the host's in every field the
// frame reads.
constexpr CallConvention kPositional = {
    {rcx, rdx, r8, r9, 0, 0},
    4,
    4,
    true,
    32,
    {rbx, rbp, rdi, rsi, r12, r13, r14, r15},
    8,
    {rax, rcx, rdx, r8, r9, r10, r11, 0, 0},
    7,
    6,
    16,
};

struct ArgCase {
    const CallConvention* cc;
    const char* kinds;  // i: integer, d: double
    std::vector<int> expected;  // register, xmm index, or -1
};

TEST(CompiledFrame, ArgumentsAreCountedAsTheConventionSays)
{
    const ArgCase cases[] = {
        {&kSystemV, "ddii", {0, 1, rdi, rsi}},
        {&kSystemV, "iiiiiii", {rdi, rsi, rdx, rcx, r8, r9, -1}},
        {&kSystemV, "dddddddddi", {0, 1, 2, 3, 4, 5, 6, 7, -1, rdi}},
        {&kPositional, "ddii", {0, 1, r8, r9}},
        {&kPositional, "idid", {rcx, 1, r8, 3}},
        {&kPositional, "iiiii", {rcx, rdx, r8, r9, -1}},
        {&kPositional, "ddddd", {0, 1, 2, 3, -1}},
    };
    for (const ArgCase& c : cases) {
        ArgumentCursor args(*c.cc);
        for (std::size_t k = 0; k < c.expected.size(); ++k) {
            const int got = c.kinds[k] == 'i' ? args.NextInt() : args.NextXmm();
            EXPECT_EQ(got, c.expected[k]) << c.kinds << " argument " << k;
        }
    }
}

TEST(CompiledFrame, RegistersAreTakenOnlyFromTheirLists)
{
    for (const CallConvention* cc : {&kSystemV, &kPositional}) {
        Emitter em;
        Frame frame(em, *cc, 4);
        std::vector<int> free;
        for (int r; (r = frame.TakeFree()) >= 0;)
            free.push_back(r);
        for (int r : free) {
            EXPECT_NE(r, rax);
            for (int k = 0; k < 4; ++k)
                EXPECT_NE(r, cc->int_args[k]);
        }
        EXPECT_EQ(free.size(), static_cast<std::size_t>(cc->caller_saved_count - 5));
        int kept = 0;
        while (frame.TakeKept() >= 0)
            ++kept;
        EXPECT_EQ(kept, cc->callee_saved_count);
    }
    // Saving the xmm registers a callee keeps is not written: such a
    // convention makes no code.
    Emitter em;
    EXPECT_TRUE(Frame(em, kSystemV, 4).Usable());
    EXPECT_FALSE(Frame(em, kPositional, 4).Usable());
}

#ifdef VEXA_TEST_RUNS_CODE

// Code in memory of its own, run, then unmapped.
class Code {
public:
    explicit Code(const std::vector<std::uint8_t>& bytes) : m_size(bytes.size())
    {
        m_at = mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (m_at == MAP_FAILED) {
            m_at = nullptr;
            return;
        }
        std::memcpy(m_at, bytes.data(), m_size);
        if (mprotect(m_at, m_size, PROT_READ | PROT_EXEC) != 0) {
            munmap(m_at, m_size);
            m_at = nullptr;
        }
    }
    ~Code()
    {
        if (m_at)
            munmap(m_at, m_size);
    }
    void* at() const { return m_at; }

private:
    void* m_at = nullptr;
    std::size_t m_size;
};

// Every register a System V caller keeps, and the two a positional
// convention keeps besides.
const int kChecked[] = {rbx, rbp, rsi, rdi, r12, r13, r14, r15};
constexpr int kCheckedCount = 8;

// outer(out, inner): sets every checked register to a pattern, calls inner
// with the stack aligned, writes the checked registers and inner's answer to
// out, and gives its own caller's registers back.
std::vector<std::uint8_t> Outer()
{
    Emitter em;
    const int saved[] = {rbx, rbp, r12, r13, r14, r15};
    for (int r : saved)
        em.Push(r);
    em.Push(rdi);
    em.MovReg(rax, rsi);
    for (int r : kChecked)
        em.MovImm64(r, 0x5A5A000000000000ULL + static_cast<std::uint64_t>(r));
    em.Call(rax);
    em.MovReg(r11, rax);
    em.MovLoad(rax, {rsp, 0});
    for (int k = 0; k < kCheckedCount; ++k)
        em.MovStore({rax, 8 * k}, kChecked[k]);
    em.MovStore({rax, 8 * kCheckedCount}, r11);
    em.Pop(rdi);
    for (int k = 5; k >= 0; --k)
        em.Pop(saved[k]);
    em.Ret();
    return em.Finish();
}

// Code in a frame that keeps kept registers and clobbers them, writes all
// of its scratch room, and answers its stack pointer.
std::vector<std::uint8_t> Inner(const CallConvention& cc, int kept, bool scratch)
{
    Emitter em;
    Frame frame(em, cc, 1);
    std::vector<int> taken;
    for (int k = 0; k < kept; ++k)
        taken.push_back(frame.TakeKept());
    if (scratch)
        frame.ReserveScratch();
    frame.Prologue();
    for (int r : taken)
        em.MovImm64(r, 0xDEAD000000000000ULL + static_cast<std::uint64_t>(r));
    em.MovImm64(rax, 0x0BADBADBADBADBADULL);
    for (std::uint32_t k = 0; scratch && k < kScratchSlots; ++k)
        em.MovStore(frame.Scratch(static_cast<std::int32_t>(8 * k)), rax);
    em.MovReg(rax, rsp);
    frame.Epilogue();
    em.Ret();
    return em.Finish();
}

TEST(CompiledFrame, KeepsTheCallersRegistersAndAlignsTheStack)
{
    const Code outer(Outer());
    ASSERT_NE(outer.at(), nullptr);
    typedef void (*OuterEntry)(std::uint64_t* out, const void* inner);
    const OuterEntry run = reinterpret_cast<OuterEntry>(outer.at());
    for (const CallConvention* cc : {&kSystemV, &kPositional}) {
        for (int kept = 0; kept <= cc->callee_saved_count; ++kept) {
            for (bool scratch : {false, true}) {
                const Code inner(Inner(*cc, kept, scratch));
                ASSERT_NE(inner.at(), nullptr);
                std::uint64_t out[kCheckedCount + 1] = {};
                run(out, inner.at());
                for (int k = 0; k < kCheckedCount; ++k)
                    EXPECT_EQ(out[k], 0x5A5A000000000000ULL + static_cast<std::uint64_t>(kChecked[k]))
                        << "register " << kChecked[k] << ", " << kept << " kept, scratch " << scratch;
                if (kept > 0 || scratch) {
                    EXPECT_EQ(out[kCheckedCount] % static_cast<std::uint64_t>(cc->stack_align), 0u)
                        << kept << " kept, scratch " << scratch;
                }
            }
        }
    }
}

#endif

}  // namespace
