// Uses only the installed umbrella header: builds, evaluates and
// differentiates a small expression by hand.
#include <vexa/vexa.h>

#include <cmath>
#include <cstdio>

int main() {
    Expression* e = new Expression();
    // x * x with x the parameter 0
    e->SetRoot(new OperaterNode(2, new VariableParam(e, 0), new VariableParam(e, 0)));
    VEXA_Data x(3.0);
    VEXA_Data r;
    if (!e->Evaluate(1, &x, r) || std::fabs(r.getValue()[0] - 9.0) > 1e-12)
        return 1;
    ICalculator* d = e->getDerivativeCalculator(0);
    e->Release();
    VEXA_Data dr;
    if (!d || !d->Evaluate(1, &x, dr) || std::fabs(dr.getValue()[0] - 6.0) > 1e-12)
        return 2;
    d->Release();
    std::printf("installed vexa works: x*x at 3 = 9, derivative 6\n");
    return 0;
}
