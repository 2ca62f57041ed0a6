#ifndef VEXA_COMPILED_POINT_SPLIT_H
#define VEXA_COMPILED_POINT_SPLIT_H

#include <algorithm>
#include <cstddef>
#include <exception>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "vexa/compiled/compiled_expression.h"

// How the many-point calls share their points among threads. Internal.
namespace vexa_compiled {

// Splits n points into one run of whole blocks per thread as options says,
// calls work(begin, end, report) for each run (each makes the scratch memory
// it needs, so none is shared), and joins the reports in the order of the
// points. What a run throws is thrown here once every thread is done.
template <typename Work>
vexa::Report SplitPoints(std::size_t n, std::size_t block, const vexa::Options& options, Work work)
{
    std::size_t threads = options.threads > 0 ? static_cast<std::size_t>(options.threads)
                                              : std::max(1u, std::thread::hardware_concurrency());
    // Counts near SIZE_MAX are refused before this; still, nothing here may
    // wrap: thread t starts at block t * (blocks / threads) + min(t, blocks % threads).
    const std::size_t blocks = n / block + (n % block != 0);
    threads = std::max<std::size_t>(1, std::min(threads, blocks));
    const std::size_t each = blocks / threads, extra = blocks % threads;
    std::vector<std::size_t> bounds(threads + 1);
    for (std::size_t t = 0; t <= threads; ++t)
        bounds[t] = std::min(n, (each * t + std::min(t, extra)) * block);
    std::vector<vexa::Report> parts(threads);
    std::vector<std::exception_ptr> errors(threads);
    auto run = [&](std::size_t t) {
        try {
            work(bounds[t], bounds[t + 1], parts[t]);
        } catch (...) {
            errors[t] = std::current_exception();
        }
    };
    std::vector<std::thread> pool;
    std::vector<std::size_t> here;
    for (std::size_t t = 1; t < threads; ++t) {
        try {
            pool.emplace_back(run, t);
        } catch (const std::system_error&) {
            // No thread to be had: this one does that share too.
            here.push_back(t);
        }
    }
    run(0);
    for (std::size_t t : here)
        run(t);
    for (std::thread& th : pool)
        th.join();
    for (const std::exception_ptr& e : errors) {
        if (e)
            std::rethrow_exception(e);
    }
    vexa::Report report = std::move(parts[0]);
    for (std::size_t t = 1; t < threads; ++t) {
        report.failed += parts[t].failed;
        for (int k = 0; k < vexa::kFailureKinds; ++k)
            report.by_kind[k] += parts[t].by_kind[k];
        for (const vexa::PointFailure& p : parts[t].first) {
            if (report.first.size() < options.max_reported)
                report.first.push_back(p);
        }
    }
    return report;
}

}  // namespace vexa_compiled

#endif
