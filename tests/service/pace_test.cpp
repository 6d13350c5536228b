// What a report is answered with: how long to wait, and how much is left.

#include "tests/service/ledger_fixture.h"

#include <cstdint>

namespace {

class Pace : public LedgerTest {
  protected:
    static constexpr uint64_t rate = 1000; // bytes per second

    void SetUp() override { configure(settings()); }

    static std::string settings(const std::string& more = "") {
        return row("s3", 9) + row("AVAIL_BANDWIDTH", rate) + row("SAMPLE_INTERVAL", 30) + more;
    }
};

TEST_F(Pace, WaitIsWhatTheSampleWasEarly) {
    EXPECT_EQ(wait_in(report(1, "w:s3", 15 * rate, 10)), 5);
}

TEST_F(Pace, AnOnTimeOrLateSampleHasNoWait) {
    EXPECT_EQ(wait_in(report(1, "w:s3", 10 * rate, 10)), 0);
    EXPECT_EQ(wait_in(report(1, "w:s3", 10 * rate, 25)), 0);
    EXPECT_EQ(wait_in(report(1, "w:s3", 0, 0)), 0);
}

TEST_F(Pace, WaitIsInWholeSeconds) {
    EXPECT_EQ(wait_in(report(1, "w:s3", 10 * rate + rate - 1, 10)), 0);
    EXPECT_EQ(wait_in(report(1, "w:s3", 11 * rate, 10)), 1);
}

TEST_F(Pace, WaitIsAtMostOneInterval) {
    EXPECT_EQ(wait_in(report(1, "w:s3", 1000 * rate, 1)), 30);
    EXPECT_EQ(wait_in(report(1, "w:s3", UINT64_MAX, 0)), 30);
}

TEST_F(Pace, TheRateIsSharedAmongThoseOfTheDirection) {
    report(2, "w:s3");
    report(3, "r:s3");
    EXPECT_EQ(wait_in(report(1, "w:s3", 10 * rate, 10)), 10);
    EXPECT_EQ(wait_in(report(3, "r:s3", 12 * rate, 10)), 2);
}

TEST_F(Pace, AShareTruncates) {
    report(2, "w:s3");
    report(3, "w:s3"); // 333 bytes a second each
    EXPECT_EQ(wait_in(report(1, "w:s3", 333 * 12, 10)), 2);
}

TEST_F(Pace, ARateOfZeroAsksForNoWait) {
    configure(settings(row("WRITE_BANDWIDTH_PERCENT", 0)));
    const answer reply = report(1, "w:s3", 50 * rate, 1);
    EXPECT_EQ(reply.status, 0);
    EXPECT_EQ(wait_in(reply), 0);
    EXPECT_EQ(free_flow_in(reply), 0);
}

TEST_F(Pace, AShareOfZeroAsksForNoWait) {
    configure(row("s3", 9) + row("AVAIL_BANDWIDTH", 1) + row("SAMPLE_INTERVAL", 30));
    report(2, "w:s3");
    EXPECT_EQ(wait_in(report(1, "w:s3", 50, 1)), 0);
}

TEST_F(Pace, WithoutAnIntervalThereIsNoWait) {
    configure(row("s3", 9) + row("AVAIL_BANDWIDTH", rate));
    EXPECT_EQ(wait_in(report(1, "w:s3", 50 * rate, 1)), 0);
}

TEST_F(Pace, ASampleThatEndsBeforeItBeganWaitsNoLongerThanAnInterval) {
    const auto end = static_cast<uint32_t>(now.wall);
    const answer reply = book.check_bandwidth(1, "w:s3", "h", {1, end + 5, end, 0}, now);
    EXPECT_EQ(reply.status, 0);
    EXPECT_EQ(wait_in(reply), 5);
}

TEST_F(Pace, ConnectionQuestionsAskForNoWait) {
    report(1, "w:s3", 100 * rate, 1);
    EXPECT_EQ(wait_in(connect(1)), 0);
}

TEST_F(Pace, TheAllowedRateFollowsTheLocalTime) {
    configure(settings(row("OFF_TIME_BANDWIDTH_PERCENT", 50)));
    EXPECT_EQ(seen().now.write.allowed, rate);
    now.wall = local_time(2026, 3, 4, 23);
    EXPECT_EQ(seen().now.write.allowed, rate / 2);
    EXPECT_EQ(wait_in(report(1, "w:s3", 10 * rate, 10)), 10);
}

// --- what is left ---

TEST_F(Pace, FreeFlowIsTheAllowedRateLessWhatWasMeasured) {
    EXPECT_EQ(free_flow_in(report(1, "w:s3", 300 * 10, 10)), 700);
    EXPECT_EQ(free_flow_in(report(2, "w:s3", 200 * 10, 10)), 500);
    EXPECT_EQ(free_flow_in(report(3, "r:s3", 100 * 10, 10)), 900);
}

TEST_F(Pace, FreeFlowIsNeverBelowZero) {
    EXPECT_EQ(free_flow_in(report(1, "w:s3", 30 * rate, 10)), 0);
    report(2, "w:s3", UINT64_MAX, 1);
    EXPECT_EQ(free_flow_in(report(3, "w:s3", UINT64_MAX, 1)), 0);
}

TEST_F(Pace, OfAConnectionTheLesserFreeFlowIsTold) {
    report(1, "w:s3", 300 * 10, 10);
    report(1, "r:s3", 100 * 10, 10);
    EXPECT_EQ(free_flow_in(connect(1)), 700);
}

TEST_F(Pace, AReportTakesThePlaceOfTheOneBefore) {
    report(1, "w:s3", 300 * 10, 10);
    pass(30);
    EXPECT_EQ(free_flow_in(report(1, "w:s3", 100 * 30, 30)), 900);
}

TEST_F(Pace, WhatIsOverdueByAnIntervalNoLongerCountsAsMeasured) {
    configure(row("s3", 9) + row("SAMPLE_INTERVAL", 5));
    report(1, "w:s3", 300 * 10, 10);
    pass(9);
    EXPECT_EQ(seen().now.write.measured, 300U);
    pass(1);
    EXPECT_EQ(seen().now.write.measured, 0U);
    EXPECT_EQ(seen().now.write.flows, 1);
}

TEST_F(Pace, ASampleWithinOneSecondCountsAsOneSecond) {
    report(1, "w:s3", 250, 0);
    EXPECT_EQ(seen().now.write.measured, 250U);
}

} // namespace
