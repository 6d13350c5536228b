// How many bytes a second a connector allows at which hour, before connections share them.

#include "tests/engine/engine_fixture.h"

#include <cstdlib>

using testing::ElementsAre;

namespace {

class Rate : public engine_test {
  protected:
    void SetUp() override { start(); }

    /// The rate by `config` at an hour of a day of the week, 0 being Sunday.
    unsigned long at(int weekday, int hour, operation_type_t operation = OPERATION_READ) {
        clock.set(local_time(2024, 3, 3 + weekday, hour));
        EXPECT_EQ(connector.set_config_params(&config, 0), STS_OK);
        unsigned long rate = 12345;
        connector.get_bandwidth_per_second(operation, rate);
        return rate;
    }

    void work_hours(int first, int last, int percent) {
        config.work_time_start = first;
        config.work_time_end = last;
        config.work_time_bandwidth_percent = percent;
    }

    void off_hours(int first, int last, int percent) {
        config.off_time_start = first;
        config.off_time_end = last;
        config.off_time_bandwidth_percent = percent;
    }
};

constexpr int sunday = 0;
constexpr int monday = 1;
constexpr int saturday = 6;

TEST_F(Rate, ThePercentsOfTheDirectionAndOfWorkTimeMultiply) {
    config.read_bandwidth_percent = 50;
    config.work_time_bandwidth_percent = 50;
    EXPECT_EQ(at(monday, 10), 250U);
}

TEST_F(Rate, AWriteInWorkTimeCanGetATenth) {
    config.write_bandwidth_percent = 50;
    config.work_time_bandwidth_percent = 20;
    EXPECT_EQ(at(monday, 10, OPERATION_WRITE), 100U);
    EXPECT_EQ(at(monday, 10, OPERATION_READ), 200U);
}

TEST_F(Rate, WhatIsNotAReadCountsAsAWrite) {
    config.read_bandwidth_percent = 30;
    config.write_bandwidth_percent = 70;
    EXPECT_EQ(at(monday, 10, OPERATION_READ), 300U);
    EXPECT_EQ(at(monday, 10, OPERATION_WRITE), 700U);
    EXPECT_EQ(at(monday, 10, OPERATION_READ_WRITE), 700U);
}

TEST_F(Rate, AnHourWindowHoldsFromItsStartUntilBeforeItsEnd) {
    work_hours(8, 18, 20);
    off_hours(18, 8, 60);
    EXPECT_EQ(at(monday, 7), 600U);
    EXPECT_EQ(at(monday, 8), 200U);
    EXPECT_EQ(at(monday, 17), 200U);
    EXPECT_EQ(at(monday, 18), 600U);
}

TEST_F(Rate, AWindowThatStartsAfterItsEndWrapsPastMidnight) {
    work_hours(9, 10, 100);
    off_hours(22, 3, 60);
    EXPECT_EQ(at(monday, 21), 1000U);
    EXPECT_EQ(at(monday, 22), 600U);
    EXPECT_EQ(at(monday, 23), 600U);
    EXPECT_EQ(at(monday, 0), 600U);
    EXPECT_EQ(at(monday, 2), 600U);
    EXPECT_EQ(at(monday, 3), 1000U);
}

TEST_F(Rate, AWorkWindowCanWrapPastMidnightToo) {
    work_hours(22, 3, 20);
    off_hours(10, 11, 60);
    EXPECT_EQ(at(monday, 23), 200U);
    EXPECT_EQ(at(monday, 2), 200U);
    EXPECT_EQ(at(monday, 3), 1000U);
}

TEST_F(Rate, OutsideBothWindowsOnlyTheDirectionsPercentCounts) {
    config.read_bandwidth_percent = 70;
    work_hours(8, 12, 20);
    off_hours(18, 8, 60);
    EXPECT_EQ(at(monday, 12), 700U);
    EXPECT_EQ(at(monday, 17), 700U);
}

TEST_F(Rate, AtAnHourOfBothWindowsOffBeatsWork) {
    work_hours(8, 18, 20);
    off_hours(9, 11, 60);
    EXPECT_EQ(at(monday, 8), 200U);
    EXPECT_EQ(at(monday, 9), 600U);
    EXPECT_EQ(at(monday, 10), 600U);
    EXPECT_EQ(at(monday, 11), 200U);
}

TEST_F(Rate, AWindowWhoseStartIsItsEndContainsNoHour) {
    work_hours(10, 10, 20);
    off_hours(0, 0, 60);
    for (int hour = 0; hour < 24; ++hour) {
        EXPECT_EQ(at(monday, hour), 1000U) << hour;
    }
}

TEST_F(Rate, OnASaturdayTheWeekendPercentHoldsAtEveryHour) {
    config.weekend_bandwidth_percent = 30;
    work_hours(8, 18, 20);
    off_hours(18, 8, 60);
    for (int hour = 0; hour < 24; ++hour) {
        EXPECT_EQ(at(saturday, hour), 300U) << hour;
    }
}

TEST_F(Rate, OnASundayWithTheDefaultWeekendTheHourWindowsHold) {
    config.weekend_bandwidth_percent = 30;
    work_hours(8, 18, 20);
    off_hours(18, 8, 60);
    EXPECT_EQ(at(sunday, 10), 200U);
    EXPECT_EQ(at(sunday, 20), 600U);
}

TEST_F(Rate, TheWeekendIncludesItsFirstAndItsLastDay) {
    config.weekend_bandwidth_percent = 30;
    config.weekend_start = 2;
    config.weekend_end = 4;
    std::vector<unsigned long> week;
    for (int day = sunday; day <= saturday; ++day) {
        week.push_back(at(day, 10));
    }
    EXPECT_THAT(week, ElementsAre(1000, 1000, 300, 300, 300, 1000, 1000));
}

TEST_F(Rate, AWeekendThatStartsAfterItsEndNeverComes) {
    config.weekend_bandwidth_percent = 30;
    config.weekend_start = 6;
    config.weekend_end = 1;
    for (int day = sunday; day <= saturday; ++day) {
        EXPECT_EQ(at(day, 10), 1000U) << day;
    }
}

TEST_F(Rate, TheSeventhDayIsNeverReached) {
    config.weekend_bandwidth_percent = 30;
    config.weekend_start = 7;
    for (int day = sunday; day <= saturday; ++day) {
        EXPECT_EQ(at(day, 10), 1000U) << day;
    }
}

TEST_F(Rate, TheHourIsTheLocalOne) {
    work_hours(15, 16, 20);
    clock.set(local_time(2024, 3, 4, 10, 30)); // in UTC
    ASSERT_EQ(connector.set_config_params(&config, 0), STS_OK);
    const std::string zone = getenv("TZ") != nullptr ? getenv("TZ") : "";
    setenv("TZ", "EAST-5", 1);
    tzset();
    unsigned long rate = 0;
    connector.get_bandwidth_per_second(OPERATION_READ, rate);
    setenv("TZ", zone.c_str(), 1);
    tzset();
    EXPECT_EQ(rate, 200U);
}

TEST_F(Rate, EachDivisionTruncatesOnItsOwn) {
    config.avail_bandwidth = 199;
    config.read_bandwidth_percent = 51;      // 101.49
    config.work_time_bandwidth_percent = 99; // 99.99 of 101, 100.47 of 101.49
    EXPECT_EQ(at(monday, 10), 99U);
}

TEST_F(Rate, ARateBelow100WithAPercentBelow100TruncatesTo0) {
    config.avail_bandwidth = 99;
    config.read_bandwidth_percent = 1;
    EXPECT_EQ(at(monday, 10), 0U);
}

TEST_F(Rate, APercentOf0Allows0) {
    config.weekend_bandwidth_percent = 0;
    EXPECT_EQ(at(saturday, 10), 0U);
    EXPECT_EQ(at(monday, 10), 1000U);
}

TEST_F(Rate, AProductBeyond64BitsWraps) {
    config.avail_bandwidth = uint64_t{1} << 60U;
    // 100 * 2^60 leaves 4 * 2^60 of 64 bits; the windows' 100 percent multiply again.
    EXPECT_EQ(at(monday, 10), (uint64_t{1} << 62U) / 100);
}

TEST_F(Rate, IsWorkedOutBetweenTwoMessagesWithOneLookAtTheClock) {
    unsigned long rate = 0;
    connector.get_bandwidth_per_second(OPERATION_READ, rate);
    EXPECT_EQ(take_log(), log_of("get_bandwidth_per_second", {"Enter.", "Leave."}));
    EXPECT_EQ(clock.reads, 1);
}

TEST_F(Rate, OfAConnectorThatHasNoSettingsYetIsTheDefault) {
    ServiceConnector fresh;
    unsigned long rate = 0;
    fresh.get_bandwidth_per_second(OPERATION_WRITE, rate);
    EXPECT_EQ(rate, 104857600U);
}

} // namespace
