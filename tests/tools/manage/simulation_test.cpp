// What a simulation foretells, beside what the engine does on virtual time.

#include "tools/manage/simulation.h"

#include "tests/engine/pacing_course.h"
#include "tools/manage/preview_time.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace {

constexpr time_t an_hour = 3600;
constexpr time_t a_day = 24 * an_hour;
constexpr time_t friday_eight_pm = 1795809600; // 2026-11-27 20:00 UTC
constexpr uint64_t million = 1'000'000;

/// The rules of Europe/Berlin, which needs no table of zones by them.
class in_berlin {
  public:
    in_berlin() { set("CET-1CEST,M3.5.0,M10.5.0/3"); }
    ~in_berlin() { set("UTC"); }
    in_berlin(const in_berlin&) = delete;
    in_berlin& operator=(const in_berlin&) = delete;

  private:
    static void set(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
};

throttling_config_s with_windows(int32_t interval) {
    throttling_config_s config;
    config.sample_interval = interval;
    config.avail_bandwidth = 2 * million;
    config.work_time_bandwidth_percent = 20;
    config.weekend_bandwidth_percent = 50;
    return config;
}

simulated_transfer writes(const throttling_config_s& config, uint64_t bytes, time_t begins) {
    simulated_transfer transfer;
    transfer.config = config;
    transfer.bytes = bytes;
    transfer.begins = begins;
    return transfer;
}

time_t named_time(const char* text) { return time_named(text, 0).value(); }

TEST(SimulatedTransfer, MovesWhatEachWindowAllows) {
    // Four hours of Friday's off time at 2 MB/s, then the weekend at 1 MB/s.
    const uint64_t off = 4 * an_hour * 2 * million;
    const simulated_course course =
        simulate(writes(with_windows(5), off + 600 * million, friday_eight_pm));
    ASSERT_EQ(course.stretches.size(), 2U);
    EXPECT_EQ(course.stretches[0].window, pacing_window::off_time);
    EXPECT_EQ(course.stretches[0].rate, 2 * million);
    EXPECT_EQ(course.stretches[0].to, friday_eight_pm + 4 * an_hour);
    EXPECT_EQ(course.stretches[0].bytes, off);
    EXPECT_EQ(course.stretches[1].window, pacing_window::weekend);
    EXPECT_EQ(course.finished, course.stretches[1].from + 600);
    EXPECT_EQ(course.bytes(), off + 600 * million);
}

TEST(SimulatedTransfer, OfOneOfSeveralConnectionsHasItsShare) {
    simulated_transfer transfer = writes(with_windows(5), 3600 * million, friday_eight_pm);
    transfer.share = 3;
    const simulated_course course = simulate(transfer);
    EXPECT_EQ(course.stretches[0].rate, 666666U);
    EXPECT_EQ(course.finished, friday_eight_pm + 3600 * million / 666666);
}

TEST(SimulatedTransfer, EndsTheProcessWhereNothingIsAllowed) {
    throttling_config_s config = with_windows(5);
    config.weekend_bandwidth_percent = 0;
    const simulated_course course = simulate(writes(config, UINT64_MAX, friday_eight_pm));
    EXPECT_FALSE(course.finished);
    EXPECT_EQ(course.faulted, friday_eight_pm + 4 * an_hour);
    EXPECT_EQ(course.bytes(), 4 * an_hour * 2 * million);
}

TEST(SimulatedTransfer, LongerThanTenYearsIsUnfinished) {
    throttling_config_s config;
    config.avail_bandwidth = 1;
    const simulated_course course = simulate(writes(config, UINT64_MAX, friday_eight_pm));
    EXPECT_FALSE(course.finished);
    EXPECT_FALSE(course.faulted);
    EXPECT_GT(course.stretches.back().to, friday_eight_pm + 10 * 365 * a_day);
}

constexpr double slowest = 400000; // bytes per second, in work time

/// Both from the same moment on, hour by hour.
void expect_like_the_engine(const throttling_config_s& config, time_t begins, int hours) {
    paced_stream stream;
    stream.config = config;
    stream.block = 16384;
    stream.speed = 1000 * million;
    stream.begins = begins;
    stream.lasts = static_cast<double>(hours) * an_hour;
    const paced_course engine = pace(stream);
    simulated_transfer transfer = writes(config, UINT64_MAX, begins);
    double foretold = 0;
    for (int hour = 1; hour <= hours; ++hour) {
        const double moved = engine.moved_until(static_cast<double>(hour) * an_hour);
        transfer.bytes = static_cast<uint64_t>(moved);
        const simulated_course course = simulate(transfer);
        ASSERT_TRUE(course.finished);
        foretold = static_cast<double>(*course.finished - begins);
        // At the end of a sample the engine lets one or two more blocks through, and forgets them.
        const double most_ahead = 2 * static_cast<double>(stream.block) /
                                  (slowest * static_cast<double>(config.sample_interval));
        EXPECT_NEAR(foretold, static_cast<double>(hour) * an_hour,
                    2 + most_ahead * static_cast<double>(hour) * an_hour)
            << "hour " << hour << " of interval " << config.sample_interval;
    }
}

TEST(SimulatedTransfer, IsWhatTheEngineDoesAcrossWindows) {
    for (const int32_t interval : {2, 5, 60}) {
        expect_like_the_engine(with_windows(interval), friday_eight_pm - 3 * an_hour, 6);
    }
}

TEST(SimulatedTransfer, CatchesUpAndWaitsAsTheEngineDoesWhereASampleIsLong) {
    // From 17:58 on, so that a sample of ten minutes runs when the off window opens, and again
    // when the work window does.
    expect_like_the_engine(with_windows(600), friday_eight_pm - 2 * an_hour - 120, 3);
    expect_like_the_engine(with_windows(600), friday_eight_pm - 12 * an_hour - 120, 3);
    const simulated_course up = simulate(writes(with_windows(600), 120 * 400000 + 120 * 1600000,
                                                friday_eight_pm - 2 * an_hour - 120));
    ASSERT_EQ(up.stretches.size(), 2U);
    EXPECT_EQ(up.stretches[1].bytes, 120U * 1600000);
    EXPECT_EQ(up.finished, friday_eight_pm - 2 * an_hour) << "the sample catches up at once";
}

TEST(SimulatedTransfer, GoesByLocalTimeWhereTheClocksChange) {
    const in_berlin zone;
    throttling_config_s config = with_windows(5);
    config.weekend_start = 7; // Saturday has windows, too
    for (const auto& [evening, hours] :
         {std::pair{"2027-03-27 18:00", 13}, std::pair{"2027-10-30 18:00", 15},
          std::pair{"2027-06-05 18:00", 14}}) {
        const simulated_course course =
            simulate(writes(config, 20 * an_hour * 2 * million, named_time(evening)));
        ASSERT_GE(course.stretches.size(), 2U) << evening;
        EXPECT_EQ(course.stretches[0].to - course.stretches[0].from, hours * an_hour) << evening;
        EXPECT_EQ(course.stretches[0].bytes, static_cast<uint64_t>(hours) * an_hour * 2 * million);
        EXPECT_EQ(course.stretches[1].window, pacing_window::work_time) << evening;
    }
}

TEST(SimulatedTransfer, OfAYearTakesLessThanASecondOfRealTime) {
    throttling_config_s config = with_windows(1);
    const uint64_t year = 365 * a_day * million; // at less than the mean rate
    const auto start = std::chrono::steady_clock::now();
    const simulated_course course = simulate(writes(config, year, friday_eight_pm));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    ASSERT_TRUE(course.finished);
    EXPECT_GT(*course.finished - friday_eight_pm, 200 * a_day);
}

// --- the times that "preview --at" and this command are given --------------------------------------

TEST(PreviewTime, GoesByLocalTimeWhereTheClocksChange) {
    const in_berlin zone;
    throttling_config_s config;
    config.work_time_bandwidth_percent = 20;
    const std::vector<operation_type_t> both = {OPERATION_READ, OPERATION_WRITE};
    for (const auto& [evening, hours] :
         {std::pair{"2027-03-27 18:00", 14 - 1}, std::pair{"2027-10-30 18:00", 14 + 1}}) {
        config.weekend_start = 7;
        const time_t start = named_time(evening);
        const time_t change = next_change(config, both, start).value();
        EXPECT_EQ(change - start, hours * an_hour) << evening;
        EXPECT_EQ(day_and_time(change).substr(day_and_time(change).size() - 5), "08:00");
        EXPECT_EQ(day_and_time(time_named("Sun 08:00", start).value()), day_and_time(change));
        EXPECT_EQ(time_named("+24h", start).value() - start, a_day);
    }
    // An hour that is left out is the one behind it; one that comes twice is either.
    const time_t gap = named_time("2027-03-28 02:30");
    EXPECT_TRUE(day_and_time(gap) == "Sunday 2027-03-28 03:30" ||
                day_and_time(gap) == "Sunday 2027-03-28 01:30")
        << day_and_time(gap);
    EXPECT_EQ(day_and_time(named_time("2027-10-31 02:30")), "Sunday 2027-10-31 02:30");
}

} // namespace
