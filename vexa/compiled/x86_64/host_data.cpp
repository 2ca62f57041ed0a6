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

// Scratch and rax are free here: nothing has been called yet.
void HostData::CopyShapedParameters(const ValueShapes& shapes, int general)
{
    const int count = static_cast<int>(shapes.params.size());
    for (int i = 0; i < count; ++i) {
        const std::int32_t at = i * m_layout.value_size;
        const std::uint64_t word = shapes.params[static_cast<std::size_t>(i)].ShapeWord();
        if (i == 0 || word != shapes.params[static_cast<std::size_t>(i - 1)].ShapeWord())
            m_em.MovImm64(m_regs.shape, word);
        for (int from : {m_regs.params, m_regs.held}) {
            m_em.Lea(rax, {from, at + m_layout.value_space});
            m_em.CmpMemReg({from, at + m_layout.value_data}, rax);
            m_em.Jump(kNotEqual, general);
            m_em.CmpMemReg({from, at + m_layout.value_shape}, m_regs.shape);
            m_em.Jump(kNotEqual, general);
        }
    }
    // The elements by pairs. Buffers have room for nine, so a pair may run
    // past a parameter's last element; what lies beyond it in the held
    // buffer is no part of its value. Copying no more than the elements
    // keeps the host's values to the cache lines they fill.
    for (int i = 0; i < count; ++i) {
        const ValueShapes::Value& v = shapes.params[static_cast<std::size_t>(i)];
        const std::int32_t at = i * m_layout.value_size + m_layout.value_space;
        const int n = v.rows * v.cols;
        for (int e = 0; e < n; e += 2) {
            const bool pair = e + 1 < 9;
            const Mem from{m_regs.params, at + 8 * e};
            const Mem to{m_regs.held, at + 8 * e};
            pair ? m_em.MovupdLoad(0, from) : m_em.MovsdLoad(0, from);
            pair ? m_em.MovupdStore(to, 0) : m_em.MovsdStore(to, 0);
        }
    }
}

Mem HostData::HostElement(int param, int element) const
{
    return {m_regs.params, param * m_layout.value_size + m_layout.value_space + 8 * element};
}

void HostData::StoreShapedResult(const ValueShapes& shapes, XmmAllocator& xmms, int slow)
{
    const ValueShapes::Value& r = shapes.result;
    const int n = r.rows * r.cols;
    const int spill = m_em.NewLabel();
    const int done = m_em.NewLabel();
    m_em.Lea(rax, {m_regs.result, m_layout.value_space});
    m_em.CmpMemReg({m_regs.result, m_layout.value_data}, rax);
    m_em.Jump(kNotEqual, spill);
    for (int e = 0; e < n; ++e) {
        const std::uint32_t reg = r.first + static_cast<std::uint32_t>(e);
        int x = xmms.Held(reg);
        if (x == XmmAllocator::kNone) {
            x = 0;
            m_em.MovsdLoad(x, xmms.Home(reg));
        }
        m_em.MovsdStore({m_regs.result, m_layout.value_space + 8 * e}, x);
    }
    m_em.MovImm64(rax, r.ShapeWord());
    m_em.MovStore({m_regs.result, m_layout.value_shape}, rax);
    m_em.MovImm32(rax, 1);
    m_em.Jump(done);
    m_em.Bind(spill);
    // Into the registers themselves, where the C++ reads them: a
    // parameter's home is in the host's value.
    for (int e = 0; e < n; ++e) {
        const std::uint32_t reg = r.first + static_cast<std::uint32_t>(e);
        int x = xmms.Held(reg);
        if (x == XmmAllocator::kNone) {
            x = 0;
            m_em.MovsdLoad(x, xmms.Home(reg));
        }
        m_em.MovsdStore({m_regs.base, static_cast<std::int32_t>(8 * reg)}, x);
    }
    m_em.Jump(slow);
    m_em.Bind(done);
}

}  // namespace x64
}  // namespace vexa_compiled
