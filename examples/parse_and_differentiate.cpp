// A host that parses two expressions, evaluates them and their derivatives,
// and prints the values: a sine that a cubic step fades in over the first
// second, and a one-sided contact force that reads two result objects.

#include <cstdio>
#include <new>
#include <string>
#include <vector>

#include "vexa/vexa.h"

namespace {

void PrintNames(VexaParser& parser)
{
    std::printf("  parameters:");
    for (int i = 0; i < parser.getParamsNum(); ++i) {
        const std::wstring name = parser.getParam(i).getWChar_t();
        std::printf(" %d=%ls", i, name.c_str());
    }
    std::printf("\n");
}

// Parses text with the host's names; returns null (and says why) when the
// text is malformed. Error codes arrive as thrown ints; exhausted memory as
// std::bad_alloc.
ICalculator* Parse(VexaParser& parser, const wchar_t* text, const wchar_t* names)
{
    std::wstring list = names;
    ICalculator* calc = nullptr;
    try {
        if (!parser.parse(text, &list[0], &calc)) {
            std::printf("  the parameter list was refused\n");
            return nullptr;
        }
        return calc;
    } catch (int code) {
        std::printf("  syntax error, code %d\n", code);
    } catch (const std::bad_alloc&) {
        std::printf("  out of memory\n");
    }
    if (calc)
        calc->Release();
    return nullptr;
}

void Show(const char* label, ICalculator* calc, std::vector<VEXA_Data>& params)
{
    VEXA_Data result;
    try {
        if (calc && calc->Evaluate(static_cast<int>(params.size()), params.data(), result))
            std::printf("%s = %.9g", label, result.getValue()[0]);
        else
            std::printf("%s = (no value)", label);
    } catch (int code) {
        // Operands that cannot be combined (-10001), a registered function in
        // use on another thread (-1001): see the README's error codes.
        std::printf("%s: error %d", label, code);
    } catch (const std::bad_alloc&) {
        std::printf("%s: out of memory", label);
    }
}

void TimeSignal()
{
    std::printf("STEP(TIME,0,0,1,10)*SIN(2*PI*TIME)\n");
    VexaParser parser;
    ICalculator* f = Parse(parser, L"STEP(TIME,0,0,1,10)*SIN(2*PI*TIME)", L"TIME");
    if (!f)
        return;
    PrintNames(parser);
    ICalculator* df = f->getDerivativeCalculator(0);
    for (double t = 0.0; t <= 1.5001; t += 0.125) {
        std::vector<VEXA_Data> params(1, VEXA_Data(t));
        std::printf("  TIME=%5.3f  ", t);
        Show("f", f, params);
        std::printf("  ");
        Show("df/dTIME", df, params);
        std::printf("\n");
    }
    if (df)
        df->Release();
    f->Release();
}

void ContactForce()
{
    std::printf("IMPACT({DIST},{VEL},1,1E5,1.5,10,0.1)\n");
    VexaParser parser;
    ICalculator* f = Parse(parser, L"IMPACT({DIST},{VEL},1,1E5,1.5,10,0.1)", L"");
    if (!f)
        return;
    PrintNames(parser);
    std::printf("  plottable: %s\n", parser.canPlot() ? "yes" : "no");
    ICalculator* dDist = f->getDerivativeCalculator(0);
    const double distances[] = {1.1, 1.0, 0.99, 0.95, 0.9};
    for (double dist : distances) {
        std::vector<VEXA_Data> params;
        params.push_back(VEXA_Data(dist));
        params.push_back(VEXA_Data(-0.5));
        std::printf("  DIST=%4.2f VEL=-0.5  ", dist);
        Show("F", f, params);
        std::printf("  ");
        Show("dF/dDIST", dDist, params);
        std::printf("\n");
    }
    if (dDist)
        dDist->Release();
    f->Release();
}

}  // namespace

int main()
{
    // Building a derivative can exhaust memory too; this host gives up then.
    int status = 0;
    try {
        TimeSignal();
        ContactForce();
    } catch (const std::bad_alloc&) {
        std::printf("out of memory\n");
        status = 1;
    }
    FunctionFactory::Destroy();
    return status;
}
