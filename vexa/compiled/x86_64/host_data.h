#ifndef VEXA_COMPILED_HOST_DATA_H
#define VEXA_COMPILED_HOST_DATA_H

#include <cstdint>

#include "vexa/compiled/machine_code.h"
#include "vexa/compiled/program/program.h"
#include "vexa/compiled/x86_64/x64_emitter.h"

// How the value code meets the host's values: the VEXA_Data parameters it
// reads, the calculator's held parameters it copies them into, and the
// result it writes. Internal.
namespace vexa_compiled {


namespace x64 {

class XmmAllocator;

// The registers the value code keeps its pointers in.
struct HostRegisters {
    int self;     // the calculator
    int params;   // the host's parameters
    int result;   // the host's result
    int held;     // the calculator's held parameters
    int shape;    // a scalar's shape, for compares
    int scratch;  // free until the first call
    int base;     // the program's register homes
};

class HostData {
public:
    HostData(Emitter& em, const Layout& layout, const HostRegisters& regs) : m_em(em), m_layout(layout), m_regs(regs)
    {
    }

    // To other, unless the caller passed count parameters and the
    // calculator holds count (self and count as the entry takes them,
    // before the prologue).
    void CheckCount(int self, int count_arg, int count, int other);
    // The held parameters' address and a scalar's shape into their
    // registers.
    void LoadPointers();
    // The parameter copy, scalar into held scalar, as the long way makes it;
    // to general for anything else. Parameters the program reads are left in
    // xmm registers.
    void CopyParameters(const Program& program, int count, XmmAllocator& xmms, int general);
    // The result (the program's register reg) into the host's value in place
    // when it is a scalar's storage already, with eax the answer true; to
    // slow otherwise, with the value in xmm slow_xmm, the argument of the
    // C++ that makes it one.
    void StoreResult(std::uint32_t reg, XmmAllocator& xmms, int slow, int slow_xmm);

    // For values of shapes: to general unless every parameter and held
    // value has its shape and its elements in its own buffer; then the
    // elements into the held value (nothing is copied before every check
    // has passed). The program reads them in the host's value, whose lines
    // the copy has just brought in: HostElement is their home. (Read back
    // from the held copy, every element would wait for its store.)
    void CopyShapedParameters(const ValueShapes& shapes, int general);
    Mem HostElement(int param, int element) const;
    // The result's elements into the host's value in place where it holds
    // them in its own buffer, with eax the answer true; else the elements
    // go to their registers and the code goes on at slow.
    void StoreShapedResult(const ValueShapes& shapes, XmmAllocator& xmms, int slow);

private:
    Emitter& m_em;
    Layout m_layout;
    HostRegisters m_regs;
};

}  // namespace x64
}  // namespace vexa_compiled

#endif
