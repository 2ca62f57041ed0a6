// Unit tests of the program's own pieces; the program as a whole is tested
// through cli_cases.txt.
#include <gtest/gtest.h>

#include <cmath>

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
