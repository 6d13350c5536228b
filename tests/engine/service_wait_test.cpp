// How the wait that the service asks for is paid off: in parts by the next transfers, and what is
// left of it before the next report.

#include "tests/engine/engine_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class ServiceWait : public engine_test {
  protected:
    int check(bandwidth_s& moved, int force = 0) {
        return connector.check_bandwidth(&moved, 0, force);
    }

    /// One unforced check of a sample that neither sleeps by itself nor is due; what it sleeps.
    std::vector<unsigned> pay_off(operation_type_t operation = OPERATION_READ) {
        bandwidth_s moved = sample(operation, 1, 1);
        EXPECT_EQ(check(moved), STS_OK);
        return clock.take_sleeps();
    }

    /// Starts with an interval, and a wait that the service asks for.
    void start_with_wait(int interval, long wait_seconds) {
        config.sample_interval = interval;
        start();
        tell(1, 1, wait_seconds);
        service().usual.out = "a reply that names nothing";
    }
};

TEST_F(ServiceWait, IsNotTakenAtOnceButByTheNextCall) {
    start();
    service().replies.push_back({STS_OK, reply_text(1, 1, 0, 9)});
    bandwidth_s moved = sample(OPERATION_READ, 30, 1);
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
    take_log();
    moved.data_length = 1;
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_EQ(take_log(),
              pacing_log(1000, 1, 0, 1,
                         {"wait_seconds_=9.", "sleep for last transfer=9.", "0 sleep(9)"}));
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(9U));
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
}

TEST_F(ServiceWait, IsPaidOffByEitherSample) {
    start_with_wait(30, 9); // asked for by a report of reads
    EXPECT_THAT(pay_off(OPERATION_WRITE), ElementsAre(9U));
    EXPECT_THAT(pay_off(OPERATION_READ), IsEmpty());
}

TEST_F(ServiceWait, ComesBehindTheLocalSleep) {
    start_with_wait(30, 9);
    bandwidth_s moved = sample(OPERATION_READ, 2, 5000);
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_EQ(take_log(), pacing_log(1000, 1, 2, 5000,
                                     {"sleep locally=3.", "0 sleep(3)", "wait_seconds_=9.",
                                      "sleep for last transfer=9.", "0 sleep(9)"}));
}

TEST_F(ServiceWait, AnIntervalOf59SecondsTakesTheWholeWaitInOneStep) {
    start_with_wait(59, 9);
    EXPECT_THAT(pay_off(), ElementsAre(9U));
    EXPECT_THAT(pay_off(), IsEmpty());
}

TEST_F(ServiceWait, AnIntervalOf119SecondsTakesTheWholeWaitInOneStep) {
    start_with_wait(119, 9);
    EXPECT_THAT(pay_off(), ElementsAre(9U));
}

TEST_F(ServiceWait, AnIntervalOf0TakesTheWholeWaitInOneStep) {
    config.sample_interval = 0;
    start();
    tell(1, 1, 9);
    bandwidth_s moved = sample(OPERATION_READ, 0, 1);
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(9U));
}

TEST_F(ServiceWait, AnIntervalOf120SecondsHalvesWhatRemainsAtEachCall) {
    start_with_wait(120, 9);
    EXPECT_THAT(pay_off(), ElementsAre(4U));
    take_log();
    bandwidth_s moved = sample(OPERATION_READ, 1, 1);
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_EQ(take_log().at(5), "3 [check_bandwidth]wait_seconds_=5.");
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(2U));
    EXPECT_THAT(pay_off(), ElementsAre(1U));
}

TEST_F(ServiceWait, AnIntervalOf600SecondsTakesATenthOfWhatRemains) {
    start_with_wait(600, 100);
    EXPECT_THAT(pay_off(), ElementsAre(10U));
    EXPECT_THAT(pay_off(), ElementsAre(9U)); // of 90
    EXPECT_THAT(pay_off(), ElementsAre(8U)); // of 81
    EXPECT_THAT(pay_off(), ElementsAre(7U)); // of 73
}

TEST_F(ServiceWait, APartOf0IsSleptAs0AndLeavesTheWait) {
    start_with_wait(600, 9);
    bandwidth_s moved = sample(OPERATION_READ, 1, 1);
    for (int call = 0; call < 2; ++call) {
        EXPECT_EQ(check(moved), STS_OK);
        EXPECT_EQ(take_log(),
                  pacing_log(1000, 1, 1, 1,
                             {"wait_seconds_=9.", "sleep for last transfer=0.", "0 sleep(0)"}));
    }
}

TEST_F(ServiceWait, IsTakenWholeBeforeTheNextReport) {
    start_with_wait(120, 9);
    bandwidth_s moved = sample(OPERATION_READ, 120, 1);
    const time_t due = clock.now();
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_EQ(take_log(),
              pacing_log(1000, 1, 120, 1,
                         {"wait_seconds_=9.", "sleep for last transfer=4.", "0 sleep(4)",
                          "sleep for last transfer=5.", "0 sleep(5)", "0 check_bandwidth(r:s3)",
                          "response:0,connection# for r:1,connection# for w:1,free "
                          "flow:0,wait seconds:0",
                          "leaving with return vale 0"}));
    EXPECT_EQ(only_exchange().end_time, static_cast<uint32_t>(due + 9)); // after the sleeps
}

TEST_F(ServiceWait, OfTheNextReportTakesThePlaceOfTheLast) {
    start_with_wait(30, 9);
    service().replies.push_back({STS_OK, reply_text(1, 1, 0, 4)});
    bandwidth_s moved = sample(OPERATION_READ, 30, 1);
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(9U));
    EXPECT_THAT(pay_off(), ElementsAre(4U));
}

TEST_F(ServiceWait, Of0OrBelowIsNeverSlept) {
    for (const long wait : {0L, -1L, -4294967295L, INT64_MIN}) {
        start_with_wait(30, wait);
        bandwidth_s moved = sample(OPERATION_READ, 1, 1);
        EXPECT_EQ(check(moved), STS_OK);
        EXPECT_EQ(take_log(),
                  pacing_log(1000, 1, 1, 1, {"wait_seconds_=" + std::to_string(wait) + "."}));
        EXPECT_EQ(check(moved, 1), STS_OK);
        EXPECT_THAT(clock.take_sleeps(), IsEmpty());
    }
}

TEST_F(ServiceWait, WhoseLow32BitsAre0SleepsFor0AndIsOver) {
    start_with_wait(30, 1L << 32U);
    EXPECT_THAT(pay_off(), ElementsAre(0U));
    EXPECT_THAT(pay_off(), IsEmpty());
}

TEST_F(ServiceWait, IsNotResumedWhenItIsInterrupted) {
    start_with_wait(30, 9);
    clock.interrupt_sleep_after = 1;
    EXPECT_THAT(pay_off(), ElementsAre(9U));
    EXPECT_THAT(pay_off(), IsEmpty());
}

TEST_F(ServiceWait, IsPaidOffInPartsAlsoWithoutAServiceAndItsRestIsKept) {
    start_with_wait(120, 9);
    connector.disconnect_service();
    bandwidth_s moved = sample(OPERATION_READ, 120, 1);
    EXPECT_EQ(check(moved), STS_OK); // due, and restarts
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(4U));
    EXPECT_EQ(moved.data_length, 0U);
    EXPECT_THAT(pay_off(), ElementsAre(2U));
}

TEST_F(ServiceWait, APartIsTakenOffTheWaitWhenItsSleepIsOver) {
    start_with_wait(120, 9);
    std::vector<std::string> meanwhile;
    clock.on_sleep = [&](unsigned) { // another image of the server
        clock.on_sleep = nullptr;
        take_log();
        bandwidth_s other = sample(OPERATION_WRITE, 1, 1);
        connector.check_bandwidth(&other, 0, 0);
        meanwhile = take_log();
    };
    EXPECT_THAT(pay_off(), ElementsAre(4U, 4U)); // both saw 9
    EXPECT_EQ(meanwhile.at(5), "3 [check_bandwidth]wait_seconds_=9.");
    EXPECT_EQ(pay_off(), std::vector<unsigned>(1, 0)); // half of 1
}

TEST_F(ServiceWait, Is0AfterTheLastSleepBeforeAReportWhateverAnotherImagePaidMeanwhile) {
    start_with_wait(120, 9);
    int sleeps = 0;
    clock.on_sleep = [&](unsigned) {
        if (++sleeps != 2) { // 4, and then the 5 that are left
            return;
        }
        bandwidth_s other = sample(OPERATION_WRITE, 1, 1);
        connector.check_bandwidth(&other, 0, 0);
    };
    bandwidth_s moved = sample(OPERATION_READ, 120, 1);
    EXPECT_EQ(check(moved), STS_OK);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(4U, 5U, 2U));
    EXPECT_EQ(take_log().end()[-2], "3 [check_bandwidth]response:0,connection# for r:1,connection# "
                                    "for w:1,free flow:0,wait seconds:0");
}

} // namespace
