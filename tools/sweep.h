#ifndef VEXA_TOOLS_SWEEP_H
#define VEXA_TOOLS_SWEEP_H

#include <iosfwd>
#include <string>
#include <vector>

#include "tools/session.h"

namespace vexa_cli {

// One curve; NaN where the expression had no value.
struct Series {
    std::string label;
    std::vector<double> ys;
};

// The value, or one derivative, over the sweep: one series per element.
struct Quantity {
    std::string title;
    std::vector<Series> series;
    int missing = 0;            // points without a value
    std::string first_problem;  // why the first of them had none
};

struct SweepResult {
    std::string xname;
    std::vector<double> xs;
    std::vector<Quantity> quantities;
};

struct SweepRequest {
    int index = 0;  // swept parameter in the final order
    double from = 0, to = 1;
    int points = 101;
    std::vector<int> derivatives;  // parameters to differentiate by
};

// Evenly spaced points from `from` to `to`, both ends exact.
std::vector<double> SweepPoints(double from, double to, int points);

// Evaluates the expression and the requested derivatives at every point, the
// other parameters held at `base`. Fails only when a derivative cannot be
// built at all.
bool RunSweep(ICalculator* calc, const std::vector<std::wstring>& params, const std::vector<VEXA_Data>& base,
              const SweepRequest& req, SweepResult& out, std::string& error);

// Aligned text table; `rows` > 0 picks that many evenly spread points.
void PrintTable(std::ostream& out, const SweepResult& r, int rows = 0);
void WriteCsv(std::ostream& out, const SweepResult& r);

// Notes about points without a value, one line per quantity.
std::vector<std::string> MissingNotes(const SweepResult& r);

}  // namespace vexa_cli

#endif
