// Evaluates one expression N times, for counting instructions per evaluation
// with callgrind, which stays steady on a shared machine where timings do
// not: the difference between runs of 2N and N evaluations, divided by N.
//
//   valgrind --tool=callgrind build-bench/bench/instructions '(u%v)*k+u-v' u,v,k 1000
//
// Parameters named u and v are 1 x 3 vectors, M a 3 x 3 matrix, every other
// name a scalar.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vexa/vexa.h"

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: instructions EXPRESSION NAME,NAME,... N\n");
        return 2;
    }
    const std::string text = argv[1], list = argv[2];
    std::wstring wideText(text.begin(), text.end()), wideList(list.begin(), list.end());
    VexaParser parser;
    ICalculator* calc = nullptr;
    if (!parser.parse(wideText.c_str(), &wideList[0], &calc)) {
        std::fprintf(stderr, "instructions: the list is refused\n");
        return 1;
    }
    std::vector<VEXA_Data> args;
    for (std::size_t at = 0; at <= list.size();) {
        std::size_t end = list.find(',', at);
        if (end == std::string::npos)
            end = list.size();
        const std::string name = list.substr(at, end - at);
        if (name == "u" || name == "v")
            args.emplace_back(1, 3);
        else if (name == "M")
            args.emplace_back(3, 3);
        else
            args.emplace_back(1.5);
        at = end + 1;
    }
    for (std::size_t k = 0; k < args.size(); ++k) {
        int rows = 0, cols = 0;
        args[k].getDataInfo(rows, cols);
        for (int e = 0; e < rows * cols; ++e)
            args[k].getValue()[e] = 0.5 + 0.25 * static_cast<double>(e + static_cast<int>(k));
    }
    const long n = std::atol(argv[3]);
    VEXA_Data result;
    double sum = 0.0;
    for (long i = 0; i < n; ++i) {
        try {
            calc->Evaluate(static_cast<int>(args.size()), args.data(), result);
            if (result.getValue())
                sum += result.getValue()[0];
        } catch (int) {
        }
    }
    std::printf("%g\n", sum);
    calc->Release();
    return 0;
}
