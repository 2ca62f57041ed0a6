#include "vexa/compiled/x86_64/host_data.h"

#include <vector>

#include "vexa/compiled/x86_64/x64_emitter.h"
#include "vexa/compiled/x86_64/xmm_allocator.h"

namespace vexa_compiled {
namespace x64 {

namespace {

// Rows 1 and columns 1 read as one 8-byte word: the shape of a scalar.
constexpr std::uint64_t kScalarShape = 0x0000000100000001ULL;

}  // namespace

void HostData::CheckCount(int self, int count_arg, int count, int other)
{
    m_em.CmpImm32(count_arg, count);
    m_em.Jump(kNotEqual, other);
    m_em.CmpMemImm32({self, m_layout.param_count}, count);
    m_em.Jump(kNotEqual, other);
}

void HostData::LoadPointers()
{
    m_em.MovLoad(m_regs.held, {m_regs.self, m_layout.params});
    m_em.MovImm64(m_regs.shape, kScalarShape);
}

// The long way copies again from the start, so leaving half way is safe.
void HostData::CopyParameters(const Program& program, int count, XmmAllocator& xmms, int general)
{
    std::vector<std::uint32_t> regOf(static_cast<std::size_t>(count), ~0u);
    for (const auto& load : program.paramLoads())
        regOf[static_cast<std::size_t>(load.first)] = load.second;
    for (int i = 0; i < count; ++i) {
        const std::int32_t at = i * m_layout.value_size;
        m_em.MovLoad(rax, {m_regs.params, at + m_layout.value_data});
        m_em.Test(rax, rax);
        m_em.Jump(kEqual, general);
        m_em.CmpMemReg({m_regs.params, at + m_layout.value_shape}, m_regs.shape);
        m_em.Jump(kNotEqual, general);
        m_em.MovLoad(m_regs.scratch, {m_regs.held, at + m_layout.value_data});
        m_em.Test(m_regs.scratch, m_regs.scratch);
        m_em.Jump(kEqual, general);
        m_em.CmpMemReg({m_regs.held, at + m_layout.value_shape}, m_regs.shape);
        m_em.Jump(kNotEqual, general);
        const std::uint32_t reg = regOf[static_cast<std::size_t>(i)];
        const bool used = reg != ~0u && xmms.LastUse(reg) != XmmAllocator::kNever;
        const int x = used ? xmms.Free(-1) : 0;
        m_em.MovsdLoad(x, {rax, 0});
        m_em.MovsdStore({m_regs.scratch, 0}, x);
        if (used)
            xmms.Define(reg, x);
    }
}

void HostData::StoreResult(std::uint32_t reg, XmmAllocator& xmms, int slow, int slow_xmm)
{
    int x = xmms.Held(reg);
    if (x == XmmAllocator::kNone) {
        x = slow_xmm;
        m_em.MovsdLoad(x, xmms.Home(reg));
    }
    m_em.Lea(rax, {m_regs.result, m_layout.value_space});
    m_em.CmpMemReg({m_regs.result, m_layout.value_data}, rax);
    const int inPlace = m_em.NewLabel();
    m_em.Jump(kEqual, inPlace);
    if (x != slow_xmm)
        m_em.Movapd(slow_xmm, x);
    m_em.Jump(slow);
    m_em.Bind(inPlace);
    m_em.MovsdStore({m_regs.result, m_layout.value_space}, x);
    m_em.MovStore({m_regs.result, m_layout.value_shape}, m_regs.shape);
    m_em.MovImm32(rax, 1);
}

}  // namespace x64
}  // namespace vexa_compiled
