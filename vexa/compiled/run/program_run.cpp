#include <cmath>

#include "vexa/calc/operation_math.h"
#include "vexa/calc/callee.h"
#include "vexa/calc/icalculator.h"
#include "vexa/compiled/program/builtin_ops.h"
#include "vexa/compiled/program/program.h"
#include "vexa/compiled/run/scalar_step.h"
#include "vexa/core/data_access.h"
#include "vexa/core/float_ops.h"
#include "vexa/core/inline_hints.h"

namespace vexa_compiled {

namespace {

using vexa_core::DataAccess;
using vexa_core::Difference;
using vexa_core::Product;
using vexa_core::Quotient;
using vexa_core::Sum;

// The largest argument count of any built-in (FORCOS and FORSIN: 34).
constexpr int kMaxArgs = kMostArguments;

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

namespace {

// One instruction of op over the registers r: every built-in and operator by
// its one formula of the table of operations, read from its operand shape.
template <Op op>
VEXA_FORCE_INLINE Next Execute(const Instr* ip, double* r, const std::uint32_t* argRegs, const Program& p,
                               CallSpace& space)
{
    if constexpr (op == kNumDiff) {
        double v[kMaxArgs];
        const std::uint32_t* regs = argRegs + ip->a;
        const int n = static_cast<int>(ip->b);
        for (int k = 0; k < n; ++k)
            v[k] = r[regs[k]];
        return StepDifference(p.chains()[ip->c], 0, v, n, r[ip->d]) ? Next::kGo : Next::kUseTree;
    } else if constexpr (op == kCall) {
        return CallCalculator(p.calls()[ip->c], argRegs + ip->a, static_cast<int>(ip->b), r, space, r[ip->d])
                   ? Next::kGo
                   : Next::kUseTree;
    } else {
        return ScalarStep<op>(ip, r, argRegs);
    }
}

}  // namespace

#if defined(__GNUC__)
// Threaded dispatch: every instruction ends in its own indirect jump, which
// predicts far better than one shared switch for the short, repetitive
// programs expressions make. Both tables come from the table of operations.
RunResult Program::Run(double* r, CallSpace& space) const
{
    static void* const kJump[kOpCount] = {
#define VEXA_JUMP_ENTRY(Name, ...) &&op_##Name,
        VEXA_OPERATIONS(VEXA_JUMP_ENTRY)
#undef VEXA_JUMP_ENTRY
    };
    const Instr* ip = m_code.data();
    const std::uint32_t* argRegs = m_arg_regs.data();
    goto* kJump[ip->op];

#define VEXA_LABEL(Name, ...)                                                                \
    op_##Name:                                                                               \
    if (const Next next = Execute<k##Name>(ip, r, argRegs, *this, space); next != Next::kGo) \
        return Ending(next);                                                                 \
    ++ip;                                                                                    \
    goto* kJump[ip->op];
    VEXA_OPERATIONS(VEXA_LABEL)
#undef VEXA_LABEL
}
#else
RunResult Program::Run(double* r, CallSpace& space) const
{
    const std::uint32_t* argRegs = m_arg_regs.data();
    for (const Instr* ip = m_code.data();; ++ip) {
        Next next = Next::kUseTree;
        switch (ip->op) {
#define VEXA_RUN_CASE(Name, ...) \
    case k##Name: next = Execute<k##Name>(ip, r, argRegs, *this, space); break;
            VEXA_OPERATIONS(VEXA_RUN_CASE)
#undef VEXA_RUN_CASE
        }
        if (next != Next::kGo)
            return Ending(next);
    }
}
#endif

}  // namespace vexa_compiled
