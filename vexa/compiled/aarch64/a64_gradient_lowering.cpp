#include "vexa/compiled/aarch64/a64_gradient_lowering.h"

#include <cstddef>
#include <cstring>

#include "vexa/compiled/machine_gradient.h"
#include "vexa/compiled/run/builtin_gradient.h"
#include "vexa/core/bits.h"

namespace vexa_compiled {
namespace a64 {

namespace {

using vexa_core::Bits;

template <class F>
std::uint64_t AddressOf(F* f)
{
    return reinterpret_cast<std::uint64_t>(f);
}

std::int64_t Field(std::size_t offset)
{
    return static_cast<std::int64_t>(offset);
}

std::int64_t Slot(std::uint32_t index)
{
    return 8 * static_cast<std::int64_t>(index);
}

// Up to this many partials are cleared one store each, more by a loop.
constexpr int kUnrolledClears = 16;

}  // namespace

GradientLowering::GradientLowering(Emitter& em, const Unit& unit, int leave)
    : m_em(em), m_unit(unit), m_leave(leave)
{
    m_zeroDivisor = m_em.NewLabel();
    m_one = m_em.Constant(Bits(1.0));
    m_minusOne = m_em.Constant(Bits(-1.0));
}

void GradientLowering::Address(XReg d, XReg base, std::uint32_t slot)
{
    m_em.MovImm(d, 8 * static_cast<std::uint64_t>(slot));
    m_em.AddReg(d, base, d);
}

void GradientLowering::LoadParameters()
{
    m_em.LdrX(x9, kCall, Field(offsetof(GradientCall, args)));
    for (const auto& load : m_unit.program->paramLoads()) {
        m_em.LdrD(d0, x9, Slot(static_cast<std::uint32_t>(load.first)));
        Store(load.second, d0);
    }
}

bool GradientLowering::Lower(const Unit::Step& step)
{
    switch (step.op) {
    case kAdd: case kSub: case kMul: case kDiv:
        Arithmetic(step);
        return true;
    case kAbs: case kSign: case kMax: case kMin:
        Selection(step);
        return true;
    default:
        if (step.op < kOpCount && IsBuiltin(static_cast<Op>(step.op)))
            return Builtin(step);
        Called(step);
        return true;
    }
}

// The value arithmetic's operand order (the sum is b + a) and the runner's
// partials: of a product its other operand, of a quotient 1 / divisor and
// -q / divisor; those of a sum or difference never change and are in the
// tape already.
void GradientLowering::Arithmetic(const Unit::Step& step)
{
    const std::uint32_t* o = m_unit.operands.data() + step.first;
    Load(d0, o[0]);
    Load(d1, o[1]);
    switch (step.op) {
    case kAdd:
        m_em.FAdd(d2, d1, d0);
        break;
    case kSub:
        m_em.FSub(d2, d0, d1);
        break;
    case kMul:
        m_em.FMul(d2, d0, d1);
        if (step.active) {
            Partial(step.first, d1);
            Partial(step.first + 1, d0);
        }
        break;
    default:  // kDiv
        // A zero divisor compares equal, a NaN unordered (V set).
        m_em.FCmpZero(d1);
        m_em.BCond(kEq, m_zeroDivisor);
        m_em.BCond(kVs, m_zeroDivisor);
        m_em.FDiv(d2, d0, d1);
        if (step.active) {
            m_em.LdrDConst(d3, m_one);
            m_em.FDiv(d3, d3, d1);
            Partial(step.first, d3);
            m_em.FNeg(d4, d2);
            m_em.FDiv(d4, d4, d1);
            Partial(step.first + 1, d4);
        }
        break;
    }
    Store(step.d, d2);
}

// ABS, SIGN, MAX and MIN written out: their values selected as the value
// code selects them, their partials (each 0, 1 or -1) picked by the same
// compares, which a NaN fails exactly where the formulas' do. A call would
// cost more than all of it.
void GradientLowering::Selection(const Unit::Step& step)
{
    const std::uint32_t* o = m_unit.operands.data() + step.first;
    Load(d0, o[0]);
    if (step.op != kAbs)
        Load(d1, o[1]);
    if (step.active) {
        m_em.LdrDConst(d3, m_one);
        m_em.LdrDConst(d4, m_minusOne);
        m_em.FMovFromX(d7, xzr);
    }
    switch (step.op) {
    case kAbs:
        m_em.FAbs(d2, d0);
        if (step.active) {
            // d|a|/da: 1 for a > 0, otherwise -1 (NaN included).
            m_em.FCmpZero(d0);
            m_em.FCsel(d5, d3, d4, kGt);
            Partial(step.first, d5);
        }
        break;
    case kSign:
        // b > 0 ? |a| : -|a|; its slope that of |a|, negated with it.
        m_em.FAbs(d2, d0);
        m_em.FNeg(d6, d2);
        m_em.FCmpZero(d1);
        m_em.FCsel(d2, d2, d6, kGt);
        if (step.active) {
            m_em.FCmpZero(d0);
            m_em.FCsel(d5, d3, d4, kGt);
            m_em.FNeg(d6, d5);
            m_em.FCmpZero(d1);
            m_em.FCsel(d5, d5, d6, kGt);
            Partial(step.first, d5);
            Partial(step.first + 1, d7);
        }
        break;
    case kMax:
        // a >= b ? a : b; the partial is 1 for the argument taken, 0 for the
        // other.
        m_em.FCmp(d0, d1);
        m_em.FCsel(d2, d0, d1, kGe);
        if (step.active) {
            m_em.FCsel(d5, d3, d7, kGe);
            m_em.FCsel(d6, d7, d3, kGe);
        }
        break;
    default:  // kMin
        // b < a ? b : a
        m_em.FCmp(d1, d0);
        m_em.FCsel(d2, d1, d0, kMi);
        if (step.active) {
            m_em.FCsel(d5, d7, d3, kMi);
            m_em.FCsel(d6, d3, d7, kMi);
        }
        break;
    }
    if (step.active && (step.op == kMax || step.op == kMin)) {
        Partial(step.first, d5);
        Partial(step.first + 1, d6);
    }
    Store(step.d, d2);
}

// The arguments go to the scratch room; the op's own kernel writes the value
// straight to its register, the partials to the tape (none where the result
// depends on no parameter). False for a list longer than the room.
bool GradientLowering::Builtin(const Unit::Step& step)
{
    const GradientKernel kernel = BuiltinGradientKernel(static_cast<Op>(step.op));
    if (!kernel || step.count > kScratchSlots)
        return false;
    const std::uint32_t* o = m_unit.operands.data() + step.first;
    for (std::uint32_t k = 0; k < step.count; ++k) {
        Load(d0, o[k]);
        m_em.StrD(d0, sp, Slot(k));
    }
    m_em.MovReg(x0, sp);
    m_em.MovImm(x1, step.count);
    Address(x2, kBase, step.d);
    if (step.active)
        Address(x3, kTape, step.first);
    else
        m_em.MovImm(x3, 0);
    m_em.MovImm(x17, AddressOf(kernel));
    m_em.Blr(x17);
    m_em.CmpImmW(x0, kGoes);
    m_em.BCond(kNe, m_leave);
    return true;
}

void GradientLowering::Called(const Unit::Step& step)
{
    m_em.MovImm(x0, reinterpret_cast<std::uint64_t>(&m_unit));
    m_em.MovReg(x1, kCall);
    m_em.MovImm(x2, reinterpret_cast<std::uint64_t>(&step));
    m_em.MovReg(x3, kBase);
    m_em.MovReg(x4, kTape);
    m_em.MovImm(x17, AddressOf(&CallStep));
    m_em.Blr(x17);
    m_em.CmpImmW(x0, kGoes);
    m_em.BCond(kNe, m_leave);
}

// adjoint[operand] += adjoint[result] * partial for the entries of one
// instruction, skipped where its adjoint is 0 (a value that cannot reach the
// result adds nothing, even through an infinite partial): the runner's
// operations in the runner's order. Every adjoint the entries add to is set
// before the test, so that both ways on leave it in its slot.
void GradientLowering::Group(std::size_t begin, std::size_t end)
{
    const std::vector<Unit::Back>& backs = m_unit.backs;
    const std::uint32_t result = backs[begin].result;
    // Known to be 0 here: the runner skips it too.
    if (!m_current[result])
        return;
    for (std::size_t i = begin; i < end; ++i) {
        const std::uint32_t r = backs[i].operand;
        if (!m_current[r]) {
            m_em.StrX(xzr, kAdjoint, Slot(r));
            m_current[r] = true;
        }
    }
    // The result is none of its operands (GradientCodeTakes): its adjoint
    // stays as read here.
    const int skip = m_em.NewLabel();
    m_em.LdrD(d0, kAdjoint, Slot(result));
    m_em.FCmpZero(d0);
    m_em.BCond(kEq, skip);  // a NaN is unordered and goes on
    for (std::size_t i = begin; i < end; ++i) {
        m_em.LdrD(d1, kTape, Slot(backs[i].position));
        m_em.FMul(d1, d0, d1);
        m_em.LdrD(d2, kAdjoint, Slot(backs[i].operand));
        m_em.FAdd(d2, d2, d1);
        m_em.StrD(d2, kAdjoint, Slot(backs[i].operand));
    }
    m_em.Bind(skip);
}

// adjoint[result] = 1, then the entries of each instruction, last
// instruction first; then every partial 0 and those of the parameters from
// their adjoints.
void GradientLowering::Sweep(int count)
{
    const Program& p = *m_unit.program;
    m_current.assign(p.initialRegisters().size(), false);
    m_em.LdrDConst(d0, m_one);
    m_em.StrD(d0, kAdjoint, Slot(p.resultRegister()));
    m_current[p.resultRegister()] = true;
    ForEachBackGroup(m_unit, [this](std::size_t begin, std::size_t end) { Group(begin, end); });

    m_em.LdrX(x9, kCall, Field(offsetof(GradientCall, grad)));
    if (count <= kUnrolledClears) {
        for (int k = 0; k < count; ++k)
            m_em.StrX(xzr, x9, Slot(static_cast<std::uint32_t>(k)));
    } else {
        const int top = m_em.NewLabel();
        m_em.MovImm(x10, static_cast<std::uint64_t>(count));
        m_em.Bind(top);
        m_em.SubImm(x10, x10, 1);
        m_em.StrXIndex(xzr, x9, x10, true);
        m_em.Cbnz(x10, top);
    }
    for (const auto& load : p.paramLoads()) {
        if (!m_current[load.second])
            continue;
        m_em.LdrD(d0, kAdjoint, Slot(load.second));
        m_em.StrD(d0, x9, Slot(static_cast<std::uint32_t>(load.first)));
    }
}

void GradientLowering::Finish(int count)
{
    Load(d0, m_unit.program->resultRegister());
    m_em.StrD(d0, kCall, Field(offsetof(GradientCall, value)));
    Sweep(count);
    m_em.MovImm(x0, kGoes);
    m_em.B(m_leave);
    m_em.Bind(m_zeroDivisor);
    m_em.MovImm(x0, kZeroDivisor);
}

}  // namespace a64
}  // namespace vexa_compiled
