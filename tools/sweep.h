#ifndef VEXA_TOOLS_SWEEP_H
#define VEXA_TOOLS_SWEEP_H

#include <iosfwd>
#include <string>
#include <vector>

#include "tools/derivatives.h"
#include "tools/session.h"

namespace vexa_cli {

// One curve; NaN where the expression had no value.
struct Series {
    std::string label;
    std::vector<double> ys;
    bool dashed = false;
};

// The value, or one derivative, over the sweep: one series per element.
struct Quantity {
    std::string title;
    std::vector<Series> series;
    int missing = 0;            // points without a value
    std::string first_problem;  // why the first of them had none
    bool host = false;          // values of the library's derivative calculator
    std::string mark;           // for those: why not to trust them; empty when symbolic
    int panel = 0;              // quantities of one panel are drawn together
    std::string wrt;            // a derivative's parameter, and its order
    int order = 0;
};

struct SweepResult {
    std::string xname;
    std::vector<double> xs;
    std::vector<Quantity> quantities;
    std::vector<std::string> notes;  // about the sweep as a whole (dropped terms, no exact derivative)
};

struct SweepRequest {
    int index = 0;  // swept parameter in the final order
    double from = 0, to = 1;
    int points = 101;
    std::vector<DerivativeRequest> derivatives;
    bool strict = false;  // a refused call anywhere leaves the point without a value
    bool logarithmic = false;  // points evenly spaced in log10 (from and to of one sign)
};

// Evenly spaced points from `from` to `to`: x_i = from + i (to - from)/(n - 1)
// computed from the nearer end, both ends exact, and 0 exactly where it is a
// grid point. logarithmic: evenly spaced in log10 instead (from and to
// nonzero, of one sign), both ends exact.
std::vector<double> SweepPoints(double from, double to, int points, bool logarithmic = false);

// Evaluates the expression over the sweep, the other parameters held at
// `base`: with scalar values all at once through the library's bulk
// evaluation, with the exact derivative of every first-order request beside
// the values of the library's derivative calculator. text is the expression
// as typed, for messages. Fails only when a derivative cannot be had at all.
bool EvaluateSweep(ICalculator* calc, const std::wstring& text, const std::vector<std::wstring>& params,
                   const std::vector<VEXA_Data>& base, SweepRequest req, SweepResult& out, std::string& error);

// Aligned text table; `rows` > 0 picks that many evenly spread points. The
// columns of a marked derivative calculator carry a '*'.
void PrintTable(std::ostream& out, const SweepResult& r, int rows = 0);
void WriteCsv(std::ostream& out, const SweepResult& r);

// Notes about points without a value and about the derivative columns, one
// line each.
std::vector<std::string> SweepNotes(const SweepResult& r);

}  // namespace vexa_cli

#endif
