#ifndef VEXA_BENCH_BENCH_TIMING_H
#define VEXA_BENCH_BENCH_TIMING_H

#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <vector>

// Timing for the side-by-side tables. On a shared machine wall-clock time
// counts whatever else runs in between and scatters by a third; the
// thread's own CPU time does not, so every comparison is timed by hand with
// CLOCK_THREAD_CPUTIME_ID (benchmarks registered with UseManualTime()).
inline double ThreadSeconds()
{
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

// Runs `body` once per benchmark iteration and reports its thread CPU time.
template <class Body>
void TimeThreadCpu(benchmark::State& state, Body body)
{
    for (auto _ : state) {
        const double start = ThreadSeconds();
        body();
        state.SetIterationTime(ThreadSeconds() - start);
    }
}

// Collects, by benchmark name, the nanoseconds per evaluation of every
// repetition while printing as usual. The least is the run least disturbed
// by the rest of the machine; the median shows how far that can be trusted.
class Collector : public benchmark::ConsoleReporter {
public:
    explicit Collector(int evaluationsPerIteration) : per_(evaluationsPerIteration) {}

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& r : runs) {
            if (r.run_type != Run::RT_Iteration || r.iterations == 0)
                continue;
            times_[r.run_name.function_name].push_back(r.GetAdjustedRealTime() / per_);
        }
        ConsoleReporter::ReportRuns(runs);
    }

    bool Has(const std::string& name) const { return times_.count(name) != 0; }
    double Least(const std::string& name) const
    {
        const std::vector<double>& v = times_.at(name);
        return *std::min_element(v.begin(), v.end());
    }
    double Median(const std::string& name) const
    {
        std::vector<double> v = times_.at(name);
        std::sort(v.begin(), v.end());
        const std::size_t n = v.size();
        return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
    }

private:
    int per_;
    std::map<std::string, std::vector<double>> times_;
};

// A geometric mean of ratios.
struct GeoMean {
    double logs = 0.0;
    int count = 0;
    void Add(double ratio)
    {
        logs += std::log(ratio);
        ++count;
    }
    double Value() const { return count ? std::exp(logs / count) : 0.0; }
};

#endif
