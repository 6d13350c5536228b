// Who asks the service before it uses a storage, what it hears, and what its answer changes.

#include "tests/engine/engine_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* who = "check_connections";

class Admission : public engine_test {
  protected:
    void SetUp() override { start(); }

    int check(operation_type_t operation, int delta) {
        return connector.check_connections(operation, delta, 0);
    }

    /// Whether the call reached the service, with the status 0.
    bool reaches_service(operation_type_t operation, int delta) {
        service().take();
        EXPECT_EQ(check(operation, delta), STS_OK);
        return !service().take().empty();
    }

    /// How many connections share a direction, as pacing has it; `who` is told of no transfer.
    std::string sharing(operation_type_t operation) {
        take_log();
        bandwidth_s moved = sample(operation, 1, 1);
        EXPECT_EQ(connector.check_bandwidth(&moved, 0, 0), STS_OK);
        const std::string line = take_log().at(3);
        return line.substr(line.find("conne#="));
    }
};

// --- which calls reach the service

TEST_F(Admission, TheFirstImageOfAServerAsksWithTheWholeStoragesKey) {
    EXPECT_EQ(check(OPERATION_READ_WRITE, 1), STS_OK);
    const exchange sent = only_exchange();
    EXPECT_EQ(sent.call, "check_connections");
    EXPECT_EQ(sent.key, "a:s3");
    EXPECT_EQ(sent.session_text, "a_b");
    EXPECT_EQ(sent.delta, 1);
    EXPECT_EQ(take_log(),
              log_of(who, {"enter.", "0 check_connections(a:s3)",
                           "response:0,connection# for r:1,connection# for w:1,free flow:0,wait "
                           "seconds:0",
                           "leaving with return value =0"}));
}

TEST_F(Admission, ASecondImageAsksNobody) {
    check(OPERATION_READ_WRITE, 1);
    take_log();
    service().take();
    EXPECT_EQ(check(OPERATION_READ_WRITE, 1), STS_OK);
    EXPECT_THAT(service().take(), IsEmpty());
    EXPECT_EQ(take_log(),
              log_of(who, {"enter.", "Has check reference count for r+w == 2, so leave."}));
    check(OPERATION_READ_WRITE, 1);
    EXPECT_EQ(take_log(),
              log_of(who, {"enter.", "Has check reference count for r+w == 3, so leave."}));
}

TEST_F(Admission, TheFirstReadOrWriteOfAnImageIsCountedAndAsksNobody) {
    for (const operation_type_t operation : {OPERATION_READ, OPERATION_WRITE}) {
        EXPECT_EQ(check(operation, 1), STS_OK);
        EXPECT_EQ(check(operation, 1), STS_OK);
        EXPECT_EQ(take_log(), log_of(who, {"enter.", "Add reference count for r/w == 1, leave.",
                                           "enter.", "Add reference count for r/w == 2, leave."}));
    }
    EXPECT_THAT(service().take(), IsEmpty());
}

TEST_F(Admission, OnlyTheLastReadingImageThatClosesTellsTheService) {
    check(OPERATION_READ, 1);
    check(OPERATION_READ, 1);
    take_log();
    EXPECT_EQ(check(OPERATION_READ, -1), STS_OK);
    EXPECT_THAT(service().take(), IsEmpty());
    EXPECT_EQ(take_log(), log_of(who, {"enter.", "Dec reference count for r/w == 1, so leave."}));
    EXPECT_EQ(check(OPERATION_READ, -1), STS_OK);
    const exchange sent = only_exchange();
    EXPECT_EQ(sent.key, "r:s3");
    EXPECT_EQ(sent.delta, -1);
}

TEST_F(Admission, TheLastWritingImageTellsWithTheWritersKey) {
    check(OPERATION_WRITE, 1);
    EXPECT_EQ(check(OPERATION_WRITE, -1), STS_OK);
    const exchange sent = only_exchange();
    EXPECT_EQ(sent.key, "w:s3");
    EXPECT_EQ(sent.delta, -1);
}

TEST_F(Admission, ReadersAndWritersAreCountedApart) {
    check(OPERATION_READ, 1);
    EXPECT_TRUE(reaches_service(OPERATION_WRITE, -1));
    EXPECT_TRUE(reaches_service(OPERATION_READ, -1));
}

TEST_F(Admission, ASurplusCloseGoesToTheServiceToo) {
    check(OPERATION_READ, 1);
    EXPECT_TRUE(reaches_service(OPERATION_READ, -1));
    EXPECT_TRUE(reaches_service(OPERATION_READ, -1)); // its count is -1
    take_log();
    EXPECT_FALSE(reaches_service(OPERATION_READ, 1));
    EXPECT_EQ(take_log(), log_of(who, {"enter.", "Add reference count for r/w == 0, leave."}));
}

TEST_F(Admission, TheServersCloseAlwaysTellsTheServiceAlsoAboveACountOf0) {
    for (int image = 0; image < 3; ++image) {
        check(OPERATION_READ_WRITE, 1);
    }
    service().take();
    EXPECT_EQ(check(OPERATION_READ_WRITE, -1), STS_OK);
    const exchange sent = only_exchange();
    EXPECT_EQ(sent.key, "a:s3");
    EXPECT_EQ(sent.delta, -1);
    EXPECT_TRUE(reaches_service(OPERATION_READ_WRITE, -1)); // 1
    EXPECT_TRUE(reaches_service(OPERATION_READ_WRITE, -1)); // 0
    EXPECT_TRUE(reaches_service(OPERATION_READ_WRITE, -1)); // -1
    EXPECT_TRUE(reaches_service(OPERATION_READ_WRITE, 1));  // 0 again
    EXPECT_TRUE(reaches_service(OPERATION_READ_WRITE, 1));  // 1
    EXPECT_FALSE(reaches_service(OPERATION_READ_WRITE, 1));
}

TEST_F(Admission, AnyOtherDeltaGoesStraightToTheServiceForAnyOperation) {
    for (const operation_type_t operation :
         {OPERATION_READ, OPERATION_WRITE, OPERATION_READ_WRITE}) {
        for (const int delta : {2, 5, 0, -2}) { // the count stays above 0
            EXPECT_EQ(check(operation, delta), STS_OK);
            EXPECT_EQ(only_exchange().delta, delta) << operation;
        }
    }
}

TEST_F(Admission, WhetherTheServiceIsSecureChangesNothing) {
    for (const int is_secure : {-1, 0, 1}) {
        EXPECT_EQ(connector.check_connections(OPERATION_READ, -1, is_secure), STS_OK);
        EXPECT_EQ(only_exchange().key, "r:s3");
    }
}

// --- not connected

TEST_F(Admission, AGlobalServersCallsLeaveAtOnceAndCountNothing) {
    char type[] = "global";
    char name[] = "s3";
    ASSERT_EQ(connector.connect_service(&session, type, name), STS_ERR_NO_SERVICE);
    for (int call = 0; call < 3; ++call) {
        EXPECT_EQ(check(OPERATION_READ_WRITE, 1), STS_OK);
        EXPECT_EQ(check(OPERATION_READ, 1), STS_OK);
        EXPECT_EQ(check(OPERATION_WRITE, -1), STS_OK);
    }
    EXPECT_THAT(service().take(), IsEmpty());
    EXPECT_EQ(take_log(), std::vector<std::string>(9, "3 [check_connections]enter."));

    connector.disconnect_service();
    start();
    EXPECT_TRUE(reaches_service(OPERATION_READ_WRITE, 1)); // the first still
    EXPECT_FALSE(reaches_service(OPERATION_READ, 1));
    EXPECT_TRUE(reaches_service(OPERATION_READ, -1));
}

// --- the answer

TEST_F(Admission, AGoodReplyGivesTheCountsAndIsLogged) {
    service().replies.push_back({STS_OK, reply_text(2, 4, 77, -3)});
    EXPECT_EQ(check(OPERATION_READ_WRITE, 1), STS_OK);
    EXPECT_EQ(take_log(),
              log_of(who, {"enter.", "0 check_connections(a:s3)",
                           "response:0,connection# for r:2,connection# for w:4,free flow:77,wait "
                           "seconds:-3",
                           "leaving with return value =0"}));
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
    EXPECT_EQ(sharing(OPERATION_READ), "conne#=2.");
    EXPECT_EQ(sharing(OPERATION_WRITE), "conne#=4.");
}

TEST_F(Admission, AConnectionCountOf0IsLoggedAsItCameAndTakenAs1) {
    service().replies.push_back({STS_OK, reply_text(3, 3, 0, 0)});
    service().replies.push_back({STS_OK, reply_text(0, 0, 0, 0)});
    check(OPERATION_READ, -1);
    take_log();
    check(OPERATION_READ, -1);
    EXPECT_EQ(take_log().at(2), "3 [check_connections]response:0,connection# for r:0,connection# "
                                "for w:0,free flow:0,wait seconds:0");
    EXPECT_EQ(sharing(OPERATION_READ), "conne#=1.");
    EXPECT_EQ(sharing(OPERATION_WRITE), "conne#=1.");
}

TEST_F(Admission, AWaitIsSleptAtOnceAndWholeAndIsThenOver) {
    service().replies.push_back({STS_OK, reply_text(1, 1, 0, 7)});
    EXPECT_EQ(check(OPERATION_READ_WRITE, 1), STS_OK);
    EXPECT_EQ(
        take_log(),
        log_of(who, {"enter.", "0 check_connections(a:s3)",
                     "response:0,connection# for r:1,connection# for w:1,free flow:0,wait "
                     "seconds:7",
                     "sleep for last transfer=7.", "0 sleep(7)", "leaving with return value =0"}));
    service().replies.push_back({STS_OK, "no value"});
    check(OPERATION_READ, -1);
    EXPECT_EQ(clock.take_sleeps(), std::vector<unsigned>{7});
}

TEST_F(Admission, AnIntervalOfTenMinutesDoesNotSpreadThatWait) {
    config.sample_interval = 600;
    start();
    service().replies.push_back({STS_OK, reply_text(1, 1, 0, 100)});
    check(OPERATION_READ_WRITE, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(100U));
}

TEST_F(Admission, AReplyWithoutAWaitKeepsTheEarlierOneAndSleepsIt) {
    tell(1, 1, 9);
    service().replies.push_back({STS_OK, "THR_R_CONNECTION_COUNTS,value=2,fixed=y"});
    EXPECT_EQ(check(OPERATION_READ, -1), STS_OK);
    EXPECT_EQ(
        take_log(),
        log_of(who, {"enter.", "0 check_connections(r:s3)",
                     "response:0,connection# for r:2,connection# for w:1,free flow:0,wait "
                     "seconds:9",
                     "sleep for last transfer=9.", "0 sleep(9)", "leaving with return value =0"}));
}

TEST_F(Admission, AnEmptyReplyChangesNothing) {
    service().replies.push_back({STS_OK, reply_text(2, 3, 4, -5)});
    check(OPERATION_READ, -1);
    take_log();
    service().replies.push_back({STS_OK, ""});
    check(OPERATION_READ, -1);
    EXPECT_EQ(take_log().at(2), "3 [check_connections]response:0,connection# for r:2,connection# "
                                "for w:3,free flow:4,wait seconds:-5");
}

TEST_F(Admission, TheCountsStandBeforeTheSleepAndTheWaitUntilItsEnd) {
    service().replies.push_back({STS_OK, reply_text(2, 1, 0, 5)});
    std::string seen;
    clock.on_sleep = [&](unsigned) { // another image of the server meanwhile
        clock.on_sleep = nullptr;
        take_log();
        bandwidth_s moved = sample(OPERATION_READ, 1, 1);
        connector.check_bandwidth(&moved, 0, 0);
        const std::vector<std::string> lines = take_log();
        seen = lines.at(3) + " " + lines.at(5);
    };
    check(OPERATION_READ_WRITE, 1);
    EXPECT_EQ(seen, "3 [check_bandwidth]bandwidth_per_second=500,conne#=2. "
                    "3 [check_bandwidth]wait_seconds_=5.");
}

TEST_F(Admission, TheWaitIs0AfterItsSleepWhateverAnotherImagePaidMeanwhile) {
    service().replies.push_back({STS_OK, reply_text(1, 1, 0, 5)});
    clock.on_sleep = [&](unsigned) {
        clock.on_sleep = nullptr;
        bandwidth_s moved = sample(OPERATION_READ, 1, 1);
        connector.check_bandwidth(&moved, 0, 0);
    };
    check(OPERATION_READ_WRITE, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(5U, 5U));
    take_log();
    bandwidth_s moved = sample(OPERATION_READ, 1, 1);
    connector.check_bandwidth(&moved, 0, 0);
    EXPECT_EQ(take_log().at(5), "3 [check_bandwidth]wait_seconds_=0.");
}

TEST_F(Admission, AnInterruptedSleepIsNotResumed) {
    clock.interrupt_sleep_after = 2;
    service().replies.push_back({STS_OK, reply_text(1, 1, 0, 7)});
    check(OPERATION_READ_WRITE, 1);
    service().replies.push_back({STS_OK, ""});
    check(OPERATION_READ, -1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(7U));
}

TEST_F(Admission, AWaitWhoseLow32BitsAre0SleepsFor0) {
    service().replies.push_back({STS_OK, reply_text(1, 1, 0, 1L << 32U)});
    check(OPERATION_READ_WRITE, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(0U));
    EXPECT_EQ(take_log().at(3), "3 [check_connections]sleep for last transfer=4294967296.");
}

// --- refusals and failures

TEST_F(Admission, ARefusalReachesTheCallerUnchanged) {
    service().replies.push_back({STS_ERR_MAX_CONNECTIONS, "full"});
    EXPECT_EQ(check(OPERATION_READ_WRITE, 1), STS_ERR_MAX_CONNECTIONS);
    EXPECT_EQ(take_log(),
              log_of(who, {"enter.", "0 check_connections(a:s3)",
                           "leaving with return value =2060020, response recived =full"}));
}

TEST_F(Admission, AnyOtherStatusReachesTheCallerUnchangedToo) {
    for (const int status : {STS_ERR_FILE + 0, 1, -1, INT32_MAX}) {
        service().replies.push_back({status, "", false});
        EXPECT_EQ(check(OPERATION_READ, -1), status);
        EXPECT_EQ(take_log().back(), "3 [check_connections]leaving with return value =" +
                                         std::to_string(status) + ", response recived =");
    }
}

TEST_F(Admission, AFailedExchangeLeavesCountsAndWaitAndSleepsNothing) {
    tell(2, 3, 9);
    service().replies.push_back({STS_ERR_FILE, reply_text(8, 8, 8, 8)});
    EXPECT_EQ(check(OPERATION_READ_WRITE, 1), STS_ERR_FILE);
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
    service().replies.push_back({STS_OK, ""});
    take_log();
    check(OPERATION_READ, -1);
    EXPECT_EQ(take_log().at(2), "3 [check_connections]response:0,connection# for r:2,connection# "
                                "for w:3,free flow:0,wait seconds:9");
}

TEST_F(Admission, ARefusedCreateThatIsTriedAgainIsAdmittedWithoutAQuestion) {
    service().replies.push_back({STS_ERR_MAX_CONNECTIONS, ""});
    EXPECT_EQ(check(OPERATION_READ_WRITE, 1), STS_ERR_MAX_CONNECTIONS);
    EXPECT_FALSE(reaches_service(OPERATION_READ_WRITE, 1)); // its count is 2
}

TEST_F(Admission, TheReferenceIsCountedBeforeTheExchange) {
    int nested = 0;
    service().on_exchange = [&](const exchange&) { // another image of the server meanwhile
        nested += 1;
        take_log();
        check(OPERATION_READ_WRITE, 1);
    };
    check(OPERATION_READ_WRITE, 1);
    EXPECT_EQ(nested, 1);
    EXPECT_EQ(take_log().at(1),
              "3 [check_connections]Has check reference count for r+w == 2, so leave.");
}

} // namespace
