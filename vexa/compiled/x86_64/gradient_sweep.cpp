#include <algorithm>
#include <cstddef>
#include <vector>

#include "vexa/compiled/x86_64/gradient_lowering.h"
#include "vexa/compiled/machine_gradient.h"

// The gradient code's reverse sweep. The xmm registers hold adjoints here:
// an adjoint giving way goes to its slot of the adjoint array, and one
// neither held nor there is still 0. xmm3 holds 0 throughout.
namespace vexa_compiled {
namespace x64 {

namespace {


std::int32_t Field(std::size_t offset)
{
    return static_cast<std::int32_t>(offset);
}

}  // namespace

bool GradientLowering::IsZero(std::uint32_t r) const
{
    return m_xmms.Held(r) == XmmAllocator::kNone && !m_xmms.HomeCurrent(r);
}

// The xmm holding register r's adjoint, made so: 0 where nothing was added
// yet, loaded where it had given way. It is newer than its slot from now
// on, whatever is added to it.
int GradientLowering::Adjoint(std::uint32_t r)
{
    int x = m_xmms.Find(r);
    if (x != XmmAllocator::kNone)
        return x;
    const bool zero = IsZero(r);
    x = m_xmms.Take(r, 0);
    if (zero)
        m_em.Xorpd(x, x);
    else
        m_em.MovsdLoad(x, m_xmms.Home(r));
    m_xmms.SetHomeCurrent(r, false);
    return x;
}

// adjoint[operand] += adjoint[result] * partial for the entries of one
// instruction, skipped where its adjoint is 0 (a value that cannot reach the
// result adds nothing, even through an infinite partial). Every adjoint the
// entries add to is placed before the test, so that both ways on leave it
// in the same place.
void GradientLowering::Group(std::size_t begin, std::size_t end)
{
    const std::vector<Unit::Back>& backs = m_unit.backs;
    const std::uint32_t result = backs[begin].result;
    // Known to be 0 here: the runner skips it too.
    if (IsZero(result))
        return;
    const int g = Adjoint(result);
    std::vector<std::uint32_t> operands;
    for (std::size_t i = begin; i < end; ++i) {
        if (std::find(operands.begin(), operands.end(), backs[i].operand) == operands.end())
            operands.push_back(backs[i].operand);
    }
    const bool held = operands.size() < static_cast<std::size_t>(m_xmms.count());
    for (const std::uint32_t r : operands) {
        if (held) {
            Adjoint(r);
            continue;
        }
        // A long argument list: its adjoints are added in memory.
        const int x = m_xmms.Find(r);
        if (x != XmmAllocator::kNone)
            m_em.MovsdStore(m_xmms.Home(r), x);
        else if (IsZero(r))
            m_em.MovsdStore(m_xmms.Home(r), 3);
        m_xmms.Release(r);
        m_xmms.SetHomeCurrent(r, true);
    }
    const int apply = m_em.NewLabel();
    const int skip = m_em.NewLabel();
    m_em.Ucomisd(g, 3);
    m_em.Jump(kParity, apply);
    m_em.Jump(kEqual, skip);
    m_em.Bind(apply);
    for (std::size_t i = begin; i < end; ++i) {
        m_em.Movapd(2, g);
        m_em.Arith(0x59, 2, Tape(backs[i].position));
        if (held) {
            m_em.Arith(0x58, m_xmms.Find(backs[i].operand), 2);
        } else {
            m_em.MovsdLoad(1, m_xmms.Home(backs[i].operand));
            m_em.Arith(0x58, 1, 2);
            m_em.MovsdStore(m_xmms.Home(backs[i].operand), 1);
        }
    }
    m_em.Bind(skip);
    // Every use of the result came later in the program, so its adjoint is
    // complete and read no more.
    m_xmms.Release(result);
    m_xmms.Unpin();
}

// adjoint[result] = 1, then the entries of each instruction, last
// instruction first; the runner's order of additions throughout.
void GradientLowering::Sweep(int count)
{
    const Program& p = *m_unit.program;
    m_xmms.Reset(p.initialRegisters().size(), m_regs.adjoint, false);
    m_em.Xorpd(3, 3);
    const int one = m_xmms.Take(p.resultRegister(), 0);
    m_em.MovsdLoadPool(one, m_one);
    m_xmms.Unpin();
    ForEachBackGroup(m_unit, [this](std::size_t begin, std::size_t end) { Group(begin, end); });
    m_em.MovLoad(rax, {m_regs.call, Field(offsetof(GradientCall, grad))});
    for (int k = 0; k < count; ++k)
        m_em.MovsdStore({rax, 8 * k}, 3);
    for (const auto& load : p.paramLoads()) {
        int x = m_xmms.Held(load.second);
        if (x == XmmAllocator::kNone && m_xmms.HomeCurrent(load.second)) {
            x = 0;
            m_em.MovsdLoad(0, m_xmms.Home(load.second));
        }
        if (x != XmmAllocator::kNone)
            m_em.MovsdStore({rax, 8 * load.first}, x);
    }
}

void GradientLowering::Finish(int count)
{
    const int value = m_xmms.Load(m_unit.program->resultRegister(), 0);
    m_em.MovsdStore({m_regs.call, Field(offsetof(GradientCall, value))}, value);
    Sweep(count);
    m_em.MovImm32(rax, kGoes);
}

}  // namespace x64
}  // namespace vexa_compiled
