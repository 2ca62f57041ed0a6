#ifndef VEXA_COMPILED_FRAME_H
#define VEXA_COMPILED_FRAME_H

#include <cstdint>

#include <vector>

#include "vexa/compiled/x86_64/call_convention.h"
#include "vexa/compiled/x86_64/unwind_info.h"
#include "vexa/compiled/x86_64/x64_emitter.h"

// The stack frame of a piece of generated code: the registers it keeps
// across calls (saved and given back), the scratch room argument lists are
// written to, and the calls themselves, all as the calling convention says.
// A frame that keeps nothing and has no room is no frame at all: its code
// calls nothing. Internal.
namespace vexa_compiled {
namespace x64 {

// Slots of the scratch room a frame that calls has: the longest built-in
// takes 34 arguments. Every list written there is checked against it when
// the code is made.
constexpr std::uint32_t kScratchSlots = 34;

class Frame {
public:
    // Code whose entry takes entry_args integer arguments.
    Frame(Emitter& em, const CallConvention& cc, int entry_args);

    const CallConvention& convention() const { return m_cc; }

    // The register the entry's k-th integer argument arrives in.
    int EntryArg(int k) const { return m_cc.int_args[k]; }
    // A register kept across calls, saved by the prologue; -1 when none is
    // left.
    int TakeKept();
    // A register free in code that calls nothing: no entry argument, not
    // rax; -1 when none is left.
    int TakeFree();
    // TakeFree, or a kept register where the convention leaves too few free.
    int TakeAny();
    // The code may change xmm0 to xmm<last>: those a callee keeps are saved
    // by the prologue (all 128 bits of each).
    void UseXmms(int last) { m_last_xmm = last; }
    // Room for kScratchSlots values, addressed by Scratch.
    void ReserveScratch() { m_scratch = 8 * static_cast<std::int32_t>(kScratchSlots); }
    bool HasScratch() const { return m_scratch != 0; }
    Mem Scratch(std::int32_t byte) const { return {rsp, m_cc.shadow_space + byte}; }

    // Where an integer argument of a call goes: its register, or (reg < 0)
    // its stack slot. Stack slots are the scratch room's first slots: a call
    // passing arguments there keeps nothing else in them.
    struct IntArg {
        int reg;
        int slot;
    };
    // The next integer argument's place; false where it has none (the stack
    // is needed and the frame has no room, or too little).
    bool NextIntArg(ArgumentCursor& args, IntArg& out) const;
    // Sets an argument (rax carries what goes to the stack).
    void ArgImm64(const IntArg& a, std::uint64_t v);
    void ArgImm32(const IntArg& a, std::uint32_t v);
    void ArgReg(const IntArg& a, int src);
    void ArgLea(const IntArg& a, Mem m);

    // Saves the registers taken and makes the room (nothing for no frame),
    // leaving the stack aligned for calls. The code's entry must be the
    // emitter's first byte, where the prologue is described for unwinding.
    void Prologue();
    // Undoes the prologue, leaving every register not taken as it is.
    void Epilogue();
    // Calls function (rax is changed).
    void Call(std::uint64_t function);

    // The unwinder's description of the prologue for conventions that
    // register one (empty for the others); false where it cannot be written,
    // and the code must not run.
    bool UnwindInfo(std::vector<std::uint8_t>& out) const;

private:
    Emitter& m_em;
    const CallConvention& m_cc;
    int m_entry_args;
    int m_kept = 0;  // taken from the convention's callee-saved list
    int m_free = 0;  // looked at in its caller-saved list
    int m_last_xmm = -1;
    std::int32_t m_scratch = 0;
    std::int32_t m_size = 0;
    std::int32_t m_xmm_at = 0;  // where the kept xmm registers are saved
    int m_saved[8];
    int m_saved_count = 0;
    int m_xmm_count = 0;
    std::vector<PrologueStep> m_steps;
};

}  // namespace x64
}  // namespace vexa_compiled

#endif
