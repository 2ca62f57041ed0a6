// Vector and matrix expressions side by side: every expression of the
// shared set vecmat_expr.txt as hand-written C++ (vecmat_native.h), with
// Eigen's fixed-size types where the build found Eigen, and through vexa's
// Expression with parameters of the declared shapes. Every evaluation takes
// the next of 1024 parameter sets; every side is timed in thread CPU time.
// Before timing, the native and the library's values are compared over all
// sets. Prints nanoseconds per evaluation (least of the repetitions) and the
// geometric means of the ratios, of the least and of the median times. The
// peer parsers have no vectors and are not part of this table.
//
// taskset -c 1 build-bench/bench/bench_vecmat --benchmark_repetitions=9
//     --benchmark_enable_random_interleaving=true
// VEXA_BENCH_DIR overrides the folder the set is read from.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "bench_timing.h"
#include "vecmat_prepare.h"
#ifdef VEXA_BENCH_EIGEN
#include <Eigen/Dense>
#endif

namespace {

constexpr int kSets = 1024;

#ifdef VEXA_BENCH_EIGEN
// The same expressions in Eigen's fixed-size types, written as its users
// write them; Eigen decides the order of its sums.
using R3 = Eigen::RowVector3d;
using R6 = Eigen::Matrix<double, 1, 6>;
using Mx = Eigen::Matrix<double, 3, 3, Eigen::RowMajor>;
using EigenFunction = void (*)(const double* const* p, double* out);
inline Eigen::Map<const R3> V(const double* p) { return Eigen::Map<const R3>(p); }
inline Eigen::Map<const Mx> M(const double* p) { return Eigen::Map<const Mx>(p); }
inline Eigen::Map<R3> OutV(double* p) { return Eigen::Map<R3>(p); }
inline Eigen::Map<Mx> OutM(double* p) { return Eigen::Map<Mx>(p); }

struct EigenCase {
    const char* text;
    EigenFunction function;  // parameters in vecmat_native's order
};
const EigenCase kEigen[] = {
    {"(P1-P2)%F", [](const double* const* p, double* o) { OutV(o) = (V(p[0]) - V(p[1])).cross(V(p[2])); }},
    {"KS*(P2-P1)+CD*(V2-V1)",
     [](const double* const* p, double* o) {
         OutV(o) = p[0][0] * (V(p[2]) - V(p[1])) + p[3][0] * (V(p[5]) - V(p[4]));
     }},
    {"P1+RL*A1", [](const double* const* p, double* o) { OutV(o) = V(p[0]) + V(p[1]) * M(p[2]); }},
    {"V1+W1%(RL*A1)",
     [](const double* const* p, double* o) { OutV(o) = V(p[0]) + V(p[1]).cross(R3(V(p[2]) * M(p[3]))); }},
    {"V2+W2%(RM*A2)-(V1+W1%(RL*A1))",
     [](const double* const* p, double* o) {
         OutV(o) = V(p[0]) + V(p[1]).cross(R3(V(p[2]) * M(p[3]))) -
                   (V(p[4]) + V(p[5]).cross(R3(V(p[6]) * M(p[7]))));
     }},
    {"A1*A2*A3", [](const double* const* p, double* o) { OutM(o) = M(p[0]) * M(p[1]) * M(p[2]); }},
    {"EYE+SIN(TH)*KX+(1-COS(TH))*KX*KX",
     [](const double* const* p, double* o) {
         const double th = p[1][0];
         OutM(o) = M(p[0]) + std::sin(th) * M(p[2]) + ((1.0 - std::cos(th)) * M(p[2])) * M(p[2]);
     }},
    {"W1%(W1*J)", [](const double* const* p, double* o) { OutV(o) = V(p[0]).cross(R3(V(p[0]) * M(p[1]))); }},
    {"(P2-P1)*KB+(V2-V1)*CB",
     [](const double* const* p, double* o) {
         OutV(o) = (V(p[1]) - V(p[0])) * M(p[2]) + (V(p[4]) - V(p[3])) * M(p[5]);
     }},
    {"STEP(TIME,0,0,0.5,1)*F*A1",
     [](const double* const* p, double* o) {
         OutV(o) = (native::step(p[0][0], 0.0, 0.0, 0.5, 1.0) * V(p[1])) * M(p[2]);
     }},
    {"2*(W1%V2)+W1%(W1%RL)",
     [](const double* const* p, double* o) {
         const R3 w = V(p[0]);
         OutV(o) = 2.0 * w.cross(V(p[1])) + w.cross(w.cross(V(p[2])));
     }},
    {"-KS*(Q-Q0)-CD*QD",
     [](const double* const* p, double* o) {
         Eigen::Map<R6> out(o);
         out = -p[0][0] * (Eigen::Map<const R6>(p[1]) - Eigen::Map<const R6>(p[2])) -
               p[3][0] * Eigen::Map<const R6>(p[4]);
     }},
};

EigenFunction FindEigen(const std::string& text)
{
    for (const EigenCase& c : kEigen)
        if (text == c.text)
            return c.function;
    return nullptr;
}
#endif

struct Case {
    vecmat::Prepared prepared;
    void (*eigen)(const double* const*, double*) = nullptr;
    double difference = 0.0;  // largest relative difference, native against vexa
};

void Native(benchmark::State& state, Case* c, vecmat_native::Function f)
{
    const vecmat::Prepared& p = c->prepared;
    double out[9];
    double sum = 0.0;
    TimeThreadCpu(state, [&] {
        const double* const* args = p.args.data();
        for (int s = 0; s < kSets; ++s, args += p.nativeParams) {
            f(args, out);
            sum += out[0];
        }
        benchmark::DoNotOptimize(sum);
    });
}

void Vexa(benchmark::State& state, Case* c)
{
    vecmat::Prepared& p = c->prepared;
    VEXA_Data result;
    double sum = 0.0;
    TimeThreadCpu(state, [&] {
        VEXA_Data* set = p.values.data();
        for (int s = 0; s < kSets; ++s, set += p.vexaParams) {
            p.calc->Evaluate(p.vexaParams, set, result);
            sum += result.getValue()[0];
        }
        benchmark::DoNotOptimize(sum);
    });
}

std::string SetPath()
{
    const char* dir = std::getenv("VEXA_BENCH_DIR");
    return std::string(dir ? dir : VEXA_BENCH_DEFAULT_DIR) + "/vecmat_expr.txt";
}

}  // namespace

int main(int argc, char** argv)
{
    vecmat::Set set;
    const std::string path = SetPath();
    if (!vecmat::Read(path, &set)) {
        std::fprintf(stderr, "bench_vecmat: cannot read %s\n", path.c_str());
        return 1;
    }
    std::vector<std::unique_ptr<Case>> cases;
    for (const vecmat::Line& line : set.expressions) {
        std::unique_ptr<Case> c(new Case());
        vecmat::Prepare(set, line, kSets, 12345u, &c->prepared);
        if (!c->prepared.problem.empty()) {
            std::fprintf(stderr, "bench_vecmat: left out %s: %s\n", line.text.c_str(), c->prepared.problem.c_str());
            continue;
        }
        c->difference = vecmat::LargestDifference(c->prepared);
#ifdef VEXA_BENCH_EIGEN
        c->eigen = FindEigen(line.text);
#endif
        cases.push_back(std::move(c));
    }
    for (std::size_t i = 0; i < cases.size(); ++i) {
        Case* c = cases[i].get();
        const std::string id = "vm" + std::to_string(i) + "/";
        benchmark::RegisterBenchmark((id + "native").c_str(), Native, c, c->prepared.native->function)
            ->UseManualTime();
        if (c->eigen)
            benchmark::RegisterBenchmark((id + "eigen").c_str(), Native, c, c->eigen)->UseManualTime();
        benchmark::RegisterBenchmark((id + "vexa").c_str(), Vexa, c)->UseManualTime();
    }
    benchmark::Initialize(&argc, argv);
    Collector collector(kSets);
    benchmark::RunSpecifiedBenchmarks(&collector);

    GeoMean leastVexa, leastEigen, medianVexa, medianEigen;
    bool allAgree = true;
    std::printf("\n%4s %8s %8s %8s %7s %7s %9s  %s\n", "#", "native", "eigen", "vexa", "v/nat", "eig/nat",
                "rel.diff", "expression");
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const std::string id = "vm" + std::to_string(i) + "/";
        const Collector& t = collector;
        if (!t.Has(id + "native") || !t.Has(id + "vexa"))
            continue;
        const bool hasEigen = t.Has(id + "eigen");
        const double nat = t.Least(id + "native"), vx = t.Least(id + "vexa");
        const double eig = hasEigen ? t.Least(id + "eigen") : 0.0;
        leastVexa.Add(vx / nat);
        medianVexa.Add(t.Median(id + "vexa") / t.Median(id + "native"));
        if (hasEigen) {
            leastEigen.Add(eig / nat);
            medianEigen.Add(t.Median(id + "eigen") / t.Median(id + "native"));
        }
        const double diff = cases[i]->difference;
        // Values that differ by more than rounding make the row meaningless.
        if (diff < 0.0 || diff > 1e-12)
            allAgree = false;
        std::printf("%4zu %8.2f %8.2f %8.2f %7.2f %7.2f %9.1e  %s\n", i, nat, eig, vx, vx / nat,
                    hasEigen ? eig / nat : 0.0, diff, cases[i]->prepared.line->text.c_str());
    }
    std::printf("\ngeometric means (%d expressions)  vexa/native  eigen/native\n", leastVexa.count);
    std::printf("least times                      %11.2f  %12.2f\n", leastVexa.Value(), leastEigen.Value());
    std::printf("median times                     %11.2f  %12.2f\n", medianVexa.Value(), medianEigen.Value());
    std::printf("native and vexa values %s\n",
                allAgree ? "agree to rounding (relative difference <= 1e-12) on every set"
                         : "DIFFER on some expression (rel.diff > 1e-12, or -1: shape, null or thrown code)");
    return allAgree ? 0 : 1;
}
