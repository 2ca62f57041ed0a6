// What an expression of the mbd set costs in resident memory: parsed and
// interpreted, then once its evaluations have switched it to machine code,
// then with a compiled form for many points (as every C and Python handle
// has), then once that form has run a gradient (its gradient code).
//
// Resident memory is read from /proc/self/statm before and after each step
// over many copies of every line, and divided by their count. Each step only
// adds to what the one before made, so the allocator cannot hand a later
// step memory an earlier one freed; the benchmark runs once per process.
// The set is read from $VEXA_BENCH_DIR (default: the shared bench directory
// beside the repository), never copied into the tree.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "vexa/core/executable_arena.h"
#include "vexa/vexa.h"

namespace {

// Copies of every line: enough that a step adds megabytes, far above the
// page the measurement is rounded to.
const int kCopies = 400;
const int kSwitchRuns = 200;

std::string SetPath()
{
    const char* dir = std::getenv("VEXA_BENCH_DIR");
    return std::string(dir && *dir ? dir : VEXA_BENCH_DEFAULT_DIR) + "/mbd_expr.txt";
}

bool Load(std::vector<std::wstring>& lines, std::map<std::wstring, double>& middles)
{
    std::ifstream in(SetPath());
    if (!in)
        return false;
    for (std::string raw; std::getline(in, raw);) {
        if (raw.rfind("#@range", 0) == 0) {
            std::istringstream fields(raw.substr(7));
            std::string name;
            double lo = 0, hi = 0;
            if (fields >> name >> lo >> hi)
                middles[std::wstring(name.begin(), name.end())] = lo + (hi - lo) * 0.375;
            continue;
        }
        if (raw.empty() || raw[0] == '#')
            continue;
        lines.push_back(std::wstring(raw.begin(), raw.end()));
    }
    return true;
}

std::size_t ResidentBytes()
{
    std::ifstream statm("/proc/self/statm");
    std::size_t size = 0, resident = 0;
    statm >> size >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

struct Held {
    ICalculator* calc;
    std::vector<VEXA_Data> params;
    std::unique_ptr<vexa::CompiledExpression> form;
};

bool EvaluateTimes(Held& h, int times)
{
    VEXA_Data result;
    try {
        for (int i = 0; i < times; ++i)
            if (!h.calc->Evaluate(static_cast<int>(h.params.size()), h.params.data(), result))
                return false;
    } catch (int) {
        return false;
    }
    return true;
}

void BM_ResidentPerExpression(benchmark::State& state)
{
    std::vector<std::wstring> lines;
    std::map<std::wstring, double> middles;
    if (!Load(lines, middles)) {
        state.SkipWithError(("cannot read " + SetPath()).c_str());
        return;
    }
    for (auto _ : state) {
        std::vector<Held> all;
        all.reserve(lines.size() * kCopies);
        const std::size_t start = ResidentBytes();
        // Interpreted: parsed, and evaluated twice (the second run is the
        // program's), far below the switch to machine code.
        for (int copy = 0; copy < kCopies; ++copy) {
            for (const std::wstring& line : lines) {
                VexaParser parser;
                ICalculator* calc = nullptr;
                try {
                    if (!parser.parse(line.c_str(), nullptr, &calc))
                        continue;
                } catch (int) {
                    continue;
                }
                Held h{calc, {}, nullptr};
                for (int i = 0; i < parser.getParamsNum(); ++i) {
                    const wchar_t* name = parser.getParam(i).getWChar_t();
                    auto middle = middles.find(name ? name : L"");
                    h.params.push_back(VEXA_Data(middle != middles.end() ? middle->second : 1.5));
                }
                if (EvaluateTimes(h, 2))
                    all.push_back(std::move(h));
                else
                    calc->Release();
            }
        }
        const std::size_t interpreted = ResidentBytes();
        const std::size_t programsBefore = vexa_platform::ExecutableArenaStats().programs;
        // Past the switch (64 evaluations unless VEXA_MACHINE_CODE_AFTER
        // says otherwise).
        for (Held& h : all)
            EvaluateTimes(h, kSwitchRuns);
        const std::size_t machine = ResidentBytes();
        const vexa_platform::ArenaStats arena = vexa_platform::ExecutableArenaStats();
        for (Held& h : all)
            h.form = vexa::CompiledExpression::Make(h.calc, static_cast<int>(h.params.size()));
        const std::size_t compiled = ResidentBytes();
        std::vector<double> point, grad;
        std::size_t gradients = 0;
        for (Held& h : all) {
            if (!h.form)
                continue;
            point.assign(h.params.size(), 0.0);
            for (std::size_t k = 0; k < point.size(); ++k)
                point[k] = h.params[k].getValue()[0];
            grad.resize(point.size() + 1);
            vexa::Workspace ws(*h.form);
            h.form->Gradient(point.data(), grad.data(), ws);
            ++gradients;
        }
        const std::size_t gradient = ResidentBytes();

        const double n = static_cast<double>(all.size());
        state.counters["expressions"] = n;
        state.counters["in_machine_code"] = static_cast<double>(arena.programs - programsBefore);
        state.counters["interpreted_B"] = static_cast<double>(interpreted - start) / n;
        state.counters["machine_code_adds_B"] = static_cast<double>(machine - interpreted) / n;
        state.counters["compiled_form_adds_B"] = static_cast<double>(compiled - machine) / n;
        state.counters["gradient_code_adds_B"] =
            static_cast<double>(gradient - compiled) / static_cast<double>(gradients ? gradients : 1);
        state.counters["code_chunks"] = static_cast<double>(arena.chunks);
        for (Held& h : all) {
            h.form.reset();
            h.calc->Release();
        }
    }
}
BENCHMARK(BM_ResidentPerExpression)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
