#include <cmath>

#include "vexa/calc/builtin_math.h"
#include "vexa/calc/builtins_args.h"
#include "vexa/calc/builtins_impl.h"

namespace vexa_builtins {

using namespace vexa_math;

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

bool Asin(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x) || !InArcDomain(x)) return false;
    return Store(result, std::asin(x));
}

bool Acos(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x) || !InArcDomain(x)) return false;
    return Store(result, std::acos(x));
}

bool Log(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x) || !InLogDomain(x)) return false;
    return Store(result, std::log(x));
}

bool Log10(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x) || !InLogDomain(x)) return false;
    return Store(result, std::log10(x));
}

bool Sqrt(int count, VEXA_Data* args, VEXA_Data& result) {
    double x;
    if (!ReadExactly(count, args, 1, &x) || !InSqrtDomain(x)) return false;
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
    return Store(result, vexa_math::Anint(x));
}

bool Atan2(int count, VEXA_Data* args, VEXA_Data& result) {
    double v[2];
    if (!ReadExactly(count, args, 2, v)) return false;
    return Store(result, std::atan2(v[0], v[1]));
}

bool Max(int count, VEXA_Data* args, VEXA_Data& result) {
    double v[2];
    if (!ReadExactly(count, args, 2, v)) return false;
    return Store(result, vexa_math::Max(v[0], v[1]));
}

bool Min(int count, VEXA_Data* args, VEXA_Data& result) {
    double v[2];
    if (!ReadExactly(count, args, 2, v)) return false;
    return Store(result, vexa_math::Min(v[0], v[1]));
}

bool Mod(int count, VEXA_Data* args, VEXA_Data& result) {
    double v[2];
    if (!ReadExactly(count, args, 2, v)) return false;
    return Store(result, vexa_math::Mod(v[0], v[1]));
}

bool Sign(int count, VEXA_Data* args, VEXA_Data& result) {
    double v[2];
    if (!ReadExactly(count, args, 2, v)) return false;
    return Store(result, vexa_math::Sign(v[0], v[1]));
}

bool If(int count, VEXA_Data* args, VEXA_Data& result) {
    double v[4];
    if (!ReadExactly(count, args, 4, v)) return false;
    return Store(result, vexa_math::If(v[0], v[1], v[2], v[3]));
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
