#ifndef VEXA_COMPILED_CALL_CONVENTION_H
#define VEXA_COMPILED_CALL_CONVENTION_H

#include <cstdint>

#include "vexa/compiled/x86_64/x64_emitter.h"

// How functions pass arguments and which registers they keep, as data: the
// frame and the lowerings read every such fact from here, so that another
// platform's convention is another value of this struct, not another copy of
// the back end. Internal.
namespace vexa_compiled {
namespace x64 {

struct CallConvention {
    // Integer and pointer arguments, in order.
    int int_args[6];
    int int_arg_count;
    // Doubles go in xmm0, xmm1, ... up to this many.
    int xmm_args;
    // True where an argument's position picks its register whatever its
    // type (the third argument is the third integer register or xmm2);
    // false where integer and double arguments are counted apart.
    bool positional;
    // Bytes a caller leaves free for the callee right above the return
    // address.
    std::int32_t shadow_space;
    // Registers a callee gives back as it found them, in the order the code
    // takes them for its own values.
    int callee_saved[8];
    int callee_saved_count;
    // Registers a call may change; the code takes its own from these (rax
    // excepted: it carries call targets and integer answers) where it calls
    // nothing.
    int caller_saved[9];
    int caller_saved_count;
    // xmm registers from this one up are kept by a callee (16: none is).
    int first_kept_xmm;
    // The stack pointer's alignment at every call.
    std::int32_t stack_align;
    // Whether generated code is described to the system's unwinder by a
    // table of its prologue (Windows); elsewhere nothing is registered.
    bool unwind_table;
};

// Linux, the BSDs and macOS. rbp is taken last: a debugger or profiler walking
// the stack reads it as the frame pointer in as many frames as possible.
constexpr CallConvention kSystemV = {
    {rdi, rsi, rdx, rcx, r8, r9},
    6,
    8,
    false,
    0,
    {rbx, r12, r13, r14, r15, rbp, 0, 0},
    6,
    {rax, rdi, rsi, rdx, rcx, r8, r9, r10, r11},
    9,
    16,
    16,
    false,
};

// Windows x64. Integer and double arguments share four positions, every
// call leaves 32 bytes of shadow space, and xmm6-xmm15 are kept by a callee
// in all 128 bits. rbp again last.
constexpr CallConvention kWindowsX64 = {
    {rcx, rdx, r8, r9, 0, 0},
    4,
    4,
    true,
    32,
    {rbx, rsi, rdi, r12, r13, r14, r15, rbp},
    8,
    {rax, rcx, rdx, r8, r9, r10, r11, 0, 0},
    7,
    6,
    16,
    true,
};

// The convention of the platform the library is built for.
#if defined(_WIN32)
inline constexpr const CallConvention& kHost = kWindowsX64;
#else
inline constexpr const CallConvention& kHost = kSystemV;
#endif

// Where the next argument of a call goes, following the convention's
// counting.
class ArgumentCursor {
public:
    explicit ArgumentCursor(const CallConvention& cc) : m_cc(cc) {}

    // The register of the next integer argument; -1 past the last.
    int NextInt()
    {
        const int k = m_cc.positional ? m_ints + m_xmms : m_ints;
        ++m_ints;
        return Stacked(k < m_cc.int_arg_count ? m_cc.int_args[k] : -1);
    }
    // The xmm register of the next double argument; -1 past the last.
    int NextXmm()
    {
        const int k = m_cc.positional ? m_ints + m_xmms : m_xmms;
        ++m_xmms;
        return Stacked(k < m_cc.xmm_args ? k : -1);
    }
    // The stack slot (8 bytes each, from the shadow space's end up) of the
    // last argument answered -1: arguments past the registers go there in
    // order under both countings.
    int StackSlot() const { return m_stacked - 1; }

private:
    int Stacked(int reg)
    {
        if (reg < 0)
            ++m_stacked;
        return reg;
    }

    const CallConvention& m_cc;
    int m_ints = 0;
    int m_xmms = 0;
    int m_stacked = 0;
};

}  // namespace x64
}  // namespace vexa_compiled

#endif
