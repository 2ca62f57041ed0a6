#include "vexa/compiled/aarch64/a64_value_lowering.h"

#include <cstring>

#include "vexa/compiled/aarch64/a64_callees.h"
#include "vexa/compiled/machine_code.h"
#include "vexa/core/bits.h"

namespace vexa_compiled {
namespace a64 {

using vexa_core::Bits;

bool ValueLowering::Takes(const Program& program, const Instr& in)
{
    if (in.op >= kOpCount)
        return false;
    const Op op = static_cast<Op>(in.op);
    if (op == kReturn)
        return true;
    if (op == kStop)
        return false;
    const std::size_t registers = program.initialRegisters().size();
    auto inside = [&](std::uint32_t reg) { return reg < registers; };
    if (!inside(in.d))
        return false;
    switch (OperandsOf(op)) {
    case vexa_ops::Operands::kOne:
        return inside(in.a);
    case vexa_ops::Operands::kTwo:
        return inside(in.a) && inside(in.b);
    case vexa_ops::Operands::kList: {
        const std::vector<std::uint32_t>& args = program.argRegisters();
        if (in.a > args.size() || in.b > args.size() - in.a)
            return false;
        for (std::uint32_t k = 0; k < in.b; ++k) {
            if (!inside(args[in.a + k]))
                return false;
        }
        return true;
    }
    case vexa_ops::Operands::kNone:
        break;
    }
    return false;
}

ValueLowering::ValueLowering(Emitter& em, const Program& program, CallSpace* space, int stop, int thrown)
    : m_em(em), m_program(program), m_space(space), m_stop(stop), m_thrown(thrown)
{
    m_one = m_em.Constant(Bits(1.0));
    m_written.assign(program.initialRegisters().size(), false);
    for (const Instr& in : program.code()) {
        if (in.op != kReturn)
            m_written[in.d] = true;
    }
    for (const auto& load : program.paramLoads())
        m_written[load.second] = true;
}

bool ValueLowering::Lower(const Instr& in)
{
    switch (in.op) {
    case kAdd: case kSub: case kMul: case kDiv:
        Arithmetic(in);
        return true;
    case kMax: case kMin: case kSign: case kAbs:
        Select(in);
        return true;
    case kIf:
        if (in.b != 4)
            return false;
        Select(in);
        return true;
    case kSqrt:
        // Written out: fsqrt is the square root the library's own call
        // computes, correctly rounded.
        if (!Refusal(in))
            return false;
        Load(d0, in.a);
        m_em.FSqrt(d0, d0);
        Store(in.d, d0);
        return true;
    case kCall:
        return CallOther(in);
    case kNumDiff:
        return Difference(in);
    default:
        return Refusal(in) && Call(in);
    }
}

// A register no parameter and no instruction writes holds a constant of the
// start image; a normal one needs no check as a divisor (a subnormal is
// judged zero where the host flushes them).
bool ValueLowering::IsNonZeroConstant(std::uint32_t reg) const
{
    const std::uint64_t exponent = Bits(m_program.initialRegisters()[reg]) >> 52 & 0x7FF;
    return exponent != 0 && exponent != 0x7FF && !m_written[reg];
}

void ValueLowering::Arithmetic(const Instr& in)
{
    Load(d0, in.a);
    Load(d1, in.b);
    switch (in.op) {
    case kAdd:
        // The value arithmetic's order: the sum is b + a.
        m_em.FAdd(d0, d1, d0);
        break;
    case kSub:
        m_em.FSub(d0, d0, d1);
        break;
    case kMul:
        m_em.FMul(d0, d0, d1);
        break;
    default:
        if (!IsNonZeroConstant(in.b)) {
            // A zero divisor compares equal, a NaN unordered (V set).
            m_em.FCmpZero(d1);
            m_em.BCond(kEq, m_stop);
            m_em.BCond(kVs, m_stop);
        }
        m_em.FDiv(d0, d0, d1);
        break;
    }
    Store(in.d, d0);
}

// The selections only pick an argument or flip a sign: compares and fcsel
// with the conditions of their definitions, which a NaN (unordered) fails
// exactly where the C++ compare is false.
void ValueLowering::Select(const Instr& in)
{
    switch (in.op) {
    case kAbs:
        Load(d0, in.a);
        m_em.FAbs(d0, d0);
        break;
    case kMax:
        // a >= b ? a : b
        Load(d1, in.a);
        Load(d2, in.b);
        m_em.FCmp(d1, d2);
        m_em.FCsel(d0, d1, d2, kGe);
        break;
    case kMin:
        // b < a ? b : a
        Load(d1, in.a);
        Load(d2, in.b);
        m_em.FCmp(d2, d1);
        m_em.FCsel(d0, d2, d1, kMi);
        break;
    case kSign:
        // b > 0 ? |a| : -|a|
        Load(d1, in.a);
        Load(d2, in.b);
        m_em.FAbs(d1, d1);
        m_em.FNeg(d3, d1);
        m_em.FCmpZero(d2);
        m_em.FCsel(d0, d1, d3, kGt);
        break;
    default: {
        // x < 0 ? n : x == 0 ? z : p; a NaN x is neither, and takes p
        const std::uint32_t* regs = Args(in);
        Load(d1, regs[0]);
        Load(d2, regs[1]);
        Load(d3, regs[2]);
        Load(d4, regs[3]);
        m_em.FCmpZero(d1);
        m_em.FCsel(d3, d3, d4, kEq);
        m_em.FCsel(d0, d2, d3, kMi);
        break;
    }
    }
    Store(in.d, d0);
}

// The test of a one-argument built-in's refusal rule, to the tree where it
// refuses; a NaN passes every one. False for a rule not known here.
bool ValueLowering::Refusal(const Instr& in)
{
    if (in.op >= kOpCount)
        return false;
    switch (kRows[in.op].refusal) {
    case vexa_ops::Refusal::kNone:
        return true;
    case vexa_ops::Refusal::kSqrt:
        Load(d0, in.a);
        m_em.FCmpZero(d0);
        m_em.BCond(kMi, m_stop);  // below zero
        return true;
    case vexa_ops::Refusal::kLog:
        Load(d0, in.a);
        m_em.FCmpZero(d0);
        m_em.BCond(kLs, m_stop);  // at or below zero
        return true;
    case vexa_ops::Refusal::kArc:
        Load(d0, in.a);
        m_em.FAbs(d0, d0);
        m_em.LdrDConst(d1, m_one);
        m_em.FCmp(d0, d1);
        m_em.BCond(kGt, m_stop);  // outside [-1, 1]
        return true;
    default:
        return false;
    }
}

// Every other built-in, and the power, calls its formula: the arguments in
// d0..d7 in order, a series' coefficients from the scratch room at sp.
bool ValueLowering::Call(const Instr& in)
{
    if (in.op >= kOpCount)
        return false;
    const Op op = static_cast<Op>(in.op);
    const CallTarget target = CallTargetOf(op);
    if (!target.value)
        return false;
    switch (OperandsOf(op)) {
    case vexa_ops::Operands::kOne:
        Load(d0, in.a);
        break;
    case vexa_ops::Operands::kTwo:
        Load(d0, in.a);
        Load(d1, in.b);
        break;
    case vexa_ops::Operands::kList: {
        const std::uint32_t* regs = Args(in);
        // A fixed list is passed whole, a series' coefficients beyond its
        // lead; neither beyond what the function or the room takes.
        const std::uint32_t lead = target.lead >= 0 ? static_cast<std::uint32_t>(target.lead) : in.b;
        const std::uint32_t most = static_cast<std::uint32_t>(kRows[op].most);
        if (lead > 8 || in.b < lead || in.b - lead > kScratchSlots || in.b > most ||
            (target.lead < 0 && in.b != most))
            return false;
        for (std::uint32_t k = lead; k < in.b; ++k) {
            Load(d0, regs[k]);
            m_em.StrD(d0, sp, 8 * static_cast<std::int64_t>(k - lead));
        }
        for (std::uint32_t k = 0; k < lead; ++k)
            Load(static_cast<DReg>(k), regs[k]);
        if (target.lead >= 0) {
            m_em.MovReg(x0, sp);
            m_em.MovImm(x1, in.b - lead);
        }
        break;
    }
    case vexa_ops::Operands::kNone:
        return false;
    }
    m_em.MovImm(x17, target.value);
    m_em.Blr(x17);
    Store(in.d, d0);
    return true;
}

void ValueLowering::HomeAddress(XReg d, std::uint32_t reg)
{
    m_em.MovImm(d, 8 * static_cast<std::uint64_t>(reg));
    m_em.AddReg(d, kBase, d);
}

// Another calculator, called with its arguments read from their homes by
// the C++ in between, which writes the value home; it answers an int (the
// upper half of x0 undefined), told apart through its exact double.
bool ValueLowering::CallOther(const Instr& in)
{
    if (!m_space || in.b > m_space->args.size() || in.c >= m_program.calls().size())
        return false;
    m_em.MovImm(x0, reinterpret_cast<std::uint64_t>(m_space));
    m_em.MovImm(x1, reinterpret_cast<std::uint64_t>(m_program.calls()[in.c]));
    m_em.MovImm(x2, reinterpret_cast<std::uint64_t>(Args(in)));
    m_em.MovReg(x3, kBase);
    m_em.MovImm(x4, in.b);
    HomeAddress(x5, in.d);
    m_em.MovImm(x17, reinterpret_cast<std::uint64_t>(&CallCalculator));
    m_em.Blr(x17);
    const int done = m_em.NewLabel();
    m_em.ScvtfW(d0, x0);
    m_em.FCmpZero(d0);
    m_em.BCond(kEq, done);
    m_em.LdrDConst(d1, m_one);
    m_em.FCmp(d0, d1);
    m_em.BCond(kEq, m_stop);
    m_em.B(m_thrown);
    m_em.Bind(done);
    return true;
}

// A central difference: its arguments into the scratch room, the chain
// evaluated by the C++ the interpreter runs, its value written home.
bool ValueLowering::Difference(const Instr& in)
{
    if (in.b > kScratchSlots || in.c >= m_program.chains().size())
        return false;
    const std::uint32_t* regs = Args(in);
    for (std::uint32_t k = 0; k < in.b; ++k) {
        Load(d0, regs[k]);
        m_em.StrD(d0, sp, 8 * static_cast<std::int64_t>(k));
    }
    m_em.MovImm(x0, reinterpret_cast<std::uint64_t>(&m_program.chains()[in.c]));
    m_em.MovReg(x1, sp);
    m_em.MovImm(x2, in.b);
    HomeAddress(x3, in.d);
    m_em.MovImm(x17, reinterpret_cast<std::uint64_t>(&CallDifference));
    m_em.Blr(x17);
    m_em.ScvtfW(d0, x0);
    m_em.FCmpZero(d0);
    m_em.BCond(kEq, m_stop);
    return true;
}

}  // namespace a64
}  // namespace vexa_compiled
