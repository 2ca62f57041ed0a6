// Unit tests of the program's own pieces; the program as a whole is tested
// through cli_cases.txt.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>

#include "tools/numbers.h"
#include "tools/svg_plot.h"

using namespace vexa_cli;

TEST(Numbers, RoundTripAndNoLocale) {
    for (double v : {0.1, 1.0 / 3.0, -2.5e-300, 6.02214076e23, 123456789.0}) {
        auto back = ParseNumber(FormatExact(v));
        ASSERT_TRUE(back.has_value());
        EXPECT_EQ(*back, v);
    }
    EXPECT_EQ(FormatExact(-0.0), "0");
    EXPECT_FALSE(ParseNumber("1,5").has_value());
    EXPECT_FALSE(ParseNumber("").has_value());
    EXPECT_EQ(FormatShort(0.30000000000000004, 6), "0.3");
}

TEST(NiceTicks, StepsOfOneTwoFiveInsideTheRange) {
    const std::pair<double, double> ranges[] = {{0, 1}, {0, 2}, {-0.02, 0.02}, {0, 3}, {-60, 60}, {1e-6, 5e-6},
                                                {0.2, 0.7}, {-23162, 0}, {100, 101}};
    for (auto [lo, hi] : ranges) {
        const std::vector<double> t = NiceTicks(lo, hi);
        ASSERT_GE(t.size(), 3u) << lo << " " << hi;
        EXPECT_LE(t.size(), 12u) << lo << " " << hi;
        const double step = t[1] - t[0];
        const double mant = step / std::pow(10.0, std::floor(std::log10(step)));
        EXPECT_TRUE(std::fabs(mant - 1) < 1e-9 || std::fabs(mant - 2) < 1e-9 || std::fabs(mant - 5) < 1e-9)
            << "step " << step;
        for (double v : t) {
            EXPECT_GE(v, lo - step * 1e-6);
            EXPECT_LE(v, hi + step * 1e-6);
        }
    }
}

TEST(Plot, ThinningKeepsEveryExtremeAndGap) {
    // A fast wave with one narrow spike and one gap, far more points than pixels.
    const std::size_t n = 100000;
    std::vector<double> xs(n), ys(n);
    for (std::size_t i = 0; i < n; ++i) {
        xs[i] = static_cast<double>(i);
        ys[i] = std::sin(i * 0.01);
    }
    ys[31234] = 7;
    ys[50000] = NAN;
    const std::vector<std::size_t> keep = ThinToPixels(xs, ys, 800);
    EXPECT_LE(keep.size(), 4u * 801 + 2);
    EXPECT_TRUE(std::is_sorted(keep.begin(), keep.end()));
    for (std::size_t must : {std::size_t(0), n - 1, std::size_t(31234), std::size_t(50000)})
        EXPECT_TRUE(std::binary_search(keep.begin(), keep.end(), must)) << must;
    EXPECT_EQ(ThinToPixels(xs, ys, 100000).size(), n);
}

TEST(Plot, CurvesStayOffTheFrame) {
    PlotPage page;
    page.xs = {0, 1, 2, 3};
    page.panels.push_back({"value", {{"value", {0, 0.025, 0.025, 0}, false}}, 0});
    const std::string svg = RenderSvg(page);
    const std::size_t d = svg.find(" d=\"M");
    ASSERT_NE(d, std::string::npos);
    // The path's y coordinates against the panel's frame rectangle.
    const std::size_t frame = svg.find("fill=\"none\" stroke=\"#333\"");
    const std::size_t ry = svg.rfind(" y=\"", frame), rh = svg.rfind(" height=\"", frame);
    const double top = std::stod(svg.substr(ry + 4)), bottom = top + std::stod(svg.substr(rh + 9));
    std::istringstream path(svg.substr(d + 4, svg.find('"', d + 4) - d - 4));
    std::string command;
    double x = 0, y = 0;
    while (path >> command >> y) {
        x = std::stod(command.substr(1));
        EXPECT_GT(y, top + 5) << x;
        EXPECT_LT(y, bottom - 5) << x;
    }
}

TEST(SweepPoints, EndsExactAndZeroHitWhereItIsAGridPoint) {
    struct Case {
        double from, to;
        int n;
        int zeroAt;  // -1: 0 is no grid point
    } cases[] = {
        {-1, 2, 7, 2}, {-0.1, 0.2, 4, 1}, {-0.3, 0.7, 11, 3}, {2, -1, 7, 4},
        {-1e-9, 3e-9, 5, 1}, {-7, 5, 13, 7}, {-1, 2, 8, -1}, {0.1, 0.7, 7, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.from) + " .. " + std::to_string(c.to) + " n=" + std::to_string(c.n));
        const std::vector<double> xs = SweepPoints(c.from, c.to, c.n);
        ASSERT_EQ(xs.size(), static_cast<std::size_t>(c.n));
        EXPECT_EQ(xs.front(), c.from);
        EXPECT_EQ(xs.back(), c.to);
        const double step = (c.to - c.from) / (c.n - 1);
        for (int i = 0; i < c.n; ++i) {
            EXPECT_NEAR(xs[i], c.from + i * step, 1e-12 * std::fabs(c.to - c.from)) << i;
            if (i == c.zeroAt) EXPECT_EQ(xs[i], 0.0) << i;
            else EXPECT_NE(xs[i], 0.0) << i;
        }
    }
    // Beyond the range of a span, the points still run from end to end.
    const std::vector<double> wide = SweepPoints(-1.5e308, 1.5e308, 3);
    EXPECT_EQ(wide[0], -1.5e308);
    EXPECT_EQ(wide[1], 0.0);
    EXPECT_EQ(wide[2], 1.5e308);
}

TEST(SweepPoints, LogarithmicGridAndTicks) {
    const std::vector<double> xs = SweepPoints(0.01, 100, 5, true);
    const double want[] = {0.01, 0.1, 1, 10, 100};
    for (int i = 0; i < 5; ++i) EXPECT_NEAR(xs[i], want[i], 1e-15 * want[i]) << i;
    EXPECT_EQ(xs.front(), 0.01);
    EXPECT_EQ(xs.back(), 100.0);
    const std::vector<double> down = SweepPoints(-100, -1, 3, true);
    EXPECT_EQ(down[0], -100.0);
    EXPECT_NEAR(down[1], -10.0, 1e-13);
    EXPECT_EQ(down[2], -1.0);
    EXPECT_EQ(LogTicks(0.01, 100), (std::vector<double>{0.01, 0.1, 1, 10, 100}));
    // Less than two decades: ticks of the range itself.
    EXPECT_EQ(LogTicks(2, 9).size(), NiceTicks(2, 9).size());
}
