// How check_bandwidth paces a sample by itself: when it sleeps and how long, and when a sample is
// due.

#include "tests/engine/engine_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class Pacing : public engine_test {
  protected:
    int check(bandwidth_s& moved, int force = 0) {
        return connector.check_bandwidth(&moved, 0, force);
    }

    /// What one unforced check of a sample sleeps.
    std::vector<unsigned> sleeps_of(time_t age, unsigned long bytes,
                                    operation_type_t operation = OPERATION_READ) {
        bandwidth_s moved = sample(operation, age, bytes);
        EXPECT_EQ(check(moved), STS_OK);
        return clock.take_sleeps();
    }
};

// --- the idle path and the common path

TEST_F(Pacing, AnIdleSampleLeavesAtOnceWithoutALookAtTheClock) {
    start();
    bandwidth_s idle = sample(OPERATION_READ, 3600, 0);
    EXPECT_EQ(check(idle), STS_OK);
    EXPECT_EQ(clock.reads, 0);
    EXPECT_EQ(take_log(), log_of("check_bandwidth", {"enter."}));
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
    EXPECT_THAT(service().take(), IsEmpty());
    EXPECT_EQ(idle.start_time, clock.now() - 3600);
}

TEST_F(Pacing, AnIdleSampleDoesNotPayOffAWaitOfTheService) {
    start();
    tell(1, 1, 9);
    bandwidth_s idle = sample(OPERATION_READ, 3600, 0);
    EXPECT_EQ(check(idle), STS_OK);
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
}

TEST_F(Pacing, TheCommonPathLooksAtTheClockTwice) {
    start();
    bandwidth_s moved = sample(OPERATION_READ, 10, 5000);
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_EQ(clock.reads, 2);
    EXPECT_EQ(take_log(), pacing_log(1000, 1, 10, 5000, {"wait_seconds_=0."}));
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
    EXPECT_THAT(service().take(), IsEmpty());
}

// --- the local sleep

TEST_F(Pacing, SleepsWhatTheSampleIsAheadOfItsRate) {
    start();
    bandwidth_s moved = sample(OPERATION_READ, 2, 5000);
    const time_t began = moved.start_time;
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_EQ(take_log(),
              pacing_log(1000, 1, 2, 5000, {"sleep locally=3.", "0 sleep(3)", "wait_seconds_=0."}));
    EXPECT_EQ(clock.reads, 2);
    EXPECT_EQ(moved.start_time, began);
    EXPECT_EQ(moved.end_time, began);
    EXPECT_EQ(moved.data_length, 5000U);
}

TEST_F(Pacing, AFractionOfASecondIsNotSlept) {
    start();
    EXPECT_THAT(sleeps_of(0, 999), IsEmpty());
    EXPECT_THAT(sleeps_of(0, 1000), ElementsAre(1U));
    EXPECT_THAT(sleeps_of(0, 1999), ElementsAre(1U));
    EXPECT_THAT(sleeps_of(5, 5999), IsEmpty());
    EXPECT_THAT(sleeps_of(5, 6000), ElementsAre(1U));
}

TEST_F(Pacing, ASampleBehindItsRateIsNotDelayed) {
    start();
    EXPECT_THAT(sleeps_of(29, 1), IsEmpty());
    EXPECT_THAT(sleeps_of(10, 10000), IsEmpty());
}

TEST_F(Pacing, ATransferThatIdledMayRunAboveTheRateForAWhile) {
    start();
    EXPECT_THAT(sleeps_of(20, 20999), IsEmpty());
    EXPECT_THAT(sleeps_of(20, 21000), ElementsAre(1U));
}

TEST_F(Pacing, ReadsAndWritesHaveRatesOfTheirOwn) {
    config.read_bandwidth_percent = 100;
    config.write_bandwidth_percent = 50;
    start();
    EXPECT_THAT(sleeps_of(0, 4000, OPERATION_READ), ElementsAre(4U));
    EXPECT_THAT(sleeps_of(0, 4000, OPERATION_WRITE), ElementsAre(8U));
}

TEST_F(Pacing, TheRateIsThatOfTheHourInWhichItIsChecked) {
    config.work_time_bandwidth_percent = 20;
    start();
    EXPECT_THAT(sleeps_of(0, 4000), ElementsAre(20U));
    clock.set(local_time(2024, 3, 4, 18)); // off time, at 100 percent
    EXPECT_THAT(sleeps_of(0, 4000), ElementsAre(4U));
}

TEST_F(Pacing, TheBandwidthIsSharedEvenlyAmongTheConnectionsOfADirection) {
    start();
    tell(2, 3, 0);
    bandwidth_s readers = sample(OPERATION_READ, 0, 5000);
    EXPECT_EQ(check(readers), STS_OK);
    EXPECT_EQ(take_log(), pacing_log(500, 2, 0, 5000,
                                     {"sleep locally=10.", "0 sleep(10)", "wait_seconds_=0."}));
    bandwidth_s writers = sample(OPERATION_WRITE, 0, 5000);
    EXPECT_EQ(check(writers), STS_OK); // 1000 / 3 truncates to 333
    EXPECT_EQ(take_log(), pacing_log(333, 3, 0, 5000,
                                     {"sleep locally=15.", "0 sleep(15)", "wait_seconds_=0."}));
}

TEST_F(Pacing, WhetherTheServiceIsSecureChangesNothing) {
    start();
    for (const int is_secure : {-1, 0, 1}) {
        bandwidth_s moved = sample(OPERATION_READ, 2, 5000);
        EXPECT_EQ(connector.check_bandwidth(&moved, is_secure, 0), STS_OK);
        EXPECT_THAT(clock.take_sleeps(), ElementsAre(3U));
    }
}

TEST_F(Pacing, AnInterruptedSleepIsNotResumed) {
    start();
    clock.interrupt_sleep_after = 1;
    EXPECT_THAT(sleeps_of(0, 9000), ElementsAre(9U));
}

TEST_F(Pacing, AWaitWhoseLow32BitsAre0SleepsFor0) {
    config.avail_bandwidth = 1;
    start();
    bandwidth_s moved = sample(OPERATION_READ, 0, 1UL << 32U);
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_EQ(take_log(),
              pacing_log(1, 1, 0, 1L << 32U,
                         {"sleep locally=4294967296.", "0 sleep(0)", "wait_seconds_=0."}));
}

TEST_F(Pacing, OfALongWaitTheLow32BitsAreSlept) {
    config.avail_bandwidth = 1;
    start();
    EXPECT_THAT(sleeps_of(0, (1UL << 32U) + 7), ElementsAre(7U));
}

TEST_F(Pacing, AWaitBeyondTheSignedRangeIsNotSlept) {
    config.avail_bandwidth = 1;
    start();
    bandwidth_s moved = sample(OPERATION_READ, 0, 1UL << 63U);
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_EQ(take_log(), pacing_log(1, 1, 0, INT64_MIN, {"wait_seconds_=0."}));
}

TEST_F(Pacing, TwoImagesThatShareASampleEachSleepItsExcess) {
    start();
    bandwidth_s moved = sample(OPERATION_READ, 2, 5000);
    clock.on_sleep = [&](unsigned) { // the other image, meanwhile
        clock.on_sleep = nullptr;
        EXPECT_EQ(check(moved), STS_OK);
    };
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(3U, 3U));
}

// --- a clock that steps

TEST_F(Pacing, AClockThatStepsBackMakesTheWaitGrowAndTheReportWait) {
    start();
    bandwidth_s moved = sample(OPERATION_READ, -100, 5000);
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_EQ(take_log(), pacing_log(1000, 1, -100, 5000,
                                     {"sleep locally=105.", "0 sleep(105)", "wait_seconds_=0."}));
    EXPECT_THAT(service().take(), IsEmpty());
}

TEST_F(Pacing, AForcedReportWithAClockThatWentBackSleepsAndReports) {
    start();
    bandwidth_s moved = sample(OPERATION_READ, -10, 0);
    EXPECT_EQ(check(moved, 1), STS_OK);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(10U));
    EXPECT_THAT(service().take(), SizeIs(1));
}

TEST_F(Pacing, AClockThatJumpsAheadMakesTheSampleDueAndDelaysNothing) {
    start();
    EXPECT_THAT(sleeps_of(1'000'000'000, 5000), IsEmpty());
    EXPECT_THAT(service().take(), SizeIs(1));
}

// --- when a sample is due

TEST_F(Pacing, ASampleOfExactlyTheIntervalIsDue) {
    start();
    EXPECT_THAT(sleeps_of(29, 1), IsEmpty());
    EXPECT_THAT(service().take(), IsEmpty());
    EXPECT_THAT(sleeps_of(30, 1), IsEmpty());
    EXPECT_THAT(service().take(), SizeIs(1));
    EXPECT_THAT(sleeps_of(31, 1), IsEmpty());
    EXPECT_THAT(service().take(), SizeIs(1));
}

TEST_F(Pacing, ASampleThatBecomesDueInItsSleepIsReportedByALaterCall) {
    start();
    bandwidth_s moved = sample(OPERATION_READ, 29, 40'000);
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(11U));
    EXPECT_THAT(service().take(), IsEmpty());
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
    EXPECT_THAT(service().take(), SizeIs(1));
}

TEST_F(Pacing, ADueSampleThatIsAheadSleepsFirst) {
    start();
    bandwidth_s moved = sample(OPERATION_READ, 30, 33'000);
    EXPECT_EQ(check(moved), STS_OK);
    const std::vector<std::string> lines = take_log();
    EXPECT_EQ(lines.at(6), "0 sleep(3)");
    EXPECT_EQ(lines.at(8), "0 check_bandwidth(r:s3)");
}

TEST_F(Pacing, AnIntervalOf0CountsAs1) {
    config.sample_interval = 0;
    start();
    EXPECT_THAT(sleeps_of(0, 1), IsEmpty());
    EXPECT_THAT(service().take(), IsEmpty());
    EXPECT_THAT(sleeps_of(1, 1), IsEmpty());
    EXPECT_THAT(service().take(), SizeIs(1));
}

TEST_F(Pacing, IntervalsOf59And120SecondsAreKept) {
    for (const int interval : {59, 120}) {
        config.sample_interval = interval;
        start();
        sleeps_of(interval - 1, 1);
        EXPECT_THAT(service().take(), IsEmpty()) << interval;
        sleeps_of(interval, 1);
        EXPECT_THAT(service().take(), SizeIs(1)) << interval;
    }
}

// --- without a service

TEST_F(Pacing, WithoutAServiceADueSampleRestartsSilently) {
    start();
    connector.disconnect_service();
    bandwidth_s moved = sample(OPERATION_READ, 30, 33'000);
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_EQ(take_log(), pacing_log(1000, 1, 30, 33'000,
                                     {"sleep locally=3.", "0 sleep(3)", "wait_seconds_=0."}));
    EXPECT_EQ(moved.start_time, clock.now()); // after the sleep
    EXPECT_EQ(moved.end_time, clock.now());
    EXPECT_EQ(moved.data_length, 0U);
    EXPECT_THAT(service().take(), IsEmpty());
}

TEST_F(Pacing, WithoutAServiceASampleThatIsNotDueGrowsOn) {
    start();
    connector.disconnect_service();
    bandwidth_s moved = sample(OPERATION_READ, 29, 5000);
    const time_t began = moved.start_time;
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_EQ(moved.start_time, began);
    EXPECT_EQ(moved.data_length, 5000U);
}

TEST_F(Pacing, WithoutAServiceAForcedCheckRestartsTheSample) {
    start();
    connector.disconnect_service();
    bandwidth_s moved = sample(OPERATION_WRITE, 3, 0);
    EXPECT_EQ(check(moved, 1), STS_OK);
    EXPECT_EQ(moved.start_time, clock.now());
    EXPECT_THAT(service().take(), IsEmpty());
}

TEST_F(Pacing, AGlobalServersConnectorPacesByTheDefaultsAndRestartsOnceASecond) {
    ASSERT_EQ(connect(connector, &session, "global", "s3"), STS_ERR_NO_SERVICE);
    ASSERT_EQ(connector.set_config_params(&config, 0), STS_OK); // copies nothing
    bandwidth_s moved = sample(OPERATION_READ, 0, 3 * 104857600UL);
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(3U));
    EXPECT_EQ(moved.data_length, 3 * 104857600UL);
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_EQ(moved.data_length, 0U);
    EXPECT_EQ(moved.start_time, clock.now());
    EXPECT_THAT(service().take(), IsEmpty());
}

} // namespace
