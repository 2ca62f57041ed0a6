#include "vexa/calc/builtin_math.h"
#include "vexa/calc/builtins_args.h"
#include "vexa/calc/builtins_impl.h"

// The sums live in builtin_math.h, shared with the compiled evaluation.
namespace vexa_builtins {

namespace {

using vexa_math::kMaxCoefficients;

// Reads x, x0 (scalars) and the untested arguments after them into lead and
// rest; count must lie in [leading + 1, leading + kMaxCoefficients] where
// leading counts x, x0 and, for the Fourier series, w.
bool ReadSeries(int count, const VEXA_Data* args, int leading, double* lead, double* rest) {
    if (count < leading + 1 || count > leading + kMaxCoefficients) return false;
    if (!ReadScalars(args, 2, lead)) return false;
    for (int i = 2; i < count; ++i) {
        if (!ReadFirst(args[i], rest[i - 2])) return false;
    }
    return true;
}

}  // namespace

bool Poly(int count, VEXA_Data* args, VEXA_Data& result) {
    double lead[2];
    double c[kMaxCoefficients];
    if (!ReadSeries(count, args, 2, lead, c)) return false;
    return Store(result, vexa_math::Poly(lead[0], lead[1], c, count - 2));
}

bool Cheby(int count, VEXA_Data* args, VEXA_Data& result) {
    double lead[2];
    double c[kMaxCoefficients];
    if (!ReadSeries(count, args, 2, lead, c)) return false;
    return Store(result, vexa_math::Cheby(lead[0], lead[1], c, count - 2));
}

// rest holds w, c0, c1, ...
bool Forcos(int count, VEXA_Data* args, VEXA_Data& result) {
    double lead[2];
    double rest[kMaxCoefficients + 1];
    if (!ReadSeries(count, args, 3, lead, rest)) return false;
    return Store(result, vexa_math::Forcos(lead[0], lead[1], rest[0], rest + 1, count - 3));
}

bool Forsin(int count, VEXA_Data* args, VEXA_Data& result) {
    double lead[2];
    double rest[kMaxCoefficients + 1];
    if (!ReadSeries(count, args, 3, lead, rest)) return false;
    return Store(result, vexa_math::Forsin(lead[0], lead[1], rest[0], rest + 1, count - 3));
}

}  // namespace vexa_builtins
