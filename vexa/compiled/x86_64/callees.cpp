#include "vexa/compiled/x86_64/callees.h"

#include <cmath>
#include <exception>

#include "vexa/calc/builtin_math.h"
#include "vexa/calc/callee.h"
#include "vexa/calc/icalculator.h"
#include "vexa/compiled/run/builtin_gradient.h"
#include "vexa/compiled/run/point_run.h"
#include "vexa/core/data_access.h"

namespace vexa_compiled {
namespace x64 {

namespace {

using vexa_core::DataAccess;

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

// The value's function of op and the form of its arguments.
std::uint64_t ValueFunction(Op op, int& lead, bool& refuses)
{
    lead = -1;
    refuses = false;
    switch (op) {
    case kSin: return Address(CallSin);
    case kCos: return Address(CallCos);
    case kTan: return Address(CallTan);
    case kSinh: return Address(CallSinh);
    case kCosh: return Address(CallCosh);
    case kTanh: return Address(CallTanh);
    case kAtan: return Address(CallAtan);
    case kExp: return Address(CallExp);
    case kAint: return Address(CallAint);
    case kAnint: return Address(vexa_math::Anint);
    case kAsin: refuses = true; return Address(CallAsin);
    case kAcos: refuses = true; return Address(CallAcos);
    case kLog: refuses = true; return Address(CallLog);
    case kLog10: refuses = true; return Address(CallLog10);
    case kPow: return Address(CallPow);
    case kAtan2: return Address(CallAtan2);
    case kMax: return Address(CallMax);
    case kMin: return Address(CallMin);
    case kMod: return Address(vexa_math::Mod);
    case kSign: return Address(CallSign);
    case kIf: return Address(CallIf);
    case kStep: return Address(vexa_math::CubicStep);
    case kStep5: return Address(vexa_math::QuinticStep);
    case kHavsin: return Address(vexa_math::Havsin);
    case kShf: return Address(vexa_math::Shf);
    case kImpact: return Address(vexa_math::Impact);
    case kSweep: return Address(vexa_math::Sweep);
    case kBistop: return Address(vexa_math::Bistop);
    case kPoly: lead = 2; return Address(vexa_math::Poly);
    case kCheby: lead = 2; return Address(vexa_math::Cheby);
    case kForcos: lead = 3; return Address(vexa_math::Forcos);
    case kForsin: lead = 3; return Address(vexa_math::Forsin);
    default: return 0;
    }
}

}  // namespace

CallTarget CallTargetOf(Op op)
{
    CallTarget t;
    t.value = ValueFunction(op, t.lead, t.refuses);
    t.gradient = Address(BuiltinGradientKernel(op));
    return t;
}

int CallDifference(const DiffChain* chain, const double* args, int n, double* out)
{
    return CentralDifference(*chain, args, n, *out) ? 1 : 0;
}

// The arguments are read from their registers here, not copied by the code:
// a call may pass any number of them.
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

int Rethrow(CallSpace* space)
{
    std::exception_ptr e = space->pending;
    space->pending = nullptr;
    std::rethrow_exception(e);
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

}  // namespace x64
}  // namespace vexa_compiled
