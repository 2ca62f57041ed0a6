#include "vexa/compiled/x86_64/value_lowering.h"

#include <cstring>
#include <limits>

#include "vexa/core/float_ops.h"
#include "vexa/core/bits.h"

namespace vexa_compiled {
namespace x64 {

namespace {

constexpr std::uint64_t kAbsMask = 0x7FFFFFFFFFFFFFFFULL;
constexpr std::uint64_t kOne = 0x3FF0000000000000ULL;

using vexa_core::Bits;

}  // namespace

bool ValueLowering::Operands(const Program& program, const Instr& in, std::vector<std::uint32_t>& out)
{
    out.clear();
    // An op this back end does not know: its operands are not read as
    // anything, and the program is left to the interpreter.
    if (in.op >= kOpCount)
        return false;
    switch (OperandsOf(static_cast<Op>(in.op))) {
    case vexa_ops::Operands::kNone:
        return true;
    case vexa_ops::Operands::kTwo:
        out.push_back(in.a);
        out.push_back(in.b);
        return true;
    case vexa_ops::Operands::kOne:
        out.push_back(in.a);
        return true;
    case vexa_ops::Operands::kList: {
        const std::uint32_t* regs = program.argRegisters().data() + in.a;
        out.assign(regs, regs + in.b);
        return true;
    }
    }
    return false;
}

bool ValueLowering::Calls(const Instr& in)
{
    switch (in.op) {
    case kAdd: case kSub: case kMul: case kDiv: case kAbs: case kSqrt: case kAint:
    case kMax: case kMin: case kSign: case kIf: case kStep: case kStep5: case kReturn:
        return false;
    default:
        return true;
    }
}

ValueLowering::ValueLowering(Emitter& em, Frame& frame, XmmAllocator& xmms, const Program& program,
                             CallSpace* space, int base, int stop, int thrown)
    : m_em(em), m_frame(frame), m_xmms(xmms), m_program(program), m_space(space), m_base(base), m_stop(stop),
      m_thrown(thrown)
{
    m_written.assign(program.initialRegisters().size(), false);
    for (const Instr& in : program.code()) {
        if (in.op != kReturn)
            m_written[in.d] = true;
    }
    for (const auto& load : program.paramLoads())
        m_written[load.second] = true;
    m_abs = m_em.Constant(kAbsMask);
    m_one = m_em.Constant(kOne);
    m_zero = m_em.Constant(0);
    m_sign = m_em.Constant(~kAbsMask);
    m_three = m_em.Constant(Bits(3));
    m_six = m_em.Constant(Bits(6));
    m_ten = m_em.Constant(Bits(10));
    m_fifteen = m_em.Constant(Bits(15));
    const double h = 0.001;
    m_step = m_em.Constant(Bits(h));
    m_two_steps = m_em.Constant(Bits(vexa_core::Sum(h, h)));
}

bool ValueLowering::Lower(const Instr& in, std::size_t at)
{
    switch (in.op) {
    case kAdd: case kSub: case kMul: case kDiv:
        Arithmetic(in, at);
        return true;
    case kMax: case kMin: case kSign: case kIf:
        Select(in, at);
        return true;
    case kStep: case kStep5:
        PolynomialStep(in, at);
        return true;
    case kAbs: case kSqrt: case kAint:
        return Unary(in, at);
    case kNumDiff:
        return Difference(in, at);
    case kCall:
        return CallOther(in, at);
    default:
        // Every other built-in (and the power) calls its formula: by its
        // operand shape, after the test of its refusal rule.
        if (in.op >= kOpCount || !(IsBuiltin(static_cast<Op>(in.op)) || in.op == kPow))
            return false;
        switch (OperandsOf(static_cast<Op>(in.op))) {
        case vexa_ops::Operands::kOne:
            return kRows[in.op].refusal == Refusal::kNone ? Call(in, at) : Unary(in, at);
        case vexa_ops::Operands::kTwo:
            return kRows[in.op].refusal == Refusal::kNone && Call(in, at);
        case vexa_ops::Operands::kList:
            return kRows[in.op].refusal == Refusal::kNone && List(in, at);
        case vexa_ops::Operands::kNone:
            break;
        }
        return false;
    }
}

// A register no parameter and no instruction writes holds a constant of the
// start image; a normal one needs no check as a divisor.
bool ValueLowering::IsNonZeroConstant(std::uint32_t reg) const
{
    // Judged by its bits: a subnormal is zero under denormals-are-zero.
    const std::uint64_t exponent = Bits(m_program.initialRegisters()[reg]) >> 52 & 0x7FF;
    return !m_written[reg] && exponent != 0 && exponent != 0x7FF;
}

void ValueLowering::MoveTo(int xmm, std::uint32_t reg)
{
    const int held = m_xmms.Held(reg);
    if (held == xmm)
        return;
    if (held != XmmAllocator::kNone)
        m_em.Movapd(xmm, held);
    else
        LoadTo(xmm, reg);
}

void ValueLowering::CompareWith(int xmm, std::uint32_t reg)
{
    const int held = m_xmms.Held(reg);
    if (held != XmmAllocator::kNone)
        m_em.Ucomisd(xmm, held);
    else
        m_em.Ucomisd(xmm, m_xmms.Home(reg));
}

// After a call every xmm register is free.
void ValueLowering::DefineFromXmm0(std::uint32_t reg)
{
    const int x = m_xmms.Free(std::numeric_limits<std::ptrdiff_t>::max() - 1);
    m_em.Movapd(x, 0);
    m_xmms.Define(reg, x);
}

void ValueLowering::Arithmetic(const Instr& in, std::size_t at)
{
    // The value arithmetic's operand order: the sum is b + a.
    const std::uint32_t first = in.op == kAdd ? in.b : in.a;
    const std::uint32_t second = in.op == kAdd ? in.a : in.b;
    const std::uint8_t code = in.op == kAdd ? 0x58 : in.op == kSub ? 0x5C : in.op == kMul ? 0x59 : 0x5E;
    if (in.op == kDiv && !IsNonZeroConstant(second)) {
        // Zero or NaN divisor: equal or unordered both set ZF.
        m_em.Xorpd(0, 0);
        CompareWith(0, second);
        m_em.Jump(kEqual, m_stop);
    }
    const int x = m_xmms.Target(first, second, at);
    const int held = m_xmms.Held(second);
    if (held != XmmAllocator::kNone)
        m_em.Arith(code, x, held);
    else
        m_em.Arith(code, x, m_xmms.Home(second));
    m_ops.assign({first, second});
    m_xmms.ReleaseDead(m_ops, at);
    m_xmms.Define(in.d, x);
}

// The one-argument built-ins that are written out, or checked before their
// call.
bool ValueLowering::Unary(const Instr& in, std::size_t at)
{
    const std::uint32_t arg = in.a;
    m_ops.assign({arg});
    if (in.op == kAbs || in.op == kSqrt) {
        // Refused below zero; a NaN passes, as ucomisd leaves it unordered.
        if (in.op == kSqrt) {
            m_em.Xorpd(0, 0);
            CompareWith(0, arg);
            m_em.Jump(kAbove, m_stop);
        }
        const int x = m_xmms.Target(arg, arg + 1, at);
        if (in.op == kAbs)
            m_em.AndpdPool(x, m_abs);
        else
            m_em.Arith(0x51, x, x);
        m_xmms.ReleaseDead(m_ops, at);
        m_xmms.Define(in.d, x);
        return true;
    }
    if (in.op == kAint) {
        // vexa_platform::Trunc32's range test first: out of range (or NaN)
        // the answer is INT_MIN without a conversion, which would raise the
        // invalid operation the tree does not.
        const int src = m_xmms.Load(arg, at);
        const int outside = m_em.NewLabel();
        const int convert = m_em.NewLabel();
        m_em.UcomisdPool(src, m_em.Constant(0xC1E0000000200000ULL));  // -2147483649
        m_em.Jump(kBelowOrEqual, outside);
        m_em.UcomisdPool(src, m_em.Constant(0x41E0000000000000ULL));  // 2147483648
        m_em.Jump(kAboveOrEqual, outside);
        m_em.Cvttsd2si(rax, src);
        m_em.Jump(convert);
        m_em.Bind(outside);
        m_em.MovImm32(rax, 0x80000000u);
        m_em.Bind(convert);
        m_xmms.ReleaseDead(m_ops, at);
        const int x = m_xmms.Free(static_cast<std::ptrdiff_t>(at));
        m_em.Xorpd(x, x);
        m_em.Cvtsi2sd(x, rax);
        m_xmms.Define(in.d, x);
        return true;
    }
    const Refusal refusal = kRows[in.op].refusal;
    if (refusal == Refusal::kSqrt) {
        // Refused below zero; a NaN passes.
        m_em.Xorpd(0, 0);
        CompareWith(0, arg);
        m_em.Jump(kAbove, m_stop);
    } else if (refusal == Refusal::kLog) {
        // Refused at and below zero; a NaN passes.
        m_em.Xorpd(0, 0);
        CompareWith(0, arg);
        m_em.Jump(kAboveOrEqual, m_stop);
    } else if (refusal == Refusal::kArc) {
        // Refused outside [-1, 1].
        MoveTo(0, arg);
        m_em.AndpdPool(0, m_abs);
        m_em.UcomisdPool(0, m_one);
        m_em.Jump(kAbove, m_stop);
    } else if (refusal != Refusal::kNone) {
        return false;
    }
    return Call(in, at);
}

// MAX, MIN, SIGN and IF only pick an argument or flip a sign, so they are
// written out with the compares of their definitions (a NaN compares
// unordered, which every branch below treats as the definitions do).
void ValueLowering::Select(const Instr& in, std::size_t at)
{
    Operands(m_program, in, m_ops);
    const std::vector<std::uint32_t>& ops = m_ops;
    const int done = m_em.NewLabel();
    int x;
    if (in.op == kMax) {
        // a >= b ? a : b
        x = m_xmms.Target(ops[0], ops[1], at);
        CompareWith(x, ops[1]);
        m_em.Jump(kAboveOrEqual, done);
        MoveTo(x, ops[1]);
    } else if (in.op == kMin) {
        // minsd b, a: vexa_math::Min's own instruction
        x = m_xmms.Target(ops[1], ops[0], at);
        const int held = m_xmms.Held(ops[0]);
        if (held != XmmAllocator::kNone)
            m_em.Arith(0x5D, x, held);
        else
            m_em.Arith(0x5D, x, m_xmms.Home(ops[0]));
    } else if (in.op == kSign) {
        // b > 0 ? |a| : -|a|
        x = m_xmms.Target(ops[0], ops[1], at);
        m_em.AndpdPool(x, m_abs);
        MoveTo(0, ops[1]);
        m_em.UcomisdPool(0, m_zero);
        m_em.Jump(kAbove, done);
        m_em.XorpdPool(x, m_sign);
    } else {
        // x < 0 ? n : x == 0 ? z : p; a NaN x is neither, and takes p
        x = m_xmms.Free(static_cast<std::ptrdiff_t>(at));
        const int positive = m_em.NewLabel();
        const int negative = m_em.NewLabel();
        MoveTo(0, ops[0]);
        m_em.UcomisdPool(0, m_zero);
        m_em.Jump(kParity, positive);
        m_em.Jump(kBelow, negative);
        m_em.Jump(kNotEqual, positive);
        MoveTo(x, ops[2]);
        m_em.Jump(done);
        m_em.Bind(negative);
        MoveTo(x, ops[1]);
        m_em.Jump(done);
        m_em.Bind(positive);
        MoveTo(x, ops[3]);
    }
    m_em.Bind(done);
    m_xmms.ReleaseDead(ops, at);
    m_xmms.Define(in.d, x);
}

// STEP and STEP5 written out, in the order of operations vexa_math spells out
// for them (the same bits, NaNs included), on xmm0..xmm7 after the spill:
// x, x0, h0, x1, h1 in xmm0..xmm4, a in xmm5, h1 - h0 in xmm6.
void ValueLowering::PolynomialStep(const Instr& in, std::size_t at)
{
    const std::uint32_t* regs = Args(in);
    m_xmms.SpillAll(at);
    for (int k = 0; k < 5; ++k)
        LoadTo(k, regs[k]);
    const int done = m_em.NewLabel();
    const int rising = m_em.NewLabel();
    const int high = m_em.NewLabel();
    // h0 unless x > x0; h1 from x1 on (a NaN compares unordered: neither).
    m_em.Ucomisd(0, 1);
    m_em.Jump(kAbove, rising);
    m_em.Movapd(0, 2);
    m_em.Jump(done);
    m_em.Bind(rising);
    m_em.Ucomisd(0, 3);
    m_em.Jump(kAboveOrEqual, high);
    m_em.Movapd(5, 0);
    m_em.Arith(0x5C, 5, 1);  // x - x0
    m_em.Movapd(6, 3);
    m_em.Arith(0x5C, 6, 1);  // x1 - x0
    m_em.Arith(0x5E, 5, 6);  // a
    m_em.Movapd(6, 4);
    m_em.Arith(0x5C, 6, 2);  // h1 - h0
    if (in.op == kStep) {
        m_em.Movapd(7, 5);
        m_em.Arith(0x58, 7, 5);  // a + a
        m_em.MovsdLoadPool(0, m_three);
        m_em.Arith(0x5C, 0, 7);  // 3 - (a + a)
        m_em.Arith(0x59, 0, 6);  // rise
        m_em.Movapd(7, 5);
        m_em.Arith(0x59, 7, 5);  // a a
        m_em.Arith(0x59, 0, 7);
        m_em.Arith(0x58, 0, 2);  // + h0
    } else {
        m_em.MovsdLoadPool(7, m_six);
        m_em.Arith(0x59, 7, 5);
        m_em.Arith(0x59, 7, 5);  // (6a) a
        m_em.MovsdLoadPool(0, m_fifteen);
        m_em.Arith(0x59, 0, 5);  // 15a
        m_em.MovsdLoadPool(3, m_ten);
        m_em.Arith(0x5C, 3, 0);  // 10 - 15a
        m_em.Arith(0x58, 7, 3);  // shape
        m_em.Arith(0x59, 7, 6);
        m_em.Arith(0x59, 7, 5);  // rise
        m_em.Movapd(0, 5);
        m_em.Arith(0x59, 0, 5);  // a a
        m_em.Arith(0x59, 7, 0);
        m_em.Arith(0x58, 7, 2);  // + h0
        m_em.Movapd(0, 7);
    }
    m_em.Jump(done);
    m_em.Bind(high);
    m_em.Movapd(0, 4);
    m_em.Bind(done);
    DefineFromXmm0(in.d);
}

}  // namespace x64
}  // namespace vexa_compiled
