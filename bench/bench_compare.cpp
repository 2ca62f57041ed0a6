// Evaluation side by side: every usable expression of the shared sets
// bench_expr.txt and mbd_expr.txt, as native C++, through the peer parser
// muParser, and through vexa (its Expression and its derivative calculator
// with respect to the first parameter), in one run. Every evaluation takes
// the next of 1024 parameter sets, spread over each parameter's range.
// Prints a table of nanoseconds per evaluation and the geometric means of
// the ratios. The cases are generated at build time (gen_cases) from the
// sets, read where they lie.
//
// taskset -c 1 build-bench/bench/bench_compare --benchmark_repetitions=5 [--benchmark_filter=...]
#include <benchmark/benchmark.h>
#include <muParser.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench_case.h"
#include "native_functions.h"
#include "vexa/vexa.h"

namespace {

constexpr int kSets = 1024;

#include "bench_cases.inc"

double PeerAint(double x) { return std::trunc(x); }
double PeerAnint(double x) { return std::round(x); }
double PeerAtan2(double y, double x) { return std::atan2(y, x); }
double PeerMod(double a, double b) { return native::mod(a, b); }
double PeerSign(double a, double b) { return native::sign(a, b); }
double PeerPoly(const double* v, int n) { return native::poly(v[0], v[1], v + 2, n - 2); }
double PeerCheby(const double* v, int n) { return native::cheby(v[0], v[1], v + 2, n - 2); }
double PeerForcos(const double* v, int n) { return native::forcos(v[0], v[1], v[2], v + 3, n - 3); }
double PeerForsin(const double* v, int n) { return native::forsin(v[0], v[1], v[2], v + 3, n - 3); }

// One expression, ready in all three forms.
struct Prepared {
    const BenchCase* source;
    std::vector<double> sets;        // kSets x params
    std::vector<VEXA_Data> values;   // the same, as values
    double slots[kMaxParams] = {};   // the peer's variables
    mu::Parser peer;
    ICalculator* calc = nullptr;
    ICalculator* derivative = nullptr;

    ~Prepared()
    {
        if (derivative)
            derivative->Release();
        if (calc)
            calc->Release();
    }
};

std::vector<std::unique_ptr<Prepared>> Prepare()
{
    std::vector<std::unique_ptr<Prepared>> all;
    unsigned state = 12345u;
    for (const BenchCase& c : kCases) {
        std::unique_ptr<Prepared> p(new Prepared());
        p->source = &c;
        for (int s = 0; s < kSets; ++s) {
            for (int i = 0; i < c.params; ++i) {
                state = state * 1664525u + 1013904223u;
                const double f = (state >> 8) / 16777216.0;
                p->sets.push_back(c.lo[i] + (c.hi[i] - c.lo[i]) * f);
                p->values.emplace_back(p->sets.back());
            }
        }
        try {
            for (int i = 0; i < c.params; ++i)
                p->peer.DefineVar("p" + std::to_string(i), &p->slots[i]);
            p->peer.DefineFun("AINT", PeerAint);
            p->peer.DefineFun("ANINT", PeerAnint);
            p->peer.DefineFun("ATAN2", PeerAtan2);
            p->peer.DefineFun("MOD", PeerMod);
            p->peer.DefineFun("SIGN2", PeerSign);
            p->peer.DefineFun("STEP", native::step);
            p->peer.DefineFun("STEP5", native::step5);
            p->peer.DefineFun("HAVSIN", native::havsin);
            p->peer.DefineFun("SHF", native::shf);
            p->peer.DefineFun("IMPACT", native::impact);
            p->peer.DefineFun("BISTOP", native::bistop);
            p->peer.DefineFun("SWEEP", native::sweep);
            p->peer.DefineFun("POLY", PeerPoly);
            p->peer.DefineFun("CHEBY", PeerCheby);
            p->peer.DefineFun("FORCOS", PeerForcos);
            p->peer.DefineFun("FORSIN", PeerForsin);
            p->peer.SetExpr(c.peer);
            p->peer.Eval();
        } catch (mu::Parser::exception_type& e) {
            std::fprintf(stderr, "peer rejects %s: %s\n", c.peer, e.GetMsg().c_str());
            continue;
        }
        VexaParser parser;
        if (!parser.parse(c.text, nullptr, &p->calc) || parser.getParamsNum() != c.params)
            continue;
        p->derivative = c.params > 0 ? p->calc->getDerivativeCalculator(0) : nullptr;
        all.push_back(std::move(p));
    }
    return all;
}

void Native(benchmark::State& state, Prepared* p)
{
    const int n = p->source->params;
    double sum = 0.0;
    for (auto _ : state) {
        const double* set = p->sets.data();
        for (int s = 0; s < kSets; ++s, set += n)
            sum += p->source->native(set);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kSets);
}

void Peer(benchmark::State& state, Prepared* p)
{
    const int n = p->source->params;
    double sum = 0.0;
    for (auto _ : state) {
        const double* set = p->sets.data();
        for (int s = 0; s < kSets; ++s, set += n) {
            for (int i = 0; i < n; ++i)
                p->slots[i] = set[i];
            sum += p->peer.Eval();
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kSets);
}

void Vexa(benchmark::State& state, Prepared* p, ICalculator* calc)
{
    const int n = p->source->params;
    VEXA_Data result;
    double sum = 0.0;
    for (auto _ : state) {
        VEXA_Data* set = p->values.data();
        for (int s = 0; s < kSets; ++s, set += n) {
            calc->Evaluate(n, set, result);
            sum += result.getValue()[0];
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * kSets);
}

// Collects nanoseconds per evaluation by benchmark name while printing as
// usual; with --benchmark_repetitions the fastest repetition counts, which
// is the one least disturbed by whatever else the machine does.
class Collector : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& r : runs) {
            if (r.run_type != Run::RT_Iteration || r.iterations == 0)
                continue;
            const double ns = r.GetAdjustedRealTime() / kSets;
            const std::string name = r.run_name.function_name;
            auto it = times.find(name);
            if (it == times.end() || ns < it->second)
                times[name] = ns;
        }
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> times;
};

}  // namespace

int main(int argc, char** argv)
{
    std::vector<std::unique_ptr<Prepared>> cases = Prepare();
    for (std::size_t i = 0; i < cases.size(); ++i) {
        Prepared* p = cases[i].get();
        const std::string id = std::to_string(i) + "/";
        benchmark::RegisterBenchmark((id + "native").c_str(), Native, p);
        benchmark::RegisterBenchmark((id + "muparser").c_str(), Peer, p);
        benchmark::RegisterBenchmark((id + "vexa").c_str(), Vexa, p, p->calc);
        if (p->derivative)
            benchmark::RegisterBenchmark((id + "vexa_deriv").c_str(), Vexa, p, p->derivative);
    }
    benchmark::Initialize(&argc, argv);
    Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);

    // Geometric means of the ratios, per set and over both.
    struct Mean {
        double logs = 0.0;
        int count = 0;
        void add(double r) { logs += std::log(r); ++count; }
        double value() const { return count ? std::exp(logs / count) : 0.0; }
    };
    std::map<std::string, Mean> vexaNative, peerNative, vexaPeer, derivVexa;
    double worstDeriv = 0.0;
    std::printf("\n%4s %9s %9s %9s %9s %7s %7s %7s  %s\n", "#", "native", "muparser", "vexa", "d/dp0",
                "v/nat", "mu/nat", "d/v", "expression");
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const std::string id = std::to_string(i) + "/";
        const auto& t = collector.times;
        if (!t.count(id + "native") || !t.count(id + "vexa") || !t.count(id + "muparser"))
            continue;
        const double nat = t.at(id + "native"), mu = t.at(id + "muparser"), vx = t.at(id + "vexa");
        const double dv = t.count(id + "vexa_deriv") ? t.at(id + "vexa_deriv") : 0.0;
        const std::string file = cases[i]->source->file;
        for (const std::string& key : {file, std::string("both")}) {
            vexaNative[key].add(vx / nat);
            peerNative[key].add(mu / nat);
            vexaPeer[key].add(vx / mu);
            if (dv > 0)
                derivVexa[key].add(dv / vx);
        }
        if (dv > 0 && dv / vx > worstDeriv)
            worstDeriv = dv / vx;
        std::printf("%4zu %9.2f %9.2f %9.2f %9.2f %7.2f %7.2f %7.2f  %s\n", i, nat, mu, vx, dv, vx / nat,
                    mu / nat, dv > 0 ? dv / vx : 0.0, Narrow(cases[i]->source->text).c_str());
    }
    std::printf("\ngeometric means (expressions)   vexa/native  muparser/native  vexa/muparser  derivative/vexa\n");
    for (const auto& entry : vexaNative) {
        std::printf("%-20s (%3d)   %11.2f  %15.2f  %13.2f  %15.2f\n", entry.first.c_str(), entry.second.count,
                    entry.second.value(), peerNative[entry.first].value(), vexaPeer[entry.first].value(),
                    derivVexa[entry.first].value());
    }
    std::printf("largest derivative/vexa ratio: %.2f\n", worstDeriv);
    return 0;
}
