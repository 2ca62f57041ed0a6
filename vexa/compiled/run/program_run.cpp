#include <cmath>

#include "vexa/calc/builtin_math.h"
#include "vexa/calc/callee.h"
#include "vexa/calc/icalculator.h"
#include "vexa/compiled/program/builtin_ops.h"
#include "vexa/compiled/program/program.h"
#include "vexa/core/data_access.h"
#include "vexa/core/float_ops.h"

namespace vexa_compiled {

namespace {

using vexa_core::DataAccess;
using vexa_core::Difference;
using vexa_core::Product;
using vexa_core::Quotient;
using vexa_core::Sum;

// The largest argument count of any built-in (FORCOS and FORSIN: 34).
constexpr int kMaxArgs = 3 + vexa_math::kMaxCoefficients;

// The central difference as the step calculator forms it from values: the
// shifted argument is x + h, which the value sum computes as h + x, then
// x - h; the quotient is (f1 - f2) / (h + h). A level whose argument index
// is out of range, or a built-in that refuses, ends the run.
bool StepDifference(const DiffChain& chain, std::size_t level, const double* args, int n, double& out)
{
    if (level == chain.shifted.size())
        return EvalBuiltin(static_cast<Op>(chain.base), args, n, out);
    const int i = chain.shifted[level];
    if (i < 0 || i >= n)
        return false;
    const double h = 0.001;
    double shifted[kMaxArgs];
    for (int k = 0; k < n; ++k)
        shifted[k] = args[k];
    double f1;
    double f2;
    shifted[i] = Sum(h, args[i]);
    if (!StepDifference(chain, level + 1, shifted, n, f1))
        return false;
    shifted[i] = Difference(args[i], h);
    if (!StepDifference(chain, level + 1, shifted, n, f2))
        return false;
    out = Quotient(Difference(f1, f2), Sum(h, h));
    return true;
}

// The called calculator keeps the values it is given, where the host can
// read them: they go in exactly as the tree passes them. False where the
// call gives no scalar. (A function of its own: the dispatch may not jump
// past the result value's destructor.)
bool CallCalculator(ICalculator* calc, const std::uint32_t* regs, int n, const double* r, CallSpace& space,
                    double& out)
{
    for (int k = 0; k < n; ++k)
        DataAccess::AssignScalar(space.args[static_cast<std::size_t>(k)], r[regs[k]]);
    VEXA_Data result;
    vexa_calc::CallFunction(calc, n, space.args.data(), result);
    if (!DataAccess::IsScalar(result))
        return false;
    out = DataAccess::Scalar(result);
    return true;
}

}  // namespace

bool CentralDifference(const DiffChain& chain, const double* args, int n, double& out)
{
    return StepDifference(chain, 0, args, n, out);
}

// Threaded dispatch: every instruction ends in its own indirect jump, which
// predicts far better than one shared switch for the short, repetitive
// programs expressions make.
RunResult Program::Run(double* r, CallSpace& space) const
{
    static void* const kJump[kOpCount] = {
        &&op_add, &&op_sub, &&op_mul, &&op_div, &&op_pow,
        &&op_abs, &&op_sin, &&op_cos, &&op_tan, &&op_sinh, &&op_cosh, &&op_tanh, &&op_atan,
        &&op_exp, &&op_aint, &&op_anint, &&op_asin, &&op_acos, &&op_log, &&op_log10, &&op_sqrt,
        &&op_atan2, &&op_max, &&op_min, &&op_mod, &&op_sign,
        &&op_list, &&op_list, &&op_list, &&op_list, &&op_list, &&op_list, &&op_list, &&op_list,
        &&op_list, &&op_list, &&op_list, &&op_list,
        &&op_numdiff, &&op_call, &&op_stop, &&op_return,
    };
    const Instr* ip = m_code.data();
    const std::uint32_t* argRegs = m_arg_regs.data();

#define VEXA_NEXT()          \
    do {                     \
        ++ip;                \
        goto* kJump[ip->op]; \
    } while (0)

    goto* kJump[ip->op];

op_add:
    r[ip->d] = Sum(r[ip->b], r[ip->a]);
    VEXA_NEXT();
op_sub:
    r[ip->d] = Difference(r[ip->a], r[ip->b]);
    VEXA_NEXT();
op_mul:
    r[ip->d] = Product(r[ip->a], r[ip->b]);
    VEXA_NEXT();
op_div: {
    const double divisor = r[ip->b];
    if (!(0 < divisor || 0 > divisor))
        return RunResult::kUseTree;
    r[ip->d] = Quotient(r[ip->a], divisor);
    VEXA_NEXT();
}
op_pow:
    r[ip->d] = vexa_math::Pow(r[ip->a], r[ip->b]);
    VEXA_NEXT();
op_abs:
    r[ip->d] = std::fabs(r[ip->a]);
    VEXA_NEXT();
op_sin:
    r[ip->d] = std::sin(r[ip->a]);
    VEXA_NEXT();
op_cos:
    r[ip->d] = std::cos(r[ip->a]);
    VEXA_NEXT();
op_tan:
    r[ip->d] = std::tan(r[ip->a]);
    VEXA_NEXT();
op_sinh:
    r[ip->d] = std::sinh(r[ip->a]);
    VEXA_NEXT();
op_cosh:
    r[ip->d] = std::cosh(r[ip->a]);
    VEXA_NEXT();
op_tanh:
    r[ip->d] = std::tanh(r[ip->a]);
    VEXA_NEXT();
op_atan:
    r[ip->d] = std::atan(r[ip->a]);
    VEXA_NEXT();
op_exp:
    r[ip->d] = std::exp(r[ip->a]);
    VEXA_NEXT();
op_aint:
    r[ip->d] = vexa_math::Trunc(r[ip->a]);
    VEXA_NEXT();
op_anint:
    r[ip->d] = vexa_math::Anint(r[ip->a]);
    VEXA_NEXT();
op_asin:
    if (!vexa_math::InArcDomain(r[ip->a]))
        return RunResult::kUseTree;
    r[ip->d] = std::asin(r[ip->a]);
    VEXA_NEXT();
op_acos:
    if (!vexa_math::InArcDomain(r[ip->a]))
        return RunResult::kUseTree;
    r[ip->d] = std::acos(r[ip->a]);
    VEXA_NEXT();
op_log:
    if (!vexa_math::InLogDomain(r[ip->a]))
        return RunResult::kUseTree;
    r[ip->d] = std::log(r[ip->a]);
    VEXA_NEXT();
op_log10:
    if (!vexa_math::InLogDomain(r[ip->a]))
        return RunResult::kUseTree;
    r[ip->d] = std::log10(r[ip->a]);
    VEXA_NEXT();
op_sqrt:
    if (!vexa_math::InSqrtDomain(r[ip->a]))
        return RunResult::kUseTree;
    r[ip->d] = std::sqrt(r[ip->a]);
    VEXA_NEXT();
op_atan2:
    r[ip->d] = std::atan2(r[ip->a], r[ip->b]);
    VEXA_NEXT();
op_max:
    r[ip->d] = vexa_math::Max(r[ip->a], r[ip->b]);
    VEXA_NEXT();
op_min:
    r[ip->d] = vexa_math::Min(r[ip->a], r[ip->b]);
    VEXA_NEXT();
op_mod:
    r[ip->d] = vexa_math::Mod(r[ip->a], r[ip->b]);
    VEXA_NEXT();
op_sign:
    r[ip->d] = vexa_math::Sign(r[ip->a], r[ip->b]);
    VEXA_NEXT();
op_list: {
    double v[kMaxArgs];
    const std::uint32_t* regs = argRegs + ip->a;
    const int n = static_cast<int>(ip->b);
    for (int k = 0; k < n; ++k)
        v[k] = r[regs[k]];
    EvalBuiltin(static_cast<Op>(ip->op), v, n, r[ip->d]);
    VEXA_NEXT();
}
op_numdiff: {
    double v[kMaxArgs];
    const std::uint32_t* regs = argRegs + ip->a;
    const int n = static_cast<int>(ip->b);
    for (int k = 0; k < n; ++k)
        v[k] = r[regs[k]];
    if (!StepDifference(m_chains[ip->c], 0, v, n, r[ip->d]))
        return RunResult::kUseTree;
    VEXA_NEXT();
}
op_call:
    if (!CallCalculator(m_calls[ip->c], argRegs + ip->a, static_cast<int>(ip->b), r, space, r[ip->d]))
        return RunResult::kUseTree;
    VEXA_NEXT();
op_stop:
    return RunResult::kUseTree;
op_return:
    return RunResult::kDone;

#undef VEXA_NEXT
}

}  // namespace vexa_compiled
