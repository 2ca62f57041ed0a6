#include "vexa/compiled/x86_64/gradient_lowering.h"

#include <algorithm>
#include <vector>

#include "vexa/compiled/run/point_run.h"
#include "vexa/compiled/x86_64/callees.h"
#include "vexa/compiled/machine_gradient.h"

namespace vexa_compiled {
namespace x64 {

namespace {

constexpr std::uint64_t kOne = 0x3FF0000000000000ULL;
constexpr std::uint64_t kSignMask = 0x8000000000000000ULL;
constexpr std::uint64_t kAbsMask = 0x7FFFFFFFFFFFFFFFULL;

}  // namespace

GradientLowering::GradientLowering(Emitter& em, Frame& frame, XmmAllocator& xmms, const Unit& unit,
                                   const GradientRegisters& regs, int leave)
    : m_em(em), m_frame(frame), m_xmms(xmms), m_unit(unit), m_regs(regs), m_leave(leave)
{
    m_one = m_em.Constant(kOne);
    m_sign = m_em.Constant(kSignMask);
    m_abs = m_em.Constant(kAbsMask);
}

// Every value goes to its register in memory as well: called steps and
// built-ins read their arguments there, so a value giving way needs no
// saving.
void GradientLowering::LoadParameters()
{
    m_xmms.Reset(m_unit.program->initialRegisters().size(), m_regs.regs, true);
    for (const auto& load : m_unit.program->paramLoads()) {
        const int x = m_xmms.Take(load.second, 0);
        m_em.MovsdLoad(x, {rax, 8 * load.first});
        m_em.MovsdStore(Reg(load.second), x);
        m_xmms.Unpin();
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
        // Every other built-in through its gradient kernel; the program's
        // own instructions as the runner's step, called.
        return step.op < kOpCount && IsBuiltin(static_cast<Op>(step.op)) ? Builtin(step) : Called(step);
    }
}

// The value arithmetic's operand order (the sum is b + a) and the runner's
// partials: of a product its other operand, of a quotient 1 / divisor and
// -q / divisor; those of a sum or difference never change and are in the
// tape already.
void GradientLowering::Arithmetic(const Unit::Step& step)
{
    const std::uint32_t* o = m_unit.operands.data() + step.first;
    const Mem t0 = Tape(step.first);
    const Mem t1 = Tape(step.first + 1);
    if (step.op == kDiv) {
        const int b = m_xmms.Load(o[1], 0);
        const int goes = m_em.NewLabel();
        // Zero or NaN divisor: equal or unordered both set ZF.
        m_em.Xorpd(0, 0);
        m_em.Ucomisd(0, b);
        m_em.Jump(kNotEqual, goes);
        m_em.MovImm32(rax, kZeroDivisor);
        m_em.Jump(m_leave);
        m_em.Bind(goes);
    }
    const int a = m_xmms.Load(o[0], 0);
    const int b = m_xmms.Load(o[1], 0);
    const int d = m_xmms.Take(step.d, 0);
    switch (step.op) {
    case kAdd:
        m_em.Movapd(d, b);
        m_em.Arith(0x58, d, a);
        break;
    case kSub:
        m_em.Movapd(d, a);
        m_em.Arith(0x5C, d, b);
        break;
    case kMul:
        m_em.Movapd(d, a);
        m_em.Arith(0x59, d, b);
        if (step.active) {
            m_em.MovsdStore(t0, b);
            m_em.MovsdStore(t1, a);
        }
        break;
    default:  // kDiv
        m_em.Movapd(d, a);
        m_em.Arith(0x5E, d, b);
        if (step.active) {
            m_em.MovsdLoadPool(2, m_one);
            m_em.Arith(0x5E, 2, b);
            m_em.MovsdStore(t0, 2);
            m_em.Movapd(3, d);
            m_em.XorpdPool(3, m_sign);
            m_em.Arith(0x5E, 3, b);
            m_em.MovsdStore(t1, 3);
        }
        break;
    }
    m_em.MovsdStore(Reg(step.d), d);
    m_xmms.Unpin();
}

// ABS, SIGN, MAX and MIN written out: their values as the value's machine
// code selects them, their partials (each 0, 1 or -1) as SelectionGradient
// gives them. A call would cost more than all of it.
void GradientLowering::Selection(const Unit::Step& step)
{
    const std::uint32_t* o = m_unit.operands.data() + step.first;
    const Mem t0 = Tape(step.first);
    const Mem t1 = Tape(step.first + 1);
    const int a = m_xmms.Load(o[0], 0);
    const int b = step.op == kAbs ? a : m_xmms.Load(o[1], 0);
    const int d = m_xmms.Take(step.d, 0);
    const int done = m_em.NewLabel();
    m_em.Xorpd(1, 1);
    m_em.MovsdLoadPool(2, m_one);
    if (step.op == kAbs || step.op == kSign) {
        // |a|, negated unless b > 0 (SIGN); slopes: d|a|/da is 1 for a > 0,
        // otherwise -1 (NaN included), times -1 where the value is negated.
        const int positive = m_em.NewLabel();
        m_em.Movapd(d, a);
        m_em.AndpdPool(d, m_abs);
        m_em.Movapd(0, 2);
        m_em.Ucomisd(a, 1);
        m_em.Jump(kAbove, positive);
        m_em.XorpdPool(0, m_sign);
        m_em.Bind(positive);
        if (step.op == kSign) {
            m_em.Ucomisd(b, 1);
            m_em.Jump(kAbove, done);
            m_em.XorpdPool(d, m_sign);
            m_em.XorpdPool(0, m_sign);
        }
        m_em.Bind(done);
        if (step.active) {
            m_em.MovsdStore(t0, 0);
            if (step.op == kSign)
                m_em.MovsdStore(t1, 1);
        }
    } else {
        // MAX: a >= b ? a : b; MIN: b < a ? b : a. The partial is 1 for the
        // argument taken and 0 for the other.
        const int first = m_em.NewLabel();
        m_em.Ucomisd(a, b);
        if (step.op == kMax)
            m_em.Jump(kAboveOrEqual, first);
        else
            m_em.Jump(kBelowOrEqual, first);
        m_em.Movapd(d, b);
        if (step.active) {
            m_em.MovsdStore(t0, 1);
            m_em.MovsdStore(t1, 2);
        }
        m_em.Jump(done);
        m_em.Bind(first);
        m_em.Movapd(d, a);
        if (step.active) {
            m_em.MovsdStore(t0, 2);
            m_em.MovsdStore(t1, 1);
        }
        m_em.Bind(done);
    }
    m_em.MovsdStore(Reg(step.d), d);
    m_xmms.Unpin();
}

// The arguments go to the scratch room; the op's own kernel writes the value
// straight to its register, the partials to the tape (none where the result
// depends on no parameter). False for a list longer than the room. Called
// code may change every xmm register: nothing is held after it.
bool GradientLowering::Builtin(const Unit::Step& step)
{
    ArgumentCursor args(m_frame.convention());
    int reg[4];
    for (int& r : reg) {
        if ((r = args.NextInt()) < 0)
            return false;
    }
    if (step.count > kScratchSlots || !m_frame.HasScratch())
        return false;
    const std::uint32_t* o = m_unit.operands.data() + step.first;
    for (std::uint32_t k = 0; k < step.count; ++k) {
        int x = m_xmms.Find(o[k]);
        if (x == XmmAllocator::kNone) {
            x = 0;
            m_em.MovsdLoad(0, Reg(o[k]));
        }
        m_em.MovsdStore(m_frame.Scratch(static_cast<std::int32_t>(8 * k)), x);
    }
    m_em.Lea(reg[0], m_frame.Scratch(0));
    m_em.MovImm32(reg[1], step.count);
    m_em.Lea(reg[2], Reg(step.d));
    if (step.active)
        m_em.Lea(reg[3], Tape(step.first));
    else
        m_em.MovImm32(reg[3], 0);
    m_frame.Call(CallTargetOf(static_cast<Op>(step.op)).gradient);
    m_em.CmpImm32(rax, kGoes);
    m_em.Jump(kNotEqual, m_leave);
    m_xmms.Clear();
    return true;
}

bool GradientLowering::Called(const Unit::Step& step)
{
    ArgumentCursor args(m_frame.convention());
    Frame::IntArg arg[5];
    for (Frame::IntArg& a : arg) {
        if (!m_frame.NextIntArg(args, a))
            return false;
    }
    // Those on the stack first: setting them goes through rax only.
    for (int pass = 0; pass < 2; ++pass) {
        auto mine = [&](int k) { return (arg[k].reg < 0) == (pass == 0); };
        if (mine(0))
            m_frame.ArgImm64(arg[0], reinterpret_cast<std::uint64_t>(&m_unit));
        if (mine(1))
            m_frame.ArgReg(arg[1], m_regs.call);
        if (mine(2))
            m_frame.ArgImm64(arg[2], reinterpret_cast<std::uint64_t>(&step));
        if (mine(3))
            m_frame.ArgReg(arg[3], m_regs.regs);
        if (mine(4))
            m_frame.ArgReg(arg[4], m_regs.tape);
    }
    m_frame.Call(Address(&CallStep));
    m_em.CmpImm32(rax, kGoes);
    m_em.Jump(kNotEqual, m_leave);
    m_xmms.Clear();
    return true;
}

}  // namespace x64
}  // namespace vexa_compiled
