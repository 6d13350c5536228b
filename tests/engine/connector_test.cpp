// The life of a connector: what it connects with, whose names it keeps, and how it lets go.

#include "tests/engine/engine_fixture.h"
#include "tests/support/failing_strdup.h"

#include <cstring>
#include <new>

using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class Connector : public engine_test {
  protected:
    /// The session text of the connector, as the service sees it.
    std::string session_text() {
        service().take();
        EXPECT_EQ(connector.check_connections(OPERATION_READ, -1, 0), STS_OK);
        return only_exchange().session_text;
    }
};

// --- connecting

TEST_F(Connector, ConnectsWithAClientOfTheLocalHostAndNothingRemoteHappens) {
    EXPECT_EQ(connect(connector, &session), STS_OK);
    EXPECT_EQ(service().clients_made, 1);
    EXPECT_EQ(service().session, &session);
    EXPECT_EQ(service().host, "localhost");
    EXPECT_FALSE(service().force_oxss_iop);
    EXPECT_EQ(service().value, 0U);
    EXPECT_EQ(service().timeout_seconds, 5);
    EXPECT_THAT(service().take(), IsEmpty());
    EXPECT_THAT(take_log(), IsEmpty());
}

TEST_F(Connector, NeverConnectsToTheConfiguredHost) {
    strcpy(config.cssc_host_name, "elsewhere");
    start();
    connector.disconnect_service();
    EXPECT_EQ(connect(connector, &session), STS_OK);
    EXPECT_EQ(service().host, "localhost");
}

TEST_F(Connector, AGlobalServerNeedsNoService) {
    EXPECT_EQ(connect(connector, &session, "global", "s3"), STS_ERR_NO_SERVICE);
    EXPECT_EQ(service().clients_made, 0);
    EXPECT_EQ(connector.set_config_params(&config, 0), STS_OK);
    EXPECT_EQ(connector.check_connections(OPERATION_READ_WRITE, 1, 0), STS_OK);
    EXPECT_THAT(service().take(), IsEmpty());
}

TEST_F(Connector, AServerThatNeedsNoServiceLeavesNoNames) {
    EXPECT_EQ(connect(connector, &session, "global", "s3"), STS_ERR_NO_SERVICE);
    EXPECT_EQ(connect(connector, &session, "cloud", ""), STS_ERR_NO_SERVICE);
    EXPECT_EQ(connector.access_uri("x", 0), "http://localhost:5637/throttle//r:/x/");
}

TEST_F(Connector, AnUnnamedServerNeedsNoService) {
    EXPECT_EQ(connect(connector, &session, "cloud", ""), STS_ERR_NO_SERVICE);
    EXPECT_EQ(service().clients_made, 0);
}

TEST_F(Connector, OnlyTheWholeWordGlobalMakesAGlobalServer) {
    for (const char* type : {"globals", "Global", "globa", ""}) {
        ServiceConnector usual;
        EXPECT_EQ(connect(usual, &session, type, "s3"), STS_OK) << type;
        usual.disconnect_service();
    }
}

TEST_F(Connector, AGlobalServerLogsWithoutASession) {
    connect(connector, &session, "global", "s3");
    connector.set_config_params(&config, 0);
    connector.check_connections(OPERATION_READ_WRITE, 1, 0);
    bandwidth_s moved = sample(OPERATION_READ, 2, 5000);
    connector.check_bandwidth(&moved, 0, 0);
    EXPECT_THAT(take_log(), IsEmpty());
}

TEST_F(Connector, AServerThatNeedsNoServiceCanStillBecomeOneThatDoes) {
    ASSERT_EQ(connect(connector, &session, "global", "s3"), STS_ERR_NO_SERVICE);
    EXPECT_EQ(connect(connector, &session, "cloud", "s3"), STS_OK);
    EXPECT_EQ(session_text(), "a_b");
}

TEST_F(Connector, ASecondConnectKeepsTheFirstSessionNamesAndClient) {
    start();
    const sts_session_def_v7_t other = host_session("other");
    EXPECT_EQ(connect(connector, &other, "othertype", "othername"), STS_OK);
    EXPECT_EQ(service().clients_made, 1);
    EXPECT_EQ(service().session, &session);
    EXPECT_EQ(connector.check_connections(OPERATION_READ_WRITE, 1, 0), STS_OK);
    const exchange sent = only_exchange();
    EXPECT_EQ(sent.key, "a:s3");
    EXPECT_EQ(sent.session_text, "a_b");
    EXPECT_EQ(connector.access_uri("x", 0), "http://localhost:5637/throttle/cloud/a:s3/x/a_b");
    host_log().erase(host_log().begin() + 1); // the exchange itself
    EXPECT_THAT(host_log(), Each(Field(&logged::session, "a:b")));
}

TEST_F(Connector, AConnectedConnectorOfferedAGlobalServerFallsSilentUntilItDisconnects) {
    start();
    EXPECT_EQ(connect(connector, &session, "global", "s3"), STS_ERR_NO_SERVICE);
    EXPECT_EQ(connector.check_connections(OPERATION_READ_WRITE, 1, 0), STS_OK);
    EXPECT_THAT(service().take(), IsEmpty());
    EXPECT_EQ(service().clients_alive, 1);
    EXPECT_EQ(connector.disconnect_service(), STS_OK);
    EXPECT_EQ(service().clients_alive, 0);
}

TEST_F(Connector, WithoutMemoryForTheSessionTextItAnswersNoMemoryAndCanTryAgain) {
    {
        const failing_strdup no_memory;
        EXPECT_EQ(connect(connector, &session), STS_ERR_NOMEM);
        EXPECT_EQ(connect(connector, nullptr), STS_ERR_NOMEM);
    }
    EXPECT_EQ(service().clients_made, 0);
    EXPECT_EQ(connector.check_connections(OPERATION_READ_WRITE, 1, 0), STS_OK);
    EXPECT_THAT(service().take(), IsEmpty());
    EXPECT_EQ(connect(connector, &session), STS_OK);
    EXPECT_EQ(session_text(), "a_b");
}

// --- the session's text and the names

TEST_F(Connector, EveryColonOfASessionIdentifierBecomesAnUnderscore) {
    const sts_session_def_v7_t colons = host_session("a:b:c");
    ASSERT_EQ(connect(connector, &colons), STS_OK);
    EXPECT_EQ(session_text(), "a_b_c");
}

TEST_F(Connector, ASessionIdentifierIsTakenByteForByte) {
    const std::string id = "::" + std::string(4096, 'x') + "\xff\x01 /\n:";
    const sts_session_def_v7_t odd = host_session(id.c_str());
    ASSERT_EQ(connect(connector, &odd), STS_OK);
    EXPECT_EQ(session_text(), "__" + std::string(4096, 'x') + "\xff\x01 /\n_");
}

TEST_F(Connector, AnEmptySessionIdentifierStaysEmpty) {
    const sts_session_def_v7_t empty = host_session("");
    ASSERT_EQ(connect(connector, &empty), STS_OK);
    EXPECT_EQ(session_text(), "");
}

TEST_F(Connector, ASessionWithoutAnIdentifierIsCalledNoSessionId) {
    const sts_session_def_v7_t nameless = host_session(nullptr);
    ASSERT_EQ(connect(connector, &nameless), STS_OK);
    EXPECT_EQ(session_text(), "no_session_id");
}

TEST_F(Connector, ANullSessionIsCalledNoSessionId) {
    ASSERT_EQ(connect(connector, nullptr), STS_OK);
    EXPECT_EQ(session_text(), "no_session_id");
    EXPECT_THAT(take_log(), ElementsAre("0 check_connections(r:s3)")); // and no message
}

TEST_F(Connector, NamesAreCutAt511Bytes) {
    const std::string type = std::string(511, 't') + "TT";
    const std::string name = std::string(511, 'n') + "NNN";
    ASSERT_EQ(connect(connector, &session, type, name), STS_OK);
    EXPECT_EQ(connector.check_connections(OPERATION_WRITE, -1, 0), STS_OK);
    EXPECT_EQ(only_exchange().key, "w:" + std::string(511, 'n'));
    EXPECT_EQ(connector.access_uri("x", 0), "http://localhost:5637/throttle/" +
                                                std::string(511, 't') +
                                                "/w:" + std::string(511, 'n') + "/x/a_b");
}

TEST_F(Connector, AShorterNameOfALaterConnectLeavesNothingOfTheEarlierOne) {
    ASSERT_EQ(connect(connector, &session, "longer-type", "longer-name"), STS_OK);
    connector.disconnect_service();
    ASSERT_EQ(connect(connector, nullptr, "t", "n"), STS_OK);
    EXPECT_EQ(connector.access_uri("x", 0), "http://localhost:5637/throttle/t/r:n/x/no_session_id");
}

// --- disconnecting

TEST_F(Connector, DisconnectOfOneThatNeverConnectedAnswers0) {
    EXPECT_EQ(connector.disconnect_service(), STS_OK);
    EXPECT_EQ(connect(connector, &session), STS_OK);
}

TEST_F(Connector, DisconnectFreesTheClientAndTheSessionText) {
    start();
    EXPECT_EQ(connector.disconnect_service(), STS_OK);
    EXPECT_EQ(service().clients_alive, 0);
    EXPECT_THAT(connector.access_uri("x", 0), EndsWith("/x/"));
    EXPECT_EQ(connector.disconnect_service(), STS_OK);
}

TEST_F(Connector, AfterDisconnectNothingIsSent) {
    start();
    connector.disconnect_service();
    EXPECT_EQ(connector.set_config_params(&config, 0), STS_OK);
    EXPECT_EQ(connector.check_connections(OPERATION_READ, -1, 0), STS_OK);
    bandwidth_s due = sample(OPERATION_READ, 30, 0);
    EXPECT_EQ(connector.check_bandwidth(&due, 0, 1), STS_OK);
    EXPECT_THAT(service().take(), IsEmpty());
}

TEST_F(Connector, AfterDisconnectItConnectsAnewWithAnotherSessionAndNames) {
    start();
    connector.disconnect_service();
    const sts_session_def_v7_t other = host_session("other");
    EXPECT_EQ(connect(connector, &other, "cloud", "azure"), STS_OK);
    EXPECT_EQ(service().clients_made, 2);
    EXPECT_EQ(service().session, &other);
    EXPECT_EQ(session_text(), "other");
    EXPECT_THAT(connector.access_uri("x", 0), HasSubstr("/r:azure/"));
}

TEST_F(Connector, ItsEndLeavesTheClientAlone) {
    // Here the client stays reachable when the connector is gone: it isn't a leak to a checker.
    alignas(ServiceConnector) static unsigned char memory[sizeof(ServiceConnector)];
    auto* const ended = new (memory) ServiceConnector;
    ASSERT_EQ(connect(*ended, &session), STS_OK);
    ended->~ServiceConnector();
    EXPECT_EQ(service().clients_alive, 1);
}

// --- the rest of the class

TEST_F(Connector, StartAndStopOfTheProcessHaveNothingToDo) {
    EXPECT_EQ(ServiceConnector::init(), 0);
    EXPECT_EQ(ServiceConnector::terminate(), 0);
}

TEST_F(Connector, IsOnWhereAnIntervalIsSet) {
    EXPECT_EQ(connector.is_throttling_enabled(), 0);
    for (const int32_t interval : {1, 600, -1, INT32_MIN}) {
        connector.set_throttling_enabled(interval);
        EXPECT_EQ(connector.is_throttling_enabled(), 1) << interval;
    }
    connector.set_throttling_enabled(0);
    EXPECT_EQ(connector.is_throttling_enabled(), 0);
}

TEST_F(Connector, TheKeysPrefixTellsTheOperationOfTheLastExchange) {
    EXPECT_EQ(connector.getCurrentOperation(), "r:");
    start();
    connector.check_connections(OPERATION_WRITE, -1, 0);
    EXPECT_EQ(connector.getCurrentOperation(), "w:");
    connector.check_connections(OPERATION_READ_WRITE, 1, 0);
    EXPECT_EQ(connector.getCurrentOperation(), "a:");
    connector.check_connections(OPERATION_READ, 1, 0); // no exchange
    EXPECT_EQ(connector.getCurrentOperation(), "a:");
    bandwidth_s forced = sample(OPERATION_READ, 0, 0);
    connector.check_bandwidth(&forced, 0, 1);
    EXPECT_EQ(connector.getCurrentOperation(), "r:");
}

} // namespace
