#include "vexa/compiled/machine_gradient.h"

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vexa/compiled/x86_64/call_convention.h"
#include "vexa/compiled/x86_64/callees.h"
#include "vexa/compiled/x86_64/frame.h"
#include "vexa/compiled/x86_64/gradient_lowering.h"
#include "vexa/compiled/machine_code.h"
#include "vexa/compiled/x86_64/x64_emitter.h"
#include "vexa/compiled/x86_64/xmm_allocator.h"

namespace vexa_compiled {

#if defined(__x86_64__) && (defined(__unix__) || defined(__APPLE__) || defined(_WIN32))

namespace {

using namespace x64;

std::int32_t Field(std::size_t offset)
{
    return static_cast<std::int32_t>(offset);
}

// The entry takes the GradientCall and answers kGoes, a StopReason or
// kStepThrew.
bool Write(Emitter& em, const Unit& u, int count, std::vector<std::uint8_t>& unwind)
{
    // Written with 32-bit displacements, which the shared limits keep to.
    if (!GradientCodeTakes(u, count))
        return false;
    Frame frame(em, kHost, 1);
    GradientRegisters regs;
    regs.regs = frame.TakeKept();
    regs.tape = frame.TakeKept();
    regs.adjoint = frame.TakeKept();
    regs.call = frame.TakeKept();
    if (regs.regs < 0 || regs.tape < 0 || regs.adjoint < 0 || regs.call < 0)
        return false;
    frame.ReserveScratch();
    const int leave = em.NewLabel();  // eax holds the answer
    XmmAllocator xmms(em, 4, 12, XmmAllocator::kLeastRecent);
    frame.UseXmms(12);
    GradientLowering lowering(em, frame, xmms, u, regs, leave);

    frame.Prologue();
    em.MovReg(regs.call, frame.EntryArg(0));
    em.MovLoad(regs.regs, {regs.call, Field(offsetof(GradientCall, regs))});
    em.MovLoad(regs.tape, {regs.call, Field(offsetof(GradientCall, tape))});
    em.MovLoad(regs.adjoint, {regs.call, Field(offsetof(GradientCall, adjoint))});
    em.MovLoad(rax, {regs.call, Field(offsetof(GradientCall, args))});
    lowering.LoadParameters();
    for (const Unit::Step& step : u.steps) {
        if (!lowering.Lower(step))
            return false;
    }
    lowering.Finish(count);

    em.Bind(leave);
    frame.Epilogue();
    em.Ret();
    return frame.UnwindInfo(unwind);
}

}  // namespace

std::unique_ptr<GradientCode> GradientCode::Make(const Unit& u, int count)
{
    if (!u.program || RunsBeforeMachineCode() < 0)
        return nullptr;
    x64::Emitter em;
    std::vector<std::uint8_t> unwind;
    if (!Write(em, u, count, unwind))
        return nullptr;
    const std::vector<std::uint8_t> bytes = em.Finish();
    std::unique_ptr<GradientCode> code(new GradientCode());
    if (!code->m_memory.Load(bytes.data(), bytes.size(), unwind.data(), unwind.size()))
        return nullptr;
    code->m_entry = reinterpret_cast<Entry>(code->m_memory.data());
    return code;
}

#elif !(defined(__aarch64__) && defined(__linux__))

// (Linux AArch64 has its own, in vexa/compiled/aarch64/.)
std::unique_ptr<GradientCode> GradientCode::Make(const Unit&, int)
{
    return nullptr;
}

#endif

}  // namespace vexa_compiled
