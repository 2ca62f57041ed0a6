#include "vexa/compiled/machine_gradient.h"

#include "vexa/compiled/run/point_run.h"

namespace vexa_compiled {

namespace {

// Beyond these the code would be large for little gain; the runner takes
// such programs. Every index fits a 32-bit displacement of 8-byte slots.
constexpr std::size_t kMaxSteps = 20000;
constexpr std::size_t kMaxRegisters = std::size_t(1) << 24;
constexpr int kMaxCount = 1 << 24;

}  // namespace

bool GradientCodeTakes(const Unit& u, int count)
{
    if (!u.program)
        return false;
    const Program& p = *u.program;
    const std::size_t registers = p.initialRegisters().size();
    const std::size_t tape = u.tape.size();
    if (u.steps.size() > kMaxSteps || registers > kMaxRegisters || tape > kMaxRegisters ||
        count < p.neededParams() || count > kMaxCount || p.resultRegister() >= registers)
        return false;
    for (const auto& load : p.paramLoads()) {
        if (load.first < 0 || load.first >= count || load.second >= registers)
            return false;
    }
    // The sweeps take an adjoint as complete once the entries of the one
    // instruction writing its register are passed: every register is
    // written once, and by no instruction that reads it.
    std::vector<bool> written(registers, false);
    for (const auto& load : p.paramLoads())
        written[load.second] = true;
    for (const Unit::Step& step : u.steps) {
        if (step.d >= registers || written[step.d] || step.first > u.operands.size() ||
            step.count > u.operands.size() - step.first || (step.active && step.first + step.count > tape))
            return false;
        for (std::uint32_t k = 0; k < step.count; ++k) {
            if (u.operands[step.first + k] >= registers || u.operands[step.first + k] == step.d)
                return false;
        }
        written[step.d] = true;
    }
    for (const Unit::Back& back : u.backs) {
        if (back.result >= registers || back.operand >= registers || back.position >= tape)
            return false;
    }
    return true;
}

int CallStep(const Unit* u, GradientCall* call, const Unit::Step* step, double* r, double* tape)
{
    try {
        return RunStep(*u, *call->space, *step, r, tape);
    } catch (...) {
        call->pending = std::current_exception();
        return kStepThrew;
    }
}

StopReason GradientCode::Run(GradientCall& call) const
{
    if (!m_entry)
        return kTreeOnly;
    const int answer = m_entry(&call);
    if (answer == kStepThrew) {
        std::exception_ptr e = call.pending;
        call.pending = nullptr;
        std::rethrow_exception(e);
    }
    return static_cast<StopReason>(answer);
}

}  // namespace vexa_compiled
