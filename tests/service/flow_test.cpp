// Which sessions count as reading or writing a storage.

#include "tests/service/ledger_fixture.h"

namespace {

class Flow : public LedgerTest {};

TEST_F(Flow, CountsFromItsFirstReport) {
    EXPECT_EQ(writers_in(report(1, "w:s3")), 1);
    EXPECT_EQ(writers_in(report(2, "w:s3")), 2);
    EXPECT_EQ(seen().now.write.flows, 2);
    EXPECT_EQ(seen().now.read.flows, 0);
}

TEST_F(Flow, CountsOnceHoweverOftenItReports) {
    report(1, "w:s3");
    EXPECT_EQ(writers_in(report(1, "w:s3")), 1);
}

TEST_F(Flow, ReadersAndWritersAreCountedApart) {
    report(1, "r:s3");
    report(2, "r:s3");
    const answer last = report(1, "w:s3");
    EXPECT_EQ(readers_in(last), 2);
    EXPECT_EQ(writers_in(last), 1);
}

TEST_F(Flow, CountsForItsStorageAlone) {
    report(1, "w:s3");
    EXPECT_EQ(writers_in(report(2, "w:tape")), 1);
}

TEST_F(Flow, EndsWithItsMinusOne) {
    report(1, "r:s3");
    report(2, "r:s3");
    EXPECT_EQ(readers_in(end_flow(1, "r:s3")), 1);
    EXPECT_EQ(seen().now.read.flows, 1);
}

TEST_F(Flow, AMinusOneOfASessionThatHasNoneChangesNothing) {
    report(1, "r:s3");
    report(1, "w:s3");
    end_flow(2, "r:s3");
    end_flow(1, "w:tape");
    EXPECT_EQ(seen().now.read.flows, 1);
    EXPECT_EQ(seen().now.write.flows, 1);
}

TEST_F(Flow, TheReplySaysAtLeastOneOfEach) {
    const answer reply = end_flow(1, "r:s3");
    EXPECT_EQ(readers_in(reply), 1);
    EXPECT_EQ(writers_in(reply), 1);
    EXPECT_EQ(seen().now.read.flows, 0);
}

TEST_F(Flow, EndsAfterTwoIntervalsOfSilence) {
    configure(row("s3", 9) + row("SAMPLE_INTERVAL", 100));
    report(1, "w:s3");
    pass(100);
    report(2, "w:s3");
    pass(99);
    EXPECT_EQ(writers_in(report(2, "w:s3")), 2);
    pass(1);
    EXPECT_EQ(writers_in(report(2, "w:s3")), 1);
}

TEST_F(Flow, IsGivenSixtySecondsWhereIntervalsAreShort) {
    configure(row("s3", 9) + row("SAMPLE_INTERVAL", 5));
    report(1, "w:s3");
    pass(59);
    EXPECT_EQ(seen().now.write.flows, 1);
    pass(1);
    EXPECT_EQ(seen().now.write.flows, 0);
}

TEST_F(Flow, SilentFlowsEndWithoutAQuestionToo) {
    report(1, "w:s3");
    pass(60);
    book.tick(now);
    EXPECT_THAT(lines.back(), testing::HasSubstr("silent, no longer: writes \"s3\", 0 left"));
}

TEST_F(Flow, ComesBackWithItsNextReport) {
    report(1, "w:s3");
    pass(60);
    book.tick(now);
    EXPECT_EQ(writers_in(report(1, "w:s3")), 1);
    EXPECT_EQ(seen().now.write.flows, 1);
}

TEST_F(Flow, ItsStorageKeepsTheConnectionWhenItEnds) {
    connect(1);
    report(1, "w:s3");
    pass(60);
    book.tick(now);
    EXPECT_EQ(connections(), 1);
}

TEST_F(Flow, APlusOneCountsAsAReportOfNothing) {
    book.check_connections(1, "r:s3", "host_1", 1, now);
    EXPECT_EQ(seen().now.read.flows, 1);
    EXPECT_EQ(seen().now.read.measured, 0U);
}

} // namespace
