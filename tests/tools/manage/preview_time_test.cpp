#include "tools/manage/preview_time.h"

#include <gtest/gtest.h>

namespace {

constexpr time_t sunday = 1795344953; // 2026-11-22 10:55:53 UTC, as the tests' time zone is

std::string named(const std::string& text) {
    const std::optional<time_t> when = time_named(text, sunday);
    return when ? day_and_time(*when) : "none";
}

TEST(PreviewTime, IsNamedInFourWays) {
    EXPECT_EQ(named("now"), "Sunday 2026-11-22 10:55");
    EXPECT_EQ(named("+2h"), "Sunday 2026-11-22 12:55");
    EXPECT_EQ(named("+30m"), "Sunday 2026-11-22 11:25");
    EXPECT_EQ(named("+1d"), "Monday 2026-11-23 10:55");
    EXPECT_EQ(named("Sat 03:00"), "Saturday 2026-11-28 03:00");
    EXPECT_EQ(named("sunday 11:00"), "Sunday 2026-11-22 11:00");
    EXPECT_EQ(named("Sun 10:00"), "Sunday 2026-11-29 10:00");
    EXPECT_EQ(named("2026-11-28 03:00"), "Saturday 2026-11-28 03:00");
}

TEST(PreviewTime, RefusesWhatNamesNone) {
    for (const char* const text : {"", "then", "+2", "+h", "+-2h", "+2hours", "Sat", "Sat 25:00",
                                   "2026-02-30 03:00", "2026-11-28", "+999999d"}) {
        EXPECT_EQ(named(text), "none") << text;
    }
}

TEST(PreviewTime, ChangesWhereTheRateDoes) {
    throttling_config_s config;
    const std::vector<operation_type_t> both = {OPERATION_READ, OPERATION_WRITE};
    EXPECT_FALSE(next_change(config, both, sunday));
    config.work_time_bandwidth_percent = 20;
    EXPECT_EQ(day_and_time(next_change(config, both, sunday).value()), "Sunday 2026-11-22 18:00");
    EXPECT_EQ(day_and_time(next_change(config, both, *time_named("Fri 18:00", sunday)).value()),
              "Sunday 2026-11-29 08:00");
}

} // namespace
