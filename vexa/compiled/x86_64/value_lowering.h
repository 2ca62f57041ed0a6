#ifndef VEXA_COMPILED_VALUE_LOWERING_H
#define VEXA_COMPILED_VALUE_LOWERING_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vexa/compiled/program/program.h"
#include "vexa/compiled/x86_64/callees.h"
#include "vexa/compiled/x86_64/frame.h"
#include "vexa/compiled/x86_64/x64_emitter.h"
#include "vexa/compiled/x86_64/xmm_allocator.h"

// The instructions of a program as x86-64 code computing its value, the
// values in xmm registers. Internal.
namespace vexa_compiled {
namespace x64 {

class ValueLowering {
public:
    // The registers in reads (nothing for kReturn and kStop); false for an
    // op this back end does not take.
    static bool Operands(const Program& program, const Instr& in, std::vector<std::uint32_t>& out);
    // Whether in's code may call, which asks for a frame.
    static bool Calls(const Instr& in);

    // stop: the label of the handing over to the tree; thrown: of the
    // rethrow of a called calculator's exception. base holds the program's
    // registers.
    ValueLowering(Emitter& em, Frame& frame, XmmAllocator& xmms, const Program& program, CallSpace* space,
                  int base, int stop, int thrown);

    // The code of instruction in at position at; false where this back end
    // does not take it (the interpreter then runs the whole program).
    bool Lower(const Instr& in, std::size_t at);

private:
    bool IsNonZeroConstant(std::uint32_t reg) const;
    void LoadTo(int xmm, std::uint32_t reg) { m_em.MovsdLoad(xmm, m_xmms.Home(reg)); }
    void MoveTo(int xmm, std::uint32_t reg);
    void CompareWith(int xmm, std::uint32_t reg);
    void DefineFromXmm0(std::uint32_t reg);
    const std::uint32_t* Args(const Instr& in) const { return m_program.argRegisters().data() + in.a; }

    void Arithmetic(const Instr& in, std::size_t at);
    bool Unary(const Instr& in, std::size_t at);
    bool Call(const Instr& in, std::size_t at);
    void Select(const Instr& in, std::size_t at);
    void PolynomialStep(const Instr& in, std::size_t at);
    bool List(const Instr& in, std::size_t at);
    void WriteArgs(const Instr& in, std::uint32_t from, std::int32_t at = 0);
    bool Difference(const Instr& in, std::size_t at);
    bool CallShifted(const CallTarget& target, const Instr& in, int shifted, bool up);
    bool CallOther(const Instr& in, std::size_t at);

    Emitter& m_em;
    Frame& m_frame;
    XmmAllocator& m_xmms;
    const Program& m_program;
    CallSpace* m_space;
    int m_base;
    int m_stop;
    int m_thrown;
    std::vector<bool> m_written;  // by register: a parameter or instruction writes it
    std::vector<std::uint32_t> m_ops;
    int m_abs;
    int m_one;
    int m_zero;
    int m_sign;
    int m_three;
    int m_six;
    int m_ten;
    int m_fifteen;
    int m_step;  // the step of the central difference
    int m_two_steps;
};

}  // namespace x64
}  // namespace vexa_compiled

#endif
