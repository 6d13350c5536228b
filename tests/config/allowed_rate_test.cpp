// The allowed rate of a record, a direction and a local time.

#include "config/allowed_rate.h"

#include <gtest/gtest.h>
#include <set>

namespace {

enum day { SUNDAY, MONDAY, TUESDAY, WEDNESDAY, THURSDAY, FRIDAY, SATURDAY };

tm at(int weekday, int hour, int minute = 0) {
    tm when = {};
    when.tm_wday = weekday;
    when.tm_hour = hour;
    when.tm_min = minute;
    return when;
}

/// 1000 bytes per second with a percentage of its own for each window.
throttling_config_s settings_with_windows() {
    throttling_config_s config;
    config.avail_bandwidth = 1000;
    config.work_time_bandwidth_percent = 20;
    config.off_time_bandwidth_percent = 70;
    config.weekend_bandwidth_percent = 90;
    return config;
}

uint64_t read_rate(const throttling_config_s& config, const tm& when) {
    return allowed_rate(config, OPERATION_READ, when);
}

TEST(AllowedRate, DefaultsAllowTheWholeBandwidthAtAnyTime) {
    for (int weekday = SUNDAY; weekday <= SATURDAY; ++weekday) {
        for (int hour = 0; hour < 24; ++hour) {
            for (const auto operation : {OPERATION_READ, OPERATION_WRITE, OPERATION_READ_WRITE}) {
                EXPECT_EQ(allowed_rate({}, operation, at(weekday, hour)), 104857600U);
            }
        }
    }
}

TEST(AllowedRate, DirectionAndWindowMultiply) {
    throttling_config_s config;
    config.avail_bandwidth = 1000;
    config.read_bandwidth_percent = 50;
    config.work_time_bandwidth_percent = 50;
    EXPECT_EQ(read_rate(config, at(MONDAY, 10)), 250U);
    config.write_bandwidth_percent = 50;
    config.work_time_bandwidth_percent = 20;
    EXPECT_EQ(allowed_rate(config, OPERATION_WRITE, at(MONDAY, 10)), 100U);
}

TEST(AllowedRate, WhatIsNotAReadTakesThePercentOfWrites) {
    throttling_config_s config;
    config.avail_bandwidth = 1000;
    config.read_bandwidth_percent = 10;
    config.write_bandwidth_percent = 30;
    EXPECT_EQ(allowed_rate(config, OPERATION_READ, at(MONDAY, 10)), 100U);
    EXPECT_EQ(allowed_rate(config, OPERATION_WRITE, at(MONDAY, 10)), 300U);
    EXPECT_EQ(allowed_rate(config, OPERATION_READ_WRITE, at(MONDAY, 10)), 300U);
}

TEST(AllowedRate, WindowHoldsFromItsStartUpToItsEnd) {
    const throttling_config_s config = settings_with_windows();
    EXPECT_EQ(read_rate(config, at(MONDAY, 7, 59)), 700U);
    EXPECT_EQ(read_rate(config, at(MONDAY, 8)), 200U);
    EXPECT_EQ(read_rate(config, at(MONDAY, 17, 59)), 200U);
    EXPECT_EQ(read_rate(config, at(MONDAY, 18)), 700U);
}

TEST(AllowedRate, WindowThatStartsAfterItsEndRunsPastMidnight) {
    throttling_config_s config = settings_with_windows();
    config.work_time_start = 22;
    config.work_time_end = 2;
    config.off_time_start = config.off_time_end = 0;
    for (int hour = 0; hour < 24; ++hour) {
        const bool held = hour == 22 || hour == 23 || hour == 0 || hour == 1;
        EXPECT_EQ(read_rate(config, at(TUESDAY, hour)), held ? 200U : 1000U) << hour;
    }
}

TEST(AllowedRate, OffBeatsWorkWhereBothHold) {
    throttling_config_s config = settings_with_windows();
    config.off_time_start = 16;
    config.off_time_end = 20;
    EXPECT_EQ(read_rate(config, at(MONDAY, 15)), 200U);
    EXPECT_EQ(read_rate(config, at(MONDAY, 16)), 700U);
    EXPECT_EQ(read_rate(config, at(MONDAY, 17)), 700U);
    EXPECT_EQ(read_rate(config, at(MONDAY, 18)), 700U);
}

TEST(AllowedRate, WindowThatStartsAtItsEndIsEmpty) {
    throttling_config_s config = settings_with_windows();
    for (int hour = 0; hour < 24; ++hour) {
        config.work_time_start = config.work_time_end = hour;
        config.off_time_start = config.off_time_end = hour;
        EXPECT_EQ(read_rate(config, at(MONDAY, hour)), 1000U) << hour;
    }
}

TEST(AllowedRate, DirectionAloneCountsOutsideBothWindows) {
    throttling_config_s config = settings_with_windows();
    config.read_bandwidth_percent = 40;
    config.off_time_start = 20;
    EXPECT_EQ(read_rate(config, at(MONDAY, 18)), 400U);
    EXPECT_EQ(read_rate(config, at(MONDAY, 19)), 400U);
    EXPECT_EQ(read_rate(config, at(MONDAY, 20)), 280U);
}

TEST(AllowedRate, WeekendCountsAtEveryHourOfItsDays) {
    const throttling_config_s config = settings_with_windows();
    for (int hour = 0; hour < 24; ++hour) {
        EXPECT_EQ(read_rate(config, at(SATURDAY, hour)), 900U) << hour;
    }
}

TEST(AllowedRate, SundayIsAnOrdinaryDayWithHourWindows) {
    throttling_config_s config = settings_with_windows();
    EXPECT_EQ(read_rate(config, at(SUNDAY, 10)), 200U);
    EXPECT_EQ(read_rate(config, at(SUNDAY, 20)), 700U);
    config.weekend_start = 1; // the widest weekend there is
    EXPECT_EQ(read_rate(config, at(SUNDAY, 10)), 200U);
}

TEST(AllowedRate, WeekendHoldsBothItsEndsAndDoesNotWrap) {
    const struct {
        int start;
        int end;
        std::set<int> days;
    } cases[] = {
        {6, 7, {SATURDAY}},  {1, 5, {MONDAY, TUESDAY, WEDNESDAY, THURSDAY, FRIDAY}},
        {3, 3, {WEDNESDAY}}, {7, 7, {}},
        {6, 1, {}},          {7, 1, {}},
        {5, 2, {}},          {1, 7, {MONDAY, TUESDAY, WEDNESDAY, THURSDAY, FRIDAY, SATURDAY}},
    };
    for (const auto& each : cases) {
        throttling_config_s config = settings_with_windows();
        config.weekend_start = each.start;
        config.weekend_end = each.end;
        for (int weekday = SUNDAY; weekday <= SATURDAY; ++weekday) {
            EXPECT_EQ(read_rate(config, at(weekday, 12)), each.days.count(weekday) ? 900U : 200U)
                << each.start << " to " << each.end << ", day " << weekday;
        }
    }
}

TEST(AllowedRate, EachDivisionTruncates) {
    throttling_config_s config;
    config.avail_bandwidth = 999;
    config.read_bandwidth_percent = 50;      // 499.5
    config.work_time_bandwidth_percent = 50; // 249.5 of 499
    EXPECT_EQ(read_rate(config, at(MONDAY, 10)), 249U);
    config.avail_bandwidth = 199;
    config.read_bandwidth_percent = 1;
    config.work_time_bandwidth_percent = 99; // 0.99 of 1
    EXPECT_EQ(read_rate(config, at(MONDAY, 10)), 0U);
    config.avail_bandwidth = 1;
    config.read_bandwidth_percent = 99;
    EXPECT_EQ(read_rate(config, at(MONDAY, 10)), 0U);
}

TEST(AllowedRate, PercentOfZeroAllowsNothing) {
    throttling_config_s config = settings_with_windows();
    config.work_time_bandwidth_percent = 0;
    EXPECT_EQ(read_rate(config, at(MONDAY, 10)), 0U);
    EXPECT_EQ(read_rate(config, at(MONDAY, 20)), 700U);
    config.read_bandwidth_percent = 0;
    EXPECT_EQ(read_rate(config, at(MONDAY, 20)), 0U);
    EXPECT_EQ(read_rate(config, at(SATURDAY, 20)), 0U);
}

TEST(AllowedRate, ProductsBeyondSixtyFourBitsWrap) {
    throttling_config_s config;
    config.avail_bandwidth = 9223372036854775807U; // 2^63 - 1
    config.read_bandwidth_percent = 50;
    // 50 (2^63 - 1) is 2^64 - 50 modulo 2^64; a hundredth of it, and then the window's 100 percent.
    EXPECT_EQ(read_rate(config, at(MONDAY, 10)), 184467440737095515U);
    config.read_bandwidth_percent = 100; // 2^64 - 100
    EXPECT_EQ(read_rate(config, at(MONDAY, 10)), 184467440737095515U);
    config.avail_bandwidth =
        184467440737095517U; // 2^64 + 84 once multiplied: 84, a hundredth of it 0
    EXPECT_EQ(read_rate(config, at(MONDAY, 10)), 0U);
    config.avail_bandwidth = 184467440737095516U; // the most that doesn't wrap
    EXPECT_EQ(read_rate(config, at(MONDAY, 10)), 184467440737095516U);
}

TEST(AllowedRate, SampleIntervalAndLimitsHaveNoPartInIt) {
    throttling_config_s config = settings_with_windows();
    config.sample_interval = 600;
    config.default_max_connections = 1;
    config.connections["s3"] = 1;
    EXPECT_EQ(read_rate(config, at(MONDAY, 10)), 200U);
}

TEST(AllowedRate, WeekHourByHourIsAsPlanned) {
    throttling_config_s config;
    config.avail_bandwidth = 10000;
    config.read_bandwidth_percent = 50; // 5000
    config.work_time_start = 9;
    config.work_time_end = 17;
    config.work_time_bandwidth_percent = 20; // W: 1000
    config.off_time_start = 22;
    config.off_time_end = 6;
    config.off_time_bandwidth_percent = 80; // O: 4000
    config.weekend_start = 5;
    config.weekend_end = 6;
    config.weekend_bandwidth_percent = 90; // E: 4500
    //                           0     6  9       17   22
    const char* const weekday = "OOOOOO...WWWWWWWW.....OO";
    const char* const weekend = "EEEEEEEEEEEEEEEEEEEEEEEE";
    const char* const week[] = {weekday, weekday, weekday, weekday, weekday, weekend, weekend};
    for (int day = SUNDAY; day <= SATURDAY; ++day) {
        for (int hour = 0; hour < 24; ++hour) {
            const char window = week[day][hour];
            const uint64_t expected = window == 'W'   ? 1000
                                      : window == 'O' ? 4000
                                      : window == 'E' ? 4500
                                                      : 5000;
            EXPECT_EQ(read_rate(config, at(day, hour)), expected) << "day " << day << " " << hour;
        }
    }
}

} // namespace
