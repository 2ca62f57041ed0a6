#include "vexa/compiled/run/block_run.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "vexa/calc/operation_math.h"
#include "vexa/compiled/run/lanes.h"
#include "vexa/compiled/stack_room.h"

namespace vexa_compiled {

namespace {

using namespace vexa_math;

constexpr int kMaxArgs = kMostArguments;

// Doubles from one register's block to the next. Blocks a multiple of 4 KiB
// apart would make every store look, to the processor, like one to the
// address the next load reads from, and wait for it.
std::size_t Stride(int block)
{
    return static_cast<std::size_t>(block) + 8;
}

int Grouped(int lanes)
{
    return (lanes + kLaneGroup - 1) / kLaneGroup * kLaneGroup;
}

void Mark(std::uint8_t* stop, int lane, StopReason why)
{
    if (!stop[lane])
        stop[lane] = why;
}

void MarkAll(std::uint8_t* stop, int lanes, StopReason why)
{
    for (int i = 0; i < lanes; ++i)
        Mark(stop, i, why);
}

// The step of the central differences, in every lane.
const double* StepLanes()
{
    static const std::vector<double> h(kBlock, 0.001);
    return h.data();
}

template <typename F>
void Each(double* d, const double* a, int lanes, F f)
{
    for (int i = 0; i < lanes; ++i)
        d[i] = f(a[i]);
}

template <typename F>
void Each(double* d, const double* a, const double* b, int lanes, F f)
{
    for (int i = 0; i < lanes; ++i)
        d[i] = f(a[i], b[i]);
}

// A one-argument built-in that refuses values outside its domain.
template <typename In, typename F>
void Checked(double* d, const double* a, int lanes, std::uint8_t* stop, In in, F f)
{
    for (int i = 0; i < lanes; ++i) {
        if (in(a[i])) {
            d[i] = f(a[i]);
        } else {
            Mark(stop, i, kRefusal);
            d[i] = 0.0;
        }
    }
}

void Divide(double* d, const double* a, const double* b, int lanes, std::uint8_t* stop)
{
    QuotientLanes(d, a, b, Grouped(lanes));
    for (int i = 0; i < lanes; ++i) {
        if (!(0 < b[i] || 0 > b[i]))
            Mark(stop, i, kZeroDivisor);
    }
}

// The series built-ins: lead arguments, then coefficients, gathered per lane.
template <typename F>
void Series(double* d, const double* const* v, int n, int lead, int lanes, F f)
{
    double c[kMaxArgs];
    for (int i = 0; i < lanes; ++i) {
        for (int k = lead; k < n; ++k)
            c[k - lead] = v[k][i];
        d[i] = f(i, c, n - lead);
    }
}

void CallLanes(const Callee& c, std::size_t level, Space& s, const double** args, int count, int lanes, double* out,
               std::uint8_t* stop);

bool AnyNaN(const double* a, int lanes)
{
#if defined(__SSE2__)
    // The comparison a compiler will not vectorise for fear of a signalling
    // NaN's exception, which the quiet unordered compare never raises.
    __m128d unordered = _mm_setzero_pd();
    int i = 0;
    for (; i + 2 <= lanes; i += 2) {
        const __m128d v = _mm_loadu_pd(a + i);
        unordered = _mm_or_pd(unordered, _mm_cmpunord_pd(v, v));
    }
    bool nan = _mm_movemask_pd(unordered) != 0;
#else
    int i = 0;
    bool nan = false;
#endif
    for (; i < lanes; ++i)
        nan = nan || a[i] != a[i];
    return nan;
}

// Whether no lane of the n argument registers regs holds a NaN; constants
// were looked at once, when the program was made.
bool NoNaN(const Unit& u, const double* const* v, const std::uint32_t* regs, int n, int lanes)
{
    for (int k = 0; k < n; ++k) {
        if (!u.numberConstant[regs[k]] && AnyNaN(v[k], lanes))
            return false;
    }
    return true;
}

// STEP, STEP5 and HAVSIN over lanes none of whose arguments is a NaN, with
// the formulas of vexa/calc/builtin_math.cpp written out (keep them alike),
// so that the loop vectorises and needs no call per lane. The compiler may
// swap the operands of + and * here, which changes a result only where two
// NaNs of different bits meet; without a NaN argument, the only NaN that
// can arise is the one invalid operations make, the same in every lane.
void Steps(Op op, double* d, const double* const* v, int lanes)
{
    const double* x = v[0];
    const double* x0 = v[1];
    const double* h0 = v[2];
    const double* x1 = v[3];
    const double* h1 = v[4];
    if (op == kHavsin) {
        // The ends and the angles in one vectorised pass, the sines only
        // where the ramp is.
        double angle[kBlock];
        bool ramp[kBlock];
        for (int i = 0; i < lanes; ++i) {
            const double a = (x[i] - x0[i]) / (x1[i] - x0[i]);
            angle[i] = kPi * a - kPi / 2.0;
            ramp[i] = x[i] > x0[i] && !(x[i] >= x1[i]);
            d[i] = !(x[i] > x0[i]) ? h0[i] : h1[i];
        }
        for (int i = 0; i < lanes; ++i) {
            if (ramp[i])
                d[i] = ((h1[i] + h0[i]) + (h1[i] - h0[i]) * std::sin(angle[i])) * 0.5;
        }
        return;
    }
    for (int i = 0; i < lanes; ++i) {
        const double a = (x[i] - x0[i]) / (x1[i] - x0[i]);
        const double ramp = op == kStep ? (3.0 - (a + a)) * (h1[i] - h0[i]) * (a * a) + h0[i]
                                        : ((6.0 * a) * a + (10.0 - 15.0 * a)) * (h1[i] - h0[i]) * a * (a * a) + h0[i];
        d[i] = !(x[i] > x0[i]) ? h0[i] : x[i] >= x1[i] ? h1[i] : ramp;
    }
}

// An instruction over one or two registers in every lane, by its formula in
// the table of operations; the four operations and MIN have lane kernels of
// their own (below).
template <Op op>
void Lanes(double* d, const double* a, const double* b, int lanes, std::uint8_t* stop)
{
    constexpr Refusal refusal = kRows[op].refusal;
    if constexpr (OperandsOf(op) == Operands::kOne) {
        if constexpr (refusal == Refusal::kNone)
            Each(d, a, lanes, [](double x) { return Math<op>::Value(&x, 1); });
        else
            Checked(d, a, lanes, stop, [](double x) { return Accepts<refusal>(&x); },
                    [](double x) { return Math<op>::Value(&x, 1); });
    } else {
        static_assert(refusal == Refusal::kNone, "a two-argument op that refuses needs a lane kernel");
        Each(d, a, b, lanes, [](double x, double y) {
            const double v[2] = {x, y};
            return Math<op>::Value(v, 2);
        });
    }
}

template <>
void Lanes<kAdd>(double* d, const double* a, const double* b, int lanes, std::uint8_t*)
{
    SumLanes(d, b, a, Grouped(lanes));
}

template <>
void Lanes<kSub>(double* d, const double* a, const double* b, int lanes, std::uint8_t*)
{
    DifferenceLanes(d, a, b, Grouped(lanes));
}

template <>
void Lanes<kMul>(double* d, const double* a, const double* b, int lanes, std::uint8_t*)
{
    ProductLanes(d, a, b, Grouped(lanes));
}

template <>
void Lanes<kDiv>(double* d, const double* a, const double* b, int lanes, std::uint8_t* stop)
{
    Divide(d, a, b, lanes, stop);
}

// Min's own formula, which the compiler makes minpd over two lanes: the same
// bits as minsd b, a in the default environment, the only one blocks run in.
template <>
void Lanes<kMin>(double* d, const double* a, const double* b, int lanes, std::uint8_t*)
{
    Each(d, a, b, lanes, [](double x, double y) { return y < x ? y : x; });
}

// A built-in over an argument list in every lane: the arguments gathered
// lane by lane into its formula. STEP, STEP5, HAVSIN and the series have
// lane kernels of their own (below).
template <Op op>
void ListLanes(const Unit&, const std::uint32_t*, double* d, const double* const* x, int n, int lanes)
{
    double v[kMaxArgs];
    for (int i = 0; i < lanes; ++i) {
        for (int k = 0; k < n; ++k)
            v[k] = x[k][i];
        d[i] = Math<op>::Value(v, n);
    }
}

template <Op op>
void StepLanesOf(const Unit& u, const std::uint32_t* list, double* d, const double* const* x, int lanes)
{
    if (NoNaN(u, x, list, 5, lanes)) {
        Steps(op, d, x, lanes);
        return;
    }
    for (int i = 0; i < lanes; ++i) {
        const double v[5] = {x[0][i], x[1][i], x[2][i], x[3][i], x[4][i]};
        d[i] = Math<op>::Value(v, 5);
    }
}

template <>
void ListLanes<kStep>(const Unit& u, const std::uint32_t* list, double* d, const double* const* x, int, int lanes)
{
    StepLanesOf<kStep>(u, list, d, x, lanes);
}

template <>
void ListLanes<kStep5>(const Unit& u, const std::uint32_t* list, double* d, const double* const* x, int, int lanes)
{
    StepLanesOf<kStep5>(u, list, d, x, lanes);
}

template <>
void ListLanes<kHavsin>(const Unit& u, const std::uint32_t* list, double* d, const double* const* x, int, int lanes)
{
    StepLanesOf<kHavsin>(u, list, d, x, lanes);
}

template <>
void ListLanes<kPoly>(const Unit&, const std::uint32_t*, double* d, const double* const* x, int n, int lanes)
{
    Series(d, x, n, 2, lanes, [x](int i, const double* c, int m) { return Poly(x[0][i], x[1][i], c, m); });
}

template <>
void ListLanes<kCheby>(const Unit&, const std::uint32_t*, double* d, const double* const* x, int n, int lanes)
{
    Series(d, x, n, 2, lanes, [x](int i, const double* c, int m) { return Cheby(x[0][i], x[1][i], c, m); });
}

template <>
void ListLanes<kForcos>(const Unit&, const std::uint32_t*, double* d, const double* const* x, int n, int lanes)
{
    Series(d, x, n, 3, lanes,
           [x](int i, const double* c, int m) { return Forcos(x[0][i], x[1][i], x[2][i], c, m); });
}

template <>
void ListLanes<kForsin>(const Unit&, const std::uint32_t*, double* d, const double* const* x, int n, int lanes)
{
    Series(d, x, n, 3, lanes,
           [x](int i, const double* c, int m) { return Forsin(x[0][i], x[1][i], x[2][i], c, m); });
}

// The instructions over one or two registers; false for the others.
bool Simple(const Instr& in, double* d, const double* const* at, int lanes, std::uint8_t* stop)
{
    switch (in.op) {
#define VEXA_SIMPLE_CASE(Name, ...)                                                   \
    case k##Name:                                                                     \
        if constexpr (OperandsOf(k##Name) == Operands::kOne) {                        \
            Lanes<k##Name>(d, at[in.a], nullptr, lanes, stop);                        \
            return true;                                                              \
        } else if constexpr (OperandsOf(k##Name) == Operands::kTwo) {                 \
            Lanes<k##Name>(d, at[in.a], at[in.b], lanes, stop);                       \
            return true;                                                              \
        } else {                                                                      \
            return false;                                                             \
        }
        VEXA_OPERATIONS(VEXA_SIMPLE_CASE)
#undef VEXA_SIMPLE_CASE
    default: return false;
    }
}

void Instruction(const Unit& u, Space& s, const Instr& in, int lanes, std::uint8_t* stop)
{
    const Program& p = *u.program;
    UnitSpace& us = s.of(u);
    const double* const* at = us.at.data();
    double* d = us.block.data() + static_cast<std::size_t>(in.d) * Stride(s.form.block);
    if (Simple(in, d, at, lanes, stop))
        return;

    // The rest take an argument list.
    const int n = static_cast<int>(in.b);
    const std::uint32_t* list = p.argRegisters().data() + in.a;
    // Calls of other expressions may pass more arguments than any built-in.
    const double* fixed[kMaxArgs];
    std::vector<const double*> more(n > kMaxArgs ? static_cast<std::size_t>(n) : 0);
    const double** v = n > kMaxArgs ? more.data() : fixed;
    for (int k = 0; k < n; ++k)
        v[k] = at[list[k]];
    const double* const* x = v;
    switch (in.op) {
#define VEXA_LIST_CASE(Name, ...)                                          \
    case k##Name:                                                          \
        if constexpr (IsBuiltin(k##Name) && OperandsOf(k##Name) == Operands::kList) { \
            ListLanes<k##Name>(u, list, d, x, n, lanes);                   \
            return;                                                        \
        }                                                                  \
        break;
        VEXA_OPERATIONS(VEXA_LIST_CASE)
#undef VEXA_LIST_CASE
    default: break;
    }
    // The program's own list instructions.
    if (in.op == kNumDiff) {
        double args[kMaxArgs];
        for (int i = 0; i < lanes; ++i) {
            for (int k = 0; k < n; ++k)
                args[k] = x[k][i];
            if (!CentralDifference(p.chains()[in.c], args, n, d[i]))
                Mark(stop, i, kRefusal);
        }
    } else if (in.op == kCall) {
        const Callee& c = u.callees[in.c];
        if (!c.unit || !c.unit->program)
            MarkAll(stop, lanes, kTreeOnly);
        else if (!c.unit->Runs(n))
            MarkAll(stop, lanes, kRefusal);
        else
            CallLanes(c, 0, s, v, n, lanes, d, stop);
    } else {
        MarkAll(stop, lanes, kTreeOnly);
    }
}

// A call of another unit, under the central differences of its wrappers,
// formed exactly as the step calculator forms them from values: the shifted
// argument is h + x, then x - h, and the quotient (f1 - f2) / (h + h).
void CallLanes(const Callee& c, std::size_t level, Space& s, const double** args, int count, int lanes, double* out,
               std::uint8_t* stop)
{
    if (!RoomForStep()) {
        MarkAll(stop, lanes, kTooDeep);
        return;
    }
    if (level == c.shifted.size()) {
        RunBlock(*c.unit, s, args, lanes, out, stop);
        return;
    }
    const int k = c.shifted[level];
    if (k < 0 || k >= count) {
        MarkAll(stop, lanes, kRefusal);
        return;
    }
    const int n = Grouped(lanes);
    const int block = s.form.block;
    std::vector<double> space(3 * Stride(block));
    double* shifted = space.data();
    double* f1 = shifted + Stride(block);
    double* f2 = f1 + Stride(block);
    const double* x = args[k];
    const double* h = StepLanes();
    SumLanes(shifted, h, x, n);
    args[k] = shifted;
    CallLanes(c, level + 1, s, args, count, lanes, f1, stop);
    DifferenceLanes(shifted, x, h, n);
    CallLanes(c, level + 1, s, args, count, lanes, f2, stop);
    args[k] = x;
    DifferenceLanes(f1, f1, f2, n);
    SumLanes(f2, h, h, n);
    QuotientLanes(shifted, f1, f2, n);
    std::copy(shifted, shifted + lanes, out);
}

void Prepare(const Unit& u, UnitSpace& us, int block)
{
    if (!us.block.empty())
        return;
    const std::vector<double>& init = u.program->initialRegisters();
    us.block.resize(init.size() * Stride(block));
    us.at.resize(init.size());
    for (std::size_t r = 0; r < init.size(); ++r) {
        double* lanes = us.block.data() + r * Stride(block);
        std::fill(lanes, lanes + block, init[r]);
        us.at[r] = lanes;
    }
}

}  // namespace

void RunBlockSteps(const Unit& u, Space& s, const double* const* args, int lanes, std::uint8_t* stop)
{
    const Program& p = *u.program;
    UnitSpace& us = s.of(u);
    Prepare(u, us, s.form.block);
    for (const auto& load : p.paramLoads())
        us.at[load.second] = args[load.first];
    const std::vector<Instr>& code = p.code();
    // The last instruction is the return.
    for (std::size_t i = 0; i + 1 < code.size(); ++i)
        Instruction(u, s, code[i], lanes, stop);
}

bool RunBlock(const Unit& u, Space& s, const double* const* args, int lanes, double* out, std::uint8_t* stop)
{
    RunBlockSteps(u, s, args, lanes, stop);
    const double* result = s.of(u).at[u.program->resultRegister()];
    std::copy(result, result + lanes, out);
    // Eight lanes at a time: stops are rare, and the caller cleared the
    // lanes of the last group beyond lanes.
    std::uint64_t any = 0;
    for (int i = 0; i < lanes; i += 8) {
        std::uint64_t word;
        std::memcpy(&word, stop + i, sizeof word);
        any |= word;
    }
    return any != 0;
}

}  // namespace vexa_compiled
