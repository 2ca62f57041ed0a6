#include "vexa/compiled/x86_64/frame.h"

#include <algorithm>

namespace vexa_compiled {
namespace x64 {

Frame::Frame(Emitter& em, const CallConvention& cc, int entry_args) : m_em(em), m_cc(cc), m_entry_args(entry_args)
{
}

int Frame::TakeKept()
{
    if (m_kept >= m_cc.callee_saved_count)
        return -1;
    return m_cc.callee_saved[m_kept++];
}

int Frame::TakeFree()
{
    while (m_free < m_cc.caller_saved_count) {
        const int r = m_cc.caller_saved[m_free++];
        const int* args = m_cc.int_args;
        if (r != rax && std::find(args, args + m_entry_args, r) == args + m_entry_args)
            return r;
    }
    return -1;
}

int Frame::TakeAny()
{
    const int r = TakeFree();
    return r >= 0 ? r : TakeKept();
}

bool Frame::NextIntArg(ArgumentCursor& args, IntArg& out) const
{
    out.reg = args.NextInt();
    out.slot = out.reg >= 0 ? -1 : args.StackSlot();
    return out.reg >= 0 || (HasScratch() && out.slot < static_cast<int>(kScratchSlots));
}

void Frame::ArgImm64(const IntArg& a, std::uint64_t v)
{
    m_em.MovImm64(a.reg >= 0 ? a.reg : rax, v);
    if (a.reg < 0)
        m_em.MovStore(Scratch(8 * a.slot), rax);
}

void Frame::ArgImm32(const IntArg& a, std::uint32_t v)
{
    m_em.MovImm32(a.reg >= 0 ? a.reg : rax, v);
    if (a.reg < 0)
        m_em.MovStore(Scratch(8 * a.slot), rax);
}

void Frame::ArgReg(const IntArg& a, int src)
{
    if (a.reg >= 0)
        m_em.MovReg(a.reg, src);
    else
        m_em.MovStore(Scratch(8 * a.slot), src);
}

void Frame::ArgLea(const IntArg& a, Mem m)
{
    m_em.Lea(a.reg >= 0 ? a.reg : rax, m);
    if (a.reg < 0)
        m_em.MovStore(Scratch(8 * a.slot), rax);
}

void Frame::Prologue()
{
    // Saved in the order of the register numbers, whichever order they were
    // taken in.
    m_saved_count = m_kept;
    std::copy(m_cc.callee_saved, m_cc.callee_saved + m_kept, m_saved);
    std::sort(m_saved, m_saved + m_saved_count);
    m_xmm_count = std::max(0, m_last_xmm - m_cc.first_kept_xmm + 1);
    m_steps.clear();
    if (m_saved_count == 0 && m_scratch == 0 && m_xmm_count == 0)
        return;
    for (int k = 0; k < m_saved_count; ++k) {
        m_em.Push(m_saved[k]);
        m_steps.push_back({PrologueStep::kPush, static_cast<std::uint32_t>(m_em.Position()), m_saved[k], 0});
    }
    // The return address and the pushes, then the room (the kept xmm
    // registers' 16-byte slots at its top): a multiple of the alignment in
    // all.
    m_xmm_at = m_cc.shadow_space + m_scratch;
    if (m_xmm_count > 0)
        m_xmm_at = (m_xmm_at + 15) / 16 * 16;
    const std::int32_t below = 8 + 8 * m_saved_count + m_xmm_at + 16 * m_xmm_count;
    const std::int32_t pad = (m_cc.stack_align - below % m_cc.stack_align) % m_cc.stack_align;
    m_size = m_xmm_at + 16 * m_xmm_count + pad;
    m_em.SubRsp(m_size);
    if (m_size != 0)
        m_steps.push_back({PrologueStep::kAlloc, static_cast<std::uint32_t>(m_em.Position()), 0, m_size});
    for (int k = 0; k < m_xmm_count; ++k) {
        const int x = m_cc.first_kept_xmm + k;
        m_em.MovupdStore({rsp, m_xmm_at + 16 * k}, x);
        m_steps.push_back({PrologueStep::kSaveXmm, static_cast<std::uint32_t>(m_em.Position()), x, m_xmm_at + 16 * k});
    }
}

void Frame::Epilogue()
{
    if (m_saved_count == 0 && m_scratch == 0 && m_xmm_count == 0)
        return;
    for (int k = 0; k < m_xmm_count; ++k)
        m_em.MovupdLoad(m_cc.first_kept_xmm + k, {rsp, m_xmm_at + 16 * k});
    m_em.AddRsp(m_size);
    for (int k = m_saved_count; k-- > 0;)
        m_em.Pop(m_saved[k]);
}

void Frame::Call(std::uint64_t function)
{
    m_em.MovImm64(rax, function);
    m_em.Call(rax);
}

bool Frame::UnwindInfo(std::vector<std::uint8_t>& out) const
{
    out.clear();
    return !m_cc.unwind_table || WindowsUnwindInfo(m_steps, out);
}

}  // namespace x64
}  // namespace vexa_compiled
