// Many points at once, and the exact gradient at one point, through a
// compiled form of an expression.
#include <vexa/vexa.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

int main()
{
    VexaParser parser;
    ICalculator* calc = nullptr;
    wchar_t names[] = L"TIME,AMP";
    if (!parser.parse(L"STEP(TIME,0,0,1,AMP)*SIN(2*PI*TIME)", names, &calc))
        return 1;
    std::string why;
    std::unique_ptr<vexa::CompiledExpression> form = vexa::CompiledExpression::Make(calc, 2, &why);
    calc->Release();  // the form keeps a copy of its own
    if (!form) {
        std::printf("%s\n", why.c_str());
        return 1;
    }

    // 10^6 points: TIME varies, AMP is held at 2.
    std::vector<double> time(1000000), out(time.size());
    for (std::size_t i = 0; i < time.size(); ++i)
        time[i] = 2e-6 * static_cast<double>(i);
    const double amp = 2.0;
    const vexa::Column columns[] = {vexa::Column::Values(time.data()), vexa::Column::Held(&amp)};
    vexa::Options options;
    options.threads = 2;
    const vexa::Report report = form->EvaluateMany(time.size(), columns, out.data(), options);
    std::printf("%zu points, %zu failed; at TIME = %g: %.17g\n", out.size(), report.failed, time[125000],
                out[125000]);

    // The value and both partial derivatives at one point.
    vexa::Workspace ws(*form);
    const double point[] = {0.5, 2.0};
    double grad[2];
    const vexa::Outcome at = form->Gradient(point, grad, ws);
    std::printf("at TIME = 0.5, AMP = 2: %.17g, d/dTIME = %.17g, d/dAMP = %.17g\n", at.value, grad[0], grad[1]);
    return at.ok() ? 0 : 1;
}
