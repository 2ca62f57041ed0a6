#ifndef VEXA_TOOLS_SVG_PLOT_H
#define VEXA_TOOLS_SVG_PLOT_H

#include <string>
#include <vector>

#include "tools/sweep.h"

namespace vexa_cli {

// One set of axes; panels are stacked and share the x axis.
struct PlotPanel {
    std::string ylabel;
    std::vector<Series> series;
    int missing = 0;  // points without a value: gaps in the curves
    bool log = false;  // a logarithmic value axis: values <= 0 leave gaps
};

struct PlotPage {
    std::string title;
    std::string subtitle;
    std::string xlabel;
    std::vector<double> xs;
    std::vector<PlotPanel> panels;
    bool xlog = false;  // a logarithmic x axis (every x > 0)
};

// What the plotted quantity is and in which units: values are drawn times
// yscale (1E3 for metres shown in millimetres, RTOD for radians in degrees).
struct PlotUnits {
    std::string ylabel;  // default "value"
    std::string yunit;
    double yscale = 1.0;
    std::string xunit;
    bool xlog = false;  // logarithmic axes: x, and the value's (not the derivatives')
    bool ylog = false;
};

// Tick positions for [lo, hi]: steps of 1, 2 or 5 times a power of ten,
// about `target` of them.
std::vector<double> NiceTicks(double lo, double hi, int target = 6);
// Ticks of a logarithmic axis over [lo, hi] (both > 0): the powers of ten
// within, or where fewer than two fall within, NiceTicks of the range.
std::vector<double> LogTicks(double lo, double hi);

// Plot of a sweep: the value on top, each derivative in a panel below with
// the exact values and the derivative calculator's beside them.
PlotPage PlotOfSweep(const SweepResult& r, const std::string& title, const std::string& subtitle,
                     const PlotUnits& units = PlotUnits());

// The points of a curve worth drawing at `pixels` columns: all of them when
// few, else the first, lowest, highest and last of each column, so that the
// drawing looks the same and the file stays small. Gaps (NaN) are kept.
std::vector<std::size_t> ThinToPixels(const std::vector<double>& xs, const std::vector<double>& ys, int pixels);

// A complete, self-contained SVG document.
std::string RenderSvg(const PlotPage& page);

}  // namespace vexa_cli

#endif
