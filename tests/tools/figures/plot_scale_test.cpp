#include "tools/figures/plot_scale.h"

#include <gtest/gtest.h>

namespace {

void expect_scale(double largest, int most, double step, double end) {
    const axis_scale scale = scale_for(largest, most);
    EXPECT_DOUBLE_EQ(scale.step, step) << largest;
    EXPECT_DOUBLE_EQ(scale.end, end) << largest;
}

TEST(PlotScale, HasRoundStepsThatReachTheLargestValue) {
    expect_scale(10, 8, 2, 10);
    expect_scale(9.1, 8, 2, 10);
    expect_scale(16, 8, 2, 16);
    expect_scale(17, 8, 5, 20);
    expect_scale(41, 8, 10, 50);
    expect_scale(0.7, 8, 0.1, 0.7);
    expect_scale(1000, 8, 200, 1000);
    expect_scale(1, 1, 1, 1);
}

TEST(PlotScale, NothingToShowStillHasAStep) {
    expect_scale(0, 8, 1, 1);
    expect_scale(-3, 8, 1, 1);
}

TEST(PlotScale, NeverMakesMoreStepsThanAsked) {
    for (double largest = 0.001; largest < 1e12; largest *= 1.37) {
        const axis_scale scale = scale_for(largest, 8);
        EXPECT_LE(scale.end / scale.step, 8.0001) << largest;
        EXPECT_GE(scale.end, largest * 0.999999) << largest;
    }
}

} // namespace
