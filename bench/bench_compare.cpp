// Evaluation side by side: every usable expression of the shared sets
// bench_expr.txt and mbd_expr.txt, as native C++, through the peer parsers
// ExprTk and muParser, and through vexa (its Expression and its derivative
// calculator with respect to the first parameter), in one run. Every
// evaluation takes the next of 1024 parameter sets, spread over each
// parameter's range; every side is timed in thread CPU time. Prints a table
// of nanoseconds per evaluation (least of the repetitions) and the geometric
// means of the ratios, of the least and of the median times. The cases are
// generated at build time (gen_cases) from the sets, read where they lie.
//
// taskset -c 1 build-bench/bench/bench_compare --benchmark_repetitions=9
//     --benchmark_enable_random_interleaving=true [--benchmark_filter=...]
#include <benchmark/benchmark.h>
#include <muParser.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench_case.h"
#include "bench_timing.h"
#include "native_functions.h"
#include "vexa/vexa.h"
#ifdef VEXA_BENCH_EXPRTK
#include "exprtk_peer.h"
#endif

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

// One expression, ready in every form.
struct Prepared {
    const BenchCase* source;
    std::vector<double> sets;        // kSets x params
    std::vector<VEXA_Data> values;   // the same, as values
    double slots[kMaxParams] = {};   // the peer's variables
    mu::Parser peer;
#ifdef VEXA_BENCH_EXPRTK
    double exprtkSlots[kMaxParams] = {};
    peer::Exprtk exprtk;
    bool hasExprtk = false;
#endif
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
#ifdef VEXA_BENCH_EXPRTK
        std::string error;
        p->hasExprtk = p->exprtk.Compile(c.exprtk, p->exprtkSlots, c.params, &error);
        if (!p->hasExprtk)
            std::fprintf(stderr, "ExprTk rejects %s: %s\n", c.exprtk, error.c_str());
        // A translation that computes something else would time something
        // else: the peer must give the native value on the first sets.
        for (int s = 0; p->hasExprtk && s < 8; ++s) {
            const double* set = p->sets.data() + s * c.params;
            const double want = c.native(set);
            const double got = p->exprtk.Run(set, c.params, 1);
            if (!(std::fabs(got - want) <= 1e-9 * (1.0 + std::fabs(want))) && !(std::isnan(got) && std::isnan(want))) {
                std::fprintf(stderr, "ExprTk gives %.17g, native %.17g: %s\n", got, want, c.exprtk);
                p->hasExprtk = false;
            }
        }
#endif
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
    TimeThreadCpu(state, [&] {
        const double* set = p->sets.data();
        for (int s = 0; s < kSets; ++s, set += n)
            sum += p->source->native(set);
        benchmark::DoNotOptimize(sum);
    });
}

void Peer(benchmark::State& state, Prepared* p)
{
    const int n = p->source->params;
    double sum = 0.0;
    TimeThreadCpu(state, [&] {
        const double* set = p->sets.data();
        for (int s = 0; s < kSets; ++s, set += n) {
            for (int i = 0; i < n; ++i)
                p->slots[i] = set[i];
            sum += p->peer.Eval();
        }
        benchmark::DoNotOptimize(sum);
    });
}

#ifdef VEXA_BENCH_EXPRTK
void Exprtk(benchmark::State& state, Prepared* p)
{
    double sum = 0.0;
    TimeThreadCpu(state, [&] {
        sum += p->exprtk.Run(p->sets.data(), p->source->params, kSets);
        benchmark::DoNotOptimize(sum);
    });
}
#endif

void Vexa(benchmark::State& state, Prepared* p, ICalculator* calc)
{
    const int n = p->source->params;
    VEXA_Data result;
    double sum = 0.0;
    TimeThreadCpu(state, [&] {
        VEXA_Data* set = p->values.data();
        for (int s = 0; s < kSets; ++s, set += n) {
            calc->Evaluate(n, set, result);
            sum += result.getValue()[0];
        }
        benchmark::DoNotOptimize(sum);
    });
}

}  // namespace

int main(int argc, char** argv)
{
    std::vector<std::unique_ptr<Prepared>> cases = Prepare();
    for (std::size_t i = 0; i < cases.size(); ++i) {
        Prepared* p = cases[i].get();
        const std::string id = std::to_string(i) + "/";
        benchmark::RegisterBenchmark((id + "native").c_str(), Native, p)->UseManualTime();
#ifdef VEXA_BENCH_EXPRTK
        if (p->hasExprtk)
            benchmark::RegisterBenchmark((id + "exprtk").c_str(), Exprtk, p)->UseManualTime();
#endif
        benchmark::RegisterBenchmark((id + "muparser").c_str(), Peer, p)->UseManualTime();
        benchmark::RegisterBenchmark((id + "vexa").c_str(), Vexa, p, p->calc)->UseManualTime();
        if (p->derivative)
            benchmark::RegisterBenchmark((id + "vexa_deriv").c_str(), Vexa, p, p->derivative)->UseManualTime();
    }
    benchmark::Initialize(&argc, argv);
    Collector collector(kSets);
    benchmark::RunSpecifiedBenchmarks(&collector);
#ifndef VEXA_BENCH_EXPRTK
    std::printf("\nExprTk left out: ../shared/bench/peers/exprtk was absent when this was built\n");
#endif

    // Geometric means of the ratios, per set and over both, of the least
    // and of the median times.
    struct Means {
        GeoMean vexaNative, exprtkNative, muNative, vexaExprtk, vexaMu, derivVexa;
    };
    std::map<std::string, Means> least, median;
    double worstDeriv = 0.0;
    std::printf("\n%4s %8s %8s %8s %8s %8s %6s %6s %6s %6s %6s  %s\n", "#", "native", "exprtk", "muparser",
                "vexa", "d/dp0", "v/nat", "xt/nat", "mu/nat", "v/xt", "d/v", "expression");
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const std::string id = std::to_string(i) + "/";
        const Collector& t = collector;
        if (!t.Has(id + "native") || !t.Has(id + "vexa") || !t.Has(id + "muparser"))
            continue;
        const bool hasXt = t.Has(id + "exprtk"), hasD = t.Has(id + "vexa_deriv");
        const std::string file = cases[i]->source->file;
        auto add = [&](std::map<std::string, Means>& to, double (Collector::*of)(const std::string&) const) {
            const double nat = (t.*of)(id + "native"), mu = (t.*of)(id + "muparser"), vx = (t.*of)(id + "vexa");
            for (const std::string& key : {file, std::string("both")}) {
                Means& m = to[key];
                m.vexaNative.Add(vx / nat);
                m.muNative.Add(mu / nat);
                m.vexaMu.Add(vx / mu);
                if (hasXt) {
                    const double xt = (t.*of)(id + "exprtk");
                    m.exprtkNative.Add(xt / nat);
                    m.vexaExprtk.Add(vx / xt);
                }
                if (hasD)
                    m.derivVexa.Add((t.*of)(id + "vexa_deriv") / vx);
            }
        };
        add(least, &Collector::Least);
        add(median, &Collector::Median);
        const double nat = t.Least(id + "native"), mu = t.Least(id + "muparser"), vx = t.Least(id + "vexa");
        const double xt = hasXt ? t.Least(id + "exprtk") : 0.0;
        const double dv = hasD ? t.Least(id + "vexa_deriv") : 0.0;
        if (dv > 0 && dv / vx > worstDeriv)
            worstDeriv = dv / vx;
        std::printf("%4zu %8.2f %8.2f %8.2f %8.2f %8.2f %6.2f %6.2f %6.2f %6.2f %6.2f  %s\n", i, nat, xt, mu, vx, dv,
                    vx / nat, hasXt ? xt / nat : 0.0, mu / nat, hasXt ? vx / xt : 0.0, dv > 0 ? dv / vx : 0.0,
                    Narrow(cases[i]->source->text).c_str());
    }
    for (int pass = 0; pass < 2; ++pass) {
        std::printf("\ngeometric means of the %s times\n", pass ? "median" : "least");
        std::printf("%-22s %11s %11s %11s %11s %11s %11s\n", "(expressions)", "vexa/nat", "exprtk/nat",
                    "muparser/nat", "vexa/exprtk", "vexa/mupars", "deriv/vexa");
        for (const auto& entry : pass ? median : least) {
            const Means& m = entry.second;
            std::printf("%-16s (%3d) %11.2f %11.2f %11.2f %11.2f %11.2f %11.2f\n", entry.first.c_str(),
                        m.vexaNative.count, m.vexaNative.Value(), m.exprtkNative.Value(), m.muNative.Value(),
                        m.vexaExprtk.Value(), m.vexaMu.Value(), m.derivVexa.Value());
        }
    }
    std::printf("largest derivative/vexa ratio: %.2f\n", worstDeriv);
    return 0;
}
