#ifndef VEXA_COMPILED_XMM_ALLOCATOR_H
#define VEXA_COMPILED_XMM_ALLOCATOR_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "vexa/compiled/x86_64/x64_emitter.h"

// Which program register each xmm register holds while generated code runs,
// for the value code and the gradient code alike. Every program register has
// a home in memory (8 bytes a register from a base register); a value held
// in an xmm register may be newer than its home, and goes home before its
// xmm register is given to another value, unless nothing reads it again.
// Internal.
namespace vexa_compiled {
namespace x64 {

class XmmAllocator {
public:
    static constexpr int kNone = -1;
    static constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();

    // How an xmm register is chosen to give way when none is free.
    enum Choice {
        // The one whose value is read furthest ahead (never one read at the
        // instruction being written), where every use is known beforehand.
        kFurthestUse,
        // The least recently used one not pinned: registers found or taken
        // stay pinned until Unpin, so the operands of one instruction never
        // push each other out.
        kLeastRecent,
    };

    // Allocates xmm registers first .. first + count - 1.
    XmmAllocator(Emitter& em, int first, int count, Choice choice);

    // registers program registers, homed from base; none held. Homes are
    // current or not as said (a home not current and not held stands for a
    // value never written: the sweep's zero adjoint).
    void Reset(std::size_t registers, int base, bool homes_current);
    int count() const { return m_count; }

    Mem Home(std::uint32_t reg) const
    {
        if (reg < m_moved.size() && m_moved[reg].base >= 0)
            return m_moved[reg];
        return {m_base, static_cast<std::int32_t>(8 * reg)};
    }
    // reg's home is at instead: a value written once before the code reads
    // it, and never again (a shaped parameter's element in the host's value).
    void MoveHome(std::uint32_t reg, Mem at);
    bool HomeCurrent(std::uint32_t reg) const { return m_current[reg]; }
    void SetHomeCurrent(std::uint32_t reg, bool current) { m_current[reg] = current; }

    // For kFurthestUse: reg is read at position at (positions added in
    // order); CloseUses once all are added (LastUse is kNever for a
    // register nothing reads).
    void AddUse(std::uint32_t reg, std::size_t at) { m_uses[reg].push_back(at); }
    void CloseUses();
    std::size_t LastUse(std::uint32_t reg) const { return m_last[reg]; }

    // The xmm register holding reg, or kNone.
    int Held(std::uint32_t reg) const { return m_xmm[reg]; }
    // Held, marking it recently used and pinned.
    int Find(std::uint32_t reg);
    // A free xmm register, made free if need be (at: the position being
    // written; -1 before the first). Callers pin, or read at at, fewer
    // registers than count at a time.
    int Free(std::ptrdiff_t at);
    // The xmm register holding reg, loaded from its home if not held.
    int Load(std::uint32_t reg, std::size_t at);
    // A free xmm register that now holds reg (whose home is left as it is).
    int Take(std::uint32_t reg, std::ptrdiff_t at);
    // xmm holds reg's new value, newer than its home. For kFurthestUse a
    // value nothing reads is not held at all.
    void Define(std::uint32_t reg, int xmm);
    // The register an instruction computes into, holding first's value: its
    // own xmm register where this is first's last use.
    int Target(std::uint32_t first, std::uint32_t second, std::size_t at);
    // reg is no longer held (its home is left as it is).
    void Release(std::uint32_t reg);
    // Releases the operands read for the last time at at.
    void ReleaseDead(const std::vector<std::uint32_t>& operands, std::size_t at);
    // Before a call, which may change every xmm register: values needed from
    // at on go home, and nothing is held.
    void SpillAll(std::size_t at);
    // Nothing held and nothing stored: after a call, where every home is
    // current.
    void Clear();
    void Unpin();

private:
    std::size_t NextUse(std::uint32_t reg, std::ptrdiff_t after);
    void Hold(std::uint32_t reg, int xmm);
    int Slot(int xmm) const { return xmm - m_first; }

    struct Holder {
        std::uint32_t reg;
        std::uint64_t last;  // when last found or taken
        bool pinned;
    };
    static constexpr std::uint32_t kFree = 0xFFFFFFFFu;

    Emitter& m_em;
    int m_first;
    int m_count;
    Choice m_choice;
    int m_base = 0;
    std::uint64_t m_clock = 0;
    Holder m_holders[16];
    std::vector<int> m_xmm;        // by register: the xmm holding it, or kNone
    std::vector<bool> m_current;   // by register: its home holds its value
    std::vector<Mem> m_moved;      // by register: its home where moved (base -1: not)
    std::vector<std::vector<std::size_t> > m_uses;
    std::vector<std::size_t> m_cursor;
    std::vector<std::size_t> m_last;
};

}  // namespace x64
}  // namespace vexa_compiled

#endif
