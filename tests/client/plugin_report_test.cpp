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
        take_errors();
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

struct pace {
    uint64_t bytes;
    time_t seconds;
    std::vector<unsigned> sleeps;
};

TEST_F(PluginReport, ASampleAheadOfItsRateSleepsTheDifferenceAndStaysUnreported) {
    const std::vector<pace> paces = {
        {5000, 2, {3}}, {5999, 2, {3}}, {5000, 5, {}}, {5000, 20, {}}, {999, 0, {}},
    };
    for (const pace& each : paces) {
        throttling_image_s* const image = begun("", "image" + std::to_string(&each - &paces[0]));
        write(image, each.bytes);
        clock.advance(each.seconds);
        write(image, 1);
        EXPECT_EQ(clock.take_sleeps(), each.sleeps) << each.bytes << " in " << each.seconds;
        EXPECT_THAT(asked(), IsEmpty());
    }
}

TEST_F(PluginReport, ASampleThatBecomesDueInItsSleepIsReportedByALaterTransfer) {
    throttling_image_s* const image = begun();
    write(image, 40'000);
    clock.advance(20);
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(20U));
    EXPECT_THAT(asked(), IsEmpty());
    write(image, 1);
    EXPECT_THAT(asked(), ElementsAre(report("w:s3", start, start + 40, 40'001)));
}

TEST_F(PluginReport, AClockThatStepsBackMakesTheSleepGrowAndTheReportWait) {
    throttling_image_s* const image = begun();
    write(image, 1000);
    clock.advance(-100);
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(101U)); // a second of its own, a hundred to return
    EXPECT_THAT(asked(), IsEmpty());
    clock.advance(28);
    write(image, 1);
    EXPECT_THAT(asked(), IsEmpty());
    clock.advance(1);
    write(image, 1);
    EXPECT_THAT(asked(), ElementsAre(report("w:s3", start, start + 30, 1002)));
}

TEST_F(PluginReport, AClosedImagesReportSleepsAlsoForAClockThatSteppedBack) {
    throttling_image_s* const image = begun();
    write(image, 1000);
    clock.advance(-100);
    close(image);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(101U));
    EXPECT_EQ(asked().front(), report("w:s3", start, start + 1, 1000));
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
    throttling_image_s* const image = begun(reply_text(1, 5));
    write(image, 1000);
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(5U)); // 200 bytes a second
}

TEST_F(PluginReport, AnAnswerWithoutValuesLeavesAllAsItWas) {
    throttling_image_s* const image = begun(reply_text(1, 5));
    service.answer("check_bandwidth", returns(0, "nothing in it"));
    write(image, 10);
    clock.advance(30);
    write(image, 1000);
    forget();
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(5U));
}

TEST_F(PluginReport, TheFirstOfTwoValuesOfAnAnswerCounts) {
    throttling_image_s* const image = begun(reply_text(1, 5) + reply_text(1, 2));
    write(image, 1000);
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(5U));
}

// --- the service's wait

TEST_F(PluginReport, AWaitIsNotTakenAtTheReportButAtTheNextTransfer) {
    throttling_image_s* const image = begun(reply_text(1, 1, 0, 9));
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
    write(image, 1); // the sample is empty: nothing to pace
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(9U)); // an interval below 2 minutes: all at once
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
}

struct spread {
    int interval; ///< seconds
    long wait;
    std::vector<unsigned> sleeps; ///< of the two transfers after the report
};

TEST_F(PluginReport, TheMinutesOfTheIntervalSpreadAWaitOverTheNextTransfers) {
    const std::vector<spread> spreads = {
        {1, 9, {9}},      {59, 9, {9}},     {60, 9, {9}},        {119, 9, {9}},
        {120, 9, {4, 2}}, {600, 9, {0, 0}}, {600, 100, {10, 9}},
    };
    for (const spread& each : spreads) {
        settings("THR:SAMPLE_INTERVAL=" + std::to_string(each.interval) +
                 "\nTHR:AVAIL_BANDWIDTH=1000\nTHR:s3=10\n");
        throttling_image_s* const image =
            begun(reply_text(1, 1, 0, each.wait), "image" + std::to_string(&each - &spreads[0]));
        service.answer("check_bandwidth", {});
        write(image, 1); // the sample is empty: nothing is paid off
        write(image, 1);
        write(image, 1);
        EXPECT_EQ(clock.take_sleeps(), each.sleeps) << each.interval << " " << each.wait;
    }
}

TEST_F(PluginReport, WhatIsLeftOfAWaitIsTakenBeforeTheNextReport) {
    settings("THR:SAMPLE_INTERVAL=120\nTHR:AVAIL_BANDWIDTH=1000\nTHR:s3=10\n");
    throttling_image_s* const image = begun(reply_text(2, 2, 0, 9));
    service.answer("check_bandwidth", returns(0, reply_text(3, 4, 5, 6)));
    write(image, 62'000);
    clock.advance(120);
    take_log();
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(4U, 4U, 5U));
    EXPECT_THAT(asked(), ElementsAre(report("w:s3", start, start + 133, 62'000)));
    EXPECT_THAT(told_by("check_bandwidth"),
                ElementsAre("enter.", "bandwidth_per_second=500,conne#=2.",
                            "gap_seconds=120,bandwidth->data_length=62000.", "sleep locally=4.",
                            "wait_seconds_=9.", "sleep for last transfer=4.",
                            "sleep for last transfer=5.",
                            "response:0,connection# for r:3,connection# for w:4,free flow:5,wait "
                            "seconds:6",
                            "leaving with return vale 0"));
}

TEST_F(PluginReport, AWaitOfZeroOrLessIsNotTaken) {
    for (const long wait : {0L, -5L}) {
        throttling_image_s* const image =
            begun(reply_text(1, 1, 0, wait), "image" + std::to_string(wait));
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
    EXPECT_THAT(take_errors(),
                ElementsAre("4 [throttling_write_image_v7]fail to check bandwidth from service."));
    clock.advance(30);
    write(image, 1);
    EXPECT_THAT(asked(), ElementsAre(report("w:s3", start + 30, start + 60, 20)));
}

TEST_F(PluginReport, AFailedReportAtTheEndIsToldAndTheImageIsWhole) {
    throttling_server_s* const server = open_server();
    throttling_image_s* const image = create(server);
    write(image, 100);
    take_errors();
    service.answer("check_bandwidth", raises("NO_RESOURCES"));
    close(image);
    EXPECT_THAT(take_errors(),
                ElementsAre("4 Unknown CORBA exception occured while processing check_bandwidth, "
                            "return code =2060017",
                            "4 [throttling_close_image_v7]fail to check write bandwidth from "
                            "service."));
    throttling_image_s* const reader = open(server);
    read(reader, 100);
    take_errors();
    close(reader);
    EXPECT_THAT(take_errors(),
                Contains("4 [throttling_close_image_v7]fail to check read bandwidth from "
                         "service."));
}

TEST_F(PluginReport, AFailedAnswerChangesNoCountAndAsksForNoWait) {
    throttling_image_s* const image = begun(reply_text(1, 5));
    service.answer("check_bandwidth", returns(1, reply_text(1, 1, 0, 100)));
    write(image, 10);
    clock.advance(30);
    write(image, 1000);
    forget();
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(5U));
}

} // namespace
