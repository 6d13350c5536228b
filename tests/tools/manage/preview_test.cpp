#include "tools/manage/preview_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

namespace {

tm on(int day, int hour) {
    tm when = {};
    when.tm_wday = day;
    when.tm_hour = hour;
    return when;
}

throttling_config_s windows() {
    throttling_config_s config;
    config.avail_bandwidth = 1024 * 1000;
    config.work_time_bandwidth_percent = 20;
    config.weekend_bandwidth_percent = 50;
    return config;
}

/// The words of each line.
std::vector<std::vector<std::string>> rows(const std::string& table) {
    std::vector<std::vector<std::string>> all;
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        all.emplace_back(std::istream_iterator<std::string>(words),
                         std::istream_iterator<std::string>());
    }
    return all;
}

TEST(Preview, WeekHasARowForEachHourAndAColumnForEachDay) {
    const auto table = rows(preview_table(windows(), OPERATION_WRITE, on(1, 10), true));
    ASSERT_EQ(table.size(), 25U);
    EXPECT_THAT(table[0], testing::ElementsAre("writes", "Monday", "Tuesday", "Wednesday",
                                               "Thursday", "Friday", "Saturday", "Sunday"));
    EXPECT_EQ(table[1].size(), 15U); // the hour, and seven rates with their unit
}

TEST(Preview, ShowsTheWindowsAndTheWeekendThatIsSaturdayAlone) {
    const auto table = rows(preview_table(windows(), OPERATION_READ, on(0, 0), true));
    const auto& seven = table[8];
    const auto& eight = table[9];
    EXPECT_EQ(seven[0], "07:00");
    EXPECT_EQ(seven[1], "1000.0"); // Monday
    EXPECT_EQ(eight[1], "200.0");
    EXPECT_EQ(seven[11], "500.0"); // Saturday
    EXPECT_EQ(eight[11], "500.0");
    EXPECT_EQ(eight[13], "200.0"); // Sunday
}

TEST(Preview, DayMergesEqualHoursWithin80ColumnsAndMarksThePresentOnes) {
    EXPECT_EQ(preview_table(windows(), OPERATION_READ, on(3, 12), false),
              "reads   Wednesday\n"
              "00:00-08:00   1000.0 KiB/s   off time\n"
              "08:00-18:00    200.0 KiB/s*  work time\n"
              "18:00-24:00   1000.0 KiB/s   off time\n");
    EXPECT_EQ(preview_table(windows(), OPERATION_WRITE, on(6, 0), false),
              "writes  Saturday\n"
              "00:00-24:00    500.0 KiB/s*  weekend\n");
}

TEST(Preview, JsonHoldsTheHoursOfTheDayOrTheWeek) {
    const auto day = preview_json(windows(), on(3, 12), false);
    ASSERT_EQ(day.size(), 3U);
    EXPECT_EQ(day[1]["day"], "Wednesday");
    EXPECT_EQ(day[1]["from"], 8);
    EXPECT_EQ(day[1]["to"], 18);
    EXPECT_EQ(day[1]["window"], "work time");
    EXPECT_EQ(day[1]["read"], 204800);
    EXPECT_EQ(preview_json(windows(), on(3, 12), true).size(), 6U * 3 + 1);
}

} // namespace
