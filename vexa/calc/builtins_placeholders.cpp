#include "vexa/calc/builtins_args.h"
#include "vexa/calc/builtins_impl.h"

// The measure, force and spline names have no computation in this library:
// it accepts their call forms so that expressions written for the solver
// parse, and answers with a fixed value. Only the count is looked at.
namespace vexa_builtins {

namespace {

const double kPlaceholderValue = 12.0;

bool Fixed(int count, int most, VEXA_Data& result) {
    if (count < 1 || count > most) return false;
    return Store(result, kPlaceholderValue);
}

}  // namespace

bool placeholder1(int count, VEXA_Data*, VEXA_Data& result) {
    return Fixed(count, 1, result);
}

bool placeholder1to2(int count, VEXA_Data*, VEXA_Data& result) {
    return Fixed(count, 2, result);
}

bool placeholder1to3(int count, VEXA_Data*, VEXA_Data& result) {
    return Fixed(count, 3, result);
}

bool placeholder1to4(int count, VEXA_Data*, VEXA_Data& result) {
    return Fixed(count, 4, result);
}

// Spline names need data the library does not have; no call can succeed.
bool alwaysFails(int, VEXA_Data*, VEXA_Data&) {
    return false;
}

}  // namespace vexa_builtins
