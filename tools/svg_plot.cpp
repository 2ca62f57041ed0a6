#include "tools/svg_plot.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include "tools/numbers.h"

namespace vexa_cli {

namespace {

const int kWidth = 960;
const int kLeft = 96;
const int kRight = 210;
const int kTop = 76;
const int kPanelHeight = 290;
const int kPanelGap = 64;
const int kBottom = 62;
const char* kColors[] = {"#1f77b4", "#d62728", "#2ca02c", "#ff7f0e", "#9467bd", "#8c564b", "#e377c2", "#17becf"};
const char* kFont = "DejaVu Sans, Arial, Helvetica, sans-serif";

std::string Esc(const std::string& s) {
    std::string o;
    for (char c : s) {
        switch (c) {
        case '&': o += "&amp;"; break;
        case '<': o += "&lt;"; break;
        case '>': o += "&gt;"; break;
        case '"': o += "&quot;"; break;
        default: o += c;
        }
    }
    return o;
}

std::string Clip(const std::string& s, std::size_t n) { return s.size() <= n ? s : s.substr(0, n - 3) + "..."; }

// Coordinates with two decimals: enough for a screen, small files.
std::string C(double v) {
    std::ostringstream o;
    o << FormatShort(std::round(v * 100.0) / 100.0, 8);
    return o.str();
}

double Step(double lo, double hi, int target) {
    const double raw = (hi - lo) / std::max(1, target - 1);
    const double mag = std::pow(10.0, std::floor(std::log10(raw)));
    const double f = raw / mag;
    const double nice = f < 1.5 ? 1 : f < 3 ? 2 : f < 7 ? 5 : 10;
    return nice * mag;
}

std::string TickLabel(double v, double step) {
    if (std::fabs(v) < step * 1e-9) v = 0;
    return FormatShort(v, 6);
}

struct Range {
    double lo, hi;
};

Range YRange(const PlotPanel& p) {
    double lo = INFINITY, hi = -INFINITY;
    for (const Series& s : p.series)
        for (double y : s.ys)
            if (std::isfinite(y)) {
                lo = std::min(lo, y);
                hi = std::max(hi, y);
            }
    if (!(lo <= hi)) return {-1, 1};
    if (hi - lo <= 1e-12 * std::max(std::fabs(lo), std::fabs(hi))) {
        const double d = lo == 0 ? 1 : std::fabs(lo) * 0.5;
        return {lo - d, hi + d};
    }
    const double step = Step(lo, hi, 6);
    return {std::floor(lo / step) * step, std::ceil(hi / step) * step};
}

}  // namespace

std::vector<double> NiceTicks(double lo, double hi, int target) {
    std::vector<double> ticks;
    if (!(hi > lo) || !std::isfinite(lo) || !std::isfinite(hi)) {
        ticks.push_back(lo);
        return ticks;
    }
    const double step = Step(lo, hi, target);
    const double first = std::ceil(lo / step - 1e-9) * step;
    for (int i = 0; i < 1000; ++i) {
        const double t = first + i * step;
        if (t > hi + step * 1e-9) break;
        ticks.push_back(std::fabs(t) < step * 1e-9 ? 0.0 : t);
    }
    return ticks;
}

PlotPage PlotOfSweep(const SweepResult& r, const std::string& title, const std::string& subtitle) {
    PlotPage page;
    page.title = title;
    page.subtitle = subtitle;
    page.xlabel = r.xname;
    page.xs = r.xs;
    for (const Quantity& q : r.quantities) page.panels.push_back({q.title, q.series});
    return page;
}

std::string RenderSvg(const PlotPage& page) {
    const int panels = std::max<int>(1, static_cast<int>(page.panels.size()));
    const int height = kTop + panels * kPanelHeight + (panels - 1) * kPanelGap + kBottom;
    const int plotW = kWidth - kLeft - kRight;
    std::ostringstream o;
    o << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kWidth << "\" height=\"" << height
      << "\" viewBox=\"0 0 " << kWidth << ' ' << height << "\" font-family=\"" << kFont << "\">\n"
      << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n"
      << "<text x=\"" << kWidth / 2 << "\" y=\"28\" text-anchor=\"middle\" font-size=\"17\" font-weight=\"bold\">"
      << Esc(Clip(page.title, 95)) << "</text>\n";
    if (!page.subtitle.empty())
        o << "<text x=\"" << kWidth / 2 << "\" y=\"52\" text-anchor=\"middle\" font-size=\"13\" fill=\"#444\">"
          << Esc(Clip(page.subtitle, 120)) << "</text>\n";

    double xlo = page.xs.empty() ? 0 : page.xs.front();
    double xhi = page.xs.empty() ? 1 : page.xs.back();
    if (xlo > xhi) std::swap(xlo, xhi);
    if (!(xhi > xlo)) {
        xlo -= 1;
        xhi += 1;
    }
    const std::vector<double> xticks = NiceTicks(xlo, xhi);
    const double xstep = xticks.size() > 1 ? xticks[1] - xticks[0] : 1;
    auto px = [&](double x) { return kLeft + (x - xlo) / (xhi - xlo) * plotW; };

    // Colours run on across panels so a derivative never looks like the value.
    std::size_t colorBase = 0;
    for (int p = 0; p < static_cast<int>(page.panels.size()); ++p) {
        const PlotPanel& panel = page.panels[p];
        const int top = kTop + p * (kPanelHeight + kPanelGap);
        const int bottom = top + kPanelHeight;
        const Range yr = YRange(panel);
        auto py = [&](double y) { return bottom - (y - yr.lo) / (yr.hi - yr.lo) * kPanelHeight; };
        const std::vector<double> yticks = NiceTicks(yr.lo, yr.hi);
        const double ystep = yticks.size() > 1 ? yticks[1] - yticks[0] : 1;

        o << "<g>\n<clipPath id=\"clip" << p << "\"><rect x=\"" << kLeft << "\" y=\"" << top << "\" width=\"" << plotW
          << "\" height=\"" << kPanelHeight << "\"/></clipPath>\n";
        // Grid first so curves and axes draw over it.
        for (double t : xticks)
            o << "<line x1=\"" << C(px(t)) << "\" y1=\"" << top << "\" x2=\"" << C(px(t)) << "\" y2=\"" << bottom
              << "\" stroke=\"#e4e4e4\"/>\n";
        for (double t : yticks)
            o << "<line x1=\"" << kLeft << "\" y1=\"" << C(py(t)) << "\" x2=\"" << kLeft + plotW << "\" y2=\"" << C(py(t))
              << "\" stroke=\"#e4e4e4\"/>\n";
        if (yr.lo < 0 && yr.hi > 0)
            o << "<line x1=\"" << kLeft << "\" y1=\"" << C(py(0)) << "\" x2=\"" << kLeft + plotW << "\" y2=\""
              << C(py(0)) << "\" stroke=\"#999\" stroke-width=\"1\"/>\n";
        o << "<rect x=\"" << kLeft << "\" y=\"" << top << "\" width=\"" << plotW << "\" height=\"" << kPanelHeight
          << "\" fill=\"none\" stroke=\"#333\"/>\n";
        for (double t : xticks) {
            o << "<line x1=\"" << C(px(t)) << "\" y1=\"" << bottom << "\" x2=\"" << C(px(t)) << "\" y2=\"" << bottom + 6
              << "\" stroke=\"#333\"/>\n";
            o << "<text x=\"" << C(px(t)) << "\" y=\"" << bottom + 21 << "\" text-anchor=\"middle\" font-size=\"12\">"
              << Esc(TickLabel(t, xstep)) << "</text>\n";
        }
        for (double t : yticks) {
            o << "<line x1=\"" << kLeft - 6 << "\" y1=\"" << C(py(t)) << "\" x2=\"" << kLeft << "\" y2=\"" << C(py(t))
              << "\" stroke=\"#333\"/>\n";
            o << "<text x=\"" << kLeft - 9 << "\" y=\"" << C(py(t) + 4) << "\" text-anchor=\"end\" font-size=\"12\">"
              << Esc(TickLabel(t, ystep)) << "</text>\n";
        }
        o << "<text transform=\"translate(22," << top + kPanelHeight / 2 << ") rotate(-90)\" text-anchor=\"middle\" "
          << "font-size=\"14\">" << Esc(panel.ylabel) << "</text>\n";
        o << "<text x=\"" << kLeft + plotW / 2 << "\" y=\"" << bottom + 42 << "\" text-anchor=\"middle\" font-size=\"14\">"
          << Esc(page.xlabel) << "</text>\n";

        bool anyPoint = false;
        for (std::size_t s = 0; s < panel.series.size(); ++s) {
            const Series& ser = panel.series[s];
            std::string d;
            bool pen = false;
            int drawn = 0;
            for (std::size_t i = 0; i < ser.ys.size() && i < page.xs.size(); ++i) {
                const double y = ser.ys[i];
                if (!std::isfinite(y)) {
                    pen = false;
                    continue;
                }
                d += (pen ? " L" : " M") + C(px(page.xs[i])) + " " + C(py(y));
                pen = true;
                ++drawn;
            }
            if (drawn == 0) continue;
            anyPoint = true;
            const char* color = kColors[(colorBase + s) % (sizeof kColors / sizeof kColors[0])];
            o << "<path clip-path=\"url(#clip" << p << ")\" fill=\"none\" stroke=\"" << color
              << "\" stroke-width=\"2.2\" stroke-linejoin=\"round\" d=\"" << d.substr(1) << "\"/>\n";
            // A lone point would be invisible as a path.
            if (drawn == 1)
                for (std::size_t i = 0; i < ser.ys.size(); ++i)
                    if (std::isfinite(ser.ys[i]))
                        o << "<circle cx=\"" << C(px(page.xs[i])) << "\" cy=\"" << C(py(ser.ys[i]))
                          << "\" r=\"3\" fill=\"" << color << "\"/>\n";
        }
        if (!anyPoint)
            o << "<text x=\"" << kLeft + plotW / 2 << "\" y=\"" << top + kPanelHeight / 2
              << "\" text-anchor=\"middle\" font-size=\"14\" fill=\"#a00\">no value at any point</text>\n";

        const int lx = kLeft + plotW + 18;
        int ly = top + 14;
        o << "<rect x=\"" << lx - 8 << "\" y=\"" << top << "\" width=\"" << kRight - 24 << "\" height=\""
          << 12 + 22 * static_cast<int>(panel.series.size()) << "\" fill=\"white\" stroke=\"#bbb\"/>\n";
        for (std::size_t s = 0; s < panel.series.size(); ++s) {
            const char* color = kColors[(colorBase + s) % (sizeof kColors / sizeof kColors[0])];
            o << "<line x1=\"" << lx << "\" y1=\"" << ly + 4 << "\" x2=\"" << lx + 26 << "\" y2=\"" << ly + 4
              << "\" stroke=\"" << color << "\" stroke-width=\"3\"/>\n";
            o << "<text x=\"" << lx + 34 << "\" y=\"" << ly + 9 << "\" font-size=\"13\">"
              << Esc(Clip(panel.series[s].label, 20)) << "</text>\n";
            ly += 22;
        }
        o << "</g>\n";
        colorBase += panel.series.size();
    }
    o << "</svg>\n";
    return o.str();
}

}  // namespace vexa_cli
