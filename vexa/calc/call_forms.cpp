#include "vexa/calc/call_forms.h"

#include "vexa/calc/operations.h"
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
#define VEXA_FORM_ROW(Name, Text, Kind, Fewest, Most, Refusal, Gradient, Form, Summary) \
    {Text, Form, Summary, Fewest, Most},
    VEXA_OPERATIONS(VEXA_FORM_ROW)
#undef VEXA_FORM_ROW
    {"sin", "sin(x)", "sine; reached from expressions as SIN", 1, 1},
    {"cos", "cos(x)", "cosine; reached from expressions as COS", 1, 1},
    {"add", "add(...)", "name without an implementation: any call fails with code -1000", 0, 1000},
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
    // Operators and the program's own instructions have empty names.
    for (const CallForm& f : kForms)
        if (*f.name && n == f.name)
            return &f;
    for (const CallForm& f : kForms)
        if (*f.name && vexa_platform::WcsICmp(name.c_str(), FromUtf8(f.name).c_str()) == 0)
            return &f;
    return nullptr;
}

}  // namespace vexa
