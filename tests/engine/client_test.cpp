// The engine's client as the plugin has it, on a machine where the service can't be reached.

#include "client/CloudVLSLClient.h"
#include "engine/service_connector.h"

#include "tests/support/conf_dir.h"
#include "tests/support/host_session.h"
#include "tests/support/virtual_clock.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/socket.h>
#include <type_traits>

using Orvessa::Vaultaro::CCloudVLSLClient;
using OBV_ThrottlingBandwidth = OBV_Corvane::Vaultaro::SL::CloudMgmt::ThrottlingBandwidth;
using Orvessa::Vaultaro::ThrottlingBandwidth_var;
using testing::Contains;
using testing::ElementsAre;

namespace {

int connections_tried = 0;

class Client : public testing::Test {
  protected:
    Client() {
        connections_tried = 0;
        take_log();
    }

    /// As the engine builds it.
    std::unique_ptr<CCloudVLSLClient> make() {
        return std::make_unique<CCloudVLSLClient>(&session, "localhost", false, 0UL, 5);
    }

    sts_session_def_v7_t session = host_session("s");
};

ThrottlingBandwidth_var some_value() {
    ThrottlingBandwidth_var value(new OBV_ThrottlingBandwidth);
    value->operation_type(1);
    value->start_time(2);
    value->end_time(3);
    value->data_length(4);
    return value;
}

// --- exchanges

TEST_F(Client, BuildingAndDeletingItMakesNoRemoteCall) {
    make().reset();
    CCloudVLSLClient without_session(nullptr, "localhost", false, 0, 5);
    EXPECT_EQ(connections_tried, 0);
}

TEST_F(Client, AnExchangeWithoutAServiceFailsAndLeavesTheAnswerAlone) {
    const auto client = make();
    std::string out = "as it was";
    for (int attempt = 0; attempt < 3; ++attempt) { // each tries again
        EXPECT_EQ(client->set_config_params("name=THR:s3,"), STS_ERR_FILE);
        EXPECT_EQ(client->check_connections("a:s3", "s", 1, out), STS_ERR_FILE);
        EXPECT_EQ(client->check_bandwidth("w:s3", "s", some_value(), out), STS_ERR_FILE);
        EXPECT_EQ(out, "as it was");
    }
}

TEST_F(Client, AnExchangeOfEmptyTextsFailsTheSameWay) {
    const auto client = make();
    std::string out;
    EXPECT_EQ(client->set_config_params(""), STS_ERR_FILE);
    EXPECT_EQ(client->check_connections("", "", 0, out), STS_ERR_FILE);
    EXPECT_EQ(client->check_bandwidth("", "", some_value(), out), STS_ERR_FILE);
    EXPECT_EQ(out, "");
}

TEST_F(Client, AnExchangeLeavesTheCallersValueToTheCaller) {
    const auto client = make();
    const ThrottlingBandwidth_var value = some_value();
    std::string out;
    client->check_bandwidth("w:s3", "s", value, out);
    EXPECT_EQ(value->operation_type(), 1U);
    EXPECT_EQ(value->start_time(), 2U);
    EXPECT_EQ(value->end_time(), 3U);
    EXPECT_EQ(value->data_length(), 4U);
}

// --- the value

TEST(ReportedValue, CarriesItsMembersAtTheirWidths) {
    const ThrottlingBandwidth_var value(new OBV_ThrottlingBandwidth);
    static_assert(std::is_same_v<decltype(value->operation_type()), uint32_t>);
    static_assert(std::is_same_v<decltype(value->start_time()), uint32_t>);
    static_assert(std::is_same_v<decltype(value->end_time()), uint32_t>);
    static_assert(std::is_same_v<decltype(value->data_length()), uint64_t>);
    EXPECT_EQ(value->operation_type(), 0U);
    EXPECT_EQ(value->start_time(), 0U);
    EXPECT_EQ(value->end_time(), 0U);
    EXPECT_EQ(value->data_length(), 0U);
    value->end_time(UINT32_MAX);
    value->data_length(UINT64_MAX);
    EXPECT_EQ(value->end_time(), UINT32_MAX);
    EXPECT_EQ(value->data_length(), UINT64_MAX);
}

TEST(ReportedValue, LivesAsLongAsSomebodyHoldsIt) {
    auto first = std::make_unique<ThrottlingBandwidth_var>(new OBV_ThrottlingBandwidth);
    const ThrottlingBandwidth_var second(*first);
    (*first)->data_length(7);
    EXPECT_EQ(first->in(), second.in());
    first.reset();
    EXPECT_EQ(second->data_length(), 7U);
}

TEST(ReportedValue, CanBeNone) {
    const ThrottlingBandwidth_var none;
    const ThrottlingBandwidth_var copy(none); // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_EQ(none.in(), nullptr);
    EXPECT_EQ(copy.in(), nullptr);
}

// --- the engine upon it

TEST_F(Client, WithoutAServiceTheEngineAdmitsAndPacesByLocalSettings) {
    const conf_dir files;
    config_set_path(nullptr);
    virtual_clock clock(local_time(2024, 3, 4, 10));
    throttling_config_s config;
    config.avail_bandwidth = 1000;
    config.sample_interval = 30;

    ServiceConnector connector;
    char type[] = "cloud";
    char name[] = "s3";
    ASSERT_EQ(connector.connect_service(&session, type, name), STS_OK); // proves nothing
    EXPECT_EQ(connections_tried, 0);
    EXPECT_EQ(connector.set_config_params(&config, 0), STS_ERR_FILE);
    EXPECT_EQ(connector.check_connections(OPERATION_READ_WRITE, 1, 0), STS_ERR_FILE);
    EXPECT_EQ(connector.check_connections(OPERATION_READ, 1, 0), STS_OK);

    bandwidth_s moved = {OPERATION_READ, clock.now() - 30, clock.now() - 30, 33'000};
    EXPECT_EQ(connector.check_bandwidth(&moved, 0, 0), STS_ERR_FILE);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(3U));
    EXPECT_EQ(moved.data_length, 0U);
    EXPECT_EQ(moved.start_time, clock.now());
    EXPECT_THAT(take_log(), Contains("3 [check_bandwidth]leaving with return vale 2060017"));

    EXPECT_EQ(connector.check_connections(OPERATION_READ, -1, 0), STS_ERR_FILE);
    EXPECT_EQ(connector.disconnect_service(), STS_OK);
}

} // namespace

// No service can be reached from here, whatever runs on this machine.
extern "C" __attribute__((visibility("default"))) int connect(int, const sockaddr*, socklen_t) {
    ++connections_tried;
    errno = ECONNREFUSED;
    return -1;
}
