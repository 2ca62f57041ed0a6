// Writes every outcome and partial of generated expressions at awkward points
// bit for bit to the file named first; the gradient_bits test runs it with
// and without machine code and requires the same file.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <vector>

#include "compiled_expression_util.h"

using namespace form_test;

namespace {

// The outcome and partials of calc's gradient at four points, taken as a
// function of count parameters (those beyond x, y, z have partial 0, over
// whatever the host left in its array).
void Write(std::ofstream& out, ICalculator* calc, const std::string& text, ComputingCaseGenerator& g, int count = 3)
{
    const auto form = calc ? vexa::CompiledExpression::Make(calc, count) : nullptr;
    if (!form)
        return;
    vexa::Workspace ws(*form);
    for (int trial = 0; trial < 4; ++trial) {
        std::vector<double> point(static_cast<std::size_t>(count)), grad(point.size(), 7.0);
        for (double& v : point)
            v = g.Value();
        const vexa::Outcome o = form->Gradient(point.data(), grad.data(), ws);
        out << text << ' ' << static_cast<int>(o.failure) << ' ' << o.code << std::hex;
        grad.insert(grad.begin(), o.value);
        for (double v : grad) {
            std::uint64_t bits;
            std::memcpy(&bits, &v, sizeof bits);
            out << ' ' << bits;
        }
        out << std::dec << '\n';
    }
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: gradient_bits FILE\n");
        return 2;
    }
    std::ofstream out(argv[1]);
    ComputingCaseGenerator g(11u, {}, false);
    for (int round = 0; round < 400; ++round) {
        const std::string text = g.Expression(g.Pick(1, 6));
        Calc parsed = Parse(text);
        Calc calc(parsed && round % 4 == 0 ? parsed->getDerivativeCalculator(g.Pick(0, 2)) : parsed.release());
        Write(out, calc.get(), text, g, round % 8 == 1 ? 20 : 3);
    }
    // Long argument lists: a registered function called with up to 64
    // arguments, and the series built-ins with all their coefficients,
    // both with their derivatives.
    Register(L"GONE", "A*A+1", L"A");
    for (int k = 1; k <= 64; ++k) {
        std::string args;
        for (int j = 0; j < k; ++j)
            args += (j ? "," : "") + std::string(j % 3 == 0 ? "x" : j % 3 == 1 ? "y*0.5" : "z-1");
        std::vector<std::string> texts = {"x*1+GONE(" + args + ")"};
        if (k >= 3 && k <= 33)
            texts.push_back("POLY(" + args + ")");
        if (k >= 4 && k <= 34)
            texts.push_back("FORCOS(" + args + ")");
        for (const std::string& text : texts) {
            Calc parsed = Parse(text);
            for (int by = -1; parsed && by < 3; ++by) {
                Calc calc(by < 0 ? nullptr : parsed->getDerivativeCalculator(by));
                Write(out, by < 0 ? parsed.get() : calc.get(), text, g);
            }
        }
    }
    return out.good() ? 0 : 1;
}
