// The record's defaults and the mending of its time windows.

#include "tests/config/config_fixture.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const char* const equal_work =
    "2 [check_time]work_time_start cannot equal to work_time_end, set work_time_end = "
    "work_time_start + 1.";
const char* const equal_off =
    "2 [check_time]off_time_start cannot equal to off_time_end, set off_time_end = "
    "off_time_start + 1.";
const char* const overlap =
    "2 [check_time]work time overlaps with off time, set off_time_end as work_time_start, set "
    "off_time_start as work_time_end.";

TEST(Record, StartsWithTheDefaults) {
    const throttling_config_s config;
    const field_list expected = {
        {"read_bandwidth_percent", "100"},
        {"write_bandwidth_percent", "100"},
        {"default_max_connections", "10"},
        {"avail_bandwidth", "104857600"},
        {"work_time_start", "8"},
        {"work_time_end", "18"},
        {"work_time_bandwidth_percent", "100"},
        {"off_time_start", "18"},
        {"off_time_end", "8"},
        {"off_time_bandwidth_percent", "100"},
        {"weekend_start", "6"},
        {"weekend_end", "7"},
        {"weekend_bandwidth_percent", "100"},
        {"sample_interval", "0"},
        {"log_level", "0"},
        {"cssc_port_number", "5637"},
        {"cssc_host_name", "localhost"},
    };
    EXPECT_EQ(fields(config), expected);
    EXPECT_EQ(sizeof config.cssc_host_name, 512U);
}

TEST(Record, CopyHasConnectionsOfItsOwn) {
    throttling_config_s config;
    config.connections["s3"] = 4;
    throttling_config_s copy = config;
    EXPECT_EQ(fields(copy), fields(config));
    copy.connections["s3"] = 5;
    copy.connections["azure"] = 6;
    EXPECT_EQ(config.connections.size(), 1U);
    EXPECT_EQ(config.connections["s3"], 4U);
}

TEST(Record, ConnectionsAreOrderedByBytes) {
    throttling_config_s config;
    for (const char* name : {"b", "\xff", "A", "", "a", "ab", "B"}) {
        config.connections[name] = 1;
    }
    std::vector<std::string> names;
    for (const auto& each : config.connections) {
        names.push_back(each.first);
    }
    EXPECT_THAT(names, ElementsAre("", "A", "B", "a", "ab", "b", "\xff"));
}

TEST(IsOverlap, WindowOfOneHourHoldsThatHourAlone) {
    EXPECT_EQ(is_overlap(5, 5, 5, 9), 1); // 5 to 5 holds 5
    EXPECT_EQ(is_overlap(5, 5, 6, 7), 0); // and not 6
}

TEST(IsOverlap, WindowPastMidnightHoldsItsStartAndNotItsEnd) {
    for (int hour = 0; hour < 23; ++hour) {
        const int held = hour >= 22 || hour < 2 ? 1 : 0;
        EXPECT_EQ(is_overlap(22, 2, hour, hour + 1), held) << hour;
        EXPECT_EQ(is_overlap(hour, hour + 1, 22, 2), held) << hour;
    }
    EXPECT_EQ(is_overlap(22, 2, 23, 0), 1);
}

TEST(IsOverlap, WindowsThatTouchDoNot) {
    EXPECT_EQ(is_overlap(8, 18, 18, 8), 0);
    EXPECT_EQ(is_overlap(18, 8, 8, 18), 0);
    EXPECT_EQ(is_overlap(0, 6, 6, 12), 0);
    EXPECT_EQ(is_overlap(6, 12, 0, 6), 0);
}

TEST(IsOverlap, WindowsThatShareAnHourDo) {
    EXPECT_EQ(is_overlap(8, 12, 10, 14), 1);
    EXPECT_EQ(is_overlap(10, 14, 8, 12), 1);
    EXPECT_EQ(is_overlap(10, 11, 8, 14), 1);
    EXPECT_EQ(is_overlap(8, 14, 10, 11), 1);
    EXPECT_EQ(is_overlap(10, 10, 11, 11), 1); // 11 to 11 ends with hour 10
    EXPECT_EQ(is_overlap(11, 11, 10, 10), 1);
}

TEST(IsOverlap, EndOfMidnightIsOneBeforeZeroAndNotTwentyThree) {
    EXPECT_EQ(is_overlap(23, 23, 0, 0), 0);
    EXPECT_EQ(is_overlap(0, 0, 23, 23), 0);
}

TEST(IsOverlap, AgreesWithTheHoursOfBothWindows) {
    const auto hours = [](int start, int end) {
        unsigned held = 0;
        for (int hour = start; hour != end; hour = (hour + 1) % 24) {
            held |= 1U << hour;
        }
        return held;
    };
    for (int s1 = 0; s1 < 24; ++s1) {
        for (int e1 = 0; e1 < 24; ++e1) {
            for (int s2 = 0; s2 < 24; ++s2) {
                for (int e2 = 0; e2 < 24; ++e2) {
                    if (s1 != e1 && s2 != e2) {
                        ASSERT_EQ(is_overlap(s1, e1, s2, e2),
                                  (hours(s1, e1) & hours(s2, e2)) != 0 ? 1 : 0)
                            << s1 << "-" << e1 << " and " << s2 << "-" << e2;
                    }
                }
            }
        }
    }
}

class CheckTime : public ConfigTest {
  protected:
    /// Mends a record with those windows; gives them as they are then.
    std::vector<int> mend(int work_start, int work_end, int off_start, int off_end) {
        throttling_config_s config;
        config.work_time_start = work_start;
        config.work_time_end = work_end;
        config.off_time_start = off_start;
        config.off_time_end = off_end;
        EXPECT_EQ(check_time(&session, &config), 0);
        return {config.work_time_start, config.work_time_end, config.off_time_start,
                config.off_time_end};
    }
};

TEST_F(CheckTime, DefaultsAreLeftAlone) {
    EXPECT_THAT(mend(8, 18, 18, 8), ElementsAre(8, 18, 18, 8));
    EXPECT_THAT(take_log(), IsEmpty());
}

TEST_F(CheckTime, OffBecomesWhatWorkLeavesWhenTheyOverlap) {
    EXPECT_THAT(mend(9, 17, 16, 20), ElementsAre(9, 17, 17, 9));
    EXPECT_THAT(take_log(), ElementsAre(overlap));
}

TEST_F(CheckTime, EmptyWorkWindowGetsOneHour) {
    EXPECT_THAT(mend(5, 5, 10, 20), ElementsAre(5, 6, 10, 20));
    EXPECT_THAT(take_log(), ElementsAre(equal_work));
}

TEST_F(CheckTime, EmptyWorkWindowBeforeMidnightEndsAtZero) {
    EXPECT_THAT(mend(23, 23, 1, 5), ElementsAre(23, 0, 1, 5));
    EXPECT_THAT(take_log(), ElementsAre(equal_work));
}

TEST_F(CheckTime, EmptyOffWindowGetsOneHour) {
    EXPECT_THAT(mend(8, 18, 19, 19), ElementsAre(8, 18, 19, 20));
    EXPECT_THAT(take_log(), ElementsAre(equal_off));
    EXPECT_THAT(mend(8, 18, 23, 23), ElementsAre(8, 18, 23, 0));
    EXPECT_THAT(take_log(), ElementsAre(equal_off));
}

TEST_F(CheckTime, WarnsInOrderOfWorkThenOffThenOverlap) {
    EXPECT_THAT(mend(8, 8, 8, 8), ElementsAre(8, 9, 9, 8));
    EXPECT_THAT(take_log(), ElementsAre(equal_work, equal_off, overlap));
}

TEST_F(CheckTime, SessionMayBeNull) {
    throttling_config_s config;
    config.work_time_end = config.work_time_start;
    EXPECT_EQ(check_time(nullptr, &config), 0);
    EXPECT_EQ(config.work_time_end, 9);
}

TEST_F(CheckTime, MendsEveryPairOfWindowsForGood) {
    for (int each = 0; each < 24 * 24 * 24 * 24; ++each) {
        throttling_config_s config;
        config.work_time_start = each % 24;
        config.work_time_end = each / 24 % 24;
        config.off_time_start = each / (24 * 24) % 24;
        config.off_time_end = each / (24 * 24 * 24);
        check_time(nullptr, &config);
        ASSERT_NE(config.work_time_start, config.work_time_end) << each;
        ASSERT_NE(config.off_time_start, config.off_time_end) << each;
        ASSERT_EQ(config.work_time_start, each % 24) << "work wins";
        ASSERT_EQ(is_overlap(config.work_time_start, config.work_time_end, config.off_time_start,
                             config.off_time_end),
                  0)
            << each;
    }
}

} // namespace
