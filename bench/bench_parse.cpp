// Parser benchmarks over the shared expression sets: parsing every usable
// line of a set, and evaluating every expression that parsed.
//
// The sets are read from $VEXA_BENCH_DIR (default: the shared bench directory
// beside the repository) and never copied into the tree. Most of them were
// written for other languages: lines that use operators this language lacks
// are skipped before parsing, lines it rejects (unknown functions, other
// arities, lower-case exponents) are skipped when parse throws, and the name
// e is passed in as a parameter holding Euler's number. Lines "#@range NAME
// LO HI" give the interval a parameter is varied over.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "vexa/vexa.h"

namespace {

struct ExpressionSet {
    std::string file;
    std::vector<std::wstring> lines;
    std::map<std::wstring, std::pair<double, double>> ranges;
};

const char* const kSetFiles[] = {
    "mbd_expr.txt",
    "bench_expr.txt",
    "bench_expr_all.txt",
    "bench_expr_weird.txt",
    "bench_expr_precedence.txt",
    "bench_expr_random_with_functions.txt",
    "bench_expr_random_without_functions.txt",
    "bench_expr_extensive.txt",
    "bench_expr_complete.txt",
    "bench_expr_all_permutations.txt",
};

const double kEuler = 2.718281828459045;

std::string BenchDir()
{
    const char* dir = std::getenv("VEXA_BENCH_DIR");
    return dir && *dir ? dir : VEXA_BENCH_DEFAULT_DIR;
}

bool UsesMissingOperators(const std::wstring& line)
{
    return line.find_first_of(L"<>=!&|?:;[]~$'\"") != std::wstring::npos;
}

// Widens byte by byte: the sets are ASCII apart from ISO-8859-1 comments.
std::wstring Widen(const std::string& s)
{
    std::wstring w;
    w.reserve(s.size());
    for (unsigned char c : s)
        w.push_back(static_cast<wchar_t>(c));
    return w;
}

bool LoadSet(const std::string& file, ExpressionSet& set)
{
    std::ifstream in(BenchDir() + "/" + file, std::ios::binary);
    if (!in)
        return false;
    set.file = file;
    std::string raw;
    while (std::getline(in, raw)) {
        if (!raw.empty() && raw.back() == '\r')
            raw.pop_back();
        if (raw.rfind("#@range", 0) == 0) {
            std::istringstream fields(raw.substr(7));
            std::string name;
            double lo = 0, hi = 0;
            if (fields >> name >> lo >> hi)
                set.ranges[Widen(name)] = {lo, hi};
            continue;
        }
        if (raw.empty() || raw[0] == '#' || raw.find_first_not_of(" \t") == std::string::npos)
            continue;
        std::wstring line = Widen(raw);
        if (!UsesMissingOperators(line))
            set.lines.push_back(line);
    }
    return true;
}

// Parses one line; null when the language rejects it.
ICalculator* ParseLine(VexaParser& parser, const std::wstring& line, bool with_e)
{
    wchar_t names[] = L"e";
    ICalculator* calc = nullptr;
    try {
        if (!parser.parse(line.c_str(), with_e ? names : nullptr, &calc))
            return nullptr;
    } catch (int) {
        if (calc)
            calc->Release();
        return nullptr;
    }
    return calc;
}

struct Parsed {
    ICalculator* calc;
    std::vector<std::vector<VEXA_Data>> inputs;
};

const int kInputSets = 8;

// Parameter values: e is Euler's number, a name with a range walks through
// it, any other name gets a fixed value in (1, 2).
std::vector<std::vector<VEXA_Data>> Inputs(VexaParser& parser, const ExpressionSet& set)
{
    std::vector<std::vector<VEXA_Data>> inputs(kInputSets);
    for (int k = 0; k < kInputSets; ++k) {
        for (int i = 0; i < parser.getParamsNum(); ++i) {
            const VEXA_WString& name = parser.getParam(i);
            const wchar_t* text = name.getWChar_t();
            std::wstring key = text ? text : L"";
            auto range = set.ranges.find(key);
            double v;
            if (range != set.ranges.end())
                v = range->second.first + (range->second.second - range->second.first) * k / (kInputSets - 1);
            else if (key == L"e" || key == L"E")
                v = kEuler;
            else
                v = 1.0 + 0.1 * ((i + k) % 10);
            inputs[k].push_back(VEXA_Data(v));
        }
    }
    return inputs;
}

bool EvaluatesWithoutError(Parsed& p)
{
    VEXA_Data r;
    try {
        for (auto& in : p.inputs)
            p.calc->Evaluate(static_cast<int>(in.size()), in.data(), r);
    } catch (int) {
        return false;
    }
    return true;
}

void BM_Parse(benchmark::State& state, const ExpressionSet* set)
{
    const bool with_e = set->ranges.empty();
    std::size_t parsed = 0;
    for (auto _ : state) {
        parsed = 0;
        VexaParser parser;
        for (const std::wstring& line : set->lines) {
            if (ICalculator* c = ParseLine(parser, line, with_e)) {
                ++parsed;
                c->Release();
            }
        }
    }
    state.counters["lines"] = static_cast<double>(set->lines.size());
    state.counters["parsed"] = static_cast<double>(parsed);
    state.counters["per_line_ns"] = benchmark::Counter(
        static_cast<double>(set->lines.size()),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_EvaluateParsed(benchmark::State& state, const ExpressionSet* set)
{
    const bool with_e = set->ranges.empty();
    std::vector<Parsed> all;
    VexaParser parser;
    for (const std::wstring& line : set->lines) {
        ICalculator* c = ParseLine(parser, line, with_e);
        if (!c)
            continue;
        Parsed p{c, Inputs(parser, *set)};
        if (EvaluatesWithoutError(p))
            all.push_back(std::move(p));
        else
            c->Release();
    }
    if (all.empty()) {
        state.SkipWithError("no expression of this set parses");
        return;
    }
    VEXA_Data r;
    for (auto _ : state) {
        for (Parsed& p : all)
            for (auto& in : p.inputs)
                benchmark::DoNotOptimize(p.calc->Evaluate(static_cast<int>(in.size()), in.data(), r));
    }
    const double evaluations = static_cast<double>(all.size()) * kInputSets;
    state.counters["expressions"] = static_cast<double>(all.size());
    state.counters["per_eval_ns"] = benchmark::Counter(
        evaluations, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    for (Parsed& p : all)
        p.calc->Release();
}

std::vector<ExpressionSet>& Sets()
{
    static std::vector<ExpressionSet> sets;
    return sets;
}

// Registration has to happen before main runs the benchmarks, and the set
// of files is only known once the directory is read.
const bool kRegistered = [] {
    for (const char* file : kSetFiles) {
        ExpressionSet set;
        if (LoadSet(file, set))
            Sets().push_back(std::move(set));
    }
    if (Sets().empty()) {
        std::fprintf(stderr, "bench_parse: no expression sets in %s (set VEXA_BENCH_DIR)\n",
                     BenchDir().c_str());
    }
    for (const ExpressionSet& set : Sets()) {
        benchmark::RegisterBenchmark(("BM_Parse/" + set.file).c_str(), BM_Parse, &set)
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("BM_EvaluateParsed/" + set.file).c_str(), BM_EvaluateParsed, &set)
            ->Unit(benchmark::kMillisecond);
    }
    return true;
}();

}  // namespace
