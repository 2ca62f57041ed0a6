#include <cmath>

#include "vexa/calc/builtins_args.h"
#include "vexa/calc/builtins_impl.h"

// The shaped functions are evaluated in a fixed order of operations so that
// results agree bit for bit with the solver whose language this is; do not
// regroup the arithmetic below.
namespace vexa_builtins {

namespace {

const double kPi = 3.14159265358979323846;
const double kTwoPi = 2.0 * kPi;

// "Unless x > x0" rather than "x <= x0": a NaN x stays at h0.
double CubicStep(double x, double x0, double h0, double x1, double h1) {
    if (!(x > x0)) return h0;
    if (x >= x1) return h1;
    const double a = (x - x0) / (x1 - x0);
    return (3.0 - (a + a)) * (h1 - h0) * (a * a) + h0;
}

double QuinticStep(double x, double x0, double h0, double x1, double h1) {
    if (!(x > x0)) return h0;
    if (x >= x1) return h1;
    const double a = (x - x0) / (x1 - x0);
    return ((6.0 * a) * a + (10.0 - 15.0 * a)) * (h1 - h0) * a * (a * a) + h0;
}

// Penetration force below the lower stop; damping ramps in over depth d.
double LowerContact(double x, double v, double x1, double k, double e, double cmax, double d) {
    const double f = k * std::pow(x1 - x, e) - CubicStep(x, x1 - d, cmax, x1, 0.0) * v;
    return f > 0.0 ? f : 0.0;
}

}  // namespace

bool Step(int count, VEXA_Data* args, VEXA_Data& result) {
    double p[5];
    if (!ReadExactly(count, args, 5, p)) return false;
    return Store(result, CubicStep(p[0], p[1], p[2], p[3], p[4]));
}

bool Step5(int count, VEXA_Data* args, VEXA_Data& result) {
    double p[5];
    if (!ReadExactly(count, args, 5, p)) return false;
    return Store(result, QuinticStep(p[0], p[1], p[2], p[3], p[4]));
}

bool Havsin(int count, VEXA_Data* args, VEXA_Data& result) {
    double p[5];
    if (!ReadExactly(count, args, 5, p)) return false;
    const double x = p[0], x0 = p[1], h0 = p[2], x1 = p[3], h1 = p[4];
    if (!(x > x0)) return Store(result, h0);
    if (x >= x1) return Store(result, h1);
    const double a = (x - x0) / (x1 - x0);
    return Store(result, ((h1 + h0) + (h1 - h0) * std::sin(kPi * a - kPi / 2.0)) * 0.5);
}

bool Shf(int count, VEXA_Data* args, VEXA_Data& result) {
    double p[6];
    if (!ReadExactly(count, args, 6, p)) return false;
    const double x = p[0], x0 = p[1], a = p[2], w = p[3], phi = p[4], b = p[5];
    return Store(result, a * std::sin(w * (x - x0) - phi) + b);
}

bool Impact(int count, VEXA_Data* args, VEXA_Data& result) {
    double p[7];
    if (!ReadExactly(count, args, 7, p)) return false;
    const double x = p[0], v = p[1], x1 = p[2], k = p[3], e = p[4], cmax = p[5], d = p[6];
    if (x < x1) return Store(result, LowerContact(x, v, x1, k, e, cmax, d));
    return Store(result, 0.0);
}

bool Bistop(int count, VEXA_Data* args, VEXA_Data& result) {
    double p[8];
    if (!ReadExactly(count, args, 8, p)) return false;
    const double x = p[0], v = p[1], x1 = p[2], x2 = p[3];
    const double k = p[4], e = p[5], cmax = p[6], d = p[7];
    if (x < x1) return Store(result, LowerContact(x, v, x1, k, e, cmax, d));
    if (x > x2) {
        const double f = -k * std::pow(x - x2, e) - CubicStep(x, x2, 0.0, x2 + d, cmax) * v;
        return Store(result, f < 0.0 ? f : 0.0);
    }
    return Store(result, 0.0);
}

// The amplitude ramps in from x = 0, not from x0: the sweep is silent for
// every x <= 0 whatever its frequency window.
bool Sweep(int count, VEXA_Data* args, VEXA_Data& result) {
    double p[7];
    if (!ReadExactly(count, args, 7, p)) return false;
    const double x = p[0], a = p[1], x0 = p[2], f0 = p[3], x1 = p[4], f1 = p[5], dx = p[6];
    const double k = (f1 - f0) / (x1 - x0);
    double phase;
    if (!(x > x0)) {
        phase = kTwoPi * f0 * x;
    } else if (x <= x1) {
        phase = k * (x - x0) * (kPi * (x - x0)) + kTwoPi * f0 * x;
    } else {
        phase = k * (x1 - x0) * (kPi * (x1 - x0)) + kTwoPi * (f1 * (x - x1) + f0 * x1);
    }
    return Store(result, std::sin(phase) * (QuinticStep(x, 0.0, 0.0, dx, 1.0) * a));
}

}  // namespace vexa_builtins
