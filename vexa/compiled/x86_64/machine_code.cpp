#include "vexa/compiled/x86_64/machine_code.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <limits>
#include <vector>

#include "vexa/calc/builtin_math.h"
#include "vexa/calc/callee.h"
#include "vexa/calc/icalculator.h"
#include "vexa/compiled/program/builtin_ops.h"
#include "vexa/compiled/x86_64/x64_emitter.h"
#include "vexa/core/data_access.h"
#include "vexa/core/float_ops.h"

namespace vexa_compiled {

int RunsBeforeMachineCode()
{
    static const int runs = [] {
        const char* text = std::getenv("VEXA_MACHINE_CODE_AFTER");
        return text && *text ? std::atoi(text) : 64;
    }();
    return runs;
}

#if defined(__x86_64__) && (defined(__unix__) || defined(__APPLE__))

namespace {

using namespace x64;
using vexa_core::DataAccess;

// Beyond these the code would be large for little gain; the interpreter
// runs such programs.
constexpr int kMaxCount = 256;
constexpr std::size_t kMaxInstructions = 20000;
// Register homes are addressed with 32-bit displacements.
constexpr std::size_t kMaxRegisters = std::size_t(1) << 24;
// Stack room for argument lists (the longest built-in takes 34), sized so
// that calls stay 16-byte aligned after the six pushes of the frame. Every
// list written here is checked against it when the code is made; calls of
// other calculators, which may pass any number of arguments, never use it.
constexpr std::int32_t kScratch = 272;
constexpr std::int32_t kFrame = kScratch + 8;
constexpr std::uint32_t kScratchSlots = kScratch / 8;
// A central difference done in place keeps its first value in the last
// slots but one, above the arguments it writes.
constexpr std::int32_t kFirstValue = kScratch - 16;
constexpr std::uint32_t kSlotsBelowFirst = kFirstValue / 8;
// Arguments passed in xmm registers, as the calling convention allows.
constexpr std::uint32_t kXmmArgs = 8;
static_assert(kScratchSlots >= 3 + vexa_math::kMaxCoefficients, "the longest built-in list fits the scratch room");
// Rows 1 and columns 1 read as one 8-byte word: the shape of a scalar.
constexpr std::uint64_t kScalarShape = 0x0000000100000001ULL;
constexpr std::uint64_t kAbsMask = 0x7FFFFFFFFFFFFFFFULL;
constexpr std::uint64_t kOne = 0x3FF0000000000000ULL;
constexpr int kNoXmm = -1;
constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();

// What the code calls. Each wraps exactly the function the interpreter and
// the built-ins call, so the bits agree.
double CallSin(double x) { return std::sin(x); }
double CallCos(double x) { return std::cos(x); }
double CallTan(double x) { return std::tan(x); }
double CallSinh(double x) { return std::sinh(x); }
double CallCosh(double x) { return std::cosh(x); }
double CallTanh(double x) { return std::tanh(x); }
double CallAtan(double x) { return std::atan(x); }
double CallExp(double x) { return std::exp(x); }
double CallAsin(double x) { return std::asin(x); }
double CallAcos(double x) { return std::acos(x); }
double CallLog(double x) { return std::log(x); }
double CallLog10(double x) { return std::log10(x); }
double CallPow(double x, double y) { return vexa_math::Pow(x, y); }
double CallAtan2(double y, double x) { return std::atan2(y, x); }
double CallMax(double a, double b) { return vexa_math::Max(a, b); }
double CallMin(double a, double b) { return vexa_math::Min(a, b); }
double CallSign(double a, double b) { return vexa_math::Sign(a, b); }
double CallIf(double x, double n, double z, double p) { return vexa_math::If(x, n, z, p); }
double CallAint(double x) { return vexa_math::Trunc(x); }

int CallDifference(const DiffChain* chain, const double* args, int n, double* out)
{
    return CentralDifference(*chain, args, n, *out) ? 1 : 0;
}

// 0: out holds the scalar result; 1: hand over to the tree; 2: the call
// threw, and the exception waits in space for the code to leave. The
// arguments are read from their registers here, not copied by the code: a
// call may pass any number of them, and space->args was checked to hold n
// when the code was made.
int CallCalculator(CallSpace* space, ICalculator* calc, const std::uint32_t* regs, const double* r, int n,
                   double* out)
{
    try {
        for (int k = 0; k < n; ++k)
            DataAccess::AssignScalar(space->args[static_cast<std::size_t>(k)], r[regs[k]]);
        VEXA_Data result;
        vexa_calc::CallFunction(calc, n, space->args.data(), result);
        if (!DataAccess::IsScalar(result))
            return 1;
        *out = DataAccess::Scalar(result);
        return 0;
    } catch (...) {
        space->pending = std::current_exception();
        return 2;
    }
}

// Reached by a jump after the code has taken its frame down, so the
// exception leaves from ordinary C++ frames.
int Rethrow(CallSpace* space)
{
    std::exception_ptr e = space->pending;
    space->pending = nullptr;
    std::rethrow_exception(e);
}

template <class F>
std::uint64_t Address(F* f)
{
    return reinterpret_cast<std::uint64_t>(f);
}

// The function a one-argument instruction calls, or null for those done
// in place.
double (*UnaryFunction(Op op))(double)
{
    switch (op) {
    case kSin: return CallSin;
    case kCos: return CallCos;
    case kTan: return CallTan;
    case kSinh: return CallSinh;
    case kCosh: return CallCosh;
    case kTanh: return CallTanh;
    case kAtan: return CallAtan;
    case kExp: return CallExp;
    case kAsin: return CallAsin;
    case kAcos: return CallAcos;
    case kLog: return CallLog;
    case kLog10: return CallLog10;
    case kAnint: return vexa_math::Anint;
    default: return nullptr;
    }
}

double (*BinaryFunction(Op op))(double, double)
{
    switch (op) {
    case kPow: return CallPow;
    case kAtan2: return CallAtan2;
    case kMax: return CallMax;
    case kMin: return CallMin;
    case kMod: return vexa_math::Mod;
    case kSign: return CallSign;
    default: return nullptr;
    }
}

// Built-ins over up to eight scalar arguments, all passed in registers.
std::uint64_t ListFunction(Op op)
{
    switch (op) {
    case kIf: return Address(CallIf);
    case kStep: return Address(vexa_math::CubicStep);
    case kStep5: return Address(vexa_math::QuinticStep);
    case kHavsin: return Address(vexa_math::Havsin);
    case kShf: return Address(vexa_math::Shf);
    case kImpact: return Address(vexa_math::Impact);
    case kSweep: return Address(vexa_math::Sweep);
    case kBistop: return Address(vexa_math::Bistop);
    default: return 0;
    }
}

// The series take their leading arguments in registers and the rest as an
// array.
std::uint64_t SeriesFunction(Op op, int& lead)
{
    switch (op) {
    case kPoly: lead = 2; return Address(vexa_math::Poly);
    case kCheby: lead = 2; return Address(vexa_math::Cheby);
    case kForcos: lead = 3; return Address(vexa_math::Forcos);
    case kForsin: lead = 3; return Address(vexa_math::Forsin);
    default: return 0;
    }
}

// The function computing op over its arguments in registers (and, for the
// series, an array after lead of them), for the ops that never refuse their
// values; 0 for the others.
std::uint64_t Kernel(Op op, int& lead)
{
    lead = -1;
    switch (op) {
    case kSinh:
    case kCosh:
    case kTanh:
    case kAtan:
    case kExp:
    case kSin:
    case kCos:
    case kTan:
    case kAnint:
        return Address(UnaryFunction(op));
    case kAint:
        return Address(CallAint);
    default:
        break;
    }
    if (BinaryFunction(op))
        return Address(BinaryFunction(op));
    if (const std::uint64_t f = ListFunction(op))
        return f;
    return SeriesFunction(op, lead);
}

bool IsSelection(Op op)
{
    return op == kMax || op == kMin || op == kSign || op == kIf;
}

bool IsCallLike(Op op)
{
    if (op == kAdd || op == kSub || op == kMul || op == kDiv || op == kAbs || op == kSqrt || op == kAint ||
        op == kReturn || op == kStep || op == kStep5 || IsSelection(op))
        return false;
    return true;
}

class Generator {
public:
    Generator(const Program& p, int count, double* registers, CallSpace* space, const Layout& layout,
              const Exits& exits)
        : m_program(p), m_count(count), m_registers(registers), m_space(space), m_layout(layout), m_exits(exits)
    {
    }

    bool Emit();
    std::vector<std::uint8_t> Finish() { return m_em.Finish(); }

private:
    // Where things are while the code runs.
    int m_base = r8;     // the program's registers
    int m_held = r9;     // the calculator's held parameters
    int m_self = rdi;    // the calculator
    int m_params = rdx;  // the host's parameters
    int m_result = rcx;  // the host's result
    int m_shape = r11;   // kScalarShape
    int m_scratch = r10;
    bool m_frame = false;

    Mem Home(std::uint32_t reg) const { return {m_base, static_cast<std::int32_t>(8 * reg)}; }
    // A register no parameter and no instruction writes holds a constant of
    // the start image; a normal one needs no check as a divisor.
    bool IsNonZeroConstant(std::uint32_t reg) const
    {
        // Judged by its bits: a subnormal is zero under denormals-are-zero.
        std::uint64_t bits;
        const double v = m_program.initialRegisters()[reg];
        std::memcpy(&bits, &v, sizeof bits);
        const std::uint64_t exponent = bits >> 52 & 0x7FF;
        return !m_written[reg] && exponent != 0 && exponent != 0x7FF;
    }
    void Operands(const Instr& in, std::vector<std::uint32_t>& out) const;
    std::size_t NextUse(std::uint32_t reg, std::ptrdiff_t after);

    int FreeXmm(std::ptrdiff_t at);
    int InXmm(std::uint32_t reg, std::size_t at);
    int Target(std::uint32_t first, std::uint32_t second, std::size_t at);
    void Define(std::uint32_t reg, int xmm);
    void ReleaseDead(const std::vector<std::uint32_t>& operands, std::size_t at);
    void SpillAll(std::size_t at);
    void LoadTo(int xmm, std::uint32_t reg);
    void CallAddress(std::uint64_t function);
    void DefineFromXmm0(std::uint32_t reg);

    void Arithmetic(const Instr& in, std::size_t at);
    void Unary(const Instr& in, std::size_t at);
    void Binary(const Instr& in, std::size_t at);
    void Select(const Instr& in, std::size_t at);
    void PolynomialStep(const Instr& in, std::size_t at);
    void MoveTo(int xmm, std::uint32_t reg);
    void CompareWith(int xmm, std::uint32_t reg);
    bool List(const Instr& in, std::size_t at);
    void WriteArgs(const Instr& in, int from);
    bool Difference(const Instr& in, std::size_t at);
    void CallShifted(std::uint64_t kernel, int lead, const Instr& in, int shifted, bool up);
    bool CallOther(const Instr& in, std::size_t at);
    void Prologue();
    void Epilogue();
    void CopyParameters();
    void StoreResult();
    void EmitExits();

    const Program& m_program;
    int m_count;
    double* m_registers;
    CallSpace* m_space;
    Layout m_layout;
    struct Exits m_exits;
    Emitter m_em;
    int m_general = 0;  // -1: take the long way
    int m_stop = 0;     // hand over to the tree
    int m_thrown = 0;   // rethrow outside
    int m_slow_result = 0;
    int m_abs = 0;
    int m_one = 0;
    int m_zero = 0;
    int m_sign = 0;
    int m_three = 0;
    int m_six = 0;
    int m_ten = 0;
    int m_fifteen = 0;
    int m_step = 0;     // the step of the central difference
    int m_two_steps = 0;

    std::vector<std::vector<std::size_t> > m_uses;
    std::vector<std::size_t> m_cursor;
    std::vector<std::size_t> m_last;
    std::vector<int> m_xmm;        // per register: the xmm holding it, or kNoXmm
    std::vector<bool> m_in_memory;  // per register: its home slot is current
    std::vector<bool> m_written;    // per register: a parameter or instruction writes it
    int m_holder[16];              // per xmm: the register it holds, or -1
};

void Generator::Operands(const Instr& in, std::vector<std::uint32_t>& out) const
{
    out.clear();
    const Op op = static_cast<Op>(in.op);
    if (op == kReturn || op == kStop)
        return;
    if (op <= kPow || (op >= kAtan2 && op <= kSign)) {
        out.push_back(in.a);
        out.push_back(in.b);
    } else if (op >= kAbs && op <= kSqrt) {
        out.push_back(in.a);
    } else {
        const std::uint32_t* regs = m_program.argRegisters().data() + in.a;
        out.assign(regs, regs + in.b);
    }
}

// The first use of reg after position after (positions only grow).
std::size_t Generator::NextUse(std::uint32_t reg, std::ptrdiff_t after)
{
    const std::vector<std::size_t>& uses = m_uses[reg];
    std::size_t& c = m_cursor[reg];
    while (c < uses.size() && static_cast<std::ptrdiff_t>(uses[c]) <= after)
        ++c;
    return c < uses.size() ? uses[c] : kNever;
}

// An unused xmm register, or the one whose value is needed furthest ahead
// (never one read at instruction at; -1 is the parameter copy before the
// first), stored home first if only it holds the value.
int Generator::FreeXmm(std::ptrdiff_t at)
{
    int best = -1;
    std::size_t furthest = 0;
    for (int x = 1; x < 16; ++x) {
        if (m_holder[x] < 0)
            return x;
        const std::uint32_t reg = static_cast<std::uint32_t>(m_holder[x]);
        const std::size_t next = NextUse(reg, at - 1);
        if (static_cast<std::ptrdiff_t>(next) > at && next >= furthest) {
            furthest = next;
            best = x;
        }
    }
    const std::uint32_t reg = static_cast<std::uint32_t>(m_holder[best]);
    if (!m_in_memory[reg] && furthest != kNever) {
        m_em.MovsdStore(Home(reg), best);
        m_in_memory[reg] = true;
    }
    m_xmm[reg] = kNoXmm;
    m_holder[best] = -1;
    return best;
}

int Generator::InXmm(std::uint32_t reg, std::size_t at)
{
    if (m_xmm[reg] != kNoXmm)
        return m_xmm[reg];
    const int x = FreeXmm(static_cast<std::ptrdiff_t>(at));
    m_em.MovsdLoad(x, Home(reg));
    m_xmm[reg] = x;
    m_holder[x] = static_cast<int>(reg);
    return x;
}

// The register an instruction computes into, holding its first operand: the
// first operand's own when this is its last use.
int Generator::Target(std::uint32_t first, std::uint32_t second, std::size_t at)
{
    const int held = m_xmm[first];
    if (held != kNoXmm && m_last[first] == at && first != second) {
        m_xmm[first] = kNoXmm;
        m_holder[held] = -1;
        return held;
    }
    const int x = FreeXmm(static_cast<std::ptrdiff_t>(at));
    if (held != kNoXmm)
        m_em.Movapd(x, held);
    else
        m_em.MovsdLoad(x, Home(first));
    return x;
}

void Generator::Define(std::uint32_t reg, int xmm)
{
    m_in_memory[reg] = false;
    // A value nothing reads (of an instruction kept for its checks) frees
    // its register at once.
    if (m_last[reg] == kNever)
        return;
    m_xmm[reg] = xmm;
    m_holder[xmm] = static_cast<int>(reg);
}

void Generator::ReleaseDead(const std::vector<std::uint32_t>& operands, std::size_t at)
{
    for (std::uint32_t reg : operands) {
        if (m_last[reg] <= at && m_xmm[reg] != kNoXmm) {
            m_holder[m_xmm[reg]] = -1;
            m_xmm[reg] = kNoXmm;
        }
    }
}

// Before a call, which may change every xmm register: values needed from
// this instruction on go home.
void Generator::SpillAll(std::size_t at)
{
    for (int x = 1; x < 16; ++x) {
        if (m_holder[x] < 0)
            continue;
        const std::uint32_t reg = static_cast<std::uint32_t>(m_holder[x]);
        if (!m_in_memory[reg] && m_last[reg] >= at && m_last[reg] != kNever) {
            m_em.MovsdStore(Home(reg), x);
            m_in_memory[reg] = true;
        }
        m_xmm[reg] = kNoXmm;
        m_holder[x] = -1;
    }
}

void Generator::LoadTo(int xmm, std::uint32_t reg)
{
    m_em.MovsdLoad(xmm, Home(reg));
}

void Generator::CallAddress(std::uint64_t function)
{
    m_em.MovImm64(rax, function);
    m_em.Call(rax);
}

// After a call every xmm register is free.
void Generator::DefineFromXmm0(std::uint32_t reg)
{
    const int x = FreeXmm(std::numeric_limits<std::ptrdiff_t>::max() - 1);
    m_em.Movapd(x, 0);
    Define(reg, x);
}

void Generator::Arithmetic(const Instr& in, std::size_t at)
{
    const Op op = static_cast<Op>(in.op);
    // The value arithmetic's operand order: the sum is b + a.
    const std::uint32_t first = op == kAdd ? in.b : in.a;
    const std::uint32_t second = op == kAdd ? in.a : in.b;
    const std::uint8_t code = op == kAdd ? 0x58 : op == kSub ? 0x5C : op == kMul ? 0x59 : 0x5E;
    if (op == kDiv && !IsNonZeroConstant(second)) {
        // Zero or NaN divisor: equal or unordered both set ZF.
        m_em.Xorpd(0, 0);
        if (m_xmm[second] != kNoXmm)
            m_em.Ucomisd(0, m_xmm[second]);
        else
            m_em.Ucomisd(0, Home(second));
        m_em.Jump(kEqual, m_stop);
    }
    const int x = Target(first, second, at);
    if (m_xmm[second] != kNoXmm)
        m_em.Arith(code, x, m_xmm[second]);
    else
        m_em.Arith(code, x, Home(second));
    std::vector<std::uint32_t> ops{first, second};
    ReleaseDead(ops, at);
    Define(in.d, x);
}

void Generator::Unary(const Instr& in, std::size_t at)
{
    const Op op = static_cast<Op>(in.op);
    const std::uint32_t arg = in.a;
    std::vector<std::uint32_t> ops{arg};
    if (op == kAbs) {
        const int x = Target(arg, arg + 1, at);
        m_em.AndpdPool(x, m_abs);
        ReleaseDead(ops, at);
        Define(in.d, x);
        return;
    }
    if (op == kSqrt || op == kLog || op == kLog10) {
        // Refused below zero (sqrt) or at and below zero (logarithms); a
        // NaN passes, as ucomisd leaves it unordered.
        m_em.Xorpd(0, 0);
        if (m_xmm[arg] != kNoXmm)
            m_em.Ucomisd(0, m_xmm[arg]);
        else
            m_em.Ucomisd(0, Home(arg));
        m_em.Jump(op == kSqrt ? kAbove : kAboveOrEqual, m_stop);
    }
    if (op == kSqrt) {
        const int x = Target(arg, arg + 1, at);
        m_em.Arith(0x51, x, x);
        ReleaseDead(ops, at);
        Define(in.d, x);
        return;
    }
    if (op == kAint) {
        // vexa_platform::Trunc32's range test first: out of range (or NaN)
        // the answer is INT_MIN without a conversion, which would raise the
        // invalid operation the tree does not.
        const int src = InXmm(arg, at);
        const int outside = m_em.NewLabel();
        const int convert = m_em.NewLabel();
        m_em.UcomisdPool(src, m_em.Constant(0xC1E0000000200000ULL));  // -2147483649
        m_em.Jump(kBelowOrEqual, outside);
        m_em.UcomisdPool(src, m_em.Constant(0x41E0000000000000ULL));  // 2147483648
        m_em.Jump(kAboveOrEqual, outside);
        m_em.Cvttsd2si(rax, src);
        m_em.Jump(convert);
        m_em.Bind(outside);
        m_em.MovImm32(rax, 0x80000000u);
        m_em.Bind(convert);
        ReleaseDead(ops, at);
        const int x = FreeXmm(static_cast<std::ptrdiff_t>(at));
        m_em.Xorpd(x, x);
        m_em.Cvtsi2sd(x, rax);
        Define(in.d, x);
        return;
    }
    if (op == kAsin || op == kAcos) {
        if (m_xmm[arg] != kNoXmm)
            m_em.Movapd(0, m_xmm[arg]);
        else
            m_em.MovsdLoad(0, Home(arg));
        m_em.AndpdPool(0, m_abs);
        m_em.UcomisdPool(0, m_one);
        m_em.Jump(kAbove, m_stop);
    }
    SpillAll(at);
    LoadTo(0, arg);
    CallAddress(Address(UnaryFunction(op)));
    DefineFromXmm0(in.d);
}

void Generator::Binary(const Instr& in, std::size_t at)
{
    SpillAll(at);
    LoadTo(0, in.a);
    LoadTo(1, in.b);
    CallAddress(Address(BinaryFunction(static_cast<Op>(in.op))));
    DefineFromXmm0(in.d);
}

void Generator::MoveTo(int xmm, std::uint32_t reg)
{
    if (m_xmm[reg] == xmm)
        return;
    if (m_xmm[reg] != kNoXmm)
        m_em.Movapd(xmm, m_xmm[reg]);
    else
        m_em.MovsdLoad(xmm, Home(reg));
}

void Generator::CompareWith(int xmm, std::uint32_t reg)
{
    if (m_xmm[reg] != kNoXmm)
        m_em.Ucomisd(xmm, m_xmm[reg]);
    else
        m_em.Ucomisd(xmm, Home(reg));
}

// MAX, MIN, SIGN and IF only pick an argument or flip a sign, so they are
// written out with the compares of their definitions (a NaN compares
// unordered, which every branch below treats as the definitions do).
void Generator::Select(const Instr& in, std::size_t at)
{
    const Op op = static_cast<Op>(in.op);
    std::vector<std::uint32_t> ops;
    Operands(in, ops);
    const int done = m_em.NewLabel();
    int x;
    if (op == kMax) {
        // a >= b ? a : b
        x = Target(ops[0], ops[1], at);
        CompareWith(x, ops[1]);
        m_em.Jump(kAboveOrEqual, done);
        MoveTo(x, ops[1]);
    } else if (op == kMin) {
        // minsd b, a: vexa_math::Min's own instruction
        x = Target(ops[1], ops[0], at);
        if (m_xmm[ops[0]] != kNoXmm)
            m_em.Arith(0x5D, x, m_xmm[ops[0]]);
        else
            m_em.Arith(0x5D, x, Home(ops[0]));
    } else if (op == kSign) {
        // b > 0 ? |a| : -|a|
        x = Target(ops[0], ops[1], at);
        m_em.AndpdPool(x, m_abs);
        MoveTo(0, ops[1]);
        m_em.UcomisdPool(0, m_zero);
        m_em.Jump(kAbove, done);
        m_em.XorpdPool(x, m_sign);
    } else {
        // x < 0 ? n : x == 0 ? z : p; a NaN x is neither, and takes p
        x = FreeXmm(static_cast<std::ptrdiff_t>(at));
        const int positive = m_em.NewLabel();
        const int negative = m_em.NewLabel();
        MoveTo(0, ops[0]);
        m_em.UcomisdPool(0, m_zero);
        m_em.Jump(kParity, positive);
        m_em.Jump(kBelow, negative);
        m_em.Jump(kNotEqual, positive);
        MoveTo(x, ops[2]);
        m_em.Jump(done);
        m_em.Bind(negative);
        MoveTo(x, ops[1]);
        m_em.Jump(done);
        m_em.Bind(positive);
        MoveTo(x, ops[3]);
    }
    m_em.Bind(done);
    ReleaseDead(ops, at);
    Define(in.d, x);
}

// STEP and STEP5 written out, in the order of operations vexa_math spells out
// for them (the same bits, NaNs included), on xmm0..xmm7 after the spill:
// x, x0, h0, x1, h1 in xmm0..xmm4, a in xmm5, h1 - h0 in xmm6.
void Generator::PolynomialStep(const Instr& in, std::size_t at)
{
    const std::uint32_t* regs = m_program.argRegisters().data() + in.a;
    SpillAll(at);
    for (int k = 0; k < 5; ++k)
        LoadTo(k, regs[k]);
    const int done = m_em.NewLabel();
    const int rising = m_em.NewLabel();
    const int high = m_em.NewLabel();
    // h0 unless x > x0; h1 from x1 on (a NaN compares unordered: neither).
    m_em.Ucomisd(0, 1);
    m_em.Jump(kAbove, rising);
    m_em.Movapd(0, 2);
    m_em.Jump(done);
    m_em.Bind(rising);
    m_em.Ucomisd(0, 3);
    m_em.Jump(kAboveOrEqual, high);
    m_em.Movapd(5, 0);
    m_em.Arith(0x5C, 5, 1);  // x - x0
    m_em.Movapd(6, 3);
    m_em.Arith(0x5C, 6, 1);  // x1 - x0
    m_em.Arith(0x5E, 5, 6);  // a
    m_em.Movapd(6, 4);
    m_em.Arith(0x5C, 6, 2);  // h1 - h0
    if (in.op == kStep) {
        m_em.Movapd(7, 5);
        m_em.Arith(0x58, 7, 5);  // a + a
        m_em.MovsdLoadPool(0, m_three);
        m_em.Arith(0x5C, 0, 7);  // 3 - (a + a)
        m_em.Arith(0x59, 0, 6);  // rise
        m_em.Movapd(7, 5);
        m_em.Arith(0x59, 7, 5);  // a a
        m_em.Arith(0x59, 0, 7);
        m_em.Arith(0x58, 0, 2);  // + h0
    } else {
        m_em.MovsdLoadPool(7, m_six);
        m_em.Arith(0x59, 7, 5);
        m_em.Arith(0x59, 7, 5);  // (6a) a
        m_em.MovsdLoadPool(0, m_fifteen);
        m_em.Arith(0x59, 0, 5);  // 15a
        m_em.MovsdLoadPool(3, m_ten);
        m_em.Arith(0x5C, 3, 0);  // 10 - 15a
        m_em.Arith(0x58, 7, 3);  // shape
        m_em.Arith(0x59, 7, 6);
        m_em.Arith(0x59, 7, 5);  // rise
        m_em.Movapd(0, 5);
        m_em.Arith(0x59, 0, 5);  // a a
        m_em.Arith(0x59, 7, 0);
        m_em.Arith(0x58, 7, 2);  // + h0
        m_em.Movapd(0, 7);
    }
    m_em.Jump(done);
    m_em.Bind(high);
    m_em.Movapd(0, 4);
    m_em.Bind(done);
    DefineFromXmm0(in.d);
}

// Argument values from index from on, into the scratch room (the caller
// checked that they fit).
void Generator::WriteArgs(const Instr& in, int from)
{
    const std::uint32_t* regs = m_program.argRegisters().data() + in.a;
    for (std::uint32_t k = static_cast<std::uint32_t>(from); k < in.b; ++k) {
        LoadTo(0, regs[k]);
        m_em.MovsdStore({rsp, static_cast<std::int32_t>(8 * (k - static_cast<std::uint32_t>(from)))}, 0);
    }
}

// False where the list does not fit the registers and scratch room the
// call passes it in.
bool Generator::List(const Instr& in, std::size_t at)
{
    const Op op = static_cast<Op>(in.op);
    const std::uint32_t* regs = m_program.argRegisters().data() + in.a;
    int lead = 0;
    const std::uint64_t series = SeriesFunction(op, lead);
    if (series ? in.b < static_cast<std::uint32_t>(lead) || in.b - static_cast<std::uint32_t>(lead) > kScratchSlots
               : in.b > kXmmArgs || !ListFunction(op))
        return false;
    SpillAll(at);
    if (series) {
        WriteArgs(in, lead);
        for (int k = 0; k < lead; ++k)
            LoadTo(k, regs[k]);
        m_em.Lea(rdi, {rsp, 0});
        m_em.MovImm32(rsi, in.b - static_cast<std::uint32_t>(lead));
        CallAddress(series);
    } else {
        for (std::uint32_t k = 0; k < in.b; ++k)
            LoadTo(static_cast<int>(k), regs[k]);
        CallAddress(ListFunction(op));
    }
    DefineFromXmm0(in.d);
    return true;
}

// One evaluation of a central difference's built-in, with argument shifted
// moved by the step: up (h + x, as the value sum adds it) or down (x - h).
void Generator::CallShifted(std::uint64_t kernel, int lead, const Instr& in, int shifted, bool up)
{
    const std::uint32_t* regs = m_program.argRegisters().data() + in.a;
    const int n = static_cast<int>(in.b);
    auto load = [&](int x, int k) {
        LoadTo(x, regs[k]);
        if (k != shifted)
            return;
        if (up) {
            m_em.MovsdLoadPool(x, m_step);
            m_em.Arith(0x58, x, Home(regs[k]));
        } else {
            m_em.ArithPool(0x5C, x, m_step);
        }
    };
    if (lead >= 0) {
        // A series takes the arguments after its leading ones as an array.
        for (int k = lead; k < n; ++k) {
            load(0, k);
            m_em.MovsdStore({rsp, 8 * (k - lead)}, 0);
        }
        for (int k = 0; k < lead; ++k)
            load(k, k);
        m_em.Lea(rdi, {rsp, 0});
        m_em.MovImm32(rsi, static_cast<std::uint32_t>(n - lead));
    } else {
        for (int k = 0; k < n; ++k)
            load(k, k);
    }
    CallAddress(kernel);
}

bool Generator::Difference(const Instr& in, std::size_t at)
{
    // A single difference of a built-in that never refuses is done here:
    // (f(.., h + x, ..) - f(.., x - h, ..)) / (h + h).
    const DiffChain& chain = m_program.chains()[in.c];
    int lead = -1;
    const std::uint64_t kernel = chain.shifted.size() == 1 ? Kernel(static_cast<Op>(chain.base), lead) : 0;
    const int shifted = chain.shifted.empty() ? -1 : chain.shifted[0];
    const bool fits = lead >= 0 ? in.b >= static_cast<std::uint32_t>(lead) &&
                                      in.b - static_cast<std::uint32_t>(lead) <= kSlotsBelowFirst
                                : in.b <= kXmmArgs;
    if (kernel && shifted >= 0 && shifted < static_cast<int>(in.b) && fits) {
        SpillAll(at);
        const Mem first{rsp, kFirstValue};
        CallShifted(kernel, lead, in, shifted, true);
        m_em.MovsdStore(first, 0);
        CallShifted(kernel, lead, in, shifted, false);
        m_em.MovsdLoad(1, first);
        m_em.Arith(0x5C, 1, 0);
        m_em.ArithPool(0x5E, 1, m_two_steps);
        m_em.Movapd(0, 1);
        DefineFromXmm0(in.d);
        return true;
    }
    if (in.b > kScratchSlots)
        return false;
    SpillAll(at);
    WriteArgs(in, 0);
    m_em.MovImm64(rdi, reinterpret_cast<std::uint64_t>(&m_program.chains()[in.c]));
    m_em.Lea(rsi, {rsp, 0});
    m_em.MovImm32(rdx, in.b);
    m_em.Lea(rcx, Home(in.d));
    CallAddress(Address(CallDifference));
    m_em.CmpImm32(rax, 0);
    m_em.Jump(kEqual, m_stop);
    m_in_memory[in.d] = true;
    return true;
}

// The callee reads its arguments from their homes, where the spill leaves
// every value still needed.
bool Generator::CallOther(const Instr& in, std::size_t at)
{
    if (in.b > m_space->args.size() || in.b > std::numeric_limits<std::int32_t>::max())
        return false;
    SpillAll(at);
    m_em.MovImm64(rdi, reinterpret_cast<std::uint64_t>(m_space));
    m_em.MovImm64(rsi, reinterpret_cast<std::uint64_t>(m_program.calls()[in.c]));
    m_em.MovImm64(rdx, reinterpret_cast<std::uint64_t>(m_program.argRegisters().data() + in.a));
    m_em.MovReg(rcx, m_base);
    m_em.MovImm32(r8, in.b);
    m_em.Lea(r9, Home(in.d));
    CallAddress(Address(CallCalculator));
    m_em.CmpImm32(rax, 0);
    const int done = m_em.NewLabel();
    m_em.Jump(kEqual, done);
    m_em.CmpImm32(rax, 1);
    m_em.Jump(kEqual, m_stop);
    m_em.Jump(m_thrown);
    m_em.Bind(done);
    m_in_memory[in.d] = true;
    return true;
}

void Generator::Prologue()
{
    if (!m_frame) {
        m_em.MovImm64(m_base, reinterpret_cast<std::uint64_t>(m_registers));
        m_em.MovLoad(m_held, {m_self, m_layout.params});
        m_em.MovImm64(m_shape, kScalarShape);
        return;
    }
    m_em.Push(rbx);
    m_em.Push(rbp);
    m_em.Push(r12);
    m_em.Push(r13);
    m_em.Push(r14);
    m_em.Push(r15);
    m_em.SubRsp(kFrame);
    m_em.MovReg(r12, rdi);
    m_em.MovReg(r13, rdx);
    m_em.MovReg(r14, rcx);
    m_self = r12;
    m_params = r13;
    m_result = r14;
    m_base = rbx;
    m_held = r15;
    m_shape = rbp;
    m_scratch = r10;
    m_em.MovImm64(m_base, reinterpret_cast<std::uint64_t>(m_registers));
    m_em.MovLoad(m_held, {m_self, m_layout.params});
    m_em.MovImm64(m_shape, kScalarShape);
}

// Takes the frame down and puts the evaluation's own arguments back where
// a jump to C++ expects them.
void Generator::Epilogue()
{
    if (!m_frame)
        return;
    m_em.MovReg(rdi, r12);
    m_em.MovImm32(rsi, static_cast<std::uint32_t>(m_count));
    m_em.MovReg(rdx, r13);
    m_em.MovReg(rcx, r14);
    m_em.AddRsp(kFrame);
    m_em.Pop(r15);
    m_em.Pop(r14);
    m_em.Pop(r13);
    m_em.Pop(r12);
    m_em.Pop(rbp);
    m_em.Pop(rbx);
}

// The parameter copy, scalar into held scalar, as the long way makes it;
// anything else takes the long way, which copies again from the start.
void Generator::CopyParameters()
{
    std::vector<std::uint32_t> regOf(static_cast<std::size_t>(m_count), ~0u);
    for (const auto& load : m_program.paramLoads())
        regOf[static_cast<std::size_t>(load.first)] = load.second;
    for (int i = 0; i < m_count; ++i) {
        const std::int32_t at = i * m_layout.value_size;
        m_em.MovLoad(rax, {m_params, at + m_layout.value_data});
        m_em.Test(rax, rax);
        m_em.Jump(kEqual, m_general);
        m_em.CmpMemReg({m_params, at + m_layout.value_shape}, m_shape);
        m_em.Jump(kNotEqual, m_general);
        m_em.MovLoad(m_scratch, {m_held, at + m_layout.value_data});
        m_em.Test(m_scratch, m_scratch);
        m_em.Jump(kEqual, m_general);
        m_em.CmpMemReg({m_held, at + m_layout.value_shape}, m_shape);
        m_em.Jump(kNotEqual, m_general);
        const std::uint32_t reg = regOf[static_cast<std::size_t>(i)];
        const bool used = reg != ~0u && m_last[reg] != kNever;
        const int x = used ? FreeXmm(-1) : 0;
        m_em.MovsdLoad(x, {rax, 0});
        m_em.MovsdStore({m_scratch, 0}, x);
        if (used)
            Define(reg, x);
    }
}

// The result goes into the host's value in place when it is a scalar's
// storage already; otherwise C++ makes it one (with the value in xmm0).
void Generator::StoreResult()
{
    const std::uint32_t reg = m_program.resultRegister();
    int x = m_xmm[reg];
    if (x == kNoXmm) {
        x = 0;
        m_em.MovsdLoad(0, Home(reg));
    }
    m_em.Lea(rax, {m_result, m_layout.value_space});
    m_em.CmpMemReg({m_result, m_layout.value_data}, rax);
    const int inPlace = m_em.NewLabel();
    m_em.Jump(kEqual, inPlace);
    if (x != 0)
        m_em.Movapd(0, x);
    m_em.Jump(m_slow_result);
    m_em.Bind(inPlace);
    m_em.MovsdStore({m_result, m_layout.value_space}, x);
    m_em.MovStore({m_result, m_layout.value_shape}, m_shape);
    m_em.MovImm32(rax, 1);
    Epilogue();
    m_em.Ret();
}

void Generator::EmitExits()
{
    m_em.Bind(m_general);
    Epilogue();
    m_em.MovImm64(rax, Address(m_exits.general));
    m_em.Jmp(rax);

    m_em.Bind(m_stop);
    Epilogue();
    m_em.MovImm64(rax, Address(m_exits.tree));
    m_em.Jmp(rax);

    m_em.Bind(m_slow_result);
    Epilogue();
    m_em.MovReg(rdi, rcx);
    m_em.MovImm64(rax, Address(m_exits.assign));
    m_em.Jmp(rax);

    if (m_frame) {
        m_em.Bind(m_thrown);
        Epilogue();
        m_em.MovImm64(rdi, reinterpret_cast<std::uint64_t>(m_space));
        m_em.MovImm64(rax, Address(Rethrow));
        m_em.Jmp(rax);
    }
}

bool Generator::Emit()
{
    const std::vector<Instr>& code = m_program.code();
    const std::size_t registers = m_program.initialRegisters().size();
    if (m_count < 0 || m_count > kMaxCount || code.size() > kMaxInstructions || registers > kMaxRegisters)
        return false;
    m_uses.assign(registers, {});
    m_cursor.assign(registers, 0);
    m_last.assign(registers, kNever);
    m_xmm.assign(registers, kNoXmm);
    m_in_memory.assign(registers, true);
    m_written.assign(registers, false);
    for (const Instr& in : code) {
        if (in.op != kReturn)
            m_written[in.d] = true;
    }
    for (const auto& load : m_program.paramLoads())
        m_written[load.second] = true;
    for (int& h : m_holder)
        h = -1;
    std::vector<std::uint32_t> ops;
    for (std::size_t i = 0; i < code.size(); ++i) {
        const Op op = static_cast<Op>(code[i].op);
        if (op == kStop)
            return false;
        if (IsCallLike(op))
            m_frame = true;
        Operands(code[i], ops);
        for (std::uint32_t reg : ops)
            m_uses[reg].push_back(i);
    }
    m_uses[m_program.resultRegister()].push_back(code.size() - 1);
    for (std::size_t reg = 0; reg < registers; ++reg) {
        if (!m_uses[reg].empty())
            m_last[reg] = m_uses[reg].back();
    }
    // Parameters are written by the copy, not by the program's start image.
    for (const auto& load : m_program.paramLoads())
        m_in_memory[load.second] = false;

    m_general = m_em.NewLabel();
    m_stop = m_em.NewLabel();
    m_thrown = m_em.NewLabel();
    m_slow_result = m_em.NewLabel();
    m_abs = m_em.Constant(kAbsMask);
    m_one = m_em.Constant(kOne);
    m_zero = m_em.Constant(0);
    m_sign = m_em.Constant(~kAbsMask);
    m_three = m_em.Constant(0x4008000000000000ULL);
    m_six = m_em.Constant(0x4018000000000000ULL);
    m_ten = m_em.Constant(0x4024000000000000ULL);
    m_fifteen = m_em.Constant(0x402E000000000000ULL);
    const double h = 0.001;
    const double twoSteps = vexa_core::Sum(h, h);
    std::uint64_t bits;
    std::memcpy(&bits, &h, 8);
    m_step = m_em.Constant(bits);
    std::memcpy(&bits, &twoSteps, 8);
    m_two_steps = m_em.Constant(bits);

    // The count is checked before the frame exists: both the caller's and
    // the held count must be the one the copy below was made for.
    const int early = m_em.NewLabel();
    m_em.CmpImm32(rsi, m_count);
    m_em.Jump(kNotEqual, early);
    m_em.CmpMemImm32({rdi, m_layout.param_count}, m_count);
    m_em.Jump(kNotEqual, early);
    Prologue();
    CopyParameters();
    for (std::size_t i = 0; i + 1 < code.size(); ++i) {
        const Instr& in = code[i];
        const Op op = static_cast<Op>(in.op);
        if (op <= kDiv)
            Arithmetic(in, i);
        else if (IsSelection(op))
            Select(in, i);
        else if (op == kStep || op == kStep5)
            PolynomialStep(in, i);
        else if (op >= kAbs && op <= kSqrt)
            Unary(in, i);
        else if (op == kPow || (op >= kAtan2 && op <= kSign))
            Binary(in, i);
        else if (op >= kIf && op <= kForsin) {
            if (!List(in, i))
                return false;
        } else if (op == kNumDiff) {
            if (!Difference(in, i))
                return false;
        } else if (op == kCall) {
            if (!CallOther(in, i))
                return false;
        } else {
            return false;
        }
    }
    StoreResult();
    EmitExits();
    m_em.Bind(early);
    m_em.MovImm64(rax, Address(m_exits.general));
    m_em.Jmp(rax);
    return true;
}

}  // namespace

std::unique_ptr<MachineCode> MachineCode::Make(const Program& program, int count, double* registers,
                                               CallSpace* space, const Layout& layout, const Exits& exits)
{
    Generator generator(program, count, registers, space, layout, exits);
    if (!generator.Emit())
        return nullptr;
    const std::vector<std::uint8_t> bytes = generator.Finish();
    std::unique_ptr<MachineCode> code(new MachineCode());
    if (!code->m_memory.Load(bytes.data(), bytes.size()))
        return nullptr;
    code->m_entry = reinterpret_cast<FastEvaluate>(code->m_memory.data());
    return code;
}

#else

std::unique_ptr<MachineCode> MachineCode::Make(const Program&, int, double*, CallSpace*, const Layout&, const Exits&)
{
    return nullptr;
}

#endif

}  // namespace vexa_compiled
