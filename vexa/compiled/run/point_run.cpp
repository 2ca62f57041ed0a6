#include "vexa/compiled/run/point_run.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "vexa/calc/builtin_math.h"
#include "vexa/compiled/run/builtin_gradient.h"
#include "vexa/compiled/stack_room.h"
#include "vexa/core/float_ops.h"
#include "vexa/core/inline_hints.h"

namespace vexa_compiled {

namespace {

using vexa_core::Difference;
using vexa_core::Product;
using vexa_core::Quotient;
using vexa_core::Sum;

constexpr int kMaxArgs = kMostArguments;

// d x^y / d x. Where the power is an ordinary number, y x^y / x costs no
// second power.
double PowerByBase(double x, double y, double power)
{
    if (x != 0.0 && power != 0.0 && std::isfinite(power))
        return y * (power / x);
    return y * vexa_math::Pow(x, y - 1.0);
}

// A central difference of base with respect to the arguments shifted,
// level by level, formed exactly as the step calculator forms it from
// values (h + x, then x - h, and (f1 - f2) / (h + h)); its partials are the
// same differences of base's partials. args is restored before returning.
template <typename Base>
StopReason Differenced(const std::vector<int>& shifted, std::size_t level, double* args, int n, double& value,
                       double* partials, Base& base)
{
    if (!RoomForStep())
        return kTooDeep;
    if (level == shifted.size())
        return base(args, value, partials);
    const int k = shifted[level];
    if (k < 0 || k >= n)
        return kRefusal;
    const double h = 0.001;
    const double x = args[k];
    std::vector<double> slopes(partials ? 2 * static_cast<std::size_t>(n) : 0);
    double* g1 = partials ? slopes.data() : nullptr;
    double* g2 = partials ? g1 + n : nullptr;
    double f1;
    double f2;
    args[k] = Sum(h, x);
    StopReason why = Differenced(shifted, level + 1, args, n, f1, g1, base);
    if (why == kGoes) {
        args[k] = Difference(x, h);
        why = Differenced(shifted, level + 1, args, n, f2, g2, base);
    }
    args[k] = x;
    if (why != kGoes)
        return why;
    const double twice = Sum(h, h);
    value = Quotient(Difference(f1, f2), twice);
    for (int j = 0; partials && j < n; ++j)
        partials[j] = (g1[j] - g2[j]) / twice;
    return kGoes;
}

// A central difference of a built-in, or a call of another unit.
StopReason Call(const Unit& u, Space& s, const Unit::Step& step, const std::uint32_t* ops, double* r, double* t)
{
    const int n = static_cast<int>(step.count);
    if (step.op == kNumDiff) {
        double args[kMaxArgs];
        for (int k = 0; k < n; ++k)
            args[k] = r[ops[k]];
        const DiffChain& chain = u.program->chains()[step.c];
        if (!t)
            return CentralDifference(chain, args, n, r[step.d]) ? kGoes : kRefusal;
        auto base = [&](double* at, double& value, double* partials) {
            return BuiltinGradient(static_cast<Op>(chain.base), at, n, value, partials) ? kGoes : kRefusal;
        };
        return Differenced(chain.shifted, 0, args, n, r[step.d], t, base);
    }
    const Callee& c = u.callees[step.c];
    if (!c.unit || !c.unit->program)
        return kTreeOnly;
    if (!c.unit->Runs(n))
        return kRefusal;
    std::vector<double> args(static_cast<std::size_t>(n));
    for (int k = 0; k < n; ++k)
        args[static_cast<std::size_t>(k)] = r[ops[k]];
    auto base = [&](double* at, double& value, double* partials) {
        return RunPoint(*c.unit, s, at, n, value, partials);
    };
    return Differenced(c.shifted, 0, args.data(), n, r[step.d], t, base);
}

// One instruction of op at one point: its value into r and, with t (where
// the partials of its result by each operand go), its partials. The four
// operations and the power have their partials here, the built-ins theirs
// in the table of operations.
template <Op op>
VEXA_FORCE_INLINE StopReason PointStep(const Unit& u, Space& s, const Unit::Step& step, const std::uint32_t* o,
                                       double* r, double* t)
{
    if constexpr (op == kAdd) {
        r[step.d] = Sum(r[o[1]], r[o[0]]);
        return kGoes;
    } else if constexpr (op == kSub) {
        r[step.d] = Difference(r[o[0]], r[o[1]]);
        return kGoes;
    } else if constexpr (op == kMul) {
        const double a = r[o[0]];
        const double b = r[o[1]];
        r[step.d] = Product(a, b);
        if (t) {
            t[0] = b;
            t[1] = a;
        }
        return kGoes;
    } else if constexpr (op == kDiv) {
        const double divisor = r[o[1]];
        if (!(0 < divisor || 0 > divisor))
            return kZeroDivisor;
        const double q = Quotient(r[o[0]], divisor);
        r[step.d] = q;
        if (t) {
            t[0] = 1.0 / divisor;
            t[1] = -q / divisor;
        }
        return kGoes;
    } else if constexpr (op == kPow) {
        const double x = r[o[0]];
        const double y = r[o[1]];
        const double power = vexa_math::Pow(x, y);
        r[step.d] = power;
        if (t) {
            // Only what can reach a parameter: the logarithm of a
            // negative base would be NaN for a constant exponent.
            t[0] = u.active[o[0]] ? PowerByBase(x, y, power) : 0.0;
            t[1] = u.active[o[1]] && power != 0.0 ? power * std::log(x) : 0.0;
        }
        return kGoes;
    } else if constexpr (op == kNumDiff || op == kCall) {
        return Call(u, s, step, o, r, t);
    } else if constexpr (!IsBuiltin(op)) {
        return kRefusal;
    } else {
        // A fixed count is a constant here, so the copy unrolls; the program
        // holds only counts the built-in accepts.
        constexpr bool kFixed = kRows[op].fewest == kRows[op].most;
        double a[kFixed ? kRows[op].most : kMaxArgs];
        const int n = kFixed ? kRows[op].most : static_cast<int>(step.count);
        if (static_cast<int>(step.count) != n || n > kMaxArgs)
            return kRefusal;
        for (int k = 0; k < n; ++k)
            a[k] = r[o[k]];
        return GradientOf<op>(a, n, r[step.d], t) ? kGoes : kRefusal;
    }
}

inline StopReason Step(const Unit& u, Space& s, const Unit::Step& step, double* r, double* t)
{
    const std::uint32_t* o = u.operands.data() + step.first;
    switch (step.op) {
#define VEXA_POINT_CASE(Name, ...) \
    case k##Name: return PointStep<k##Name>(u, s, step, o, r, t);
        VEXA_OPERATIONS(VEXA_POINT_CASE)
#undef VEXA_POINT_CASE
    default: return kRefusal;
    }
}

}  // namespace

void PrepareSpace(const Unit& u, UnitSpace& us)
{
    // Made aside and moved in whole: memory running out half way must not
    // leave registers without their tape.
    std::vector<double> regs = u.program->initialRegisters();
    std::vector<double> tape = u.tape;
    std::vector<double> adjoint(regs.size());
    us.tape.swap(tape);
    us.adjoint.swap(adjoint);
    us.regs.swap(regs);
}

StopReason RunStep(const Unit& u, Space& s, const Unit::Step& step, double* r, double* tape)
{
    return Step(u, s, step, r, tape && step.active ? tape + step.first : nullptr);
}

namespace {

VEXA_FORCE_INLINE StopReason Steps(const Unit& u, Space& s, UnitSpace& us, const double* args, bool partials)
{
    double* r = us.regs.data();
    for (const auto& load : u.program->paramLoads())
        r[load.second] = args[load.first];
    double* tape = partials ? us.tape.data() : nullptr;
    for (const Unit::Step& step : u.steps) {
        // The partials of a result that depends on no parameter are never read.
        const StopReason why = Step(u, s, step, r, tape && step.active ? tape + step.first : nullptr);
        if (why != kGoes)
            return why;
    }
    return kGoes;
}

}  // namespace

StopReason RunSteps(const Unit& u, Space& s, const double* args, bool partials)
{
    return Steps(u, s, PreparedSpace(u, s), args, partials);
}

StopReason RunPoint(const Unit& u, Space& s, const double* args, int count, double& value, double* partials)
{
    const Program& p = *u.program;
    UnitSpace& us = PreparedSpace(u, s);
    const StopReason why = Steps(u, s, us, args, partials != nullptr);
    if (why != kGoes)
        return why;
    double* r = us.regs.data();
    value = r[p.resultRegister()];
    double* tape = us.tape.data();
    if (!partials)
        return kGoes;

    // Only registers that depend on a parameter carry a derivative.
    double* adjoint = us.adjoint.data();
    for (const std::uint32_t reg : u.activeRegisters)
        adjoint[reg] = 0.0;
    adjoint[p.resultRegister()] = 1.0;
    for (const Unit::Back& back : u.backs) {
        const double g = adjoint[back.result];
        // A value that cannot reach the result adds nothing, even through
        // an infinite or undefined partial of its own.
        // In a fixed operand order, as the machine code adds and
        // multiplies: of two NaNs the first one's bits come out.
        if (g != 0.0)
            adjoint[back.operand] = Sum(adjoint[back.operand], Product(g, tape[back.position]));
    }
    for (int k = 0; k < count; ++k)
        partials[k] = 0.0;
    for (const auto& load : p.paramLoads())
        partials[load.first] = adjoint[load.second];
    return kGoes;
}

}  // namespace vexa_compiled
