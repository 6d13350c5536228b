// The engine as the image path calls it, argument by argument, with answers of the test's own: the
// linker sends the calls here (--wrap). The real engine settles a transfer's claim by itself, so
// only here can one be refused.

#include "tests/plugin/frame.h"

#include "engine/service_connector.h"

#include <utility>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// The engine's calls in order, and what each answers.
lines engine_calls;
int connections_answer = 0;
int bandwidth_answer = 0;

} // namespace

extern "C" {

int __wrap__ZN16ServiceConnector17check_connectionsE16operation_type_tii(ServiceConnector*,
                                                                         operation_type_t operation,
                                                                         int delta, int security) {
    engine_calls.push_back("check_connections(" + std::to_string(operation) + ", " +
                           std::to_string(delta) + ", " + std::to_string(security) + ")");
    return connections_answer;
}

int __wrap__ZN16ServiceConnector15check_bandwidthEP11bandwidth_sii(ServiceConnector*,
                                                                   bandwidth_s* sample,
                                                                   int security, int force) {
    engine_calls.push_back("check_bandwidth(sample " + std::to_string(sample->operation_type) +
                           ", " + std::to_string(security) + ", " + std::to_string(force) + ")");
    return bandwidth_answer;
}

int __wrap__ZN16ServiceConnector15connect_serviceEPK20sts_session_def_v7_tPcS3_(
    ServiceConnector*, const sts_session_def_v7_t* session, char* type, char* server) {
    engine_calls.push_back(std::string("connect_service(") + session->session_id + ", " + type +
                           ", " + server + ")");
    return 0;
}

int __wrap__ZN16ServiceConnector17set_config_paramsEPK19throttling_config_si(
    ServiceConnector*, const throttling_config_s* config, int security) {
    engine_calls.push_back("set_config_params(" + std::to_string(config->avail_bandwidth) + ", " +
                           std::to_string(security) + ")");
    return 0;
}

} // extern "C"

namespace {

class EngineCalls : public Frame {
  protected:
    EngineCalls() {
        connections_answer = bandwidth_answer = 0;
        turn_throttling_on();
        files.write_service_file("CSSC_IS_SECURE=6\n");
        server = open();
        image = open_image(server);
        opening = take();
    }

    static lines take() { return std::exchange(engine_calls, {}); }
    int read() { return throttling_read_image_v7(image.get(), buffer, 100, 0, &moved); }
    int write() { return throttling_write_image_v7(image.get(), 5, buffer, 100, 0, &moved); }

    char buffer[100];
    uint64_t moved = 0;
    server_ptr server;
    image_ptr image;
    lines opening;
};

TEST_F(EngineCalls, OfAnOpenConnectThenConfigureThenClaim) {
    EXPECT_THAT(opening, ElementsAre("connect_service(a:b, cloud, s3)",
                                     "set_config_params(1000, 6)", "check_connections(2, 1, 6)"));
}

TEST_F(EngineCalls, OfTheFirstTransferOfADirectionClaimAndForceAndOfLaterOnesNeither) {
    read();
    EXPECT_THAT(take(),
                ElementsAre("check_connections(0, 1, 6)", "check_bandwidth(sample 0, 6, 1)"));
    read();
    EXPECT_THAT(take(), ElementsAre("check_bandwidth(sample 0, 6, 0)"));
    write();
    EXPECT_THAT(take(),
                ElementsAre("check_connections(1, 1, 6)", "check_bandwidth(sample 1, 6, 1)"));
    write();
    EXPECT_THAT(take(), ElementsAre("check_bandwidth(sample 1, 6, 0)"));
}

TEST_F(EngineCalls, OfACloseReportBothDirectionsAndThenGiveBothConnectionsBack) {
    read();
    write();
    take();
    image.reset();
    EXPECT_THAT(take(),
                ElementsAre("check_bandwidth(sample 0, 6, 1)", "check_bandwidth(sample 1, 6, 1)",
                            "check_connections(0, -1, 6)", "check_connections(1, -1, 6)"));
}

TEST_F(EngineCalls, OfACloseTouchOnlyTheDirectionsThatHaveBegun) {
    write();
    take();
    image = open_image(server);
    EXPECT_EQ(lines(engine_calls.end() - 2, engine_calls.end()),
              (lines{"check_bandwidth(sample 1, 6, 1)", "check_connections(1, -1, 6)"}));
    read();
    take();
    image = open_image(server);
    EXPECT_EQ(lines(engine_calls.end() - 2, engine_calls.end()),
              (lines{"check_bandwidth(sample 0, 6, 1)", "check_connections(0, -1, 6)"}));
    take();
    image.reset();
    EXPECT_THAT(take(), IsEmpty());
}

TEST_F(EngineCalls, OfAServersCloseGiveItsConnectionBack) {
    image.reset();
    take();
    server.reset();
    EXPECT_THAT(take(), ElementsAre("check_connections(2, -1, 6)"));
}

TEST_F(EngineCalls, NoneAreMadeWhileThrottlingIsOff) {
    image.reset();
    take();
    server->config.sample_interval = 0;
    image = open_image(server);
    read();
    write();
    image.reset();
    server.reset();
    EXPECT_THAT(take(), IsEmpty());
}

// --- refusals ----------------------------------------------------------------------------------

TEST_F(EngineCalls, RefusedTransferIsStoppedBeforeTheNextLayer) {
    connections_answer = STS_ERR_MAX_CONNECTIONS;
    EXPECT_EQ(read(), STS_ERR_MAX_CONNECTIONS);
    EXPECT_EQ(take_whole_story(),
              lines{error_line("throttling_read_image_v7", "exceed max connections.")});
    EXPECT_THAT(take(), ElementsAre("check_connections(0, 1, 6)"));
    EXPECT_EQ(write(), STS_ERR_MAX_CONNECTIONS);
    EXPECT_EQ(take_whole_story(),
              lines{error_line("throttling_write_image_v7", "exceed max connections.")});
    EXPECT_THAT(take(), ElementsAre("check_connections(1, 1, 6)"));
    EXPECT_EQ(image->io_flags, 3U);
}

TEST_F(EngineCalls, RefusedTransferThatIsRetriedSkipsTheClaimAndIsNotForced) {
    connections_answer = STS_ERR_MAX_CONNECTIONS;
    read();
    write();
    take();
    EXPECT_EQ(read(), STS_OK);
    EXPECT_THAT(take(), ElementsAre("check_bandwidth(sample 0, 6, 0)"));
    EXPECT_EQ(write(), STS_OK);
    EXPECT_THAT(take(), ElementsAre("check_bandwidth(sample 1, 6, 0)"));
}

TEST_F(EngineCalls, CloseGivesBackAConnectionThatWasRefused) {
    connections_answer = STS_ERR_MAX_CONNECTIONS;
    read();
    take();
    connections_answer = 0;
    image.reset();
    EXPECT_THAT(take(),
                ElementsAre("check_bandwidth(sample 0, 6, 1)", "check_connections(0, -1, 6)"));
}

TEST_F(EngineCalls, ClaimThatFailsIsLoggedAndTheTransferGoesOnForced) {
    connections_answer = STS_ERR_FILE;
    EXPECT_EQ(read(), STS_OK);
    EXPECT_EQ(take_whole_story()[0],
              error_line("throttling_read_image_v7", "fail to check connections from service."));
    EXPECT_THAT(take(),
                ElementsAre("check_connections(0, 1, 6)", "check_bandwidth(sample 0, 6, 1)"));
    EXPECT_EQ(write(), STS_OK);
    EXPECT_EQ(take_whole_story()[0],
              error_line("throttling_write_image_v7", "fail to check connections from service."));
    EXPECT_THAT(take(),
                ElementsAre("check_connections(1, 1, 6)", "check_bandwidth(sample 1, 6, 1)"));
}

TEST_F(EngineCalls, CloseWhoseEngineFailsInEveryCallLogsEachAndGoesOn) {
    read();
    write();
    take_whole_story();
    connections_answer = STS_ERR_MAX_CONNECTIONS;
    bandwidth_answer = STS_ERR_FILE;
    EXPECT_EQ(throttling_close_image_v7(image.release(), 0, 0), STS_OK);
    const auto failed = [](const std::string& message) {
        return error_line("throttling_close_image_v7", message);
    };
    EXPECT_EQ(take_whole_story(),
              (lines{"-> close_handle(#3, 0)", failed("fail to check read bandwidth from service."),
                     failed("fail to check write bandwidth from service."),
                     failed("fail to check connections from service."),
                     failed("fail to check connections from service.")}));
    EXPECT_EQ(server->open_handles, 0);
}

} // namespace
