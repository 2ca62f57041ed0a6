#include "vexa/compiled/x86_64/xmm_allocator.h"

namespace vexa_compiled {
namespace x64 {

XmmAllocator::XmmAllocator(Emitter& em, int first, int count, Choice choice)
    : m_em(em), m_first(first), m_count(count), m_choice(choice)
{
    for (Holder& h : m_holders)
        h = {kFree, 0, false};
}

void XmmAllocator::MoveHome(std::uint32_t reg, Mem at)
{
    if (m_moved.size() < m_xmm.size())
        m_moved.resize(m_xmm.size(), Mem{-1, 0});
    m_moved[reg] = at;
    m_current[reg] = true;
}

void XmmAllocator::Reset(std::size_t registers, int base, bool homes_current)
{
    m_base = base;
    m_xmm.assign(registers, kNone);
    m_current.assign(registers, homes_current);
    m_moved.clear();
    if (m_choice == kFurthestUse) {
        m_uses.assign(registers, {});
        m_cursor.assign(registers, 0);
        m_last.assign(registers, kNever);
    }
    for (Holder& h : m_holders)
        h = {kFree, 0, false};
}

void XmmAllocator::CloseUses()
{
    for (std::size_t reg = 0; reg < m_uses.size(); ++reg) {
        if (!m_uses[reg].empty())
            m_last[reg] = m_uses[reg].back();
    }
}

// The first use of reg after position after (positions only grow).
std::size_t XmmAllocator::NextUse(std::uint32_t reg, std::ptrdiff_t after)
{
    const std::vector<std::size_t>& uses = m_uses[reg];
    std::size_t& c = m_cursor[reg];
    while (c < uses.size() && static_cast<std::ptrdiff_t>(uses[c]) <= after)
        ++c;
    return c < uses.size() ? uses[c] : kNever;
}

int XmmAllocator::Find(std::uint32_t reg)
{
    const int x = m_xmm[reg];
    if (x != kNone) {
        m_holders[Slot(x)].last = ++m_clock;
        m_holders[Slot(x)].pinned = true;
    }
    return x;
}

int XmmAllocator::Free(std::ptrdiff_t at)
{
    int best = -1;
    std::size_t furthest = 0;
    for (int i = 0; i < m_count; ++i) {
        const Holder& h = m_holders[i];
        if (m_choice == kLeastRecent && h.pinned)
            continue;
        if (h.reg == kFree)
            return m_first + i;
        if (m_choice == kLeastRecent) {
            if (best < 0 || h.last < m_holders[best].last)
                best = i;
            continue;
        }
        const std::size_t next = NextUse(h.reg, at - 1);
        if (static_cast<std::ptrdiff_t>(next) > at && next >= furthest) {
            furthest = next;
            best = i;
        }
    }
    const std::uint32_t reg = m_holders[best].reg;
    const bool needed = m_choice == kLeastRecent || furthest != kNever;
    if (!m_current[reg] && needed) {
        m_em.MovsdStore(Home(reg), m_first + best);
        m_current[reg] = true;
    }
    m_xmm[reg] = kNone;
    m_holders[best] = {kFree, 0, false};
    return m_first + best;
}

void XmmAllocator::Hold(std::uint32_t reg, int xmm)
{
    m_xmm[reg] = xmm;
    m_holders[Slot(xmm)] = {reg, ++m_clock, true};
}

int XmmAllocator::Load(std::uint32_t reg, std::size_t at)
{
    if (m_xmm[reg] != kNone)
        return Find(reg);
    const int x = Free(static_cast<std::ptrdiff_t>(at));
    m_em.MovsdLoad(x, Home(reg));
    Hold(reg, x);
    return x;
}

int XmmAllocator::Take(std::uint32_t reg, std::ptrdiff_t at)
{
    const int x = Free(at);
    Hold(reg, x);
    return x;
}

void XmmAllocator::Define(std::uint32_t reg, int xmm)
{
    m_current[reg] = false;
    if (m_choice == kFurthestUse && m_last[reg] == kNever)
        return;
    Hold(reg, xmm);
}

int XmmAllocator::Target(std::uint32_t first, std::uint32_t second, std::size_t at)
{
    const int held = m_xmm[first];
    if (held != kNone && m_last[first] == at && first != second) {
        Release(first);
        return held;
    }
    const int x = Free(static_cast<std::ptrdiff_t>(at));
    if (held != kNone)
        m_em.Movapd(x, held);
    else
        m_em.MovsdLoad(x, Home(first));
    return x;
}

void XmmAllocator::Release(std::uint32_t reg)
{
    const int x = m_xmm[reg];
    if (x == kNone)
        return;
    m_holders[Slot(x)] = {kFree, 0, false};
    m_xmm[reg] = kNone;
}

void XmmAllocator::ReleaseDead(const std::vector<std::uint32_t>& operands, std::size_t at)
{
    for (std::uint32_t reg : operands) {
        if (m_last[reg] <= at)
            Release(reg);
    }
}

void XmmAllocator::SpillAll(std::size_t at)
{
    for (int i = 0; i < m_count; ++i) {
        const std::uint32_t reg = m_holders[i].reg;
        if (reg == kFree)
            continue;
        if (!m_current[reg] && m_last[reg] >= at && m_last[reg] != kNever) {
            m_em.MovsdStore(Home(reg), m_first + i);
            m_current[reg] = true;
        }
        Release(reg);
    }
}

void XmmAllocator::Clear()
{
    for (int i = 0; i < m_count; ++i) {
        if (m_holders[i].reg != kFree)
            Release(m_holders[i].reg);
    }
}

void XmmAllocator::Unpin()
{
    for (Holder& h : m_holders)
        h.pinned = false;
}

}  // namespace x64
}  // namespace vexa_compiled
