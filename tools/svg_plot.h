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
};

struct PlotPage {
    std::string title;
    std::string subtitle;
    std::string xlabel;
    std::vector<double> xs;
    std::vector<PlotPanel> panels;
};

// Tick positions for [lo, hi]: steps of 1, 2 or 5 times a power of ten,
// about `target` of them.
std::vector<double> NiceTicks(double lo, double hi, int target = 6);

// Plot of a sweep: the value on top, each derivative in a panel below.
PlotPage PlotOfSweep(const SweepResult& r, const std::string& title, const std::string& subtitle);

// A complete, self-contained SVG document.
std::string RenderSvg(const PlotPage& page);

}  // namespace vexa_cli

#endif
