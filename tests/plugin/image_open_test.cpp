// Creating and opening images: what the next layer gets, when the service is asked, and the one
// refusal that stops an open.

#include "tests/plugin/frame.h"
#include "tests/plugin/wrapped.h"

#include <cstring>

using testing::IsEmpty;

namespace {

/// What one open logs in the name of the function that does it.
std::string failure(const std::string& message) {
    return error_line("create_or_open_image_v10", message);
}

class ImageOpen : public Frame {
  protected:
    ~ImageOpen() override { wrapped::clear(); }

    /// Opens or creates an image and expects that to fail with nothing handed out.
    int fail_to_open(throttling_server_s* of) {
        const sts_lsu_ref_s lsu = lsu_of(of);
        throttling_image_s* out = untouched<throttling_image_s>();
        const int status = throttling_open_image_v10(&lsu, image_def, 3, &out);
        EXPECT_EQ(out, untouched<throttling_image_s>());
        EXPECT_EQ(of->open_handles, 0);
        return status;
    }
};

TEST_F(ImageOpen, AsksTheNextLayerToOpenAndLogsNothing) {
    const server_ptr server = open();
    const sts_lsu_ref_s lsu = lsu_of(server.get());
    throttling_image_s* image = nullptr;
    EXPECT_EQ(throttling_open_image_v10(&lsu, image_def, 0x80000001, &image), STS_OK);
    const image_ptr opened(image);
    EXPECT_EQ(take_whole_story(),
              lines{"-> open_image({#2 \"lsu1\"}, image_def, 2147483649, out)"});
}

TEST_F(ImageOpen, AsksTheNextLayerToCreateWhereTheHostCreates) {
    const server_ptr server = open();
    const sts_lsu_ref_s lsu = lsu_of(server.get());
    throttling_image_s* image = nullptr;
    EXPECT_EQ(throttling_create_image_v10(&lsu, image_def, 2, &image), STS_OK);
    const image_ptr opened(image);
    EXPECT_EQ(take_whole_story(), lines{"-> create_image({#2 \"lsu1\"}, image_def, 2, out)"});
}

TEST_F(ImageOpen, HandleHoldsBothRecordsAndHasBegunNothing) {
    const server_ptr server = open();
    const image_ptr image = open_image(server);
    EXPECT_EQ(image->magic, 0x35daa76bU);
    EXPECT_EQ(image->lsu.server, server.get());
    EXPECT_EQ(image->next_lsu.server, server->next_server);
    EXPECT_STREQ(image->lsu.name, "lsu1");
    EXPECT_STREQ(image->next_lsu.name, "lsu1");
    EXPECT_EQ(next_layer().text_of(image->next_image), "#3");
    EXPECT_EQ(image->io_flags, 0U);
    EXPECT_EQ(server->open_handles, 1);
}

TEST_F(ImageOpen, NextLayerGetsAll1024NameBytesInTheHandlesOwnRecord) {
    const server_ptr server = open();
    sts_lsu_ref_s lsu = lsu_of(server.get());
    memset(lsu.name + 6, 'x', sizeof lsu.name - 6); // also what follows the text
    throttling_image_s* opened = nullptr;
    EXPECT_EQ(throttling_open_image_v10(&lsu, image_def, 3, &opened), STS_OK);
    const image_ptr image(opened);
    const next_argument& given = next_layer().last("open_image").arguments[0];
    EXPECT_EQ(given.value, reinterpret_cast<uint64_t>(&image->next_lsu));
    EXPECT_EQ(given.content.substr(8), std::string(lsu.name, sizeof lsu.name));
    EXPECT_EQ(memcmp(image->lsu.name, lsu.name, sizeof lsu.name), 0);
}

TEST_F(ImageOpen, EachOpenRaisesTheServersCount) {
    const server_ptr server = open();
    image_ptr first = open_image(server);
    image_ptr second = open_image(server);
    EXPECT_EQ(server->open_handles, 2);
    first.reset();
    EXPECT_EQ(server->open_handles, 1);
}

TEST_F(ImageOpen, NextLayersFailureIsLoggedAndPassedUp) {
    const server_ptr server = open();
    next_layer().answers["open_image"] = -17;
    EXPECT_EQ(fail_to_open(server.get()), -17);
    EXPECT_EQ(take_whole_story(),
              (lines{"-> open_image({#2 \"lsu1\"}, image_def, 3, out)",
                     failure("fail to call the next plugin in the stack, error code = -17")}));

    next_layer().answers["create_image"] = 4711;
    const sts_lsu_ref_s lsu = lsu_of(server.get());
    throttling_image_s* out = untouched<throttling_image_s>();
    EXPECT_EQ(throttling_create_image_v10(&lsu, image_def, 3, &out), 4711);
    EXPECT_EQ(out, untouched<throttling_image_s>());
    EXPECT_EQ(take_whole_story(),
              (lines{"-> create_image({#2 \"lsu1\"}, image_def, 3, out)",
                     failure("fail to call the next plugin in the stack, error code = 4711")}));
}

TEST_F(ImageOpen, WithNoNextLayerBoundAnswersNotInit) {
    const server_ptr server = open();
    sts_api = nullptr;
    EXPECT_EQ(fail_to_open(server.get()), STS_ERR_NOT_INIT);
    EXPECT_EQ(take_whole_story(),
              lines{failure("fail to call the next plugin in the stack, error code = 2060010")});
}

TEST_F(ImageOpen, OnAServerWithoutANextLayerPassesANullServer) {
    const server_ptr server = open("CS_throttle:global:");
    const image_ptr image = open_image(server);
    EXPECT_EQ(image->next_lsu.server, nullptr);
}

TEST_F(ImageOpen, BadArgumentsAreRefusedWithoutALine) {
    const server_ptr server = open();
    const sts_lsu_ref_s good = lsu_of(server.get());
    const sts_lsu_ref_s no_server = lsu_of(nullptr);
    for (const auto entry : {throttling_open_image_v10, throttling_create_image_v10}) {
        throttling_image_s* out = untouched<throttling_image_s>();
        EXPECT_EQ(entry(nullptr, image_def, 3, &out), STS_ERR_INVALID);
        EXPECT_EQ(entry(&no_server, image_def, 3, &out), STS_ERR_INVALID);
        EXPECT_EQ(entry(&good, nullptr, 3, &out), STS_ERR_INVALID);
        EXPECT_EQ(entry(&good, image_def, 3, nullptr), STS_ERR_INVALID);
        server->magic = 0;
        EXPECT_EQ(entry(&good, image_def, 3, &out), STS_ERR_INVALID);
        server->magic = SERVER_MAGIC;
        EXPECT_EQ(out, untouched<throttling_image_s>());
    }
    EXPECT_EQ(take_whole_story(), lines{});
}

// --- the service -------------------------------------------------------------------------------

class ImageOpenThrottled : public ImageOpen {
  protected:
    ImageOpenThrottled() {
        turn_throttling_on();
        server = open();
    }

    const std::string open_call = "-> open_image({#2 \"lsu1\"}, image_def, 3, out)";
    server_ptr server;
};

TEST_F(ImageOpenThrottled, ConnectsThenSendsTheSettingsThenClaimsAConnectionThenOpens) {
    const sts_lsu_ref_s lsu = lsu_of(server.get());
    throttling_image_s* opened = nullptr;
    EXPECT_EQ(throttling_open_image_v10(&lsu, image_def, 3, &opened), STS_OK);
    const image_ptr image(opened);
    EXPECT_EQ(take_story(),
              (lines{"3 [set_config_params]enter.", "=> set_config_params",
                     "3 [set_config_params]leaving with status 0", "3 [check_connections]enter.",
                     "=> check_connections(a:s3, a_b, 1)",
                     "3 [check_connections]response:0,connection# for r:1,connection# for w:1,free "
                     "flow:0,wait seconds:0",
                     "3 [check_connections]leaving with return value =0", open_call}));
    EXPECT_EQ(service().clients_made, 1);
    EXPECT_EQ(service().session, &server->session);
    EXPECT_THAT(service().take()[0].key,
                testing::HasSubstr("name=THR:s3,description=maximum connections for cloud "
                                   "storage,type=int,value=10,fixed=n;"));
}

TEST_F(ImageOpenThrottled, SecondOpenSendsTheSettingsAgainButClaimsNoFurtherConnection) {
    const image_ptr first = open_image(server);
    const sts_lsu_ref_s lsu = lsu_of(server.get());
    throttling_image_s* opened = nullptr;
    EXPECT_EQ(throttling_create_image_v10(&lsu, image_def, 3, &opened), STS_OK);
    const image_ptr second(opened);
    EXPECT_EQ(take_story(),
              (lines{"3 [set_config_params]enter.", "=> set_config_params",
                     "3 [set_config_params]leaving with status 0", "3 [check_connections]enter.",
                     "3 [check_connections]Has check reference count for r+w == 2, so leave.",
                     "-> create_image({#2 \"lsu1\"}, image_def, 3, out)"}));
    EXPECT_EQ(service().clients_made, 1);
}

TEST_F(ImageOpenThrottled, SampleIntervalOfTheServerIsTheSwitchAndIsReadAtEachOpen) {
    server->config.sample_interval = 0;
    image_ptr image = open_image(server);
    EXPECT_EQ(server->connector.is_throttling_enabled(), 0);
    EXPECT_THAT(service().exchanges, IsEmpty());
    EXPECT_EQ(service().clients_made, 0);
    server->config.sample_interval = 1;
    image = open_image(server);
    EXPECT_EQ(server->connector.is_throttling_enabled(), 1);
    EXPECT_EQ(service().clients_made, 1);
    server->config.sample_interval = 0;
    image = open_image(server);
    EXPECT_EQ(server->connector.is_throttling_enabled(), 0);
    server->config.sample_interval = 1; // or the close would leave the client alone
    image = open_image(server);
}

TEST_F(ImageOpenThrottled, RefusalStopsTheOpenBeforeTheNextLayerIsAsked) {
    service().replies.push_back({STS_ERR_MAX_CONNECTIONS, "full"});
    EXPECT_EQ(fail_to_open(server.get()), STS_ERR_MAX_CONNECTIONS);
    EXPECT_EQ(take_story(),
              (lines{"3 [set_config_params]enter.", "=> set_config_params",
                     "3 [set_config_params]leaving with status 0", "3 [check_connections]enter.",
                     "=> check_connections(a:s3, a_b, 1)",
                     "3 [check_connections]leaving with return value =2060020, response recived "
                     "=full",
                     failure("exceed max connections.")}));
    EXPECT_EQ(throttling_close_server_v7(server.release()), STS_OK); // the count wasn't raised
}

TEST_F(ImageOpenThrottled, RefusedOpenThatIsTriedAgainIsAdmittedWithoutAQuestion) {
    service().replies.push_back({STS_ERR_MAX_CONNECTIONS, "full"});
    fail_to_open(server.get());
    service().take();
    const image_ptr image = open_image(server);
    EXPECT_NE(image, nullptr);
}

TEST_F(ImageOpenThrottled, ServiceThatCantBeReachedIsLoggedAndTheOpenGoesOn) {
    service().usual = {STS_ERR_FILE, "", false, false};
    const sts_lsu_ref_s lsu = lsu_of(server.get());
    throttling_image_s* opened = nullptr;
    EXPECT_EQ(throttling_open_image_v10(&lsu, image_def, 3, &opened), STS_OK);
    const image_ptr image(opened);
    const lines story = take_story();
    EXPECT_EQ((lines{story.end() - 3, story.end()}),
              (lines{"3 [check_connections]leaving with return value =2060017, response recived =",
                     failure("fail to check connections from service."), open_call}));
}

TEST_F(ImageOpenThrottled, SettingsThatCantBeSentAreLoggedAndTheOpenGoesOn) {
    service().params_reply.status = STS_ERR_FILE;
    const sts_lsu_ref_s lsu = lsu_of(server.get());
    throttling_image_s* opened = nullptr;
    EXPECT_EQ(throttling_open_image_v10(&lsu, image_def, 3, &opened), STS_OK);
    const image_ptr image(opened);
    const lines story = take_story();
    EXPECT_EQ((lines{story.begin() + 2, story.begin() + 5}),
              (lines{"3 [set_config_params]leaving with status 2060017",
                     failure("set config params error:2060017."), "3 [check_connections]enter."}));
    EXPECT_EQ(story.back(), open_call);
}

TEST_F(ImageOpenThrottled, EvenARefusalOfTheSettingsStopsNothing) {
    service().params_reply.status = STS_ERR_MAX_CONNECTIONS;
    EXPECT_NE(open_image(server), nullptr);
}

TEST_F(ImageOpenThrottled, ConnectorThatCantConnectIsLoggedAndTheOpenGoesOn) {
    wrapped::strdup_fails = true; // no memory for the session's identifier
    const sts_lsu_ref_s lsu = lsu_of(server.get());
    throttling_image_s* opened = nullptr;
    EXPECT_EQ(throttling_open_image_v10(&lsu, image_def, 3, &opened), STS_OK);
    const image_ptr image(opened);
    EXPECT_EQ(take_story(),
              (lines{failure("connect service error:2060002."), "3 [set_config_params]enter.",
                     "3 [check_connections]enter.", open_call}));
    EXPECT_THAT(service().exchanges, IsEmpty());
}

TEST_F(ImageOpenThrottled, GlobalServerNeedsNoServiceAndThatIsNoFailure) {
    const server_ptr global = open("CS_throttle:global:disk:s3");
    const sts_lsu_ref_s lsu = lsu_of(global.get());
    throttling_image_s* opened = nullptr;
    EXPECT_EQ(throttling_open_image_v10(&lsu, image_def, 3, &opened), STS_OK);
    const image_ptr image(opened);
    // The engine's own lines carry no session, so the host doesn't see them.
    EXPECT_EQ(take_story(), lines{"-> open_image({#4 \"lsu1\"}, image_def, 3, out)"});
    EXPECT_EQ(service().clients_made, 0);
}

TEST_F(ImageOpenThrottled, ConnectionStaysClaimedWhenTheNextLayerFails) {
    next_layer().answers["open_image"] = 4711;
    EXPECT_EQ(fail_to_open(server.get()), 4711);
    EXPECT_EQ(service().take().size(), 2U); // the settings and the claim; nothing is given back
    throttling_close_server_v7(server.release());
    const std::vector<exchange> exchanges = service().take();
    ASSERT_EQ(exchanges.size(), 1U);
    EXPECT_EQ(exchanges[0].delta, -1);
}

TEST_F(ImageOpenThrottled, WaitOfTheServiceDelaysTheOpen) {
    service().usual.out = reply_text(1, 1, 0, 9);
    const image_ptr image = open_image(server);
    EXPECT_THAT(clock.take_sleeps(), testing::ElementsAre(9U));
}

} // namespace
