// Exact derivatives against their expressions: for every expression of the
// shared set mbd_expr.txt, Evaluate of the expression, of its exact first
// derivative by its first parameter (vexa::ExactDerivative) and of the
// exact second derivative by that parameter twice (the first one's
// getDerivativeCalculator), each over the same 1024 parameter sets drawn
// from the set's ranges. Timed in thread CPU time; prints nanoseconds per
// evaluation (least of the repetitions) and the geometric means of the
// ratios derivative / expression.
//
// taskset -c 1 build/bench/bench_exact --benchmark_repetitions=5
//     --benchmark_enable_random_interleaving=true
// VEXA_BENCH_DIR overrides the folder the set is read from.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "bench_timing.h"
#include "vexa/vexa.h"

namespace {

constexpr int kSets = 1024;

struct Case {
    std::string text;
    vexa::CalcRef calc, first, second;
    int params = 0;
    std::vector<VEXA_Data> values;  // kSets x params
};

std::string BenchDir()
{
    const char* dir = std::getenv("VEXA_BENCH_DIR");
    return dir && *dir ? dir : VEXA_BENCH_DEFAULT_DIR;
}

void Time(benchmark::State& state, Case* c, ICalculator* calc)
{
    VEXA_Data out;
    double sink = 0.0;
    TimeThreadCpu(state, [&] {
        for (int s = 0; s < kSets; ++s) {
            calc->Evaluate(c->params, c->values.data() + s * c->params, out);
            sink += out.getValue() ? out.getValue()[0] : 0.0;
        }
    });
    benchmark::DoNotOptimize(sink);
}

std::unique_ptr<Case> Prepare(const std::string& line, const std::map<std::wstring, std::pair<double, double>>& ranges,
                              std::mt19937& random)
{
    std::unique_ptr<Case> c(new Case());
    c->text = line;
    const std::wstring wide(line.begin(), line.end());
    VexaParser parser;
    try {
        if (!parser.parse(wide.c_str(), nullptr, c->calc.receive()))
            return nullptr;
    } catch (int) {
        return nullptr;
    }
    c->params = parser.getParamsNum();
    if (c->params == 0)
        return nullptr;
    std::string why;
    c->first.reset(vexa::ExactDerivative(c->calc.get(), 0, &why));
    if (!c->first) {
        std::fprintf(stderr, "bench_exact: left out %s: %s\n", line.c_str(), why.c_str());
        return nullptr;
    }
    c->second.reset(c->first->getDerivativeCalculator(0));
    for (int s = 0; s < kSets; ++s)
        for (int k = 0; k < c->params; ++k) {
            const auto r = ranges.find(static_cast<const wchar_t*>(parser.getParam(k)));
            const double lo = r == ranges.end() ? 0.5 : r->second.first;
            const double hi = r == ranges.end() ? 1.5 : r->second.second;
            c->values.push_back(VEXA_Data(std::uniform_real_distribution<double>(lo, hi)(random)));
        }
    return c;
}

}  // namespace

int main(int argc, char** argv)
{
    std::ifstream in(BenchDir() + "/mbd_expr.txt");
    if (!in) {
        std::fprintf(stderr, "bench_exact: cannot read %s/mbd_expr.txt\n", BenchDir().c_str());
        return 1;
    }
    std::map<std::wstring, std::pair<double, double>> ranges;
    std::vector<std::string> lines;
    for (std::string raw; std::getline(in, raw);) {
        if (raw.rfind("#@range", 0) == 0) {
            std::istringstream fields(raw.substr(7));
            std::string name;
            double lo = 0, hi = 0;
            if (fields >> name >> lo >> hi)
                ranges[std::wstring(name.begin(), name.end())] = {lo, hi};
        } else if (!raw.empty() && raw[0] != '#') {
            lines.push_back(raw);
        }
    }
    std::mt19937 random(12345u);
    std::vector<std::unique_ptr<Case>> cases;
    for (const std::string& line : lines)
        if (std::unique_ptr<Case> c = Prepare(line, ranges, random))
            cases.push_back(std::move(c));
    for (std::size_t i = 0; i < cases.size(); ++i) {
        Case* c = cases[i].get();
        const std::string id = "x" + std::to_string(i) + "/";
        benchmark::RegisterBenchmark((id + "value").c_str(), Time, c, c->calc.get())->UseManualTime();
        benchmark::RegisterBenchmark((id + "first").c_str(), Time, c, c->first.get())->UseManualTime();
        benchmark::RegisterBenchmark((id + "second").c_str(), Time, c, c->second.get())->UseManualTime();
    }
    benchmark::Initialize(&argc, argv);
    Collector collector(kSets);
    benchmark::RunSpecifiedBenchmarks(&collector);

    GeoMean first, second;
    std::printf("\n%4s %8s %8s %8s %7s %7s  %s\n", "#", "value", "first", "second", "1st/v", "2nd/v", "expression");
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const std::string id = "x" + std::to_string(i) + "/";
        if (!collector.Has(id + "value") || !collector.Has(id + "first") || !collector.Has(id + "second"))
            continue;
        const double v = collector.Least(id + "value"), d1 = collector.Least(id + "first"),
                     d2 = collector.Least(id + "second");
        first.Add(d1 / v);
        second.Add(d2 / v);
        std::printf("%4zu %8.2f %8.2f %8.2f %7.2f %7.2f  %s\n", i, v, d1, d2, d1 / v, d2 / v, cases[i]->text.c_str());
    }
    std::printf("\ngeometric means (%d expressions, least times): first/value %.2f  second/value %.2f\n",
                first.count, first.Value(), second.Value());
    return 0;
}
