// Writes every outcome and partial of generated expressions at awkward points
// bit for bit to the file named first; the gradient_bits test runs it with
// and without machine code and requires the same file.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "compiled_form_util.h"

using namespace form_test;

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: gradient_bits FILE\n");
        return 2;
    }
    std::ofstream out(argv[1]);
    Generator g(11u, {}, false);
    for (int round = 0; round < 400; ++round) {
        const std::string text = g.Expression(g.Pick(1, 6));
        Calc parsed = Parse(text);
        Calc calc(parsed && round % 4 == 0 ? parsed->getDerivativeCalculator(g.Pick(0, 2)) : parsed.release());
        const auto form = calc ? vexa::CompiledExpression::Make(calc.get(), 3) : nullptr;
        if (!form)
            continue;
        vexa::Workspace ws(*form);
        for (int trial = 0; trial < 4; ++trial) {
            const double point[3] = {g.Value(), g.Value(), g.Value()};
            double grad[3];
            const vexa::Outcome o = form->Gradient(point, grad, ws);
            out << text << ' ' << static_cast<int>(o.failure) << ' ' << o.code << std::hex;
            for (double v : {o.value, grad[0], grad[1], grad[2]}) {
                std::uint64_t bits;
                std::memcpy(&bits, &v, sizeof bits);
                out << ' ' << bits;
            }
            out << std::dec << '\n';
        }
    }
    return out.good() ? 0 : 1;
}
