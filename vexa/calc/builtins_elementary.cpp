#include <cmath>

#include "vexa/calc/builtins_args.h"
#include "vexa/calc/builtins_impl.h"
#include "vexa/core/platform.h"

namespace vexa_builtins {

namespace {

double Trunc(double v) {
    return static_cast<double>(vexa_platform::Trunc32(v));
}

}  // namespace

bool Abs(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x)) return false;
    return Store(result, std::fabs(x));
}

bool Sin(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x)) return false;
    return Store(result, std::sin(x));
}

bool Cos(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x)) return false;
    return Store(result, std::cos(x));
}

bool Tan(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x)) return false;
    return Store(result, std::tan(x));
}

bool Sinh(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x)) return false;
    return Store(result, std::sinh(x));
}

bool Cosh(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x)) return false;
    return Store(result, std::cosh(x));
}

bool Tanh(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x)) return false;
    return Store(result, std::tanh(x));
}

bool Atan(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x)) return false;
    return Store(result, std::atan(x));
}

bool Exp(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x)) return false;
    return Store(result, std::exp(x));
}

// The domain tests are written so that a NaN argument passes them: only the
// listed out-of-domain values are refused, a NaN just propagates.
bool Asin(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x) || std::fabs(x) > 1.0) return false;
    return Store(result, std::asin(x));
}

bool Acos(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x) || std::fabs(x) > 1.0) return false;
    return Store(result, std::acos(x));
}

bool Log(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x) || x <= 0.0) return false;
    return Store(result, std::log(x));
}

bool Log10(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x) || x <= 0.0) return false;
    return Store(result, std::log10(x));
}

bool Sqrt(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x) || x < 0.0) return false;
    return Store(result, std::sqrt(x));
}

bool Aint(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x)) return false;
    return Store(result, Trunc(x));
}

bool Anint(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x)) return false;
    return Store(result, x > 0.0 ? Trunc(x + 0.5) : Trunc(x - 0.5));
}

bool Atan2(int count, VEXA_Data* args, VEXA_Data& result) {
    double v[2];
    if (!ReadExactly(count, args, 2, v)) return false;
    return Store(result, std::atan2(v[0], v[1]));
}

bool Max(int count, VEXA_Data* args, VEXA_Data& result) {
    double v[2];
    if (!ReadExactly(count, args, 2, v)) return false;
    return Store(result, v[0] >= v[1] ? v[0] : v[1]);
}

bool Min(int count, VEXA_Data* args, VEXA_Data& result) {
    double v[2];
    if (!ReadExactly(count, args, 2, v)) return false;
    return Store(result, v[1] < v[0] ? v[1] : v[0]);
}

// The quotient goes through the 32-bit truncation, so a zero divisor gives
// a - (-2147483648 * 0) = a instead of a NaN.
bool Mod(int count, VEXA_Data* args, VEXA_Data& result) {
    double v[2];
    if (!ReadExactly(count, args, 2, v)) return false;
    return Store(result, v[0] - Trunc(v[0] / v[1]) * v[1]);
}

bool Sign(int count, VEXA_Data* args, VEXA_Data& result) {
    double v[2];
    if (!ReadExactly(count, args, 2, v)) return false;
    const double magnitude = std::fabs(v[0]);
    return Store(result, v[1] > 0.0 ? magnitude : -magnitude);
}

// A NaN selector is neither negative nor zero, so it picks the last branch.
bool If(int count, VEXA_Data* args, VEXA_Data& result) {
    double v[4];
    if (!ReadExactly(count, args, 4, v)) return false;
    if (v[0] < 0.0) return Store(result, v[1]);
    if (v[0] == 0.0) return Store(result, v[2]);
    return Store(result, v[3]);
}

// The shape alone decides, but a null value can still report 1 x 3 after a
// null was assigned to it, so the elements must exist as well.
bool Mag(int count, VEXA_Data* args, VEXA_Data& result) {
    if (count != 1 || args == nullptr) return false;
    int rows = 0;
    int cols = 0;
    args[0].getDataInfo(rows, cols);
    const double* v = args[0].getValue();
    if (rows != 1 || cols != 3 || v == nullptr) return false;
    const double sum = std::pow(v[0], 2.0) + std::pow(v[1], 2.0) + std::pow(v[2], 2.0);
    return Store(result, std::sqrt(sum));
}

}  // namespace vexa_builtins
