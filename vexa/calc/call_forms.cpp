#include "vexa/calc/call_forms.h"

#include "vexa/core/platform.h"
#include "vexa/core/utf8.h"

namespace vexa {

namespace {

// Measure, force and spline names accept these argument counts and answer a
// fixed 12 (or refuse), so they are grouped by their accepted counts.
#define VX_MEASURE2(N) {N, N "(a[, b])", "placeholder of the solver's measure; any 1-2 arguments, value 12", 1, 2}
#define VX_MEASURE3(N) {N, N "(a[, b[, c]])", "placeholder of the solver's measure; any 1-3 arguments, value 12", 1, 3}
#define VX_MEASURE4(N) \
    {N, N "(a[, b[, c[, d]]])", "placeholder of the solver's measure or element; any 1-4 arguments, value 12", 1, 4}

const CallForm kForms[] = {
    {"ABS", "ABS(x)", "absolute value", 1, 1},
    {"ACOS", "ACOS(x)", "arc cosine, |x| <= 1", 1, 1},
    {"AINT", "AINT(x)", "x truncated toward zero", 1, 1},
    {"ANINT", "ANINT(x)", "x rounded to the nearest whole number, halves away from zero", 1, 1},
    {"ASIN", "ASIN(x)", "arc sine, |x| <= 1", 1, 1},
    {"ATAN", "ATAN(x)", "arc tangent", 1, 1},
    {"ATAN2", "ATAN2(y, x)", "angle of the point (x, y); y is the ordinate", 2, 2},
    {"COS", "COS(x)", "cosine (radians)", 1, 1},
    {"COSH", "COSH(x)", "hyperbolic cosine", 1, 1},
    {"EXP", "EXP(x)", "e to the power x", 1, 1},
    {"LOG", "LOG(x)", "natural logarithm, x > 0", 1, 1},
    {"LOG10", "LOG10(x)", "base-10 logarithm, x > 0", 1, 1},
    {"MAX", "MAX(a, b)", "the larger of a and b", 2, 2},
    {"MIN", "MIN(a, b)", "the smaller of a and b", 2, 2},
    {"MOD", "MOD(a, b)", "remainder of a / b with the sign of a", 2, 2},
    {"SIGN", "SIGN(a, b)", "|a| when b > 0, else -|a|", 2, 2},
    {"SIN", "SIN(x)", "sine (radians)", 1, 1},
    {"SINH", "SINH(x)", "hyperbolic sine", 1, 1},
    {"SQRT", "SQRT(x)", "square root, x >= 0", 1, 1},
    {"TAN", "TAN(x)", "tangent (radians)", 1, 1},
    {"TANH", "TANH(x)", "hyperbolic tangent", 1, 1},
    {"sin", "sin(x)", "sine; reached from expressions as SIN", 1, 1},
    {"cos", "cos(x)", "cosine; reached from expressions as COS", 1, 1},
    {"add", "add(...)", "name without an implementation: any call fails with code -1000", 0, 1000},
    {"IF", "IF(x, neg, zero, pos)  or  IF(x: neg, zero, pos)", "neg when x < 0, zero when x = 0, pos otherwise",
     4, 4},
    {"STEP", "STEP(x, x0, h0, x1, h1)", "cubic step from h0 at x0 to h1 at x1", 5, 5},
    {"STEP5", "STEP5(x, x0, h0, x1, h1)", "quintic step from h0 at x0 to h1 at x1", 5, 5},
    {"HAVSIN", "HAVSIN(x, x0, h0, x1, h1)", "haversine step from h0 at x0 to h1 at x1", 5, 5},
    {"SHF", "SHF(x, x0, a, w, phi, b)", "a*sin(w*(x - x0) - phi) + b", 6, 6},
    {"SWEEP", "SWEEP(x, a, x0, f0, x1, f1, dx)",
     "sine of amplitude a, frequency rising from f0 at x0 to f1 at x1, ramped in over 0..dx", 7, 7},
    {"IMPACT", "IMPACT({dist}, {vel}, x1, k, e, cmax, d)",
     "one-sided contact force below x1; two arguments must be braced result objects", 7, 7},
    {"BISTOP", "BISTOP({dist}, {vel}, x1, x2, k, e, cmax, d)",
     "two-sided contact force outside [x1, x2]; two arguments must be braced result objects", 8, 8},
    {"POLY", "POLY(x, x0, c0[, c1, ... c30])", "sum of ci*(x - x0)^i", 3, 33},
    {"CHEBY", "CHEBY(x, x0, c0[, c1, ... c30])", "sum of ci*Ti(x - x0), Chebyshev polynomials", 3, 33},
    {"FORCOS", "FORCOS(x, x0, w, c0[, c1, ... c30])", "c0 + sum of ci*cos(i*w*(x - x0))", 4, 34},
    {"FORSIN", "FORSIN(x, x0, w, c0[, c1, ... c30])", "c0 + sum of ci*sin(i*w*(x - x0))", 4, 34},
    {"MAG", "MAG(v)", "length of a 1 x 3 vector; refused for scalars, so no expression text can call it", -1, -1},
    {"AKISPL", "AKISPL(...)", "spline name without data here: refuses every call", -1, -1},
    {"CUBSPL", "CUBSPL(...)", "spline name without data here: refuses every call", -1, -1},
    {"UV", "UV(a)", "placeholder of the solver's unit vector; exactly 1 argument, value 12", 1, 1},
    VX_MEASURE2("AX"), VX_MEASURE2("AY"), VX_MEASURE2("AZ"), VX_MEASURE2("DM"), VX_MEASURE2("PHI"),
    VX_MEASURE2("PITCH"), VX_MEASURE2("PSI"), VX_MEASURE2("ROLL"), VX_MEASURE2("THETA"), VX_MEASURE2("YAW"),
    VX_MEASURE2("WM"), VX_MEASURE2("FM"), VX_MEASURE2("TM"), VX_MEASURE2("UVX"), VX_MEASURE2("UVY"),
    VX_MEASURE2("UVZ"),
    VX_MEASURE3("DX"), VX_MEASURE3("DXYZ"), VX_MEASURE3("DY"), VX_MEASURE3("DZ"), VX_MEASURE3("INCANG"),
    VX_MEASURE3("VM"), VX_MEASURE3("VR"), VX_MEASURE3("WX"), VX_MEASURE3("WY"), VX_MEASURE3("WZ"),
    VX_MEASURE3("ACCM"), VX_MEASURE3("WDTM"), VX_MEASURE3("FX"), VX_MEASURE3("FY"), VX_MEASURE3("FZ"),
    VX_MEASURE3("TX"), VX_MEASURE3("TY"), VX_MEASURE3("TZ"), VX_MEASURE3("FXYZ"), VX_MEASURE3("TXYZ"),
    VX_MEASURE3("WXYZ"),
    VX_MEASURE4("VX"), VX_MEASURE4("VXYZ"), VX_MEASURE4("VY"), VX_MEASURE4("VZ"), VX_MEASURE4("ACCX"),
    VX_MEASURE4("ACCY"), VX_MEASURE4("ACCZ"), VX_MEASURE4("WDTX"), VX_MEASURE4("WDTY"), VX_MEASURE4("WDTZ"),
    VX_MEASURE4("BUSH"), VX_MEASURE4("GFORCE"), VX_MEASURE4("SFORCE"), VX_MEASURE4("SPDP"), VX_MEASURE4("CVCV"),
    VX_MEASURE4("JOINT"), VX_MEASURE4("JPRIM"), VX_MEASURE4("MOTION"), VX_MEASURE4("PTCV"), VX_MEASURE4("CURVE"),
    VX_MEASURE4("INTERP"), VX_MEASURE4("ACCXYZ"), VX_MEASURE4("WDTXYZ"),
};

#undef VX_MEASURE2
#undef VX_MEASURE3
#undef VX_MEASURE4

}  // namespace

const CallForm* FindCallForm(const std::wstring& name)
{
    const std::string n = ToUtf8(name);
    for (const CallForm& f : kForms)
        if (n == f.name)
            return &f;
    for (const CallForm& f : kForms)
        if (vexa_platform::WcsICmp(name.c_str(), FromUtf8(f.name).c_str()) == 0)
            return &f;
    return nullptr;
}

}  // namespace vexa
