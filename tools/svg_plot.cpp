#include "tools/svg_plot.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <sstream>

#include "tools/numbers.h"

namespace vexa_cli {

namespace {

const int kWidth = 960;
const int kLeft = 96;
const int kRight = 28;
const int kTop = 84;
const int kPanelHeight = 290;
const int kPanelGap = 72;
const int kBottom = 62;
// Share of the data's span left free above and below the curves.
const double kHeadroom = 0.06;
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
std::string C(double v) { return FormatShort(std::round(v * 100.0) / 100.0, 8); }

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
    // Curves that reach the frame hide behind it.
    const double pad = (hi - lo) * kHeadroom;
    return {lo - pad, hi + pad};
}

// "d(lift)/dTIME [mm/s]" for a derivative panel.
std::string DerivativeAxis(const Quantity& q, const std::string& xname, const PlotUnits& u) {
    const std::string k = q.order > 1 ? std::to_string(q.order) : "";
    std::string label = u.ylabel.empty() ? "d" + k + "/d" + q.wrt + k : "d" + k + "(" + u.ylabel + ")/d" + q.wrt + k;
    if (q.wrt == xname && !u.xunit.empty()) {
        const std::string x = u.xunit.find('/') == std::string::npos ? u.xunit : "(" + u.xunit + ")";
        label += " [" + (u.yunit.empty() ? std::string("1") : u.yunit) + "/" + x + (k.empty() ? "" : "^" + k) + "]";
    }
    else if (!u.yunit.empty())
        label += " [" + u.yunit + " per " + q.wrt + (k.empty() ? "" : "^" + k) + "]";
    return label;
}

// A legend entry for the derivative calculator's curve says what to make of it.
std::string HostLegend(const Quantity& q) {
    if (q.mark.find("blind") != std::string::npos) return "derivative calculator (ignores " + q.wrt + ")";
    if (!q.mark.empty()) return "derivative calculator (central diff.)";
    return "derivative calculator";
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

// 10^k as the nearest double, which not every C library's pow gives: the
// products up to 10^22 are exact, and one division rounds correctly.
static double Decade(int k) {
    if (k < -22 || k > 22) return std::pow(10.0, k);
    double v = 1.0;
    for (int i = 0; i < (k < 0 ? -k : k); ++i) v *= 10.0;
    return k < 0 ? 1.0 / v : v;
}

std::vector<double> LogTicks(double lo, double hi) {
    std::vector<double> ticks;
    if (!(lo > 0) || !(hi > lo) || !std::isfinite(hi)) return NiceTicks(lo, hi);
    const int first = static_cast<int>(std::ceil(std::log10(lo) - 1e-9));
    const int last = static_cast<int>(std::floor(std::log10(hi) + 1e-9));
    // Every decade up to a dozen; beyond, every few so the labels stay apart.
    const int every = std::max(1, (last - first) / 10 + 1);
    for (int k = first; k <= last; k += every) ticks.push_back(Decade(k));
    if (ticks.size() >= 2) return ticks;
    ticks.clear();
    for (double t : NiceTicks(lo, hi))
        if (t > 0) ticks.push_back(t);
    return ticks;
}

PlotPage PlotOfSweep(const SweepResult& r, const std::string& title, const std::string& subtitle,
                     const PlotUnits& units) {
    PlotPage page;
    page.title = title;
    page.subtitle = subtitle;
    page.xlabel = r.xname + (units.xunit.empty() ? "" : " [" + units.xunit + "]");
    page.xs = r.xs;
    page.xlog = units.xlog;
    std::map<int, std::size_t> panelOf;
    for (const Quantity& q : r.quantities) {
        if (!panelOf.count(q.panel)) {
            panelOf[q.panel] = page.panels.size();
            PlotPanel p;
            p.ylabel = q.panel == 0 ? (units.ylabel.empty() ? "value" : units.ylabel) +
                                          (units.yunit.empty() ? "" : " [" + units.yunit + "]")
                                    : DerivativeAxis(q, r.xname, units);
            p.log = q.panel == 0 && units.ylog;
            page.panels.push_back(p);
        }
        PlotPanel& p = page.panels[panelOf[q.panel]];
        p.missing = std::max(p.missing, q.missing);
        for (Series s : q.series) {
            for (double& y : s.ys) y *= units.yscale;
            if (q.host) s.label = HostLegend(q);
            else if (q.panel != 0) s.label = "exact";
            p.series.push_back(std::move(s));
        }
    }
    return page;
}

std::vector<std::size_t> ThinToPixels(const std::vector<double>& xs, const std::vector<double>& ys, int pixels) {
    std::vector<std::size_t> keep;
    const std::size_t n = std::min(xs.size(), ys.size());
    if (n <= static_cast<std::size_t>(2 * std::max(pixels, 1)) || !(xs.back() != xs.front())) {
        for (std::size_t i = 0; i < n; ++i) keep.push_back(i);
        return keep;
    }
    const double lo = std::min(xs.front(), xs.back()), span = std::fabs(xs.back() - xs.front());
    std::size_t i = 0;
    while (i < n) {
        if (!std::isfinite(ys[i])) {
            keep.push_back(i++);
            continue;
        }
        const long column = std::lround((xs[i] - lo) / span * pixels);
        std::size_t first = i, low = i, high = i, last = i;
        while (i < n && std::isfinite(ys[i]) && std::lround((xs[i] - lo) / span * pixels) == column) {
            if (ys[i] < ys[low]) low = i;
            if (ys[i] > ys[high]) high = i;
            last = i++;
        }
        std::size_t picked[] = {first, std::min(low, high), std::max(low, high), last};
        for (std::size_t k : picked)
            if (keep.empty() || keep.back() != k) keep.push_back(k);
    }
    return keep;
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
          << Esc(Clip(page.subtitle, 130)) << "</text>\n";

    // A logarithmic axis maps log10 of the value; the ticks keep the values.
    const bool xlog = page.xlog && !page.xs.empty() && std::min(page.xs.front(), page.xs.back()) > 0;
    auto tx = [&](double x) { return xlog ? std::log10(x) : x; };
    double xlo = page.xs.empty() ? 0 : page.xs.front();
    double xhi = page.xs.empty() ? 1 : page.xs.back();
    if (xlo > xhi) std::swap(xlo, xhi);
    std::vector<double> xticks = xlog ? LogTicks(xlo, xhi) : NiceTicks(xlo, xhi);
    xlo = tx(xlo);
    xhi = tx(xhi);
    if (!(xhi > xlo)) {
        xlo -= 1;
        xhi += 1;
        if (xlog) xticks = {std::pow(10.0, xlo + 1)};
    }
    const double xstep = xticks.size() > 1 ? xticks[1] - xticks[0] : 1;
    auto px = [&](double x) { return kLeft + (tx(x) - xlo) / (xhi - xlo) * plotW; };
    std::vector<double> plottedXs = page.xs;
    for (double& x : plottedXs) x = tx(x);

    // Colours run on across panels so a derivative never looks like the value.
    std::size_t colorBase = 0;
    for (int p = 0; p < static_cast<int>(page.panels.size()); ++p) {
        const PlotPanel& panel = page.panels[p];
        const int top = kTop + p * (kPanelHeight + kPanelGap);
        const int bottom = top + kPanelHeight;
        const bool ylog = panel.log;
        auto ty = [&](double y) { return ylog ? (y > 0 ? std::log10(y) : NAN) : y; };
        PlotPanel mapped = panel;
        for (Series& ser : mapped.series)
            for (double& y : ser.ys) y = ty(y);
        const Range yr = YRange(mapped);
        auto py = [&](double y) { return bottom - (ty(y) - yr.lo) / (yr.hi - yr.lo) * kPanelHeight; };
        const std::vector<double> yticks =
            ylog ? LogTicks(std::pow(10.0, yr.lo), std::pow(10.0, yr.hi)) : NiceTicks(yr.lo, yr.hi);
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
        if (!ylog && yr.lo < 0 && yr.hi > 0)
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
          << "font-size=\"14\">" << Esc(Clip(panel.ylabel, 44)) << "</text>\n";
        o << "<text x=\"" << kLeft + plotW / 2 << "\" y=\"" << bottom + 42 << "\" text-anchor=\"middle\" font-size=\"14\">"
          << Esc(page.xlabel) << "</text>\n";

        bool anyPoint = false;
        for (std::size_t s = 0; s < panel.series.size(); ++s) {
            const Series& ser = panel.series[s];
            std::string d;
            bool pen = false;
            int drawn = 0;
            for (std::size_t i : ThinToPixels(plottedXs, mapped.series[s].ys, plotW)) {
                const double y = ser.ys[i];
                if (!std::isfinite(ty(y))) {
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
              << "\" stroke-width=\"2.2\" stroke-linejoin=\"round\"" << (ser.dashed ? " stroke-dasharray=\"7 5\"" : "")
              << " d=\"" << d.substr(1) << "\"/>\n";
            // A lone point would be invisible as a path.
            if (drawn == 1)
                for (std::size_t i = 0; i < ser.ys.size(); ++i)
                    if (std::isfinite(ty(ser.ys[i])))
                        o << "<circle cx=\"" << C(px(page.xs[i])) << "\" cy=\"" << C(py(ser.ys[i]))
                          << "\" r=\"3\" fill=\"" << color << "\"/>\n";
        }
        if (!anyPoint)
            o << "<text x=\"" << kLeft + plotW / 2 << "\" y=\"" << top + kPanelHeight / 2
              << "\" text-anchor=\"middle\" font-size=\"14\" fill=\"#a00\">no value at any point</text>\n";
        else if (panel.missing)
            o << "<text x=\"" << kLeft + plotW - 6 << "\" y=\"" << bottom - 8
              << "\" text-anchor=\"end\" font-size=\"12\" fill=\"#a00\">gaps: no value at " << panel.missing
              << " of " << page.xs.size() << " points</text>\n";

        // One curve needs no legend: the axis names it. Several get one line
        // above the panel, where it hides no curve.
        if (panel.series.size() > 1) {
            int lx = kLeft;
            for (std::size_t s = 0; s < panel.series.size(); ++s) {
                const char* color = kColors[(colorBase + s) % (sizeof kColors / sizeof kColors[0])];
                const std::string label = Clip(panel.series[s].label, 40);
                o << "<line x1=\"" << lx << "\" y1=\"" << top - 12 << "\" x2=\"" << lx + 30 << "\" y2=\"" << top - 12
                  << "\" stroke=\"" << color << "\" stroke-width=\"3\""
                  << (panel.series[s].dashed ? " stroke-dasharray=\"7 5\"" : "") << "/>\n";
                o << "<text x=\"" << lx + 36 << "\" y=\"" << top - 8 << "\" font-size=\"12\">" << Esc(label) << "</text>\n";
                lx += 36 + 7 * static_cast<int>(label.size()) + 22;
            }
        }
        o << "</g>\n";
        colorBase += panel.series.size();
    }
    o << "</svg>\n";
    return o.str();
}

}  // namespace vexa_cli
