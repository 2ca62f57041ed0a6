#ifndef VEXA_COMPILED_A64_VALUE_LOWERING_H
#define VEXA_COMPILED_A64_VALUE_LOWERING_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vexa/compiled/aarch64/a64_emitter.h"
#include "vexa/compiled/program/program.h"

// The instructions of a program as AArch64 code computing its value. Every
// program register lives in its home (8 bytes a register from a base
// register); an instruction loads its operands into d registers, computes
// and stores its result home, so that a call, which may change every
// caller-saved register, loses nothing. Internal.
namespace vexa_compiled {
namespace a64 {

// Room below the frame record for the coefficients a series call takes
// beyond its lead arguments: the longest built-in takes 34 arguments.
constexpr std::uint32_t kScratchSlots = 34;
// The register homes are based in x19, kept across calls.
constexpr XReg kBase = x19;

class ValueLowering {
public:
    // Whether this back end writes in, its registers all the program's (a
    // hand-over in the middle leaves the program to the interpreter).
    static bool Takes(const Program& program, const Instr& in);

    // stop: the label of the handing over to the tree; thrown: of the
    // rethrow of a called calculator's exception.
    ValueLowering(Emitter& em, const Program& program, CallSpace* space, int stop, int thrown);

    // The code of in; false where it cannot be written (the emitter's own
    // faults are found by its Finish).
    bool Lower(const Instr& in);

private:
    void Load(DReg d, std::uint32_t reg) { m_em.LdrD(d, kBase, 8 * static_cast<std::int64_t>(reg)); }
    void Store(std::uint32_t reg, DReg d) { m_em.StrD(d, kBase, 8 * static_cast<std::int64_t>(reg)); }
    bool IsNonZeroConstant(std::uint32_t reg) const;
    const std::uint32_t* Args(const Instr& in) const { return m_program.argRegisters().data() + in.a; }

    void Arithmetic(const Instr& in);
    void Select(const Instr& in);
    bool Refusal(const Instr& in);
    bool Call(const Instr& in);
    bool CallOther(const Instr& in);
    bool Difference(const Instr& in);
    void HomeAddress(XReg d, std::uint32_t reg);

    Emitter& m_em;
    const Program& m_program;
    CallSpace* m_space;
    int m_stop;
    int m_thrown;
    int m_one;
    std::vector<bool> m_written;  // by register: a parameter or instruction writes it
};

}  // namespace a64
}  // namespace vexa_compiled

#endif
