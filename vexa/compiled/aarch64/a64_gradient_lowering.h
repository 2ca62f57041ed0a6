#ifndef VEXA_COMPILED_A64_GRADIENT_LOWERING_H
#define VEXA_COMPILED_A64_GRADIENT_LOWERING_H

#include <cstdint>
#include <vector>

#include "vexa/compiled/aarch64/a64_emitter.h"
#include "vexa/compiled/aarch64/a64_value_lowering.h"
#include "vexa/compiled/form.h"

// The one-point run's steps and its reverse sweep as AArch64 code: the four
// operations and the selections with their partials, and the sweep, written
// out; every other built-in is a call of its gradient kernel, every other
// instruction a call of the runner's own step. As in the value code, every
// value and every adjoint lives in its slot in memory between instructions,
// so a call loses nothing. Internal.
namespace vexa_compiled {
namespace a64 {

// Kept across calls: the unit's registers (in kBase), their partials, the
// adjoints and the GradientCall.
constexpr XReg kTape = x20;
constexpr XReg kAdjoint = x21;
constexpr XReg kCall = x22;

class GradientLowering {
public:
    // leave: the label that returns the answer in w0.
    GradientLowering(Emitter& em, const Unit& unit, int leave);

    // The parameters, from the point, to their registers.
    void LoadParameters();
    // The code of one step; false where this back end does not take it.
    bool Lower(const Unit::Step& step);
    // The value, then the partials of the result by every argument; the
    // answer in w0, then on to leave.
    void Finish(int count);

private:
    void Load(DReg d, std::uint32_t r) { m_em.LdrD(d, kBase, 8 * static_cast<std::int64_t>(r)); }
    void Store(std::uint32_t r, DReg d) { m_em.StrD(d, kBase, 8 * static_cast<std::int64_t>(r)); }
    void Partial(std::uint32_t position, DReg d) { m_em.StrD(d, kTape, 8 * static_cast<std::int64_t>(position)); }
    void Address(XReg d, XReg base, std::uint32_t slot);

    void Arithmetic(const Unit::Step& step);
    void Selection(const Unit::Step& step);
    bool Builtin(const Unit::Step& step);
    void Called(const Unit::Step& step);
    void Group(std::size_t begin, std::size_t end);
    void Sweep(int count);

    Emitter& m_em;
    const Unit& m_unit;
    int m_leave;
    int m_zeroDivisor;
    int m_one;
    int m_minusOne;
    // By register: whether its adjoint's slot holds this run's adjoint; one
    // that does not is still 0.
    std::vector<bool> m_current;
};

}  // namespace a64
}  // namespace vexa_compiled

#endif
