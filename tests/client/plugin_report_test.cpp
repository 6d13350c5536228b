// What the service is told of transfers, and what it answers does to them: the built plugin over
// its real client.

#include "tests/client/plugin_fixture.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class PluginReport : public Plugin {
  protected:
    /// An image that has begun to write; its first report and what led to it are forgotten.
    throttling_image_s* begun(const std::string& answer = "", const std::string& name = "image") {
        service.answer("check_bandwidth", returns(0, answer));
        throttling_image_s* const image = create(open_server(), name);
        write(image, 0);
        forget();
        return image;
    }
    void forget() {
        asked();
        errors();
        clock.take_sleeps();
    }
};

// --- when, and with what

TEST_F(PluginReport, TheFirstTransferReportsTheSampleThatTheServerBeganWith) {
    throttling_server_s* const server = open_server();
    clock.advance(5);
    throttling_image_s* const image = create(server);
    asked();
    write(image, 100);
    EXPECT_THAT(asked(), ElementsAre(report("w:s3", start, start + 5, 0)));
}

TEST_F(PluginReport, ASampleIsReportedOnceItsIntervalHasPassed) {
    throttling_image_s* const image = begun();
    write(image, 100);
    clock.advance(29);
    write(image, 100);
    EXPECT_THAT(asked(), IsEmpty());
    clock.advance(1);
    write(image, 50);
    EXPECT_THAT(asked(), ElementsAre(report("w:s3", start, start + 30, 200)));
    clock.advance(30);
    write(image, 1);
    EXPECT_THAT(asked(), ElementsAre(report("w:s3", start + 30, start + 60, 50)));
}

TEST_F(PluginReport, AnIdleSampleIsNotReported) {
    throttling_image_s* const image = begun();
    clock.advance(1000);
    write(image, 1);
    EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(PluginReport, ReadsAndWritesAreReportedApart) {
    throttling_image_s* const writer = begun();
    write(writer, 300);
    close(writer);
    throttling_image_s* const reader = open(open_server());
    forget();
    clock.advance(3);
    read(reader, 200);
    EXPECT_THAT(asked(), ElementsAre(report("r:s3", start, start + 3, 0)));
    clock.advance(30);
    read(reader, 10);
    EXPECT_THAT(asked(), ElementsAre(report("r:s3", start + 3, start + 33, 200)));
}

TEST_F(PluginReport, AClosedImageReportsItsLastBytes) {
    throttling_image_s* const image = begun();
    write(image, 123);
    clock.advance(2);
    close(image);
    EXPECT_THAT(asked(), ElementsAre(report("w:s3", start, start + 2, 123),
                                     "check_connections(\"w:s3\", \"a_b\", -1)"));
}

TEST_F(PluginReport, ImagesOfOneServerShareTheirSample) {
    throttling_server_s* const server = open_server();
    throttling_image_s* const first = create(server, "first");
    throttling_image_s* const second = create(server, "second");
    write(first, 0);
    write(second, 0);
    forget();
    write(first, 100);
    write(second, 200);
    clock.advance(30);
    write(first, 1);
    EXPECT_THAT(asked(), ElementsAre(report("w:s3", start, start + 30, 300)));
}

// --- pacing

TEST_F(PluginReport, ASampleAheadOfItsRateSleepsTheDifferenceAndStaysUnreported) {
    throttling_image_s* const image = begun();
    write(image, 5000);
    clock.advance(2);
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(3U));
    EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(PluginReport, TheReportOfASampleAheadOfItsRateTellsOfTheTimeAfterTheSleep) {
    throttling_image_s* const image = begun();
    write(image, 33'000);
    clock.advance(30);
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(3U));
    EXPECT_THAT(asked(), ElementsAre(report("w:s3", start, start + 33, 33'000)));
}

TEST_F(PluginReport, TheCountsInAnAnswerShareTheBandwidthFromThenOn) {
    throttling_image_s* const image = begun(shares(1, 5));
    write(image, 1000);
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(5U)); // 200 bytes a second
    EXPECT_TRUE(has_logged(STS_SEV_DEBUG, "[check_bandwidth]bandwidth_per_second=200,conne#=5."));
}

TEST_F(PluginReport, AnAnswerWithoutValuesLeavesAllAsItWas) {
    throttling_image_s* const image = begun(shares(1, 5));
    service.answer("check_bandwidth", returns(0, "nothing in it"));
    write(image, 10);
    clock.advance(30);
    write(image, 1000);
    forget();
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(5U));
}

TEST_F(PluginReport, TheFirstOfTwoValuesOfAnAnswerCounts) {
    throttling_image_s* const image = begun(shares(1, 5) + shares(1, 2));
    write(image, 1000);
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(5U));
}

// --- the service's wait

TEST_F(PluginReport, AWaitIsNotTakenAtTheReportButAtTheNextTransfer) {
    throttling_image_s* const image = begun(shares(1, 1, 9));
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
    write(image, 1); // the sample is empty: nothing to pace
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(9U)); // an interval below 2 minutes: all at once
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
}

TEST_F(PluginReport, ALongIntervalSpreadsAWait) {
    settings("THR:SAMPLE_INTERVAL=120\nTHR:AVAIL_BANDWIDTH=1000\nTHR:s3=10\n");
    throttling_image_s* const image = begun(shares(1, 1, 9));
    write(image, 1);
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(4U)); // half of what remains at each
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(2U));
    EXPECT_TRUE(has_logged(STS_SEV_DEBUG, "[check_bandwidth]wait_seconds_=5."));
}

TEST_F(PluginReport, WhatIsLeftOfAWaitIsTakenBeforeTheNextReport) {
    settings("THR:SAMPLE_INTERVAL=120\nTHR:AVAIL_BANDWIDTH=1000\nTHR:s3=10\n");
    throttling_image_s* const image = begun(shares(1, 1, 9));
    write(image, 10);
    clock.advance(120);
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(4U, 5U));
    EXPECT_THAT(asked(), ElementsAre(report("w:s3", start, start + 129, 10)));
}

TEST_F(PluginReport, AWaitOfZeroOrLessIsNotTaken) {
    for (const long wait : {0L, -5L}) {
        throttling_image_s* const image = begun(shares(1, 1, wait), "image" + std::to_string(wait));
        write(image, 1);
        write(image, 1);
        EXPECT_THAT(clock.take_sleeps(), IsEmpty()) << wait;
        close(image);
    }
}

// --- reports that fail

TEST_F(PluginReport, AFailedReportIsToldAndTheSampleBeginsAgain) {
    throttling_image_s* const image = begun();
    service.answer("check_bandwidth", {returns(5, "busy"), returns(0)});
    write(image, 100);
    clock.advance(30);
    write(image, 20);
    EXPECT_THAT(asked(), ElementsAre(report("w:s3", start, start + 30, 100)));
    EXPECT_TRUE(has_logged(STS_SEV_DEBUG, "[check_bandwidth]response recived =busy"));
    EXPECT_TRUE(has_logged(STS_SEV_DEBUG, "[check_bandwidth]leaving with return vale 5"));
    EXPECT_THAT(errors(),
                ElementsAre("4 [throttling_write_image_v7]fail to check bandwidth from service."));
    clock.advance(30);
    write(image, 1);
    EXPECT_THAT(asked(), ElementsAre(report("w:s3", start + 30, start + 60, 20)));
}

TEST_F(PluginReport, AFailedReportAtTheEndIsToldAndTheImageIsWhole) {
    throttling_server_s* const server = open_server();
    throttling_image_s* const image = create(server);
    write(image, 100);
    errors();
    service.answer("check_bandwidth", raises("NO_RESOURCES"));
    close(image);
    EXPECT_THAT(errors(),
                ElementsAre("4 Unknown CORBA exception occured while processing check_bandwidth, "
                            "return code =2060017",
                            "4 [throttling_close_image_v7]fail to check write bandwidth from "
                            "service."));
    throttling_image_s* const reader = open(server);
    read(reader, 100);
    errors();
    close(reader);
    EXPECT_THAT(errors(), Contains("4 [throttling_close_image_v7]fail to check read bandwidth from "
                                   "service."));
}

TEST_F(PluginReport, AFailedAnswerChangesNoCountAndAsksForNoWait) {
    throttling_image_s* const image = begun(shares(1, 5));
    service.answer("check_bandwidth", returns(1, shares(1, 1, 100)));
    write(image, 10);
    clock.advance(30);
    write(image, 1000);
    forget();
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(5U));
}

} // namespace
