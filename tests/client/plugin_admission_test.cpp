// Who asks the service for a connection, and what its answer does to an open: the built plugin over
// its real client.

#include "tests/client/plugin_fixture.h"

#include <filesystem>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string claim = "check_connections(\"a:s3\", \"a_b\", 1)";
const std::string give_back = "check_connections(\"a:s3\", \"a_b\", -1)";
const std::string settings_of_s3 = "settings(cloud, s3)";
const std::string no_check = "4 [create_or_open_image_v10]fail to check connections from service.";

class PluginAdmission : public Plugin {
  protected:
    bool is_on_disk(const std::string& image) const {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(files.path())) {
            if (entry.path().filename().string().find(image) != std::string::npos) {
                return true;
            }
        }
        return false;
    }
};

// --- what is asked

TEST_F(PluginAdmission, OpeningAndClosingAServerWithoutAnImageAsksNothing) {
    close_server(open_server());
    EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(PluginAdmission, TheFirstImageSendsTheSettingsAndClaimsAConnection) {
    create(open_server());
    EXPECT_EQ(asked(), join({new_session, {settings_of_s3, claim}}));
    EXPECT_THAT(take_errors(), IsEmpty());
}

TEST_F(PluginAdmission, ASecondImageSendsTheSettingsAndClaimsNothing) {
    throttling_server_s* const server = open_server();
    create(server, "first");
    asked();
    create(server, "second");
    EXPECT_THAT(asked(), ElementsAre(settings_of_s3));
    EXPECT_TRUE(has_logged(STS_SEV_DEBUG,
                           "[check_connections]Has check reference count for r+w == 2, so leave."));
}

TEST_F(PluginAdmission, EachImageSendsTheSettingsAsTheFilesHoldThemThen) {
    throttling_server_s* const server = open_server();
    create(server, "first");
    settings("THR:SAMPLE_INTERVAL=30\nTHR:AVAIL_BANDWIDTH=2000\nTHR:s3=4\n");
    EXPECT_NE(asked().at(4), settings_of_s3); // those were the former ones
    create(server, "second");
    EXPECT_THAT(asked(), ElementsAre(settings_of_s3));
}

TEST_F(PluginAdmission, ASessionWithoutAnIdentifierHasATextOfItsOwn) {
    session.session_id = nullptr;
    create(open_server());
    EXPECT_EQ(asked().back(), "check_connections(\"a:s3\", \"no_session_id\", 1)");
}

TEST_F(PluginAdmission, NamesAreSentByteForByte) {
    session.session_id = "s\xe4:\xff";
    create(open_server("CS_throttle:cloud:disk:st\xf6r"));
    EXPECT_EQ(asked("cloud", "st\xf6r").back(),
              "check_connections(\"a:st\xf6r\", \"s\xe4_\xff\", 1)");
}

TEST_F(PluginAdmission, ClosingTheServerGivesTheConnectionBackAndEndsTheSession) {
    throttling_server_s* const server = open_server();
    close(create(server, "first"));
    close(create(server, "second")); // two were opened, and one is given back
    asked();
    EXPECT_EQ(close_server(server), STS_OK);
    EXPECT_THAT(asked(), ElementsAre(give_back, "destroy()"));
}

TEST_F(PluginAdmission, TheFirstTransferOfEachDirectionClaimsNothing) {
    throttling_server_s* const server = open_server();
    throttling_image_s* const image = create(server);
    asked();
    write(image, 10);
    EXPECT_THAT(asked(), ElementsAre(report("w:s3", start, start, 0)));
    close(image);
    throttling_image_s* const again = open(server);
    asked();
    read(again, 10);
    EXPECT_THAT(asked(), ElementsAre(report("r:s3", start, start, 0)));
}

TEST_F(PluginAdmission, TheLastImageOfADirectionGivesItBackThoughNobodyClaimedIt) {
    throttling_server_s* const server = open_server();
    throttling_image_s* const first = create(server, "first");
    throttling_image_s* const second = create(server, "second");
    write(first, 10);
    write(second, 10);
    asked();
    close(first);
    EXPECT_THAT(asked(), ElementsAre(report("w:s3", start, start, 10)));
    close(second);
    EXPECT_THAT(asked(), ElementsAre(report("w:s3", start, start, 0),
                                     "check_connections(\"w:s3\", \"a_b\", -1)"));
    throttling_image_s* const reader = open(server, "first");
    read(reader, 10);
    asked();
    close(reader);
    EXPECT_THAT(asked(), ElementsAre(report("r:s3", start, start, 10),
                                     "check_connections(\"r:s3\", \"a_b\", -1)"));
}

TEST_F(PluginAdmission, TheImagesOfADirectionAreCountedByTheirFirstTransfersAndTheirCloses) {
    throttling_server_s* const server = open_server();
    throttling_image_s* const first = create(server, "first");
    throttling_image_s* const second = create(server, "second");
    take_log();
    write(first, 10);
    write(first, 10);
    write(second, 10);
    EXPECT_THAT(told_by("check_connections"),
                ElementsAre("enter.", "Add reference count for r/w == 1, leave.", "enter.",
                            "Add reference count for r/w == 2, leave."));
    close(first);
    EXPECT_THAT(told_by("check_connections"),
                ElementsAre("enter.", "Dec reference count for r/w == 1, so leave."));
}

TEST_F(PluginAdmission, AnImageThatMovedNothingGivesNothingBack) {
    throttling_server_s* const server = open_server();
    throttling_image_s* const image = create(server);
    asked();
    close(image);
    EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(PluginAdmission, TwoServersHaveASessionEach) {
    throttling_server_s* const first = open_server();
    throttling_server_s* const second = open_server("CS_throttle:cloud:disk:glacier");
    create(first);
    EXPECT_EQ(asked(), join({new_session, {settings_of_s3, claim}}));
    create(second);
    EXPECT_EQ(asked("cloud", "glacier"),
              join({new_session,
                    {"settings(cloud, glacier)", "check_connections(\"a:glacier\", \"a_b\", 1)"}}));
}

TEST_F(PluginAdmission, AServerThatOpensAgainHasANewSession) {
    throttling_server_s* server = open_server();
    close(create(server));
    close_server(server);
    asked();
    server = open_server();
    create(server);
    EXPECT_EQ(asked(), join({new_session, {settings_of_s3, claim}}));
}

TEST_F(PluginAdmission, AGlobalServerAsksNothing) {
    throttling_server_s* const server = open_server("CS_throttle:global:disk:s3");
    throttling_image_s* const image = create(server);
    write(image, 10);
    close(image);
    close_server(server);
    EXPECT_THAT(asked(), IsEmpty());
    EXPECT_THAT(take_errors(), IsEmpty());
}

TEST_F(PluginAdmission, WithThrottlingOffNothingIsAsked) {
    settings("THR:SAMPLE_INTERVAL=0\nTHR:s3=10\n");
    throttling_server_s* const server = open_server();
    throttling_image_s* const image = create(server);
    write(image, 10);
    close(image);
    close_server(server);
    EXPECT_THAT(asked(), IsEmpty());
}

// --- what the answer does

TEST_F(PluginAdmission, ARefusalFailsTheOpenBeforeTheNextLayerHearsOfIt) {
    service.answer("check_connections", returns(STS_ERR_MAX_CONNECTIONS, "full"));
    throttling_server_s* const server = open_server();
    EXPECT_EQ(create(server, "refused"), nullptr);
    EXPECT_EQ(status, STS_ERR_MAX_CONNECTIONS);
    EXPECT_TRUE(has_logged(STS_SEV_DEBUG, "[check_connections]leaving with return value =2060020, "
                                          "response recived =full"));
    EXPECT_THAT(take_errors(), ElementsAre("4 [create_or_open_image_v10]exceed max connections."));
    EXPECT_FALSE(is_on_disk("refused"));
    EXPECT_EQ(close_server(server), STS_OK);
}

TEST_F(PluginAdmission, ARefusalFailsTheOpenOfAnImageThatIsThere) {
    throttling_server_s* server = open_server();
    close(create(server));
    close_server(server);
    server = open_server();
    service.answer("check_connections", returns(STS_ERR_MAX_CONNECTIONS));
    EXPECT_EQ(open(server), nullptr);
    EXPECT_EQ(status, STS_ERR_MAX_CONNECTIONS);
}

TEST_F(PluginAdmission, AfterARefusalTheNextImageOfTheServerIsNotAskedFor) {
    service.answer("check_connections", returns(STS_ERR_MAX_CONNECTIONS));
    throttling_server_s* const server = open_server();
    create(server);
    asked();
    EXPECT_NE(create(server), nullptr);
    EXPECT_THAT(asked(), ElementsAre(settings_of_s3));
}

TEST_F(PluginAdmission, AnyOtherStatusIsToldAndTheOpenGoesOn) {
    for (const long answer : {1L, -1L, 2060017L, 2060021L}) {
        service.answer("check_connections", returns(answer));
        throttling_server_s* const server = open_server();
        close(create(server, "image" + std::to_string(answer)));
        EXPECT_EQ(status, STS_OK) << answer;
        EXPECT_THAT(take_errors(), ElementsAre(no_check));
        close_server(server);
        take_errors();
    }
}

TEST_F(PluginAdmission, SettingsThatTheServiceDoesNotTakeAreToldAndTheOpenGoesOn) {
    service.answer("update_ThrottleConfigParams", returns(7));
    EXPECT_NE(create(open_server()), nullptr);
    EXPECT_EQ(asked().back(), claim);
    EXPECT_THAT(take_errors(),
                ElementsAre("4 [create_or_open_image_v10]set config params error:7."));
}

TEST_F(PluginAdmission, TheAnswerIsToldStepByStep) {
    service.answer("check_connections", returns(0, reply_text(2, 4, 123, 7)));
    create(open_server());
    EXPECT_THAT(told_by("check_connections"),
                ElementsAre("enter.",
                            "response:0,connection# for r:2,connection# for w:4,free flow:123,wait "
                            "seconds:7",
                            "sleep for last transfer=7.", "leaving with return value =0"));
}

TEST_F(PluginAdmission, AWaitInTheAnswerDelaysTheOpen) {
    const std::vector<std::pair<long, std::vector<unsigned>>> cases = {
        {7, {7}}, {0, {}}, {-5, {}}, {4'294'967'296, {0}}, {4'294'967'303, {7}},
    };
    for (const auto& [wait, slept] : cases) {
        service.answer("check_connections", {returns(0, reply_text(1, 1, 0, wait)), {}});
        throttling_server_s* const server = open_server();
        close(create(server, "image" + std::to_string(wait)));
        EXPECT_EQ(clock.take_sleeps(), slept) << wait;
        close_server(server);
        EXPECT_THAT(clock.take_sleeps(), IsEmpty()) << wait;
    }
}

TEST_F(PluginAdmission, AnAnswerWithoutAWaitKeepsTheEarlierOneAndTakesIt) {
    throttling_image_s* const image = create(open_server());
    write(image, 10);
    service.answer("check_bandwidth", returns(0, reply_text(1, 1, 0, 9)));
    service.answer("check_connections", returns(0, reply_row("THR_W_CONNECTION_COUNTS", 1)));
    take_log();
    close(image); // its report is told of a wait, and what it gives back isn't
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(9U));
    EXPECT_THAT(told_by("check_connections"),
                ElementsAre("enter.",
                            "response:0,connection# for r:1,connection# for w:1,free flow:0,wait "
                            "seconds:9",
                            "sleep for last transfer=9.", "leaving with return value =0"));
}

TEST_F(PluginAdmission, ARefusalsTextChangesNothing) {
    service.answer("check_connections", returns(STS_ERR_MAX_CONNECTIONS, reply_text(8, 8, 8, 8)));
    throttling_server_s* const server = open_server();
    create(server);
    EXPECT_THAT(clock.take_sleeps(), IsEmpty());
    throttling_image_s* const image = create(server);
    write(image, 1000);
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(1U)); // alone, at 1000 bytes a second
}

TEST_F(PluginAdmission, ARefusalOfWhatIsGivenBackIsToldAndTheClosesGoOn) {
    throttling_server_s* const server = open_server();
    throttling_image_s* const image = create(server);
    write(image, 10);
    service.answer("check_connections", returns(STS_ERR_MAX_CONNECTIONS));
    take_log();
    close(image);
    EXPECT_THAT(take_errors(), ElementsAre("4 [throttling_close_image_v7]fail to check "
                                           "connections from service."));
    EXPECT_EQ(close_server(server), STS_OK);
    EXPECT_THAT(take_errors(), ElementsAre("4 [throttling_close_server_v7]fail to check "
                                           "connections from service."));
}

TEST_F(PluginAdmission, TheCountsInTheAnswerShareTheBandwidth) {
    service.answer("check_connections", returns(0, reply_text(2, 4)));
    service.answer("check_bandwidth", returns(0, "no values"));
    throttling_image_s* const image = create(open_server());
    write(image, 1000);
    write(image, 1); // the 1000 bytes take 4 seconds at 250 a second
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(4U));
}

TEST_F(PluginAdmission, ACountOfZeroInTheAnswerIsTakenForOne) {
    service.answer("check_connections", returns(0, reply_text(0, 0)));
    service.answer("check_bandwidth", returns(0, "no values"));
    throttling_image_s* const image = create(open_server());
    write(image, 2000);
    write(image, 1);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(2U));
}

} // namespace
