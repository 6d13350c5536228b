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

const progress_line half = {"a-stream", 0.5, 1048576, 83, {"of 2.0 MiB/s", "slept 3 s"}};

TEST(Progress, LineBeginsWithPercentRateAndWhatIsLeft) {
    EXPECT_EQ(line_text(half, 8, 79),
              " 50 %    1.0 MiB/s  ETA  0:01:23  a-stream  of 2.0 MiB/s  slept 3 s  [####....]");
    EXPECT_EQ(line_text(half, 10, 200),
              " 50 %    1.0 MiB/s  ETA  0:01:23  a-stream    of 2.0 MiB/s  slept 3 s  "
              "[##########..........]");
}

TEST(Progress, LineFitsAnyWidthAndLosesItsEndFirst) {
    EXPECT_EQ(line_text(half, 8, 56), " 50 %    1.0 MiB/s  ETA  0:01:23  a-stream  of 2.0 MiB/s");
    EXPECT_EQ(line_text(half, 8, 55), " 50 %    1.0 MiB/s  ETA  0:01:23  a-stream");
    EXPECT_EQ(line_text(half, 8, 20), " 50 %    1.0 MiB/s  ");
    for (size_t width = 1; width < 120; ++width) {
        EXPECT_LE(line_text(half, 8, width).size(), width);
    }
}

TEST(Progress, TimeThatIsLeftIsShort) {
    EXPECT_EQ(left_text({}), "-:--:--");
    EXPECT_EQ(left_text(0), "0:00:00");
    EXPECT_EQ(left_text(3599.6), "1:00:00");
    EXPECT_EQ(left_text(100 * 3600), "4d 04h");
    EXPECT_LE(left_text(1e300).size(), 12U);
}

} // namespace
