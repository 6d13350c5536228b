// A copy of a connector, as a second server handle gets it: settings and counts are the source's,
// the client and the session's text are nobody's but the source's.

#include "tests/engine/engine_fixture.h"

using testing::Contains;
using testing::IsEmpty;

namespace {

class ConnectorCopy : public engine_test {
  protected:
    void SetUp() override { start(); }
};

TEST_F(ConnectorCopy, HasNoClientAndConnectsAtItsOwnFirstImage) {
    ServiceConnector copy(connector);
    EXPECT_EQ(service().clients_made, 1);
    EXPECT_EQ(copy.check_connections(OPERATION_READ, -1, 0), STS_OK);
    EXPECT_THAT(service().take(), IsEmpty()); // not connected
    EXPECT_EQ(connect(copy, &session), STS_OK);
    EXPECT_EQ(service().clients_made, 2);
    EXPECT_EQ(copy.disconnect_service(), STS_OK);
    EXPECT_EQ(service().clients_alive, 1);
}

TEST_F(ConnectorCopy, HasNoSessionTextAndLogsWithoutASession) {
    ServiceConnector copy(connector);
    EXPECT_EQ(copy.access_uri("x", 0), "http://localhost:5637/throttle/cloud/r:s3/x/");
    copy.check_connections(OPERATION_READ_WRITE, 1, 0);
    EXPECT_THAT(take_log(), IsEmpty());
}

TEST_F(ConnectorCopy, NothingIsFreedTwiceWhicheverIsDisconnectedFirst) {
    ServiceConnector copy(connector);
    EXPECT_EQ(copy.disconnect_service(), STS_OK);
    EXPECT_EQ(service().clients_alive, 1);
    EXPECT_EQ(connector.disconnect_service(), STS_OK);
    EXPECT_EQ(service().clients_alive, 0);
    EXPECT_EQ(copy.disconnect_service(), STS_OK);
}

TEST_F(ConnectorCopy, ItsSourceStaysConnected) {
    ServiceConnector copy(connector);
    copy.disconnect_service();
    EXPECT_EQ(connector.check_connections(OPERATION_READ_WRITE, 1, 0), STS_OK);
    EXPECT_EQ(only_exchange().session_text, "a_b");
}

TEST_F(ConnectorCopy, KeepsTheSettingsAndThatThrottlingIsOn) {
    connector.set_throttling_enabled(30);
    ServiceConnector copy(connector);
    EXPECT_EQ(copy.is_throttling_enabled(), 1);
    unsigned long rate = 0;
    copy.get_bandwidth_per_second(OPERATION_READ, rate);
    EXPECT_EQ(rate, 1000U);
}

TEST_F(ConnectorCopy, KeepsTheReferenceCounts) {
    connector.check_connections(OPERATION_READ_WRITE, 1, 0);
    ServiceConnector copy(connector);
    ASSERT_EQ(connect(copy, &session), STS_OK);
    take_log();
    copy.check_connections(OPERATION_READ_WRITE, 1, 0);
    EXPECT_THAT(take_log(), Contains("3 [check_connections]Has check reference count for r+w == 2, "
                                     "so leave."));
    copy.disconnect_service();
}

TEST_F(ConnectorCopy, KeepsTheConnectionCountsAndTheWait) {
    tell(4, 5, 9);
    ServiceConnector copy(connector);
    ASSERT_EQ(connect(copy, &session), STS_OK);
    bandwidth_s written = sample(OPERATION_WRITE, 1, 1);
    EXPECT_EQ(copy.check_bandwidth(&written, 0, 0), STS_OK);
    EXPECT_EQ(
        take_log(),
        pacing_log(200, 5, 1, 1, {"wait_seconds_=9.", "sleep for last transfer=9.", "0 sleep(9)"}));
    copy.disconnect_service();
}

TEST_F(ConnectorCopy, WhatItDoesLaterIsItsOwn) {
    ServiceConnector copy(connector);
    ASSERT_EQ(connect(copy, nullptr), STS_OK);
    copy.check_connections(OPERATION_READ_WRITE, 1, 0);
    take_log();
    connector.check_connections(OPERATION_READ_WRITE, 1, 0);
    EXPECT_THAT(take_log(), Contains("0 check_connections(a:s3)")); // its count is 1, not 2
    copy.disconnect_service();
}

TEST_F(ConnectorCopy, OfAGlobalServersConnectorNeedsNoServiceEither) {
    ServiceConnector global;
    ASSERT_EQ(connect(global, &session, "global", "s3"), STS_ERR_NO_SERVICE);
    ServiceConnector copy(global);
    EXPECT_EQ(copy.set_config_params(&config, 0), STS_OK);
    EXPECT_EQ(copy.check_connections(OPERATION_READ_WRITE, 1, 0), STS_OK);
    EXPECT_THAT(service().take(), IsEmpty());
}

} // namespace
