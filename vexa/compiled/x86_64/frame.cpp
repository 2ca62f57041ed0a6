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

void Frame::Prologue()
{
    // Saved in the order of the register numbers, whichever order they were
    // taken in.
    m_saved_count = m_kept;
    std::copy(m_cc.callee_saved, m_cc.callee_saved + m_kept, m_saved);
    std::sort(m_saved, m_saved + m_saved_count);
    if (m_saved_count == 0 && m_scratch == 0)
        return;
    for (int k = 0; k < m_saved_count; ++k)
        m_em.Push(m_saved[k]);
    // The return address and the pushes, then the room: a multiple of the
    // alignment in all.
    const std::int32_t below = 8 + 8 * m_saved_count + m_cc.shadow_space + m_scratch;
    const std::int32_t pad = (m_cc.stack_align - below % m_cc.stack_align) % m_cc.stack_align;
    m_size = m_cc.shadow_space + m_scratch + pad;
    m_em.SubRsp(m_size);
}

void Frame::Epilogue()
{
    if (m_saved_count == 0 && m_scratch == 0)
        return;
    m_em.AddRsp(m_size);
    for (int k = m_saved_count; k-- > 0;)
        m_em.Pop(m_saved[k]);
}

void Frame::Call(std::uint64_t function)
{
    m_em.MovImm64(rax, function);
    m_em.Call(rax);
}

}  // namespace x64
}  // namespace vexa_compiled
