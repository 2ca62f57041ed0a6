#include "vexa/compiled/x86_64/value_lowering.h"

#include <algorithm>
#include <limits>

#include "vexa/compiled/machine_code.h"

// The value code's calls: built-ins over argument lists, central
// differences and other calculators. Calls may change every xmm register,
// so each one first sends home the values still needed.
namespace vexa_compiled {
namespace x64 {

namespace {

// A central difference done in place keeps its first value in the last
// slots but one of the scratch room, above the arguments it writes.
constexpr std::int32_t kFirstValue = 8 * static_cast<std::int32_t>(kScratchSlots) - 16;
constexpr std::uint32_t kSlotsBelowFirst = kFirstValue / 8;

}  // namespace

// A built-in over one or two arguments, all in xmm registers.
bool ValueLowering::Call(const Instr& in, std::size_t at)
{
    Operands(m_program, in, m_ops);
    ArgumentCursor args(m_frame.convention());
    int xmm[2];
    for (std::size_t k = 0; k < m_ops.size(); ++k) {
        if ((xmm[k] = args.NextXmm()) < 0)
            return false;
    }
    m_xmms.SpillAll(at);
    for (std::size_t k = 0; k < m_ops.size(); ++k)
        LoadTo(xmm[k], m_ops[k]);
    m_frame.Call(CallTargetOf(static_cast<Op>(in.op)).value);
    DefineFromXmm0(in.d);
    return true;
}

// Argument values from index from on, into the scratch room from byte at on
// (the caller checked that they fit).
void ValueLowering::WriteArgs(const Instr& in, std::uint32_t from, std::int32_t at)
{
    const std::uint32_t* regs = Args(in);
    for (std::uint32_t k = from; k < in.b; ++k) {
        LoadTo(0, regs[k]);
        m_em.MovsdStore(m_frame.Scratch(at + static_cast<std::int32_t>(8 * (k - from))), 0);
    }
}

namespace {

// The stack slots two integer arguments take (0 where both have registers):
// an array passed with them starts above.
std::uint32_t SlotsTaken(const Frame::IntArg& a, const Frame::IntArg& b)
{
    return static_cast<std::uint32_t>(std::max(std::max(a.slot, b.slot) + 1, 0));
}

}  // namespace

// False where the list does not fit the registers and scratch room the
// call passes it in.
bool ValueLowering::List(const Instr& in, std::size_t at)
{
    const CallTarget target = CallTargetOf(static_cast<Op>(in.op));
    const std::uint32_t* regs = Args(in);
    const int n = target.lead >= 0 ? target.lead : static_cast<int>(in.b);
    if (!target.value || !m_frame.HasScratch() || in.b < static_cast<std::uint32_t>(n) ||
        in.b - static_cast<std::uint32_t>(n) > kScratchSlots)
        return false;
    ArgumentCursor args(m_frame.convention());
    // An xmm register, or -1 - the stack slot where the registers run out
    // (a built-in taking every argument as a double).
    std::vector<int> xmm(static_cast<std::size_t>(n));
    for (int& x : xmm) {
        if ((x = args.NextXmm()) < 0) {
            if (target.lead >= 0 || args.StackSlot() >= static_cast<int>(kScratchSlots))
                return false;
            x = -1 - args.StackSlot();
        }
    }
    Frame::IntArg array{0, -1}, length{0, -1};
    if (target.lead >= 0 && (!m_frame.NextIntArg(args, array) || !m_frame.NextIntArg(args, length)))
        return false;
    const std::uint32_t below = SlotsTaken(array, length);
    if (in.b - static_cast<std::uint32_t>(n) > kScratchSlots - below)
        return false;
    m_xmms.SpillAll(at);
    if (target.lead >= 0)
        WriteArgs(in, static_cast<std::uint32_t>(n), static_cast<std::int32_t>(8 * below));
    // Those on the stack first: they pass through xmm0.
    for (int k = 0; k < n; ++k) {
        const int x = xmm[static_cast<std::size_t>(k)];
        if (x < 0) {
            LoadTo(0, regs[k]);
            m_em.MovsdStore(m_frame.Scratch(8 * (-1 - x)), 0);
        }
    }
    for (int k = 0; k < n; ++k) {
        if (xmm[static_cast<std::size_t>(k)] >= 0)
            LoadTo(xmm[static_cast<std::size_t>(k)], regs[k]);
    }
    if (target.lead >= 0) {
        m_frame.ArgLea(array, m_frame.Scratch(static_cast<std::int32_t>(8 * below)));
        m_frame.ArgImm32(length, in.b - static_cast<std::uint32_t>(n));
    }
    m_frame.Call(target.value);
    DefineFromXmm0(in.d);
    return true;
}

// One evaluation of a central difference's built-in, with argument shifted
// moved by the step: up (h + x, as the value sum adds it) or down (x - h).
// The caller checked that the arguments fit.
bool ValueLowering::CallShifted(const CallTarget& target, const Instr& in, int shifted, bool up)
{
    const std::uint32_t* regs = Args(in);
    const int n = static_cast<int>(in.b);
    const int lead = target.lead >= 0 ? target.lead : n;
    auto load = [&](int x, int k) {
        LoadTo(x, regs[k]);
        if (k != shifted)
            return;
        if (up) {
            m_em.MovsdLoadPool(x, m_step);
            m_em.Arith(0x58, x, m_xmms.Home(regs[k]));
        } else {
            m_em.ArithPool(0x5C, x, m_step);
        }
    };
    ArgumentCursor args(m_frame.convention());
    std::vector<int> xmm(static_cast<std::size_t>(lead));
    for (int& x : xmm) {
        if ((x = args.NextXmm()) < 0)
            return false;
    }
    Frame::IntArg array{0, -1}, length{0, -1};
    if (target.lead >= 0 && (!m_frame.NextIntArg(args, array) || !m_frame.NextIntArg(args, length)))
        return false;
    // The array goes above the stack's arguments, below the first value.
    const std::int32_t below = static_cast<std::int32_t>(8 * SlotsTaken(array, length));
    if (below + 8 * (n - lead) > kFirstValue)
        return false;
    // A series takes the arguments after its leading ones as an array.
    for (int k = lead; k < n; ++k) {
        load(0, k);
        m_em.MovsdStore(m_frame.Scratch(below + 8 * (k - lead)), 0);
    }
    for (int k = 0; k < lead; ++k)
        load(xmm[static_cast<std::size_t>(k)], k);
    if (target.lead >= 0) {
        m_frame.ArgLea(array, m_frame.Scratch(below));
        m_frame.ArgImm32(length, static_cast<std::uint32_t>(n - lead));
    }
    m_frame.Call(target.value);
    return true;
}

bool ValueLowering::Difference(const Instr& in, std::size_t at)
{
    // A single difference of a built-in that never refuses is done here:
    // (f(.., h + x, ..) - f(.., x - h, ..)) / (h + h).
    const DiffChain& chain = m_program.chains()[in.c];
    CallTarget target;
    if (chain.shifted.size() == 1)
        target = CallTargetOf(static_cast<Op>(chain.base));
    const int lead = target.lead;
    const int shifted = chain.shifted.empty() ? -1 : chain.shifted[0];
    if (!m_frame.HasScratch())
        return false;
    const bool fits = lead >= 0 ? in.b >= static_cast<std::uint32_t>(lead) &&
                                      in.b - static_cast<std::uint32_t>(lead) <= kSlotsBelowFirst
                                : in.b <= static_cast<std::uint32_t>(m_frame.convention().xmm_args);
    if (target.value && !target.refuses && shifted >= 0 && shifted < static_cast<int>(in.b) && fits) {
        m_xmms.SpillAll(at);
        const Mem first = m_frame.Scratch(kFirstValue);
        if (!CallShifted(target, in, shifted, true))
            return false;
        m_em.MovsdStore(first, 0);
        if (!CallShifted(target, in, shifted, false))
            return false;
        m_em.MovsdLoad(1, first);
        m_em.Arith(0x5C, 1, 0);
        m_em.ArithPool(0x5E, 1, m_two_steps);
        m_em.Movapd(0, 1);
        DefineFromXmm0(in.d);
        return true;
    }
    ArgumentCursor args(m_frame.convention());
    const int chainArg = args.NextInt();
    const int values = args.NextInt();
    const int count = args.NextInt();
    const int out = args.NextInt();
    if (in.b > kScratchSlots || chainArg < 0 || values < 0 || count < 0 || out < 0)
        return false;
    m_xmms.SpillAll(at);
    WriteArgs(in, 0);
    m_em.MovImm64(chainArg, reinterpret_cast<std::uint64_t>(&chain));
    m_em.Lea(values, m_frame.Scratch(0));
    m_em.MovImm32(count, in.b);
    m_em.Lea(out, m_xmms.Home(in.d));
    m_frame.Call(Address(CallDifference));
    m_em.CmpImm32(rax, 0);
    m_em.Jump(kEqual, m_stop);
    m_xmms.SetHomeCurrent(in.d, true);
    return true;
}

// The callee reads its arguments from their homes, where the spill leaves
// every value still needed.
bool ValueLowering::CallOther(const Instr& in, std::size_t at)
{
    ArgumentCursor args(m_frame.convention());
    Frame::IntArg arg[6];
    for (Frame::IntArg& a : arg) {
        if (!m_frame.NextIntArg(args, a))
            return false;
    }
    if (in.b > m_space->args.size() || in.b > static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max()))
        return false;
    m_xmms.SpillAll(at);
    // Those on the stack first: setting them goes through rax only.
    for (int pass = 0; pass < 2; ++pass) {
        auto mine = [&](int k) { return (arg[k].reg < 0) == (pass == 0); };
        if (mine(0))
            m_frame.ArgImm64(arg[0], reinterpret_cast<std::uint64_t>(m_space));
        if (mine(1))
            m_frame.ArgImm64(arg[1], reinterpret_cast<std::uint64_t>(m_program.calls()[in.c]));
        if (mine(2))
            m_frame.ArgImm64(arg[2], reinterpret_cast<std::uint64_t>(Args(in)));
        if (mine(3))
            m_frame.ArgReg(arg[3], m_base);
        if (mine(4))
            m_frame.ArgImm32(arg[4], in.b);
        if (mine(5))
            m_frame.ArgLea(arg[5], m_xmms.Home(in.d));
    }
    m_frame.Call(Address(CallCalculator));
    m_em.CmpImm32(rax, 0);
    const int done = m_em.NewLabel();
    m_em.Jump(kEqual, done);
    m_em.CmpImm32(rax, 1);
    m_em.Jump(kEqual, m_stop);
    m_em.Jump(m_thrown);
    m_em.Bind(done);
    m_xmms.SetHomeCurrent(in.d, true);
    return true;
}

}  // namespace x64
}  // namespace vexa_compiled
