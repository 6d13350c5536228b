#include "tools/figures/report.h"

#include <gtest/gtest.h>

namespace {

sample at(double time, std::optional<uint64_t> allowed) { return {time, allowed, {}}; }

TEST(Report, AllowedRateIsTheMeanOverTheTimeThatEachHeld) {
    EXPECT_EQ(mean_allowed({at(0, 100), at(1, 100), at(2, 400), at(3, 400), at(4, 400)}), 250.0);
    EXPECT_EQ(mean_allowed({at(0, 100), at(3, 200), at(4, 200)}), 125.0);
}

TEST(Report, AllowedRateOfTheLastSampleHasNoTimeOfItsOwn) {
    EXPECT_EQ(mean_allowed({at(0, 100), at(1, 900)}), 100.0);
    EXPECT_EQ(mean_allowed({at(0, 100)}), 100.0);
}

TEST(Report, NoAllowedRateWhereNothingIsThrottled) {
    EXPECT_FALSE(mean_allowed({}));
    EXPECT_FALSE(mean_allowed({at(0, {}), at(1, {})}));
}

TEST(Report, TableShowsFiguresInColumns) {
    run_figures run;
    run.streams = {{"b.1of1", 1048576, 2, 524288, 1048576.0, 0.5, 1}};
    run.total = {"total", 1048576, 2, 524288, {}, {}, 0};
    EXPECT_EQ(table_text(run),
              "stream        bytes   seconds           rate        allowed  ratio   slept\n"
              "b.1of1      1.0 MiB       2.0    512.0 KiB/s      1.0 MiB/s   0.50     1 s\n"
              "total       1.0 MiB       2.0    512.0 KiB/s      unlimited      -     0 s\n");
}

} // namespace
