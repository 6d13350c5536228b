// Exchanges that fail: what the host's log is told, and that data flows. The built plugin over its
// real client.

#include "tests/client/plugin_fixture.h"

#include <csignal>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string no_settings = "4 [create_or_open_image_v10]set config params error:2060017.";
const std::string no_claim = "4 [create_or_open_image_v10]fail to check connections from service.";
const std::string no_report = "4 [throttling_write_image_v7]fail to check bandwidth from service.";

std::string raised_line(const std::string& operation, int code) {
    return "4 VLSLOpException while processing " + operation +
           ", return code =" + std::to_string(code);
}

std::string corba_line(const std::string& operation) {
    return "4 Unknown CORBA exception occured while processing " + operation +
           ", return code =2060017";
}

/// What each exchange tells when it fails, beside its client's line.
struct exchange_of_plugin {
    const char* operation;         ///< of the service
    std::string error;             ///< of whoever asked
    std::vector<const char*> told; ///< by the engine
};

void PrintTo(const exchange_of_plugin& each, std::ostream* out) { *out << each.operation; }

class PluginFailure : public Plugin, public testing::WithParamInterface<exchange_of_plugin> {
  protected:
    /// The first exchanges of a server of its own: with this answer the one that is tried fails,
    /// with this line, and the image is there and takes its data.
    void expect_failure(const scripted_answer& answer, const std::string& line) {
        const exchange_of_plugin& exchange = GetParam();
        service.answer(exchange.operation, answer);
        throttling_server_s* const server = open_server();
        throttling_image_s* const image = create(server, "image" + std::to_string(++images_));
        EXPECT_EQ(status, STS_OK);
        write(image, 10);

        for (const char* const each : exchange.told) {
            EXPECT_TRUE(has_logged(STS_SEV_DEBUG, each)) << each;
        }
        EXPECT_THAT(take_errors(), ElementsAre(line, exchange.error));

        service.answer(exchange.operation, {});
        close(image);
        close_server(server);
        take_log();
    }

  private:
    int images_ = 0;
};

const exchange_of_plugin exchanges[] = {
    {"update_ThrottleConfigParams",
     no_settings,
     {"[set_config_params]leaving with status 2060017"}},
    {"check_connections",
     no_claim,
     {"[check_connections]leaving with return value =2060017, response recived ="}},
    {"check_bandwidth",
     no_report,
     {"[check_bandwidth]response recived =", "[check_bandwidth]leaving with return vale 2060017"}},
};

INSTANTIATE_TEST_SUITE_P(Of, PluginFailure, testing::ValuesIn(exchanges),
                         [](const auto& test) { return std::string(test.param.operation); });

TEST_P(PluginFailure, ByAnExceptionOfTheServiceTellsItsFirstCodeAndPassesNoneOn) {
    for (const int code : {1234, 0, -1, int{STS_ERR_MAX_CONNECTIONS}, int{STS_ERR_INVALID}}) {
        expect_failure(raises_operation_failed({code, 99}),
                       raised_line(GetParam().operation, code));
    }
}

TEST_P(PluginFailure, ByAnExceptionOfTheServiceWithoutRecordsTellsTheCode0) {
    expect_failure(raises_operation_failed({}), raised_line(GetParam().operation, 0));
}

TEST_P(PluginFailure, ByAnyOtherExceptionOfTheOrbIsToldAsAnUnknownOne) {
    for (const char* const exception : {"NO_RESOURCES", "OBJECT_NOT_EXIST", "TRANSIENT",
                                        "COMM_FAILURE", "UNKNOWN", "ActionFailedException"}) {
        expect_failure(raises(exception), corba_line(GetParam().operation));
    }
}

TEST_P(PluginFailure, ByAConnectionThatClosesIsToldAsAnUnknownException) {
    expect_failure(drops_connections(), corba_line(GetParam().operation));
}

// --- the connection

class PluginFailureToConnect : public Plugin {
  protected:
    /// What the first image of a server tells.
    lines told_by_first_image() {
        throttling_server_s* const server = open_server();
        close(create(server, "image" + std::to_string(++images_)));
        EXPECT_EQ(status, STS_OK);
        const lines told = take_errors();
        close_server(server);
        take_log();
        return told;
    }

  private:
    int images_ = 0;
};

TEST_F(PluginFailureToConnect, IsToldByEachExchangeAndTriedAgainByTheNext) {
    const std::string initialize = "4 CCloudVLSLClient::Initialize() Failed to get instance of ";
    const std::string manager = "4 CCloudVLSLClient::InitializeCloudManager() Failed to get "
                                "instance of CloudManager from vlsl";
    const struct {
        const char* operation;
        scripted_answer answer;
        lines line; ///< before that of the exchange
    } cases[] = {
        {"getHostSession", hands_out("nil"), {initialize + "HostSession"}},
        {"getHostSession", raises("ActionFailedException"), {}},
        {"getHostSession", raises("NO_RESOURCES"), {}},
        {"getCloudManager", hands_out("nil"), {manager}},
        {"getCloudManager", raises("NO_RESOURCES"), {}},
        {"aqueryFacet", raises("NO_RESOURCES"), {}},
    };
    for (const auto& each : cases) {
        service.answer(each.operation, each.answer);
        EXPECT_EQ(told_by_first_image(),
                  join({each.line,
                        {corba_line("update_ThrottleConfigParams"), no_settings},
                        each.line,
                        {corba_line("check_connections"), no_claim}}))
            << each.operation;
        service.answer(each.operation, {});
    }
}

TEST_F(PluginFailureToConnect, OfOneFacetFailsTheExchangesOfThatFacet) {
    for (const char* const object : {"nil", "plain"}) {
        service.answer("aqueryFacet", hands_out(object));
        EXPECT_THAT(told_by_first_image(), ElementsAre(corba_line("check_connections"), no_claim));
        service.answer("aqueryFacet", {});
        service.answer("amodifyFacet", hands_out(object));
        EXPECT_THAT(told_by_first_image(),
                    ElementsAre(corba_line("update_ThrottleConfigParams"), no_settings));
        service.answer("amodifyFacet", {});
    }
}

TEST_F(PluginFailureToConnect, ToAServiceThatIsNotThereIsToldByEveryExchangeOfABackup) {
    service.stop();
    throttling_server_s* const server = open_server();
    throttling_image_s* const image = create(server);
    EXPECT_THAT(take_errors(), ElementsAre(corba_line("update_ThrottleConfigParams"), no_settings,
                                           corba_line("check_connections"), no_claim));
    write(image, 10);
    EXPECT_THAT(take_errors(), ElementsAre(corba_line("check_bandwidth"), no_report));
    close(image);
    EXPECT_THAT(take_errors(),
                ElementsAre(corba_line("check_bandwidth"),
                            "4 [throttling_close_image_v7]fail to check write bandwidth from "
                            "service.",
                            corba_line("check_connections"),
                            "4 [throttling_close_image_v7]fail to check connections from "
                            "service."));
    EXPECT_EQ(close_server(server), STS_OK);
    EXPECT_THAT(take_errors(), ElementsAre(corba_line("check_connections"),
                                           "4 [throttling_close_server_v7]fail to check "
                                           "connections from service."));
}

TEST_F(PluginFailureToConnect, EndsTheProcessWhereTheServiceRaisesAnExceptionOfItsOwnOverIt) {
    for (const char* const operation : {"getCloudManager", "aqueryFacet", "amodifyFacet"}) {
        service.answer(operation, raises_operation_failed({1}));
        EXPECT_EXIT(create(open_server()), testing::KilledBySignal(SIGABRT), "") << operation;
        service.answer(operation, {});
    }
}

// --- what is told, and what isn't

class PluginFailureLog : public Plugin {};

TEST_F(PluginFailureLog, OfTheEndOfASessionIsNone) {
    for (const char* const exception : {"OBJECT_NOT_EXIST", "NO_RESOURCES", "VLSLOpException"}) {
        service.answer("destroy", raises(exception));
        throttling_server_s* const server = open_server();
        close(create(server, std::string("image") + exception));
        EXPECT_EQ(close_server(server), STS_OK);
        EXPECT_EQ(asked().back(), "destroy()");
        EXPECT_THAT(take_errors(), IsEmpty());
    }
}

TEST_F(PluginFailureLog, OfTheClientDoesNotAskTheSessionsMask) {
    session.log_mask = 0;
    service.answer("check_connections", raises_operation_failed({7}));
    create(open_server());
    EXPECT_THAT(take_log(), ElementsAre(raised_line("check_connections", 7)));
}

TEST_F(PluginFailureLog, OfAHostWithoutACallbackIsNone) {
    session.log = nullptr;
    service.answer("check_connections", raises_operation_failed({7}));
    EXPECT_NE(create(open_server()), nullptr);
    EXPECT_THAT(take_log(), IsEmpty());
}

} // namespace
