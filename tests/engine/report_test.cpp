// How check_bandwidth reports a sample: when, what the service hears, and what its answer changes.

#include "tests/engine/engine_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class Report : public engine_test {
  protected:
    int check(bandwidth_s& moved, int force = 0) {
        return connector.check_bandwidth(&moved, 0, force);
    }
};

// --- what is reported

TEST_F(Report, TellsTheServiceOfTheSampleAndRestartsIt) {
    start();
    service().usual.out = reply_text(2, 3, 77, 9);
    bandwidth_s moved = sample(OPERATION_WRITE, 40, 33'000);
    const time_t began = moved.start_time;
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_EQ(take_log(), pacing_log(1000, 1, 40, 33'000,
                                     {"wait_seconds_=0.", "0 check_bandwidth(w:s3)",
                                      "response:0,connection# for r:2,connection# for w:3,free "
                                      "flow:77,wait seconds:9",
                                      "leaving with return vale 0"}));
    const exchange sent = only_exchange();
    EXPECT_EQ(sent.call, "check_bandwidth");
    EXPECT_EQ(sent.key, "w:s3");
    EXPECT_EQ(sent.session_text, "a_b");
    EXPECT_EQ(sent.operation_type, 1U);
    EXPECT_EQ(sent.start_time, static_cast<uint32_t>(began));
    EXPECT_EQ(sent.end_time, static_cast<uint32_t>(clock.now()));
    EXPECT_EQ(sent.data_length, 33'000U);
    EXPECT_EQ(moved.operation_type, OPERATION_WRITE);
    EXPECT_EQ(moved.start_time, clock.now());
    EXPECT_EQ(moved.end_time, clock.now());
    EXPECT_EQ(moved.data_length, 0U);
    EXPECT_EQ(clock.reads, 4);
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
}

TEST_F(Report, OfReadsCarriesTheReadersKeyAndType) {
    start();
    bandwidth_s moved = sample(OPERATION_READ, 30, 1);
    EXPECT_EQ(check(moved), STS_OK);
    const exchange sent = only_exchange();
    EXPECT_EQ(sent.key, "r:s3");
    EXPECT_EQ(sent.operation_type, 0U);
}

TEST_F(Report, IsForcedWhateverTheInterval) {
    start();
    for (const int force : {1, 2, -1}) {
        bandwidth_s moved = sample(OPERATION_READ, 3, 2000);
        EXPECT_EQ(check(moved, force), STS_OK);
        EXPECT_EQ(only_exchange().data_length, 2000U);
        EXPECT_EQ(moved.data_length, 0U);
    }
}

TEST_F(Report, AForcedOneOfNoBytesSleepsNothingAndRuns) {
    start();
    bandwidth_s empty = sample(OPERATION_READ, 0, 0);
    EXPECT_EQ(check(empty, 1), STS_OK);
    EXPECT_EQ(take_log(), pacing_log(1000, 1, 0, 0,
                                     {"wait_seconds_=0.", "0 check_bandwidth(r:s3)",
                                      "response:0,connection# for r:1,connection# for w:1,free "
                                      "flow:0,wait seconds:0",
                                      "leaving with return vale 0"}));
    EXPECT_EQ(only_exchange().data_length, 0U);
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
}

TEST_F(Report, TimesFrom2To32OnKeepTheirLow32Bits) {
    start();
    clock.set((time_t{1} << 32U) + 5);
    bandwidth_s moved = sample(OPERATION_READ, 3, 1);
    EXPECT_EQ(check(moved, 1), STS_OK);
    const exchange sent = only_exchange();
    EXPECT_EQ(sent.start_time, 2U);
    EXPECT_EQ(sent.end_time, 5U);
    EXPECT_EQ(moved.start_time, clock.now());
}

TEST_F(Report, CarriesLengthsOf64Bits) {
    config.avail_bandwidth = UINT64_MAX / 100;
    start();
    bandwidth_s moved = sample(OPERATION_READ, 200, 0xfedcba9876543210UL);
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_EQ(only_exchange().data_length, 0xfedcba9876543210UL);
}

TEST_F(Report, EndsTheSampleBeforeTheExchangeAndRestartsItAfterwards) {
    start();
    bandwidth_s moved = sample(OPERATION_READ, 30, 1);
    const time_t began = moved.start_time;
    bandwidth_s seen = {};
    std::string operation;
    service().on_exchange = [&](const exchange&) {
        seen = moved;
        operation = connector.getCurrentOperation();
        clock.advance(5); // the service takes its time
    };
    connector.check_connections(OPERATION_WRITE, -1, 0);
    clock.advance(-5);
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_EQ(seen.start_time, began);
    EXPECT_EQ(seen.end_time, began + 30);
    EXPECT_EQ(seen.data_length, 1U);
    EXPECT_EQ(operation, "r:");
    EXPECT_EQ(moved.start_time, began + 35);
    EXPECT_EQ(moved.end_time, began + 35);
}

TEST_F(Report, HappensOnceAnInterval) {
    start();
    bandwidth_s moved = sample(OPERATION_READ, 0, 0);
    for (int second = 0; second < 90; ++second) {
        clock.advance(1);
        moved.data_length += 1;
        EXPECT_EQ(check(moved), STS_OK);
    }
    EXPECT_THAT(service().take(), SizeIs(3));
}

// --- the answer

TEST_F(Report, ConnectionCountsOf0AreTakenAs1) {
    start();
    tell(3, 3, 0);
    service().usual.out = reply_text(0, 0, 0, 0);
    bandwidth_s moved = sample(OPERATION_READ, 30, 1);
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_EQ(take_log().at(7), "3 [check_bandwidth]response:0,connection# for r:0,connection# for "
                                "w:0,free flow:0,wait seconds:0");
    moved.data_length = 5000;
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(5U));
}

TEST_F(Report, AValueThatTheReplyDoesNotNameStaysAsItWas) {
    start();
    tell(2, 3, 0);
    service().usual.out = "THR_W_CONNECTION_COUNTS,value=4,fixed=y;THR_FREE_FLOW,value=6,fixed=y;";
    bandwidth_s moved = sample(OPERATION_READ, 30, 1);
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_EQ(take_log().at(7), "3 [check_bandwidth]response:0,connection# for r:2,connection# for "
                                "w:4,free flow:6,wait seconds:0");
}

TEST_F(Report, AFailedOneReturnsItsStatusKeepsTheCountsAndRestartsTheSample) {
    start();
    tell(2, 3, 0);
    service().replies.push_back({STS_ERR_FILE, reply_text(8, 8, 8, 8)});
    bandwidth_s moved = sample(OPERATION_READ, 30, 12'000);
    EXPECT_EQ(check(moved), STS_ERR_FILE);
    EXPECT_EQ(take_log(), pacing_log(500, 2, 30, 12'000,
                                     {"wait_seconds_=0.", "0 check_bandwidth(r:s3)",
                                      "response recived =" + reply_text(8, 8, 8, 8),
                                      "leaving with return vale 2060017"}));
    EXPECT_EQ(moved.start_time, clock.now());
    EXPECT_EQ(moved.end_time, clock.now());
    EXPECT_EQ(moved.data_length, 0U);
    moved.data_length = 5000;
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_EQ(take_log(), pacing_log(500, 2, 0, 5000,
                                     {"sleep locally=10.", "0 sleep(10)", "wait_seconds_=0."}));
}

TEST_F(Report, OfAServiceThatCanNotBeReachedLogsAnEmptyResponse) {
    start();
    service().replies.push_back({STS_ERR_FILE, "never seen", false});
    bandwidth_s moved = sample(OPERATION_READ, 30, 1);
    EXPECT_EQ(check(moved), STS_ERR_FILE);
    EXPECT_EQ(take_log().at(7), "3 [check_bandwidth]response recived =");
}

TEST_F(Report, AFailedOneIsNotSentAgain) {
    start();
    service().replies.push_back({STS_ERR_FILE, "", false});
    bandwidth_s moved = sample(OPERATION_READ, 30, 12'000);
    EXPECT_EQ(check(moved), STS_ERR_FILE);
    service().take();
    clock.advance(30);
    moved.data_length += 7;
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_EQ(only_exchange().data_length, 7U);
}

} // namespace
