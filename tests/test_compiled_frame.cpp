// The machine code's frame under calling conventions given as data: code
// with every number of kept registers, with and without scratch room, runs
// with the stack aligned for calls, fills its whole scratch room, clobbers
// what it keeps (xmm registers included), and hands every register its
// caller keeps back unchanged. Arguments are placed as each convention
// counts them, on the stack past the registers. Windows' convention runs
// here on every x86-64 host, against functions compiled for it; on Windows
// an exception also unwinds through the code by its registered frame.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "test_util.h"
#include "vexa/compiled/x86_64/call_convention.h"
#include "vexa/compiled/x86_64/frame.h"
#include "vexa/compiled/x86_64/x64_emitter.h"
#include "vexa/core/executable_memory.h"

#if defined(__x86_64__) && (defined(__linux__) || defined(_WIN32))
#define VEXA_TEST_RUNS_CODE 1
#define VEXA_SYSV __attribute__((sysv_abi))
#define VEXA_MS __attribute__((ms_abi))
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
    false,
};

// A register by name, N for xN, -1 - N for sN, else the number.
int Place(const std::wstring& word)
{
    static const wchar_t* const kNames[] = {L"rax", L"rcx", L"rdx", L"rbx", L"rsp", L"rbp", L"rsi", L"rdi",
                                            L"r8",  L"r9",  L"r10", L"r11", L"r12", L"r13", L"r14", L"r15"};
    const auto named = std::find(std::begin(kNames), std::end(kNames), word);
    if (named != std::end(kNames))
        return static_cast<int>(named - std::begin(kNames));
    const int n = std::stoi(vexa::ToUtf8(word.substr(word[0] == L'x' || word[0] == L's' ? 1 : 0)));
    return word[0] == L's' ? -1 - n : n;
}

TEST(CompiledFrame, ArgumentsAreCountedAsTheConventionSays)
{
    const auto cases = testutil::Section("x64_frames.txt", "args");
    ASSERT_FALSE(cases.empty());
    for (const auto& c : cases) {
        ArgumentCursor args(c[0] == "SystemV" ? kSystemV : c[0] == "Positional" ? kPositional : kWindowsX64);
        const std::vector<std::wstring> expected = testutil::Words(vexa::FromUtf8(c[2]));
        for (std::size_t k = 0; k < expected.size(); ++k) {
            int got = c[1][k] == 'i' ? args.NextInt() : args.NextXmm();
            if (got < 0)
                got = -1 - args.StackSlot();
            EXPECT_EQ(got, Place(expected[k])) << c[0] << " " << c[1] << " argument " << k;
        }
    }
}

TEST(CompiledFrame, RegistersAreTakenOnlyFromTheirLists)
{
    for (const CallConvention* cc : {&kSystemV, &kPositional, &kWindowsX64}) {
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
}

TEST(CompiledFrame, PrologueDescriptions)
{
    const auto cases = testutil::Section("x64_frames.txt", "unwind");
    ASSERT_FALSE(cases.empty());
    for (const auto& c : cases) {
        std::vector<PrologueStep> steps;
        const std::vector<std::wstring> w = testutil::Words(vexa::FromUtf8(c[0]));
        for (std::size_t i = 0; i + 3 < w.size(); i += 5) {
            const PrologueStep::Kind kind = w[i] == L"push"    ? PrologueStep::kPush
                                            : w[i] == L"alloc" ? PrologueStep::kAlloc
                                                               : PrologueStep::kSaveXmm;
            steps.push_back({kind, static_cast<std::uint32_t>(std::stoul(vexa::ToUtf8(w[i + 1]))), Place(w[i + 2]),
                             std::stoi(vexa::ToUtf8(w[i + 3]))});
        }
        std::vector<std::uint8_t> bytes, out = {9};
        for (const std::wstring& b : testutil::Words(vexa::FromUtf8(c[1] == "refused" ? "" : c[1])))
            bytes.push_back(static_cast<std::uint8_t>(std::stoul(vexa::ToUtf8(b), nullptr, 16)));
        EXPECT_EQ(WindowsUnwindInfo(steps, out), !bytes.empty()) << c[0];
        EXPECT_EQ(out, bytes) << c[0];
    }
}

#ifdef VEXA_TEST_RUNS_CODE

// Code placed in the test's own executable memory, its frame registered
// where the platform unwinds by a table.
class Code {
public:
    Code(const std::vector<std::uint8_t>& bytes, const std::vector<std::uint8_t>& unwind = {})
    {
        if (!m_memory.Load(bytes.data(), bytes.size(), unwind.data(), unwind.size()))
            ADD_FAILURE() << "no executable memory";
    }
    void* at() const { return m_memory.data(); }

private:
    vexa_platform::ExecutableMemory m_memory;
};

// Every register a System V caller keeps, and the two a positional
// convention keeps besides.
const int kChecked[] = {rbx, rbp, rsi, rdi, r12, r13, r14, r15};
constexpr int kCheckedCount = 8;
// Where the xmm registers Windows keeps are loaded from and stored to.
constexpr int kXmmIn = 16;
constexpr int kXmmOut = 40;
constexpr int kOutSize = 64;

// outer(out, inner), in the System V convention: sets every checked
// register to a pattern and xmm6-xmm15 to the patterns at out[kXmmIn], calls
// inner with the stack aligned, writes the checked registers, inner's answer
// and xmm6-xmm15 to out, and gives its own caller's registers back.
std::vector<std::uint8_t> Outer()
{
    Emitter em;
    const int saved[] = {rbx, rbp, r12, r13, r14, r15};
    for (int r : saved)
        em.Push(r);
    em.Push(rdi);
    em.MovReg(rax, rsi);
    for (int x = 6; x < 16; ++x)
        em.MovupdLoad(x, {rdi, 8 * kXmmIn + 16 * (x - 6)});
    for (int r : kChecked)
        em.MovImm64(r, 0x5A5A000000000000ULL + static_cast<std::uint64_t>(r));
    em.Call(rax);
    em.MovReg(r11, rax);
    em.MovLoad(rax, {rsp, 0});
    for (int k = 0; k < kCheckedCount; ++k)
        em.MovStore({rax, 8 * k}, kChecked[k]);
    em.MovStore({rax, 8 * kCheckedCount}, r11);
    for (int x = 6; x < 16; ++x)
        em.MovupdStore({rax, 8 * kXmmOut + 16 * (x - 6)}, x);
    em.Pop(rdi);
    for (int k = 5; k >= 0; --k)
        em.Pop(saved[k]);
    em.Ret();
    return em.Finish();
}

// Opens a frame that keeps kept registers, with scratch room if asked and
// every xmm register in use, and clobbers what it keeps.
void Open(Emitter& em, Frame& frame, int kept, bool scratch)
{
    std::vector<int> taken;
    for (int k = 0; k < kept; ++k)
        taken.push_back(frame.TakeKept());
    if (scratch)
        frame.ReserveScratch();
    frame.UseXmms(15);
    frame.Prologue();
    for (int r : taken)
        em.MovImm64(r, 0xDEAD000000000000ULL + static_cast<std::uint64_t>(r));
    for (int x = 0; x < 16; ++x)
        em.Xorpd(x, x);
}

// Code in such a frame that writes all of its scratch room and answers its
// stack pointer.
std::vector<std::uint8_t> Inner(const CallConvention& cc, int kept, bool scratch, std::vector<std::uint8_t>& unwind)
{
    Emitter em;
    Frame frame(em, cc, 1);
    Open(em, frame, kept, scratch);
    em.MovImm64(rax, 0x0BADBADBADBADBADULL);
    for (std::uint32_t k = 0; scratch && k < kScratchSlots; ++k)
        em.MovStore(frame.Scratch(static_cast<std::int32_t>(8 * k)), rax);
    em.MovReg(rax, rsp);
    frame.Epilogue();
    em.Ret();
    EXPECT_TRUE(frame.UnwindInfo(unwind));
    return em.Finish();
}

TEST(CompiledFrame, KeepsTheCallersRegistersAndAlignsTheStack)
{
    const Code outer(Outer());
    ASSERT_NE(outer.at(), nullptr);
    typedef void(VEXA_SYSV * OuterEntry)(std::uint64_t * out, const void* inner);
    const OuterEntry run = reinterpret_cast<OuterEntry>(outer.at());
    for (const CallConvention* cc : {&kSystemV, &kPositional, &kWindowsX64}) {
        for (int kept = 0; kept <= cc->callee_saved_count; ++kept) {
            for (bool scratch : {false, true}) {
                std::vector<std::uint8_t> unwind;
                const std::vector<std::uint8_t> bytes = Inner(*cc, kept, scratch, unwind);
                const Code inner(bytes, unwind);
                ASSERT_NE(inner.at(), nullptr);
                std::uint64_t out[kOutSize] = {};
                for (int k = 0; k < 20; ++k)
                    out[kXmmIn + k] = 0x3C3C000000000000ULL + static_cast<std::uint64_t>(k);
                run(out, inner.at());
                for (int k = 0; k < kCheckedCount; ++k)
                    EXPECT_EQ(out[k], 0x5A5A000000000000ULL + static_cast<std::uint64_t>(kChecked[k]))
                        << "register " << kChecked[k] << ", " << kept << " kept, scratch " << scratch;
                // Every xmm register is changed: those the convention keeps
                // come back whole.
                for (int k = 0; k < 20 && cc->first_kept_xmm < 16; ++k)
                    EXPECT_EQ(out[kXmmOut + k], out[kXmmIn + k]) << "xmm" << 6 + k / 2 << ", " << kept << " kept";
                // Code with no frame calls nothing and is not aligned.
                if (kept > 0 || scratch || cc->first_kept_xmm < 16) {
                    EXPECT_EQ(out[kCheckedCount] % static_cast<std::uint64_t>(cc->stack_align), 0u)
                        << kept << " kept, scratch " << scratch;
                }
            }
        }
    }
}

// Called by code made for Windows' convention: the arguments past the
// fourth are read from the stack above the shadow space.
VEXA_MS std::uint64_t Six(std::uint64_t a, std::uint64_t b, std::uint64_t c, std::uint64_t d, std::uint64_t e,
                          std::uint64_t f)
{
    return a + 3 * b + 5 * c + 7 * d + 11 * e + 13 * f;
}

// Code for Windows' convention calling Six with its arguments set in every
// way the frame sets them, from a frame keeping kept registers.
std::vector<std::uint8_t> CallsSix(int kept, std::vector<std::uint8_t>& unwind)
{
    Emitter em;
    Frame frame(em, kWindowsX64, 0);
    Open(em, frame, kept, true);
    // The stack's arguments land on what was there.
    em.MovImm64(rax, ~0ULL);
    for (std::uint32_t k = 0; k < kScratchSlots; ++k)
        em.MovStore(frame.Scratch(static_cast<std::int32_t>(8 * k)), rax);
    ArgumentCursor args(kWindowsX64);
    Frame::IntArg a[6];
    for (Frame::IntArg& arg : a)
        EXPECT_TRUE(frame.NextIntArg(args, arg));
    em.MovImm64(r10, 4);
    frame.ArgImm64(a[4], 0x100000000ULL);
    frame.ArgReg(a[5], r10);
    frame.ArgImm32(a[0], 1);
    frame.ArgImm64(a[1], 2);
    frame.ArgLea(a[2], {r10, 6});
    frame.ArgReg(a[3], r10);
    frame.Call(reinterpret_cast<std::uint64_t>(&Six));
    frame.Epilogue();
    em.Ret();
    EXPECT_TRUE(frame.UnwindInfo(unwind));
    return em.Finish();
}

TEST(CompiledFrame, WindowsCallsTakeArgumentsFromTheStack)
{
    // Without room for them, stack arguments are refused.
    Emitter em;
    Frame bare(em, kWindowsX64, 0);
    ArgumentCursor args(kWindowsX64);
    Frame::IntArg a;
    for (int k = 0; k < 4; ++k)
        EXPECT_TRUE(bare.NextIntArg(args, a));
    EXPECT_FALSE(bare.NextIntArg(args, a));

    typedef std::uint64_t(VEXA_MS * Entry)();
    const std::uint64_t expected = 1 + 3 * 2 + 5 * 10 + 7 * 4 + 11 * 0x100000000ULL + 13 * 4;
    for (int kept = 0; kept <= kWindowsX64.callee_saved_count; ++kept) {
        std::vector<std::uint8_t> unwind;
        const std::vector<std::uint8_t> bytes = CallsSix(kept, unwind);
        const Code code(bytes, unwind);
        ASSERT_NE(code.at(), nullptr);
        EXPECT_EQ(reinterpret_cast<Entry>(code.at())(), expected) << kept << " kept";
    }
}

#if defined(_WIN32)

[[noreturn]] void Throws()
{
    throw std::runtime_error("from the callee");
}

// The system unwinds from a function the code called, through the code's
// registered frame, to the caller's handler: the code's kept registers and
// the stack come back as the caller had them.
TEST(CompiledFrame, ExceptionsUnwindThroughTheCode)
{
    Emitter em;
    Frame real(em, kWindowsX64, 0);
    Open(em, real, kWindowsX64.callee_saved_count, true);
    real.Call(reinterpret_cast<std::uint64_t>(&Throws));
    real.Epilogue();
    em.Ret();
    std::vector<std::uint8_t> unwind;
    ASSERT_TRUE(real.UnwindInfo(unwind));
    const Code code(em.Finish(), unwind);
    ASSERT_NE(code.at(), nullptr);
    typedef void (*Entry)();
    volatile double kept = 1.5;
    int caught = 0;
    for (int k = 0; k < 3; ++k) {
        double sum = kept * k;
        try {
            reinterpret_cast<Entry>(code.at())();
        } catch (const std::runtime_error& e) {
            caught += std::strcmp(e.what(), "from the callee") == 0;
        }
        EXPECT_EQ(sum, 1.5 * k);
    }
    EXPECT_EQ(caught, 3);
}

#endif

#endif

}  // namespace
