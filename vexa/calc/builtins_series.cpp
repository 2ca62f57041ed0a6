#include <cmath>

#include "vexa/calc/builtins_args.h"
#include "vexa/calc/builtins_impl.h"

// Every series is summed in ascending order of its index: reordering the sum
// changes the last bits of the result.
namespace vexa_builtins {

namespace {

// At most 31 coefficients follow the leading arguments of every series.
const int kMaxCoefficients = 31;

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

// s = c0 + sum over i >= 1 of wave((i * w) * (x - x0)) * ci; rest holds w, c0, c1, ...
template <typename Wave>
bool Fourier(int count, VEXA_Data* args, VEXA_Data& result, Wave wave) {
    double lead[2];
    double rest[kMaxCoefficients + 1];
    if (!ReadSeries(count, args, 3, lead, rest)) return false;
    const double t = lead[0] - lead[1];
    const double w = rest[0];
    const double* c = rest + 1;
    const int terms = count - 3;
    double s = c[0];
    for (int i = 1; i < terms; ++i) {
        s += wave((static_cast<double>(i) * w) * t) * c[i];
    }
    return Store(result, s);
}

}  // namespace

bool Poly(int count, VEXA_Data* args, VEXA_Data& result) {
    double lead[2];
    double c[kMaxCoefficients];
    if (!ReadSeries(count, args, 2, lead, c)) return false;
    const double t = lead[0] - lead[1];
    double s = 0.0;
    for (int i = 0; i < count - 2; ++i) {
        s += std::pow(t, static_cast<double>(i)) * c[i];
    }
    return Store(result, s);
}

// Chebyshev polynomials of the first kind by the two-term recurrence
// T(i) = 2t T(i-1) - T(i-2), T(0) = 1, T(1) = t.
bool Cheby(int count, VEXA_Data* args, VEXA_Data& result) {
    double lead[2];
    double c[kMaxCoefficients];
    if (!ReadSeries(count, args, 2, lead, c)) return false;
    const double t = lead[0] - lead[1];
    double before = 1.0;  // T(i-2)
    double last = t;      // T(i-1)
    double s = 0.0;
    for (int i = 0; i < count - 2; ++i) {
        double ti;
        if (i == 0) {
            ti = 1.0;
        } else if (i == 1) {
            ti = t;
        } else {
            ti = (2.0 * t) * last - before;
            before = last;
            last = ti;
        }
        s += ti * c[i];
    }
    return Store(result, s);
}

bool Forcos(int count, VEXA_Data* args, VEXA_Data& result) {
    return Fourier(count, args, result, [](double a) { return std::cos(a); });
}

bool Forsin(int count, VEXA_Data* args, VEXA_Data& result) {
    return Fourier(count, args, result, [](double a) { return std::sin(a); });
}

}  // namespace vexa_builtins
