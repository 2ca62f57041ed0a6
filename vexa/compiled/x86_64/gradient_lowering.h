#ifndef VEXA_COMPILED_GRADIENT_LOWERING_H
#define VEXA_COMPILED_GRADIENT_LOWERING_H

#include <cstddef>
#include <cstdint>

#include "vexa/compiled/form.h"
#include "vexa/compiled/x86_64/frame.h"
#include "vexa/compiled/x86_64/x64_emitter.h"
#include "vexa/compiled/x86_64/xmm_allocator.h"

// The one-point run's steps and its reverse sweep as x86-64 code: the four
// operations and the selections with their partials, and the sweep, written
// out; every other step is a call of its kernel or of the runner's own step.
// Internal.
namespace vexa_compiled {
namespace x64 {

// The registers the gradient code keeps across calls.
struct GradientRegisters {
    int regs;     // the unit's registers
    int tape;     // its partials
    int adjoint;  // the adjoints that give way in the sweep
    int call;     // the GradientCall
};

class GradientLowering {
public:
    // leave: the label that returns the answer in eax. xmms allocates
    // xmm4..xmm15; xmm0..xmm3 are scratch.
    GradientLowering(Emitter& em, Frame& frame, XmmAllocator& xmms, const Unit& unit, const GradientRegisters& regs,
                     int leave);

    // The parameters, from the point (whose address is in rax) to their
    // registers.
    void LoadParameters();
    // The code of one step; false where this back end does not take it.
    bool Lower(const Unit::Step& step);
    // The value, then the partials of the result by every argument.
    void Finish(int count);

private:
    static Mem At(int base, std::uint32_t index) { return {base, static_cast<std::int32_t>(8 * index)}; }
    Mem Reg(std::uint32_t r) const { return At(m_regs.regs, r); }
    Mem Tape(std::uint32_t position) const { return At(m_regs.tape, position); }

    void Arithmetic(const Unit::Step& step);
    void Selection(const Unit::Step& step);
    bool Builtin(const Unit::Step& step);
    bool Called(const Unit::Step& step);
    int Adjoint(std::uint32_t r);
    bool IsZero(std::uint32_t r) const;
    void Group(std::size_t begin, std::size_t end);
    void Sweep(int count);

    Emitter& m_em;
    Frame& m_frame;
    XmmAllocator& m_xmms;
    const Unit& m_unit;
    GradientRegisters m_regs;
    int m_leave;
    int m_one;
    int m_sign;
    int m_abs;
};

}  // namespace x64
}  // namespace vexa_compiled

#endif
