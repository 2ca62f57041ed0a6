// Many points, threads and exact gradients, for every usable expression of
// the shared sets (bench_expr.txt and mbd_expr.txt, read where they lie by
// gen_cases at build time):
//   native    a hand-written C++ loop over 10^6 points (the expression's
//             formula inlined into it, parameters read from columns)
//   bulk      vexa::CompiledExpression::EvaluateMany over the same points,
//             one thread; bulk2 with two threads
//   evaluate  ICalculator::Evaluate at one point (1024 points, one by one)
//   gradient  CompiledExpression::Gradient at the same points: the value and
//             every partial derivative
// Prints a table and the geometric means of the ratios.
//
// taskset -c 0,1 build-bench/bench/bench_bulk [--benchmark_filter=...]
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bench_case.h"
#include "native_functions.h"
#include "vexa/vexa.h"

namespace {

#include "bench_cases.inc"

constexpr std::size_t kCaseCount = sizeof kCases / sizeof kCases[0];
constexpr std::size_t kPoints = 1000000;
constexpr std::size_t kOnePoints = 1024;

// More parameters than the sets' expressions have, for the gradient, whose
// cost must not grow with their number.
const BenchCase kWide[] = {
    {"wide", L"a*SIN(b)+c*d", "", "", 4, "a,b,c,d", {0.5, 0.5, 0.5, 0.5}, {1.5, 1.5, 1.5, 1.5}, nullptr},
    {"wide", L"a*SIN(b)+STEP(c,0,0,1,d)*e-f/(1+g*g)+h^2", "", "", 8, "a,b,c,d,e,f,g,h",
     {0.5, 0.5, 0.5, 0.5, 0.5, 0.5, 0.5, 0.5}, {1.5, 1.5, 1.5, 1.5, 1.5, 1.5, 1.5, 1.5}, nullptr},
};

typedef void (*Loop)(const double* const* columns, std::size_t n, double* out);

// The loop a C++ programmer writes for case I: the table entry is a
// constant, so the compiler calls (and inlines) the native function directly.
template <std::size_t I>
void NativeLoop(const double* const* columns, std::size_t n, double* out)
{
    for (std::size_t i = 0; i < n; ++i) {
        double p[kMaxParams];
        for (int k = 0; k < kCases[I].params; ++k)
            p[k] = columns[k][i];
        out[i] = kCases[I].native(p);
    }
}

template <std::size_t... I>
constexpr std::array<Loop, sizeof...(I)> Loops(std::index_sequence<I...>)
{
    return {NativeLoop<I>...};
}

const std::array<Loop, kCaseCount> kLoops = Loops(std::make_index_sequence<kCaseCount>());

struct Prepared {
    const BenchCase* source;
    Loop loop;
    ICalculator* calc = nullptr;
    std::unique_ptr<vexa::CompiledExpression> form;

    ~Prepared()
    {
        if (calc)
            calc->Release();
    }
};

// The points of one case, made when its first benchmark runs: 10^6 values
// per parameter, spread over its range.
class Points {
public:
    const std::vector<std::vector<double> >& For(const BenchCase* c)
    {
        if (c == m_case)
            return m_columns;
        m_case = c;
        m_columns.assign(static_cast<std::size_t>(c->params), std::vector<double>(kPoints));
        unsigned state = 12345u;
        for (std::size_t i = 0; i < kPoints; ++i) {
            for (int k = 0; k < c->params; ++k) {
                state = state * 1664525u + 1013904223u;
                m_columns[static_cast<std::size_t>(k)][i] = c->lo[k] + (c->hi[k] - c->lo[k]) * ((state >> 8) / 16777216.0);
            }
        }
        return m_columns;
    }

private:
    const BenchCase* m_case = nullptr;
    std::vector<std::vector<double> > m_columns;
};

Points g_points;

std::vector<const double*> Pointers(const std::vector<std::vector<double> >& columns)
{
    std::vector<const double*> p;
    for (const auto& c : columns)
        p.push_back(c.data());
    return p;
}

void Native(benchmark::State& state, Prepared* p)
{
    const std::vector<const double*> columns = Pointers(g_points.For(p->source));
    std::vector<double> out(kPoints);
    for (auto _ : state) {
        p->loop(columns.data(), kPoints, out.data());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPoints);
}

void Bulk(benchmark::State& state, Prepared* p, int threads)
{
    const std::vector<const double*> pointers = Pointers(g_points.For(p->source));
    std::vector<vexa::Column> columns;
    for (const double* c : pointers)
        columns.push_back(vexa::Column::Values(c));
    std::vector<double> out(kPoints);
    vexa::Options options;
    options.threads = threads;
    for (auto _ : state) {
        p->form->EvaluateMany(kPoints, columns.data(), out.data(), options);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPoints);
}

// The first kOnePoints points, one set after another.
std::vector<double> Sets(const BenchCase* c)
{
    const auto& columns = g_points.For(c);
    std::vector<double> sets;
    for (std::size_t i = 0; i < kOnePoints; ++i) {
        for (const auto& column : columns)
            sets.push_back(column[i]);
    }
    return sets;
}

void Evaluate(benchmark::State& state, Prepared* p)
{
    const std::vector<double> sets = Sets(p->source);
    const std::vector<VEXA_Data> values(sets.begin(), sets.end());
    std::vector<VEXA_Data> args = values;
    const int n = p->source->params;
    VEXA_Data result;
    double sum = 0.0;
    for (auto _ : state) {
        for (std::size_t s = 0; s < kOnePoints; ++s) {
            p->calc->Evaluate(n, args.data() + s * static_cast<std::size_t>(n), result);
            sum += result.getValue()[0];
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kOnePoints);
}

void Gradient(benchmark::State& state, Prepared* p)
{
    const std::vector<double> sets = Sets(p->source);
    const std::size_t n = static_cast<std::size_t>(p->source->params);
    vexa::Workspace ws(*p->form);
    std::vector<double> grad(n + 1);
    double sum = 0.0;
    for (auto _ : state) {
        for (std::size_t s = 0; s < kOnePoints; ++s)
            sum += p->form->Gradient(sets.data() + s * n, grad.data(), ws).value + grad[0];
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kOnePoints);
}

// Nanoseconds per point by benchmark name, processor and wall-clock time,
// printed as usual meanwhile.
class Collector : public benchmark::ConsoleReporter {
public:
    struct Time {
        double cpu;
        double real;
    };

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& r : runs) {
            if (r.run_type != Run::RT_Iteration || r.iterations <= 0)
                continue;
            std::string name = r.benchmark_name();
            name = name.substr(0, name.find("/real_time"));
            const bool many = name.find("/native") != std::string::npos || name.find("/bulk") != std::string::npos;
            const double points = static_cast<double>(many ? kPoints : kOnePoints);
            // The least of the repetitions: what the machine gives when
            // nothing else disturbs the run.
            const Time t{r.GetAdjustedCPUTime() / points, r.GetAdjustedRealTime() / points};
            auto it = times.find(name);
            if (it == times.end())
                times[name] = t;
            else
                it->second = {std::min(it->second.cpu, t.cpu), std::min(it->second.real, t.real)};
        }
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, Time> times;
};

struct Mean {
    double logs = 0.0;
    int count = 0;
    double most = 0.0;
    double least = 1e300;
    void add(double r)
    {
        logs += std::log(r);
        ++count;
        most = std::max(most, r);
        least = std::min(least, r);
    }
    double value() const { return count ? std::exp(logs / count) : 0.0; }
};

}  // namespace

int main(int argc, char** argv)
{
    std::vector<std::unique_ptr<Prepared> > cases;
    for (std::size_t i = 0; i < kCaseCount + sizeof kWide / sizeof kWide[0]; ++i) {
        std::unique_ptr<Prepared> p(new Prepared());
        p->source = i < kCaseCount ? &kCases[i] : &kWide[i - kCaseCount];
        p->loop = i < kCaseCount ? kLoops[i] : nullptr;
        VexaParser parser;
        if (!parser.parse(p->source->text, nullptr, &p->calc) || parser.getParamsNum() != p->source->params)
            continue;
        p->form = vexa::CompiledExpression::Make(p->calc, p->source->params);
        if (p->form)
            cases.push_back(std::move(p));
    }
    for (std::size_t i = 0; i < cases.size(); ++i) {
        Prepared* p = cases[i].get();
        const std::string id = std::to_string(i) + "/";
        if (p->loop) {
            benchmark::RegisterBenchmark((id + "native").c_str(), Native, p);
            benchmark::RegisterBenchmark((id + "bulk").c_str(), Bulk, p, 1)->UseRealTime();
            benchmark::RegisterBenchmark((id + "bulk2").c_str(), Bulk, p, 2)->UseRealTime();
        }
        benchmark::RegisterBenchmark((id + "evaluate").c_str(), Evaluate, p);
        benchmark::RegisterBenchmark((id + "gradient").c_str(), Gradient, p);
    }
    benchmark::Initialize(&argc, argv);
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);

    std::map<std::string, Mean> bulkNative, scaling, gradientEvaluate;
    std::printf("\n%4s %3s %8s %8s %7s %7s | %8s %8s %7s  %s\n", "#", "n", "native", "bulk", "b/nat", "2 thr",
                "eval", "grad", "g/e", "expression (ns per point)");
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const std::string id = std::to_string(i) + "/";
        const auto& t = collector.times;
        if (!t.count(id + "evaluate") || !t.count(id + "gradient"))
            continue;
        // One thread: processor time, which other work on a shared machine
        // disturbs least; two threads against one: wall-clock time.
        const double eval = t.at(id + "evaluate").cpu, grad = t.at(id + "gradient").cpu;
        const bool many = t.count(id + "native") && t.count(id + "bulk") && t.count(id + "bulk2");
        const double nat = many ? t.at(id + "native").cpu : 0.0, bulk = many ? t.at(id + "bulk").cpu : 0.0;
        const double speedUp = many ? t.at(id + "bulk").real / t.at(id + "bulk2").real : 0.0;
        const std::string file = cases[i]->source->file;
        for (const std::string& key : {file, std::string("all")}) {
            if (many) {
                bulkNative[key].add(bulk / nat);
                scaling[key].add(speedUp);
            }
            gradientEvaluate[key].add(grad / eval);
        }
        std::printf("%4zu %3d %8.2f %8.2f %7.2f %7.2f | %8.2f %8.2f %7.2f  %s\n", i, cases[i]->source->params, nat,
                    bulk, many ? bulk / nat : 0.0, speedUp, eval, grad, grad / eval,
                    Narrow(cases[i]->source->text).c_str());
    }
    std::printf("\ngeometric means              bulk/native (largest)  2-thread speed-up (least)  gradient/evaluate (largest)\n");
    for (const auto& entry : gradientEvaluate) {
        const Mean& many = bulkNative[entry.first];
        const Mean& speedUp = scaling[entry.first];
        const Mean& gradient = gradientEvaluate[entry.first];
        std::printf("%-20s (%2d)   %6.2f (%5.2f)          %6.2f (%5.2f)             %6.2f (%5.2f)\n", entry.first.c_str(),
                    entry.second.count, many.value(), many.most, speedUp.value(), speedUp.count ? speedUp.least : 0.0, gradient.value(),
                    gradient.most);
    }
    return 0;
}
