#include "vexa/compiled/machine_gradient.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "vexa/compiled/builtin_gradient.h"
#include "vexa/compiled/machine_code.h"
#include "vexa/compiled/point_run.h"
#include "vexa/compiled/x64_emitter.h"

namespace vexa_compiled {

#if defined(__x86_64__) && (defined(__unix__) || defined(__APPLE__))

namespace {

using namespace x64;

// Beyond these the code would be large for little gain; the runner takes
// such programs.
constexpr std::size_t kMaxSteps = 20000;
constexpr std::size_t kMaxRegisters = std::size_t(1) << 24;
constexpr std::uint64_t kOne = 0x3FF0000000000000ULL;
constexpr std::uint64_t kSignMask = 0x8000000000000000ULL;
// Stack room for a built-in's arguments (the longest takes 34), sized so
// that calls stay 16-byte aligned after the six pushes.
constexpr std::int32_t kFrame = 8 * 34 + 8;

// What a step answers when it threw: the exception waits in the call.
constexpr int kThrew = 255;

int CallStep(const Unit* u, GradientCall* call, const Unit::Step* step, double* r, double* tape)
{
    try {
        return RunStep(*u, *call->space, *step, r, tape);
    } catch (...) {
        call->pending = std::current_exception();
        return kThrew;
    }
}

// A built-in's value and partials, as the runner's step computes them.
int CallBuiltin(int op, const double* v, int n, double* value, double* partials)
{
    if (SelectionGradient(static_cast<Op>(op), v, *value, partials))
        return kGoes;
    return BuiltinGradient(static_cast<Op>(op), v, n, *value, partials) ? kGoes : kRefusal;
}

bool IsBuiltin(std::uint8_t op)
{
    return (op >= kAbs && op <= kSqrt) || (op >= kAtan2 && op <= kSign) || (op >= kIf && op <= kForsin);
}

std::int32_t Field(std::size_t offset)
{
    return static_cast<std::int32_t>(offset);
}

// rbx: the registers, r12: the tape, r13: the adjoints, r14: the call,
// r15: the workspace.
class Generator {
public:
    Generator(const Unit& u, int count) : m_unit(u), m_count(count) {}

    bool Emit();
    std::vector<std::uint8_t> Finish() { return m_em.Finish(); }

private:
    static Mem At(int base, std::uint32_t index) { return {base, static_cast<std::int32_t>(8 * index)}; }
    Mem Reg(std::uint32_t r) const { return At(rbx, r); }

    void Arithmetic(const Unit::Step& step);
    void Called(const Unit::Step& step);
    void Builtin(const Unit::Step& step);
    void Sweep();

    const Unit& m_unit;
    int m_count;
    Emitter m_em;
    int m_leave = 0;  // eax holds the answer
    int m_one = 0;
    int m_sign = 0;
};

// The value arithmetic's operand order (the sum is b + a) and the runner's
// partials: of a product its other operand, of a quotient 1 / divisor and
// -q / divisor; those of a sum or difference never change and are in the
// tape already.
void Generator::Arithmetic(const Unit::Step& step)
{
    const std::uint32_t* o = m_unit.operands.data() + step.first;
    const Mem t0 = At(r12, step.first);
    const Mem t1 = At(r12, step.first + 1);
    switch (step.op) {
    case kAdd:
        m_em.MovsdLoad(0, Reg(o[1]));
        m_em.Arith(0x58, 0, Reg(o[0]));
        m_em.MovsdStore(Reg(step.d), 0);
        return;
    case kSub:
        m_em.MovsdLoad(0, Reg(o[0]));
        m_em.Arith(0x5C, 0, Reg(o[1]));
        m_em.MovsdStore(Reg(step.d), 0);
        return;
    case kMul:
        m_em.MovsdLoad(0, Reg(o[0]));
        m_em.MovsdLoad(1, Reg(o[1]));
        m_em.Movapd(2, 0);
        m_em.Arith(0x59, 2, 1);
        m_em.MovsdStore(Reg(step.d), 2);
        if (step.active) {
            m_em.MovsdStore(t0, 1);
            m_em.MovsdStore(t1, 0);
        }
        return;
    default: {  // kDiv
        const int goes = m_em.NewLabel();
        m_em.MovsdLoad(1, Reg(o[1]));
        m_em.Xorpd(0, 0);
        m_em.Ucomisd(0, 1);
        m_em.Jump(kNotEqual, goes);
        m_em.Jump(kParity, goes);
        m_em.MovImm32(rax, kZeroDivisor);
        m_em.Jump(m_leave);
        m_em.Bind(goes);
        m_em.MovsdLoad(0, Reg(o[0]));
        m_em.Arith(0x5E, 0, 1);
        m_em.MovsdStore(Reg(step.d), 0);
        if (step.active) {
            m_em.MovsdLoadPool(2, m_one);
            m_em.Arith(0x5E, 2, 1);
            m_em.MovsdStore(t0, 2);
            m_em.Movapd(3, 0);
            m_em.XorpdPool(3, m_sign);
            m_em.Arith(0x5E, 3, 1);
            m_em.MovsdStore(t1, 3);
        }
        return;
    }
    }
}

void Generator::Called(const Unit::Step& step)
{
    m_em.MovImm64(rdi, reinterpret_cast<std::uint64_t>(&m_unit));
    m_em.MovReg(rsi, r14);
    m_em.MovImm64(rdx, reinterpret_cast<std::uint64_t>(&step));
    m_em.MovReg(rcx, rbx);
    m_em.MovReg(r8, r12);
    m_em.MovImm64(rax, reinterpret_cast<std::uint64_t>(&CallStep));
    m_em.Call(rax);
    m_em.CmpImm32(rax, kGoes);
    m_em.Jump(kNotEqual, m_leave);
}

// The arguments go to the stack; the value straight to its register, the
// partials to the tape (none where the result depends on no parameter).
void Generator::Builtin(const Unit::Step& step)
{
    const std::uint32_t* o = m_unit.operands.data() + step.first;
    for (std::uint32_t k = 0; k < step.count; ++k) {
        m_em.MovsdLoad(0, Reg(o[k]));
        m_em.MovsdStore({rsp, static_cast<std::int32_t>(8 * k)}, 0);
    }
    m_em.MovImm32(rdi, step.op);
    m_em.Lea(rsi, {rsp, 0});
    m_em.MovImm32(rdx, step.count);
    m_em.Lea(rcx, Reg(step.d));
    if (step.active)
        m_em.Lea(r8, At(r12, step.first));
    else
        m_em.MovImm32(r8, 0);
    m_em.MovImm64(rax, reinterpret_cast<std::uint64_t>(&CallBuiltin));
    m_em.Call(rax);
    m_em.CmpImm32(rax, kGoes);
    m_em.Jump(kNotEqual, m_leave);
}

// adjoint[result] = 1; adjoint[operand] += adjoint[result] * partial, last
// instruction first, skipped where the adjoint is 0 (a value that cannot
// reach the result adds nothing, even through an infinite partial).
void Generator::Sweep()
{
    const Program& p = *m_unit.program;
    m_em.Xorpd(7, 7);
    for (std::uint32_t reg : m_unit.activeRegisters)
        m_em.MovsdStore(At(r13, reg), 7);
    m_em.MovsdLoadPool(6, m_one);
    m_em.MovsdStore(At(r13, p.resultRegister()), 6);
    // The entries of one instruction follow each other: its adjoint is
    // read and tested once for all its operands.
    const std::vector<Unit::Back>& backs = m_unit.backs;
    for (std::size_t i = 0; i < backs.size();) {
        std::size_t end = i;
        while (end < backs.size() && backs[end].result == backs[i].result)
            ++end;
        const int apply = m_em.NewLabel();
        const int skip = m_em.NewLabel();
        m_em.MovsdLoad(0, At(r13, backs[i].result));
        m_em.Ucomisd(0, 7);
        m_em.Jump(kParity, apply);
        m_em.Jump(kEqual, skip);
        m_em.Bind(apply);
        for (; i < end; ++i) {
            m_em.Movapd(2, 0);
            m_em.Arith(0x59, 2, At(r12, backs[i].position));
            m_em.MovsdLoad(1, At(r13, backs[i].operand));
            m_em.Arith(0x58, 1, 2);
            m_em.MovsdStore(At(r13, backs[i].operand), 1);
        }
        m_em.Bind(skip);
    }
    m_em.MovLoad(rax, {r14, Field(offsetof(GradientCall, grad))});
    for (int k = 0; k < m_count; ++k)
        m_em.MovsdStore({rax, 8 * k}, 7);
    for (const auto& load : p.paramLoads()) {
        m_em.MovsdLoad(0, At(r13, load.second));
        m_em.MovsdStore({rax, 8 * load.first}, 0);
    }
}

bool Generator::Emit()
{
    const Program& p = *m_unit.program;
    if (m_unit.steps.size() > kMaxSteps || p.initialRegisters().size() > kMaxRegisters ||
        m_unit.tape.size() > kMaxRegisters || m_count < p.neededParams())
        return false;
    m_leave = m_em.NewLabel();
    m_one = m_em.Constant(kOne);
    m_sign = m_em.Constant(kSignMask);

    m_em.Push(rbx);
    m_em.Push(rbp);
    m_em.Push(r12);
    m_em.Push(r13);
    m_em.Push(r14);
    m_em.Push(r15);
    m_em.SubRsp(kFrame);
    m_em.MovReg(r14, rdi);
    m_em.MovLoad(rbx, {r14, Field(offsetof(GradientCall, regs))});
    m_em.MovLoad(r12, {r14, Field(offsetof(GradientCall, tape))});
    m_em.MovLoad(r13, {r14, Field(offsetof(GradientCall, adjoint))});
    m_em.MovLoad(r15, {r14, Field(offsetof(GradientCall, space))});
    m_em.MovLoad(rax, {r14, Field(offsetof(GradientCall, args))});
    for (const auto& load : p.paramLoads()) {
        m_em.MovsdLoad(0, {rax, 8 * load.first});
        m_em.MovsdStore(Reg(load.second), 0);
    }
    for (const Unit::Step& step : m_unit.steps) {
        if (step.op == kAdd || step.op == kSub || step.op == kMul || step.op == kDiv)
            Arithmetic(step);
        else if (IsBuiltin(step.op))
            Builtin(step);
        else
            Called(step);
    }
    m_em.MovsdLoad(0, Reg(p.resultRegister()));
    m_em.MovsdStore({r14, Field(offsetof(GradientCall, value))}, 0);
    Sweep();
    m_em.MovImm32(rax, kGoes);

    m_em.Bind(m_leave);
    m_em.AddRsp(kFrame);
    m_em.Pop(r15);
    m_em.Pop(r14);
    m_em.Pop(r13);
    m_em.Pop(r12);
    m_em.Pop(rbp);
    m_em.Pop(rbx);
    m_em.Ret();
    return true;
}

}  // namespace

StopReason GradientCode::Run(GradientCall& call) const
{
    const int answer = m_entry(&call);
    if (answer == kThrew) {
        std::exception_ptr e = call.pending;
        call.pending = nullptr;
        std::rethrow_exception(e);
    }
    return static_cast<StopReason>(answer);
}

std::unique_ptr<GradientCode> GradientCode::Make(const Unit& u, int count)
{
    if (!u.program || RunsBeforeMachineCode() < 0)
        return nullptr;
    Generator generator(u, count);
    if (!generator.Emit())
        return nullptr;
    const std::vector<std::uint8_t> bytes = generator.Finish();
    std::unique_ptr<GradientCode> code(new GradientCode());
    if (!code->m_memory.Load(bytes.data(), bytes.size()))
        return nullptr;
    code->m_entry = reinterpret_cast<Entry>(code->m_memory.data());
    return code;
}

#else

StopReason GradientCode::Run(GradientCall&) const
{
    return kTreeOnly;
}

std::unique_ptr<GradientCode> GradientCode::Make(const Unit&, int)
{
    return nullptr;
}

#endif

}  // namespace vexa_compiled
