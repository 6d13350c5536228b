#include "tools/figures/progress.h"

#include <gtest/gtest.h>

namespace {

TEST(Progress, BarFillsFromTheLeft) {
    EXPECT_EQ(bar_text(0, 4), "[....]");
    EXPECT_EQ(bar_text(0.5, 4), "[##..]");
    EXPECT_EQ(bar_text(0.99, 4), "[###.]");
    EXPECT_EQ(bar_text(1, 4), "[####]");
}

TEST(Progress, BarKeepsItsWidthWhateverTheFraction) {
    EXPECT_EQ(bar_text(-1, 4), "[....]");
    EXPECT_EQ(bar_text(17, 4), "[####]");
}

} // namespace
