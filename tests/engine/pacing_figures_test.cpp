// What docs/pacing.md says of the pacing, on virtual time and with 20 MB/s.

#include "tests/engine/pacing_cases.h"

#include <gtest/gtest.h>

namespace {

constexpr uint64_t mebibyte = 1024 * 1024;

TEST(Pacing, PassesASecondsWorthAtOnceAndThenSleepsForASecond) {
    for (const int32_t interval : {2, 5, 10, 30, 60, 600}) {
        SCOPED_TRACE(interval);
        paced_stream stream = stream_at(interval);
        stream.lasts = 1800;
        const paced_course course = pace(stream);
        EXPECT_NEAR(course.moved(0, 0.5), 1.0 * allowed_bandwidth, 300'000);
        EXPECT_NEAR(course.longest_pause(0, stream.lasts), 1, 1e-3);
        EXPECT_NEAR(course.ratio(0, stream.lasts), 1, 0.001);
        EXPECT_LE(course.busiest_second(0, stream.lasts), 2.05); // the clock gets a second ahead
    }
}

TEST(Pacing, LongBlockIsPaidForByAPauseOfItsOwnLength) {
    paced_stream stream = stream_at(60);
    stream.block = 256 * mebibyte;
    stream.lasts = 1800;
    const paced_course course = pace(stream);
    const double worth = static_cast<double>(stream.block) / allowed_bandwidth;
    EXPECT_NEAR(course.longest_pause(0, stream.lasts), worth * (1 - 1 / device), 1.5);
    for (size_t each = 2; each < course.transfers.size(); ++each) { // two pass at the beginning
        const double since = course.transfers[each].begins - course.transfers[each - 1].ends;
        EXPECT_GE(since, worth * (1 - 1 / device) - 2) << each;
    }
}

TEST(Pacing, ForgetsUpToABlockOfEachInterval) {
    for (const uint64_t block : {mebibyte, 16 * mebibyte, 64 * mebibyte, 1024 * mebibyte}) {
        SCOPED_TRACE(block);
        for (const int32_t interval : {5, 60}) {
            paced_stream stream = stream_at(interval);
            stream.block = block;
            stream.lasts = 1800;
            const double worth = static_cast<double>(block) / allowed_bandwidth;
            const double ratio = pace(stream).ratio(0, stream.lasts);
            EXPECT_GE(ratio, 0.99);
            EXPECT_LE(ratio, 1 + worth / std::max<double>(worth, interval) + 0.04);
        }
    }
}

TEST(Pacing, SavesUpAtMostAnIntervalWhileTheSourceIsIdle) {
    for (const int32_t interval : {2, 5, 10, 30}) {
        const double most = most_after_idling(interval);
        EXPECT_LE(most, interval) << interval;
        EXPECT_GE(most, 0.85 * (interval - 1)) << interval;
    }
}

TEST(Pacing, LongerIdlenessSavesUpNothing) {
    for (const int32_t interval : {2, 5, 10, 30}) {
        SCOPED_TRACE(interval);
        paced_stream stream = stream_at(interval);
        stream.idles_at = 2 * interval + 1;
        stream.idles_for = 1000;
        const double over = stream.idles_at + stream.idles_for;
        stream.lasts = over + interval;
        EXPECT_LE(pace(stream).most_ahead(over, stream.lasts), 2); // as at any beginning
    }
}

TEST(Pacing, OpeningWindowPassesThreeQuartersOfTheSampleAtOnce) {
    for (const int32_t interval : {2, 5, 10, 30}) {
        const boundary_figures worst = worst_at_boundary(interval, true);
        EXPECT_LE(worst.ahead, 0.75 * interval + 2) << interval;
        EXPECT_GE(worst.ahead, 0.75 * (interval - 2)) << interval;
    }
    EXPECT_NEAR(worst_at_boundary(30, true).busiest_second, device, 0.1);
}

TEST(Pacing, ClosingWindowIsSilentForUpToThreeIntervals) {
    for (const int32_t interval : {2, 5, 10, 30}) {
        const boundary_figures worst = worst_at_boundary(interval, false);
        EXPECT_LE(worst.silence, 3 * interval + 1) << interval;
        EXPECT_GE(worst.silence, 3 * (interval - 1)) << interval;
    }
}

TEST(Pacing, ClosingWindowIsSilentForThreeTimesWhatTheSampleHasRun) {
    paced_stream stream = stream_over_boundary(30, 72, false); // the third sample is at its twelfth
    stream.lasts = 180;
    EXPECT_NEAR(pace(stream).longest_pause(72, 100), 36, 1.5);
}

} // namespace
