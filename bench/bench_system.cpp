// A generated multibody model as one vexa::CompiledSystem against the same
// outputs taken one by one. A chain of kBodies bodies: between neighbours a
// spring-damper and a one-sided contact (penetration to the power 1.5, damping
// ramped in), on each body a ramped sinusoidal
// drive and a friction force; the ramp, the sine, the neighbours' relative
// displacement and velocity recur across outputs. Per point, thread CPU time:
//   separate     CompiledExpression::Evaluate of every output
//   calculators  ICalculator::Evaluate of every output (machine code once warm)
//   system       CompiledSystem::Evaluate
//   jacobian     CompiledSystem::Jacobian (values and every partial)
//   central      a central-difference Jacobian: 2 x params system evaluations
//   gradients    CompiledExpression::Gradient of every output
//   many_*       the same over 4096 points: EvaluateMany per output, the system's
// Prints the ratios against the goals (system <= 0.7 x separate, jacobian
// <= 0.25 x central and <= gradients).
//
// taskset -c 0 build/bench/bench_system
#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench_timing.h"
#include "vexa/vexa.h"

namespace {

constexpr int kBodies = 40;
constexpr int kPoints = 64;

struct Model {
    std::vector<std::string> names;
    std::vector<std::string> texts;
    std::vector<ICalculator*> calcs;
    std::unique_ptr<vexa::CompiledSystem> system;
    std::vector<double> points;  // kPoints rows of names.size()
};

std::string Body(const char* v, int i)
{
    return i == 0 ? std::string("0") : std::string(v) + std::to_string(i);
}

Model& TheModel()
{
    static Model m = [] {
        Model m;
        m.names = {"TIME", "AMP", "OMEGA", "STIFF", "DAMP", "PRELOAD", "MU", "NORMAL", "GAP"};
        for (int i = 1; i <= kBodies; ++i)
            m.names.push_back("X" + std::to_string(i));
        for (int i = 1; i <= kBodies; ++i)
            m.names.push_back("V" + std::to_string(i));
        for (int i = 1; i <= kBodies; ++i) {
            const std::string dx = "(" + Body("X", i) + "-" + Body("X", i - 1) + ")";
            const std::string dv = "(" + Body("V", i) + "-" + Body("V", i - 1) + ")";
            const std::string ramp = "STEP(TIME, 0, 0, 1, 1)";
            m.texts.push_back("-STIFF*" + dx + " - DAMP*" + dv + " + PRELOAD*" + ramp);
            const std::string pen = "(-GAP-" + dx + ")";
            m.texts.push_back("1E5*MAX(0, " + pen + ")^1.5 - 100*STEP(" + pen + ", 0, 0, 0.001, 1)*" + dv);
            m.texts.push_back("AMP*" + ramp + "*SIN(OMEGA*TIME) - MU*NORMAL*TANH(" + dv + "/0.01)");
        }
        std::wstring list;
        for (const std::string& n : m.names)
            list += (list.empty() ? L"" : L",") + std::wstring(n.begin(), n.end());
        for (const std::string& t : m.texts) {
            vexa::ParseResult r = vexa::ParseChecked(std::wstring(t.begin(), t.end()).c_str(), list.c_str());
            if (!r.calc || r.names.size() != m.names.size()) {
                std::fprintf(stderr, "%s: %s\n", t.c_str(), r.diagnosis.message.c_str());
                std::abort();
            }
            m.calcs.push_back(r.calc.release());
        }
        std::string why;
        m.system = vexa::CompiledSystem::Make(m.calcs, static_cast<int>(m.names.size()), &why);
        if (!m.system) {
            std::fprintf(stderr, "%s\n", why.c_str());
            std::abort();
        }
        std::mt19937 rng(7);
        std::uniform_real_distribution<double> u(0.0, 1.0);
        const double lo[] = {0, 0.5, 3, 1000, 10, -0.005, 0.1, 50, 0.005};
        const double hi[] = {3, 2, 30, 5000, 50, 0.005, 0.4, 500, 0.015};
        for (int p = 0; p < kPoints; ++p) {
            for (int k = 0; k < 9; ++k)
                m.points.push_back(lo[k] + (hi[k] - lo[k]) * u(rng));
            for (int i = 1; i <= kBodies; ++i)
                m.points.push_back(0.02 * (u(rng) - 0.5));
            for (int i = 1; i <= kBodies; ++i)
                m.points.push_back(4.0 * (u(rng) - 0.5));
        }
        return m;
    }();
    return m;
}

const double* PointAt(int p)
{
    Model& m = TheModel();
    return m.points.data() + static_cast<std::size_t>(p) * m.names.size();
}

void Separate(benchmark::State& state)
{
    Model& m = TheModel();
    std::vector<std::unique_ptr<vexa::Workspace> > ws;
    for (int i = 0; i < m.system->outputCount(); ++i)
        ws.emplace_back(new vexa::Workspace(m.system->output(i)));
    double sink = 0;
    TimeThreadCpu(state, [&] {
        for (int p = 0; p < kPoints; ++p)
            for (int i = 0; i < m.system->outputCount(); ++i)
                sink += m.system->output(i).Evaluate(PointAt(p), *ws[static_cast<std::size_t>(i)]).value;
    });
    benchmark::DoNotOptimize(sink);
}

void Calculators(benchmark::State& state)
{
    Model& m = TheModel();
    std::vector<VEXA_Data> values(m.names.size());
    VEXA_Data out;
    double sink = 0;
    TimeThreadCpu(state, [&] {
        for (int p = 0; p < kPoints; ++p) {
            for (std::size_t k = 0; k < values.size(); ++k)
                values[k] = VEXA_Data(PointAt(p)[k]);
            for (ICalculator* c : m.calcs) {
                c->Evaluate(static_cast<int>(values.size()), values.data(), out);
                sink += out.getValue()[0];
            }
        }
    });
    benchmark::DoNotOptimize(sink);
}

void System(benchmark::State& state)
{
    Model& m = TheModel();
    vexa::SystemWorkspace ws(*m.system);
    std::vector<double> out(static_cast<std::size_t>(m.system->outputCount()));
    TimeThreadCpu(state, [&] {
        for (int p = 0; p < kPoints; ++p)
            m.system->Evaluate(PointAt(p), out.data(), ws);
    });
}

void Jacobian(benchmark::State& state)
{
    Model& m = TheModel();
    vexa::SystemWorkspace ws(*m.system);
    std::vector<double> out(static_cast<std::size_t>(m.system->outputCount()));
    std::vector<double> jac(out.size() * m.names.size());
    TimeThreadCpu(state, [&] {
        for (int p = 0; p < kPoints; ++p)
            m.system->Jacobian(PointAt(p), out.data(), jac.data(), ws);
    });
}

void Central(benchmark::State& state)
{
    Model& m = TheModel();
    vexa::SystemWorkspace ws(*m.system);
    const std::size_t outs = static_cast<std::size_t>(m.system->outputCount()), params = m.names.size();
    std::vector<double> hi(outs), lo(outs), jac(outs * params), x(params);
    TimeThreadCpu(state, [&] {
        for (int p = 0; p < kPoints; ++p) {
            std::copy(PointAt(p), PointAt(p) + params, x.begin());
            for (std::size_t k = 0; k < params; ++k) {
                const double h = 1e-6 * std::max(1.0, std::fabs(x[k])), keep = x[k];
                x[k] = keep + h;
                m.system->Evaluate(x.data(), hi.data(), ws);
                x[k] = keep - h;
                m.system->Evaluate(x.data(), lo.data(), ws);
                x[k] = keep;
                for (std::size_t i = 0; i < outs; ++i)
                    jac[i * params + k] = (hi[i] - lo[i]) / (2 * h);
            }
        }
    });
    benchmark::DoNotOptimize(jac.data());
}

void Gradients(benchmark::State& state)
{
    Model& m = TheModel();
    std::vector<std::unique_ptr<vexa::Workspace> > ws;
    for (int i = 0; i < m.system->outputCount(); ++i)
        ws.emplace_back(new vexa::Workspace(m.system->output(i)));
    std::vector<double> grad(m.names.size());
    TimeThreadCpu(state, [&] {
        for (int p = 0; p < kPoints; ++p)
            for (int i = 0; i < m.system->outputCount(); ++i)
                m.system->output(i).Gradient(PointAt(p), grad.data(), *ws[static_cast<std::size_t>(i)]);
    });
}

// 4096 points, the kPoints above over and over, a column per parameter.
struct Columns {
    static constexpr std::size_t kMany = 4096;
    std::vector<std::vector<double> > data;
    std::vector<vexa::Column> columns;
    Columns()
    {
        const std::size_t params = TheModel().names.size();
        data.assign(params, std::vector<double>(kMany));
        for (std::size_t k = 0; k < params; ++k) {
            for (std::size_t i = 0; i < kMany; ++i)
                data[k][i] = PointAt(static_cast<int>(i % kPoints))[k];
            columns.push_back(vexa::Column::Values(data[k].data()));
        }
    }
};

void ManySeparate(benchmark::State& state)
{
    Model& m = TheModel();
    Columns c;
    std::vector<double> out(Columns::kMany);
    TimeThreadCpu(state, [&] {
        for (int i = 0; i < m.system->outputCount(); ++i)
            m.system->output(i).EvaluateMany(Columns::kMany, c.columns.data(), out.data());
    });
}

void ManySystem(benchmark::State& state)
{
    Model& m = TheModel();
    Columns c;
    std::vector<double> out(Columns::kMany * static_cast<std::size_t>(m.system->outputCount()));
    TimeThreadCpu(state, [&] { m.system->EvaluateMany(Columns::kMany, c.columns.data(), out.data()); });
}

}  // namespace

BENCHMARK(Separate)->UseManualTime()->Repetitions(5);
BENCHMARK(Calculators)->UseManualTime()->Repetitions(5);
BENCHMARK(System)->UseManualTime()->Repetitions(5);
BENCHMARK(Jacobian)->UseManualTime()->Repetitions(5);
BENCHMARK(Central)->UseManualTime()->Repetitions(5);
BENCHMARK(Gradients)->UseManualTime()->Repetitions(5);
BENCHMARK(ManySeparate)->UseManualTime()->Repetitions(5);
BENCHMARK(ManySystem)->UseManualTime()->Repetitions(5);

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    Collector times(1);
    benchmark::RunSpecifiedBenchmarks(&times);
    Model& m = TheModel();
    auto ratio = [&](const char* a, const char* b) {
        return times.Has(a) && times.Has(b) ? times.Least(a) / times.Least(b) : 0.0;
    };
    std::printf("\nmodel: %d outputs, %zu parameters, %d in the shared program, %zu structural non-zeros\n",
                m.system->outputCount(), m.names.size(), m.system->programOutputs(), m.system->Sparsity().size());
    std::printf("system / separate Evaluate      %.3f  (goal <= 0.7)\n", ratio("System", "Separate"));
    std::printf("system / calculators' Evaluate  %.3f\n", ratio("System", "Calculators"));
    std::printf("many points: system / separate  %.3f\n", ratio("ManySystem", "ManySeparate"));
    std::printf("jacobian / central differences  %.3f  (goal <= 0.25)\n", ratio("Jacobian", "Central"));
    std::printf("jacobian / gradient per output  %.3f  (goal <= 1)\n", ratio("Jacobian", "Gradients"));
    for (ICalculator* c : m.calcs)
        c->Release();
    return 0;
}
