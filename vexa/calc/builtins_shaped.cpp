#include "vexa/calc/builtin_math.h"
#include "vexa/calc/builtins_args.h"
#include "vexa/calc/builtins_impl.h"

// The formulas live in builtin_math.h, shared with the compiled evaluation.
namespace vexa_builtins {

bool Step(int count, VEXA_Data* args, VEXA_Data& result) {
    double p[5];
    if (!ReadExactly(count, args, 5, p)) return false;
    return Store(result, vexa_math::CubicStep(p[0], p[1], p[2], p[3], p[4]));
}

bool Step5(int count, VEXA_Data* args, VEXA_Data& result) {
    double p[5];
    if (!ReadExactly(count, args, 5, p)) return false;
    return Store(result, vexa_math::QuinticStep(p[0], p[1], p[2], p[3], p[4]));
}

bool Havsin(int count, VEXA_Data* args, VEXA_Data& result) {
    double p[5];
    if (!ReadExactly(count, args, 5, p)) return false;
    return Store(result, vexa_math::Havsin(p[0], p[1], p[2], p[3], p[4]));
}

bool Shf(int count, VEXA_Data* args, VEXA_Data& result) {
    double p[6];
    if (!ReadExactly(count, args, 6, p)) return false;
    return Store(result, vexa_math::Shf(p[0], p[1], p[2], p[3], p[4], p[5]));
}

bool Impact(int count, VEXA_Data* args, VEXA_Data& result) {
    double p[7];
    if (!ReadExactly(count, args, 7, p)) return false;
    return Store(result, vexa_math::Impact(p[0], p[1], p[2], p[3], p[4], p[5], p[6]));
}

bool Bistop(int count, VEXA_Data* args, VEXA_Data& result) {
    double p[8];
    if (!ReadExactly(count, args, 8, p)) return false;
    return Store(result, vexa_math::Bistop(p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7]));
}

bool Sweep(int count, VEXA_Data* args, VEXA_Data& result) {
    double p[7];
    if (!ReadExactly(count, args, 7, p)) return false;
    return Store(result, vexa_math::Sweep(p[0], p[1], p[2], p[3], p[4], p[5], p[6]));
}

}  // namespace vexa_builtins
