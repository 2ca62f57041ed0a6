#include "vexa/compiled/program/builtin_ops.h"

#include <cmath>

#include "vexa/calc/builtin_math.h"
#include "vexa/calc/builtins_impl.h"

namespace vexa_compiled {

namespace {

struct Row {
    BuildInFunctionPtr function;
    BuiltinInfo info;
};

constexpr int kSeries = vexa_math::kMaxCoefficients;

const Row kRows[] = {
    {vexa_builtins::Abs, {BuiltinKind::kComputed, kAbs, 1, 1}},
    {vexa_builtins::Sin, {BuiltinKind::kComputed, kSin, 1, 1}},
    {vexa_builtins::Cos, {BuiltinKind::kComputed, kCos, 1, 1}},
    {vexa_builtins::Tan, {BuiltinKind::kComputed, kTan, 1, 1}},
    {vexa_builtins::Sinh, {BuiltinKind::kComputed, kSinh, 1, 1}},
    {vexa_builtins::Cosh, {BuiltinKind::kComputed, kCosh, 1, 1}},
    {vexa_builtins::Tanh, {BuiltinKind::kComputed, kTanh, 1, 1}},
    {vexa_builtins::Atan, {BuiltinKind::kComputed, kAtan, 1, 1}},
    {vexa_builtins::Exp, {BuiltinKind::kComputed, kExp, 1, 1}},
    {vexa_builtins::Aint, {BuiltinKind::kComputed, kAint, 1, 1}},
    {vexa_builtins::Anint, {BuiltinKind::kComputed, kAnint, 1, 1}},
    {vexa_builtins::Asin, {BuiltinKind::kComputed, kAsin, 1, 1}},
    {vexa_builtins::Acos, {BuiltinKind::kComputed, kAcos, 1, 1}},
    {vexa_builtins::Log, {BuiltinKind::kComputed, kLog, 1, 1}},
    {vexa_builtins::Log10, {BuiltinKind::kComputed, kLog10, 1, 1}},
    {vexa_builtins::Sqrt, {BuiltinKind::kComputed, kSqrt, 1, 1}},
    {vexa_builtins::Atan2, {BuiltinKind::kComputed, kAtan2, 2, 2}},
    {vexa_builtins::Max, {BuiltinKind::kComputed, kMax, 2, 2}},
    {vexa_builtins::Min, {BuiltinKind::kComputed, kMin, 2, 2}},
    {vexa_builtins::Mod, {BuiltinKind::kComputed, kMod, 2, 2}},
    {vexa_builtins::Sign, {BuiltinKind::kComputed, kSign, 2, 2}},
    {vexa_builtins::If, {BuiltinKind::kComputed, kIf, 4, 4}},
    {vexa_builtins::Step, {BuiltinKind::kComputed, kStep, 5, 5}},
    {vexa_builtins::Step5, {BuiltinKind::kComputed, kStep5, 5, 5}},
    {vexa_builtins::Havsin, {BuiltinKind::kComputed, kHavsin, 5, 5}},
    {vexa_builtins::Shf, {BuiltinKind::kComputed, kShf, 6, 6}},
    {vexa_builtins::Impact, {BuiltinKind::kComputed, kImpact, 7, 7}},
    {vexa_builtins::Sweep, {BuiltinKind::kComputed, kSweep, 7, 7}},
    {vexa_builtins::Bistop, {BuiltinKind::kComputed, kBistop, 8, 8}},
    {vexa_builtins::Poly, {BuiltinKind::kComputed, kPoly, 3, 2 + kSeries}},
    {vexa_builtins::Cheby, {BuiltinKind::kComputed, kCheby, 3, 2 + kSeries}},
    {vexa_builtins::Forcos, {BuiltinKind::kComputed, kForcos, 4, 3 + kSeries}},
    {vexa_builtins::Forsin, {BuiltinKind::kComputed, kForsin, 4, 3 + kSeries}},
    {vexa_builtins::placeholder1, {BuiltinKind::kPlaceholder, kStop, 1, 1}},
    {vexa_builtins::placeholder1to2, {BuiltinKind::kPlaceholder, kStop, 1, 2}},
    {vexa_builtins::placeholder1to3, {BuiltinKind::kPlaceholder, kStop, 1, 3}},
    {vexa_builtins::placeholder1to4, {BuiltinKind::kPlaceholder, kStop, 1, 4}},
};

}  // namespace

BuiltinInfo DescribeBuiltin(BuildInFunctionPtr function)
{
    for (const Row& row : kRows) {
        if (row.function == function)
            return row.info;
    }
    // MAG refuses every scalar, alwaysFails everything, and a name without
    // implementation throws: none of them finishes in a program.
    return {BuiltinKind::kRefused, kStop, 0, -1};
}

bool EvalBuiltin(Op op, const double* v, int n, double& out)
{
    using namespace vexa_math;
    switch (op) {
    case kAbs: out = std::fabs(v[0]); return true;
    case kSin: out = std::sin(v[0]); return true;
    case kCos: out = std::cos(v[0]); return true;
    case kTan: out = std::tan(v[0]); return true;
    case kSinh: out = std::sinh(v[0]); return true;
    case kCosh: out = std::cosh(v[0]); return true;
    case kTanh: out = std::tanh(v[0]); return true;
    case kAtan: out = std::atan(v[0]); return true;
    case kExp: out = std::exp(v[0]); return true;
    case kAint: out = Trunc(v[0]); return true;
    case kAnint: out = Anint(v[0]); return true;
    case kAsin:
        if (!InArcDomain(v[0]))
            return false;
        out = std::asin(v[0]);
        return true;
    case kAcos:
        if (!InArcDomain(v[0]))
            return false;
        out = std::acos(v[0]);
        return true;
    case kLog:
        if (!InLogDomain(v[0]))
            return false;
        out = std::log(v[0]);
        return true;
    case kLog10:
        if (!InLogDomain(v[0]))
            return false;
        out = std::log10(v[0]);
        return true;
    case kSqrt:
        if (!InSqrtDomain(v[0]))
            return false;
        out = std::sqrt(v[0]);
        return true;
    case kAtan2: out = std::atan2(v[0], v[1]); return true;
    case kMax: out = Max(v[0], v[1]); return true;
    case kMin: out = Min(v[0], v[1]); return true;
    case kMod: out = Mod(v[0], v[1]); return true;
    case kSign: out = Sign(v[0], v[1]); return true;
    case kIf: out = If(v[0], v[1], v[2], v[3]); return true;
    case kStep: out = CubicStep(v[0], v[1], v[2], v[3], v[4]); return true;
    case kStep5: out = QuinticStep(v[0], v[1], v[2], v[3], v[4]); return true;
    case kHavsin: out = Havsin(v[0], v[1], v[2], v[3], v[4]); return true;
    case kShf: out = Shf(v[0], v[1], v[2], v[3], v[4], v[5]); return true;
    case kImpact: out = Impact(v[0], v[1], v[2], v[3], v[4], v[5], v[6]); return true;
    case kSweep: out = Sweep(v[0], v[1], v[2], v[3], v[4], v[5], v[6]); return true;
    case kBistop: out = Bistop(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]); return true;
    case kPoly: out = Poly(v[0], v[1], v + 2, n - 2); return true;
    case kCheby: out = Cheby(v[0], v[1], v + 2, n - 2); return true;
    case kForcos: out = Forcos(v[0], v[1], v[2], v + 3, n - 3); return true;
    case kForsin: out = Forsin(v[0], v[1], v[2], v + 3, n - 3); return true;
    default: return false;
    }
}

bool HasEffect(Op op)
{
    switch (op) {
    case kDiv:
    case kAsin:
    case kAcos:
    case kLog:
    case kLog10:
    case kSqrt:
    case kNumDiff:
    case kCall:
    case kStop:
    case kReturn:
        return true;
    default:
        return false;
    }
}

}  // namespace vexa_compiled
