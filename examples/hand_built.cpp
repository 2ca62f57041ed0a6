// A host that builds an expression tree by hand instead of parsing text:
//     f(x, y) = x * x + 3 * y
// It evaluates, copies, differentiates and dumps the expression, and checks
// the symbolic derivative against the numerical one.
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "vexa/vexa.h"

namespace {

void PrintValue(const char* label, bool ok, const VEXA_Data& v)
{
    if (!ok || v.getType() != DT_SCALAR) {
        std::printf("%-28s (no value)\n", label);
        return;
    }
    std::printf("%-28s %.12g\n", label, v.getValue()[0]);
}

void PrintDump(const char* label, Expression* e)
{
    std::vector<std::wstring> lines;
    e->Dump(lines);
    std::printf("%s\n", label);
    for (const std::wstring& line : lines)
        std::printf("    %ls\n", line.c_str());
}

}  // namespace

int main()
{
    Expression* f = new Expression();
    VEXA_WString name(L"F");
    f->SetName(name);

    // Leaves are bound to the expression that owns them, and read its
    // parameters: index 0 is x, index 1 is y.
    INode* x_squared = new OperaterNode(2, new VariableParam(f, 0), new VariableParam(f, 0));
    INode* three_y = new OperaterNode(2, new ConstantParam(VEXA_Data(3.0)), new VariableParam(f, 1));
    f->SetRoot(new OperaterNode(0, x_squared, three_y));

    VEXA_Data params[] = {VEXA_Data(2.0), VEXA_Data(1.5)};
    VEXA_Data result;
    bool ok = f->Evaluate(2, params, result);
    PrintValue("f(2, 1.5)", ok, result);
    PrintDump("tree of f:", f);

    // A copy evaluates on its own parameters and outlives nothing it needs.
    Expression* g = f->Copy();
    VEXA_Data other[] = {VEXA_Data(-1.0), VEXA_Data(0.0)};
    ok = g->Evaluate(2, other, result);
    PrintValue("copy at (-1, 0)", ok, result);

    ICalculator* dfdx = f->getDerivativeCalculator(0);
    ICalculator* dfdy = f->getDerivativeCalculator(1);
    int status = 0;
    if (!dfdx || !dfdy) {
        std::printf("derivative too large to build\n");
        status = 1;
    } else {
        VEXA_Data symbolic, numeric;
        bool s_ok = dfdx->Evaluate(2, params, symbolic);
        PrintValue("df/dx at (2, 1.5)", s_ok, symbolic);
        ok = dfdy->Evaluate(2, params, result);
        PrintValue("df/dy at (2, 1.5)", ok, result);
        PrintDump("tree of df/dx:", static_cast<Expression*>(dfdx));

        // The numerical derivative borrows f, which stays alive until after
        // the derivative is released.
        ICalculator* numerical = new ComplexStepCalculator(f, 0);
        bool n_ok = numerical->Evaluate(2, params, numeric);
        std::printf("%-28s %ls\n", "numerical derivative name", static_cast<const wchar_t*>(numerical->getName()));
        PrintValue("central difference df/dx", n_ok, numeric);
        numerical->Release();

        if (!s_ok || !n_ok || std::fabs(symbolic.getValue()[0] - numeric.getValue()[0]) > 1e-6) {
            std::printf("symbolic and numerical derivatives disagree\n");
            status = 1;
        }
    }

    if (dfdx)
        dfdx->Release();
    if (dfdy)
        dfdy->Release();
    g->Release();
    f->Release();
    return status;
}
