// GradientCode on Linux AArch64: the one-point run with its reverse sweep as
// A64 code, in the frame of the value code (vexa/compiled/aarch64/a64_frame.h),
// taking the GradientCall in x0 and answering in w0. The floating-point
// environment is the caller's to set: the gradient runs under the default
// one whatever the host has set, as the runner does.
#include "vexa/compiled/machine_gradient.h"

#if defined(__aarch64__) && defined(__linux__)

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vexa/compiled/aarch64/a64_emitter.h"
#include "vexa/compiled/aarch64/a64_frame.h"
#include "vexa/compiled/aarch64/a64_gradient_lowering.h"
#include "vexa/compiled/machine_code.h"

namespace vexa_compiled {

namespace {

using namespace a64;

// Bytes of code a step may take at most (a built-in's 34 arguments each
// loaded through a far offset and stored), an entry of the sweep with the
// test of its group, a parameter's load and its partial's copy, and the
// frame, the value and the clearing of the partials around them.
constexpr std::size_t kBytesPerStep = 34 * 2 * 5 * 4 + 64;
constexpr std::size_t kBytesPerBack = 128;
constexpr std::size_t kBytesPerLoad = 64;
constexpr std::size_t kBytesAround = 4096;

std::int64_t Field(std::size_t offset)
{
    return static_cast<std::int64_t>(offset);
}

// False where a step is not taken: the whole unit stays with the runner.
bool Write(Emitter& em, const Unit& u, int count)
{
    const int leave = em.NewLabel();  // w0 holds the answer
    GradientLowering lowering(em, u, leave);
    Prologue(em);
    em.MovReg(kCall, x0);
    em.LdrX(kBase, kCall, Field(offsetof(GradientCall, regs)));
    em.LdrX(kTape, kCall, Field(offsetof(GradientCall, tape)));
    em.LdrX(kAdjoint, kCall, Field(offsetof(GradientCall, adjoint)));
    lowering.LoadParameters();
    for (const Unit::Step& step : u.steps) {
        if (!lowering.Lower(step))
            return false;
    }
    lowering.Finish(count);
    em.Bind(leave);
    Epilogue(em);
    em.Ret();
    return true;
}

}  // namespace

std::unique_ptr<GradientCode> GradientCode::Make(const Unit& u, int count)
{
    if (!u.program || RunsBeforeMachineCode() < 0 || !GradientCodeTakes(u, count))
        return nullptr;
    Emitter em(kBytesAround + kBytesPerStep * u.steps.size() + kBytesPerBack * u.backs.size() +
               kBytesPerLoad * u.program->paramLoads().size());
    std::vector<std::uint8_t> bytes;
    if (!Write(em, u, count) || !em.Finish(bytes))
        return nullptr;
    std::unique_ptr<GradientCode> code(new GradientCode());
    if (!code->m_memory.Load(bytes.data(), bytes.size()))
        return nullptr;
    code->m_entry = reinterpret_cast<Entry>(code->m_memory.data());
    return code;
}

}  // namespace vexa_compiled

#endif
