#include "vexa/compiled/point_run.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "vexa/calc/builtin_math.h"
#include "vexa/compiled/builtin_gradient.h"
#include "vexa/core/float_ops.h"

namespace vexa_compiled {

namespace {

using vexa_core::Difference;
using vexa_core::Product;
using vexa_core::Quotient;
using vexa_core::Sum;

constexpr int kMaxArgs = 3 + vexa_math::kMaxCoefficients;

// d x^y / d x. Where the power is an ordinary number, y x^y / x costs no
// second power.
double PowerByBase(double x, double y, double power)
{
    if (x != 0.0 && power != 0.0 && std::isfinite(power))
        return y * (power / x);
    return y * std::pow(x, y - 1.0);
}

// A central difference of base with respect to the arguments shifted,
// level by level, formed exactly as the step calculator forms it from
// values (h + x, then x - h, and (f1 - f2) / (h + h)); its partials are the
// same differences of base's partials. args is restored before returning.
template <typename Base>
StopReason Differenced(const std::vector<int>& shifted, std::size_t level, double* args, int n, double& value,
                       double* partials, Base& base)
{
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

StopReason Call(const Unit& u, Space& s, const Instr& in, const std::uint32_t* ops, int n, double* r, double* t)
{
    if (in.op == kNumDiff) {
        double args[kMaxArgs];
        for (int k = 0; k < n; ++k)
            args[k] = r[ops[k]];
        const DiffChain& chain = u.program->chains()[in.c];
        if (!t)
            return CentralDifference(chain, args, n, r[in.d]) ? kGoes : kRefusal;
        auto base = [&](double* at, double& value, double* partials) {
            return BuiltinGradient(static_cast<Op>(chain.base), at, n, value, partials) ? kGoes : kRefusal;
        };
        return Differenced(chain.shifted, 0, args, n, r[in.d], t, base);
    }
    const Callee& c = u.callees[in.c];
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
    return Differenced(c.shifted, 0, args.data(), n, r[in.d], t, base);
}

// One instruction over its n operand registers ops, with the partials of its
// result by them on the tape t where t is not null.
StopReason Step(const Unit& u, Space& s, const Instr& in, const std::uint32_t* ops, int n, double* r, double* t)
{
    switch (in.op) {
    case kAdd:
        r[in.d] = Sum(r[in.b], r[in.a]);
        if (t) {
            t[0] = 1.0;
            t[1] = 1.0;
        }
        return kGoes;
    case kSub:
        r[in.d] = Difference(r[in.a], r[in.b]);
        if (t) {
            t[0] = 1.0;
            t[1] = -1.0;
        }
        return kGoes;
    case kMul:
        r[in.d] = Product(r[in.a], r[in.b]);
        if (t) {
            t[0] = r[in.b];
            t[1] = r[in.a];
        }
        return kGoes;
    case kDiv: {
        const double divisor = r[in.b];
        if (!(0 < divisor || 0 > divisor))
            return kZeroDivisor;
        const double q = Quotient(r[in.a], divisor);
        r[in.d] = q;
        if (t) {
            t[0] = 1.0 / divisor;
            t[1] = -q / divisor;
        }
        return kGoes;
    }
    case kPow: {
        const double x = r[in.a];
        const double y = r[in.b];
        const double power = std::pow(x, y);
        r[in.d] = power;
        if (t) {
            // Only what can reach a parameter: the logarithm of a negative
            // base would be NaN for a constant exponent.
            t[0] = u.active[in.a] ? PowerByBase(x, y, power) : 0.0;
            t[1] = u.active[in.b] && power != 0.0 ? power * std::log(x) : 0.0;
        }
        return kGoes;
    }
    case kNumDiff:
    case kCall:
        return Call(u, s, in, ops, n, r, t);
    default:
        break;
    }
    // The built-ins.
    double args[kMaxArgs];
    for (int k = 0; k < n; ++k)
        args[k] = r[ops[k]];
    return BuiltinGradient(static_cast<Op>(in.op), args, n, r[in.d], t) ? kGoes : kRefusal;
}

}  // namespace

StopReason RunPoint(const Unit& u, Space& s, const double* args, int count, double& value, double* partials)
{
    const Program& p = *u.program;
    UnitSpace& us = s.of(u);
    if (us.regs.empty()) {
        us.regs = p.initialRegisters();
        us.tape.resize(u.operands.size());
        us.adjoint.resize(us.regs.size());
    }
    double* r = us.regs.data();
    for (const auto& load : p.paramLoads())
        r[load.second] = args[load.first];
    const std::vector<Instr>& code = p.code();
    const std::size_t steps = code.size() - 1;  // the last is the return
    for (std::size_t i = 0; i < steps; ++i) {
        const Instr& in = code[i];
        double* t = partials && u.active[in.d] ? us.tape.data() + u.first[i] : nullptr;
        const std::uint32_t* ops = u.operands.data() + u.first[i];
        const int n = static_cast<int>(u.first[i + 1] - u.first[i]);
        const StopReason why = Step(u, s, in, ops, n, r, t);
        if (why != kGoes)
            return why;
    }
    value = r[p.resultRegister()];
    if (!partials)
        return kGoes;

    double* adjoint = us.adjoint.data();
    std::fill(us.adjoint.begin(), us.adjoint.end(), 0.0);
    adjoint[p.resultRegister()] = 1.0;
    const double* tape = us.tape.data();
    for (std::size_t i = steps; i-- > 0;) {
        const double g = adjoint[code[i].d];
        // A value that cannot reach the result adds nothing, even through
        // an infinite or undefined partial of its own.
        if (g == 0.0)
            continue;
        for (std::uint32_t j = u.backFirst[i]; j < u.backFirst[i + 1]; ++j)
            adjoint[u.backs[j].first] += g * tape[u.backs[j].second];
    }
    std::fill(partials, partials + count, 0.0);
    for (const auto& load : p.paramLoads())
        partials[load.first] = adjoint[load.second];
    return kGoes;
}

}  // namespace vexa_compiled
