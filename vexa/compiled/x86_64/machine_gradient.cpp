#include "vexa/compiled/x86_64/machine_gradient.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "vexa/compiled/run/builtin_gradient.h"
#include "vexa/compiled/x86_64/machine_code.h"
#include "vexa/compiled/run/point_run.h"
#include "vexa/compiled/x86_64/x64_emitter.h"

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
constexpr std::uint64_t kAbsMask = 0x7FFFFFFFFFFFFFFFULL;
// Stack room for a built-in's arguments (the longest takes 34), sized so
// that calls stay 16-byte aligned after the four pushes. A longer list is
// refused when the code is made, never written past the room.
constexpr std::uint32_t kArgSlots = 34;
constexpr std::int32_t kFrame = 8 * kArgSlots + 8;
// The gradient is written with 32-bit displacements from the argument
// pointer.
constexpr int kMaxCount = 1 << 24;

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

bool IsBuiltin(std::uint8_t op)
{
    return (op >= kAbs && op <= kSqrt) || (op >= kAtan2 && op <= kSign) || (op >= kIf && op <= kForsin);
}

std::int32_t Field(std::size_t offset)
{
    return static_cast<std::int32_t>(offset);
}

// Which program register each of xmm4..xmm15 holds: values in the forward
// run, adjoints in the sweep. A result kept there is read by the next
// instruction without the round trip through memory, which costs more than
// the arithmetic itself; the least recently used one gives way.
class XmmCache {
public:
    static constexpr int kFirst = 4;
    static constexpr int kCount = 12;
    static constexpr std::uint32_t kNone = 0xFFFFFFFFu;

    void Clear()
    {
        for (Slot& slot : m_slots)
            slot = Slot();
    }

    // The xmm holding reg (pinned until Unpin), or -1.
    int Find(std::uint32_t reg)
    {
        for (int i = 0; i < kCount; ++i) {
            if (m_slots[i].reg == reg) {
                m_slots[i].last = ++m_clock;
                m_slots[i].pinned = true;
                return kFirst + i;
            }
        }
        return -1;
    }

    // An xmm for reg (pinned until Unpin): a free one, or the least recently
    // used one not pinned, whose register goes to *evicted (kNone if free).
    // Callers pin fewer than kCount at a time.
    int Take(std::uint32_t reg, std::uint32_t* evicted)
    {
        int best = -1;
        for (int i = 0; i < kCount; ++i) {
            if (m_slots[i].pinned)
                continue;
            if (m_slots[i].reg == kNone) {
                best = i;
                break;
            }
            if (best < 0 || m_slots[i].last < m_slots[best].last)
                best = i;
        }
        *evicted = m_slots[best].reg;
        m_slots[best] = {reg, ++m_clock, true};
        return kFirst + best;
    }

    void Drop(std::uint32_t reg)
    {
        for (Slot& slot : m_slots) {
            if (slot.reg == reg)
                slot = Slot();
        }
    }

    void Unpin()
    {
        for (Slot& slot : m_slots)
            slot.pinned = false;
    }

private:
    struct Slot {
        std::uint32_t reg = kNone;
        std::uint64_t last = 0;
        bool pinned = false;
    };
    Slot m_slots[kCount];
    std::uint64_t m_clock = 0;
};

// Where the sweep keeps a register's adjoint.
enum Where : std::uint8_t { kZero, kInXmm, kInMemory };

// rbx: the registers, r12: the tape, r13: the adjoints that do not fit in
// xmm registers, r14: the call. xmm0..xmm3 are scratch.
// Every value still goes to its register in memory: called steps and
// built-ins read their arguments there.
class Generator {
public:
    Generator(const Unit& u, int count) : m_unit(u), m_count(count) {}

    bool Emit();
    std::vector<std::uint8_t> Finish() { return m_em.Finish(); }

private:
    static Mem At(int base, std::uint32_t index) { return {base, static_cast<std::int32_t>(8 * index)}; }
    Mem Reg(std::uint32_t r) const { return At(rbx, r); }

    int Value(std::uint32_t r);
    int Result(std::uint32_t r);
    int Adjoint(std::uint32_t r);
    void Arithmetic(const Unit::Step& step);
    void Called(const Unit::Step& step);
    bool Builtin(const Unit::Step& step);
    bool Selection(const Unit::Step& step);
    void Group(std::size_t begin, std::size_t end);
    void Sweep();

    const Unit& m_unit;
    int m_count;
    Emitter m_em;
    XmmCache m_cache;
    std::vector<Where> m_where;  // by register, in the sweep
    int m_leave = 0;  // eax holds the answer
    int m_one = 0;
    int m_sign = 0;
    int m_abs = 0;
};

// The xmm holding register r's value, loaded if it is not held.
int Generator::Value(std::uint32_t r)
{
    int x = m_cache.Find(r);
    if (x < 0) {
        std::uint32_t evicted;
        x = m_cache.Take(r, &evicted);
        m_em.MovsdLoad(x, Reg(r));
    }
    return x;
}

// An xmm for the value of register r, about to be computed (values in
// memory need no saving when they give way).
int Generator::Result(std::uint32_t r)
{
    std::uint32_t evicted;
    return m_cache.Take(r, &evicted);
}

// The value arithmetic's operand order (the sum is b + a) and the runner's
// partials: of a product its other operand, of a quotient 1 / divisor and
// -q / divisor; those of a sum or difference never change and are in the
// tape already.
void Generator::Arithmetic(const Unit::Step& step)
{
    const std::uint32_t* o = m_unit.operands.data() + step.first;
    const Mem t0 = At(r12, step.first);
    const Mem t1 = At(r12, step.first + 1);
    if (step.op == kDiv) {
        const int b = Value(o[1]);
        const int goes = m_em.NewLabel();
        // Zero or NaN divisor: equal or unordered both set ZF.
        m_em.Xorpd(0, 0);
        m_em.Ucomisd(0, b);
        m_em.Jump(kNotEqual, goes);
        m_em.MovImm32(rax, kZeroDivisor);
        m_em.Jump(m_leave);
        m_em.Bind(goes);
    }
    const int a = Value(o[0]);
    const int b = Value(o[1]);
    const int d = Result(step.d);
    switch (step.op) {
    case kAdd:
        m_em.Movapd(d, b);
        m_em.Arith(0x58, d, a);
        break;
    case kSub:
        m_em.Movapd(d, a);
        m_em.Arith(0x5C, d, b);
        break;
    case kMul:
        m_em.Movapd(d, a);
        m_em.Arith(0x59, d, b);
        if (step.active) {
            m_em.MovsdStore(t0, b);
            m_em.MovsdStore(t1, a);
        }
        break;
    default:  // kDiv
        m_em.Movapd(d, a);
        m_em.Arith(0x5E, d, b);
        if (step.active) {
            m_em.MovsdLoadPool(2, m_one);
            m_em.Arith(0x5E, 2, b);
            m_em.MovsdStore(t0, 2);
            m_em.Movapd(3, d);
            m_em.XorpdPool(3, m_sign);
            m_em.Arith(0x5E, 3, b);
            m_em.MovsdStore(t1, 3);
        }
        break;
    }
    m_em.MovsdStore(Reg(step.d), d);
    m_cache.Unpin();
}

// Called code may change every xmm register: nothing is held after it.
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
    m_cache.Clear();
}

// The arguments go to the stack; the op's own kernel writes the value
// straight to its register, the partials to the tape (none where the result
// depends on no parameter). False for a list longer than the room.
bool Generator::Builtin(const Unit::Step& step)
{
    if (step.count > kArgSlots)
        return false;
    const std::uint32_t* o = m_unit.operands.data() + step.first;
    for (std::uint32_t k = 0; k < step.count; ++k) {
        int x = m_cache.Find(o[k]);
        if (x < 0) {
            x = 0;
            m_em.MovsdLoad(0, Reg(o[k]));
        }
        m_em.MovsdStore({rsp, static_cast<std::int32_t>(8 * k)}, x);
    }
    m_em.Lea(rdi, {rsp, 0});
    m_em.MovImm32(rsi, step.count);
    m_em.Lea(rdx, Reg(step.d));
    if (step.active)
        m_em.Lea(rcx, At(r12, step.first));
    else
        m_em.MovImm32(rcx, 0);
    m_em.MovImm64(rax, reinterpret_cast<std::uint64_t>(BuiltinGradientKernel(static_cast<Op>(step.op))));
    m_em.Call(rax);
    m_em.CmpImm32(rax, kGoes);
    m_em.Jump(kNotEqual, m_leave);
    m_cache.Clear();
    return true;
}

// ABS, SIGN, MAX and MIN written out: their values as the value's machine
// code selects them, their partials (each 0, 1 or -1) as SelectionGradient
// gives them. A call would cost more than all of it. False for other ops.
bool Generator::Selection(const Unit::Step& step)
{
    if (step.op != kAbs && step.op != kSign && step.op != kMax && step.op != kMin)
        return false;
    const std::uint32_t* o = m_unit.operands.data() + step.first;
    const Mem t0 = At(r12, step.first);
    const Mem t1 = At(r12, step.first + 1);
    const int a = Value(o[0]);
    const int b = step.op == kAbs ? a : Value(o[1]);
    const int d = Result(step.d);
    const int done = m_em.NewLabel();
    m_em.Xorpd(1, 1);
    m_em.MovsdLoadPool(2, m_one);
    if (step.op == kAbs || step.op == kSign) {
        // |a|, negated unless b > 0 (SIGN); slopes: d|a|/da is 1 for a > 0,
        // otherwise -1 (NaN included), times -1 where the value is negated.
        const int positive = m_em.NewLabel();
        m_em.Movapd(d, a);
        m_em.AndpdPool(d, m_abs);
        m_em.Movapd(0, 2);
        m_em.Ucomisd(a, 1);
        m_em.Jump(kAbove, positive);
        m_em.XorpdPool(0, m_sign);
        m_em.Bind(positive);
        if (step.op == kSign) {
            m_em.Ucomisd(b, 1);
            m_em.Jump(kAbove, done);
            m_em.XorpdPool(d, m_sign);
            m_em.XorpdPool(0, m_sign);
        }
        m_em.Bind(done);
        if (step.active) {
            m_em.MovsdStore(t0, 0);
            if (step.op == kSign)
                m_em.MovsdStore(t1, 1);
        }
    } else {
        // MAX: a >= b ? a : b; MIN: b < a ? b : a. The partial is 1 for the
        // argument taken and 0 for the other.
        const int first = m_em.NewLabel();
        m_em.Ucomisd(a, b);
        if (step.op == kMax)
            m_em.Jump(kAboveOrEqual, first);
        else
            m_em.Jump(kBelowOrEqual, first);
        m_em.Movapd(d, b);
        if (step.active) {
            m_em.MovsdStore(t0, 1);
            m_em.MovsdStore(t1, 2);
        }
        m_em.Jump(done);
        m_em.Bind(first);
        m_em.Movapd(d, a);
        if (step.active) {
            m_em.MovsdStore(t0, 2);
            m_em.MovsdStore(t1, 1);
        }
        m_em.Bind(done);
    }
    m_em.MovsdStore(Reg(step.d), d);
    m_cache.Unpin();
    return true;
}

// The xmm holding register r's adjoint, made so: 0 where nothing was added
// yet, loaded where it had given way; what gives way now is saved.
int Generator::Adjoint(std::uint32_t r)
{
    int x = m_cache.Find(r);
    if (x >= 0)
        return x;
    std::uint32_t evicted;
    x = m_cache.Take(r, &evicted);
    if (evicted != XmmCache::kNone) {
        m_em.MovsdStore(At(r13, evicted), x);
        m_where[evicted] = kInMemory;
    }
    if (m_where[r] == kZero)
        m_em.Xorpd(x, x);
    else
        m_em.MovsdLoad(x, At(r13, r));
    m_where[r] = kInXmm;
    return x;
}

// adjoint[operand] += adjoint[result] * partial for the entries of one
// instruction, skipped where its adjoint is 0 (a value that cannot reach the
// result adds nothing, even through an infinite partial). Every adjoint the
// entries add to is placed before the test, so that both ways on leave it
// in the same place. xmm3 holds 0.
void Generator::Group(std::size_t begin, std::size_t end)
{
    const std::vector<Unit::Back>& backs = m_unit.backs;
    const std::uint32_t result = backs[begin].result;
    // Known to be 0 here: the runner skips it too.
    if (m_where[result] == kZero)
        return;
    const int g = Adjoint(result);
    std::vector<std::uint32_t> operands;
    for (std::size_t i = begin; i < end; ++i) {
        if (std::find(operands.begin(), operands.end(), backs[i].operand) == operands.end())
            operands.push_back(backs[i].operand);
    }
    const bool held = operands.size() < XmmCache::kCount;
    for (const std::uint32_t r : operands) {
        if (held) {
            Adjoint(r);
            continue;
        }
        // A long argument list: its adjoints are added in memory.
        const int x = m_cache.Find(r);
        if (x >= 0)
            m_em.MovsdStore(At(r13, r), x);
        else if (m_where[r] == kZero)
            m_em.MovsdStore(At(r13, r), 3);
        m_cache.Drop(r);
        m_where[r] = kInMemory;
    }
    const int apply = m_em.NewLabel();
    const int skip = m_em.NewLabel();
    m_em.Ucomisd(g, 3);
    m_em.Jump(kParity, apply);
    m_em.Jump(kEqual, skip);
    m_em.Bind(apply);
    for (std::size_t i = begin; i < end; ++i) {
        m_em.Movapd(2, g);
        m_em.Arith(0x59, 2, At(r12, backs[i].position));
        if (held) {
            m_em.Arith(0x58, m_cache.Find(backs[i].operand), 2);
        } else {
            m_em.MovsdLoad(1, At(r13, backs[i].operand));
            m_em.Arith(0x58, 1, 2);
            m_em.MovsdStore(At(r13, backs[i].operand), 1);
        }
    }
    m_em.Bind(skip);
    // Every use of the result came later in the program, so its adjoint is
    // complete and read no more.
    m_cache.Drop(result);
    m_cache.Unpin();
}

// adjoint[result] = 1, then the entries of each instruction, last
// instruction first; the runner's order of additions throughout.
void Generator::Sweep()
{
    const Program& p = *m_unit.program;
    m_cache.Clear();
    m_where.assign(p.initialRegisters().size(), kZero);
    m_em.Xorpd(3, 3);
    std::uint32_t evicted;
    const int one = m_cache.Take(p.resultRegister(), &evicted);
    m_em.MovsdLoadPool(one, m_one);
    m_where[p.resultRegister()] = kInXmm;
    m_cache.Unpin();
    const std::vector<Unit::Back>& backs = m_unit.backs;
    for (std::size_t i = 0; i < backs.size();) {
        std::size_t end = i;
        while (end < backs.size() && backs[end].result == backs[i].result)
            ++end;
        Group(i, end);
        i = end;
    }
    m_em.MovLoad(rax, {r14, Field(offsetof(GradientCall, grad))});
    for (int k = 0; k < m_count; ++k)
        m_em.MovsdStore({rax, 8 * k}, 3);
    for (const auto& load : p.paramLoads()) {
        int x = m_cache.Find(load.second);
        if (x < 0 && m_where[load.second] == kInMemory) {
            x = 0;
            m_em.MovsdLoad(0, At(r13, load.second));
        }
        if (x >= 0)
            m_em.MovsdStore({rax, 8 * load.first}, x);
    }
}

bool Generator::Emit()
{
    const Program& p = *m_unit.program;
    if (m_unit.steps.size() > kMaxSteps || p.initialRegisters().size() > kMaxRegisters ||
        m_unit.tape.size() > kMaxRegisters || m_count < p.neededParams() || m_count > kMaxCount)
        return false;
    m_leave = m_em.NewLabel();
    m_one = m_em.Constant(kOne);
    m_sign = m_em.Constant(kSignMask);
    m_abs = m_em.Constant(kAbsMask);

    m_em.Push(rbx);
    m_em.Push(r12);
    m_em.Push(r13);
    m_em.Push(r14);
    m_em.SubRsp(kFrame);
    m_em.MovReg(r14, rdi);
    m_em.MovLoad(rbx, {r14, Field(offsetof(GradientCall, regs))});
    m_em.MovLoad(r12, {r14, Field(offsetof(GradientCall, tape))});
    m_em.MovLoad(r13, {r14, Field(offsetof(GradientCall, adjoint))});
    m_em.MovLoad(rax, {r14, Field(offsetof(GradientCall, args))});
    m_cache.Clear();
    for (const auto& load : p.paramLoads()) {
        const int x = Result(load.second);
        m_em.MovsdLoad(x, {rax, 8 * load.first});
        m_em.MovsdStore(Reg(load.second), x);
        m_cache.Unpin();
    }
    for (const Unit::Step& step : m_unit.steps) {
        if (step.op == kAdd || step.op == kSub || step.op == kMul || step.op == kDiv) {
            Arithmetic(step);
        } else if (Selection(step)) {
            continue;
        } else if (IsBuiltin(step.op)) {
            if (!Builtin(step))
                return false;
        } else {
            Called(step);
        }
    }
    const int value = Value(p.resultRegister());
    m_em.MovsdStore({r14, Field(offsetof(GradientCall, value))}, value);
    Sweep();
    m_em.MovImm32(rax, kGoes);

    m_em.Bind(m_leave);
    m_em.AddRsp(kFrame);
    m_em.Pop(r14);
    m_em.Pop(r13);
    m_em.Pop(r12);
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
