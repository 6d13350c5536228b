// throttling_close_server_v7: what is given back, in which order, and what failures change.

#include "tests/plugin/frame.h"
#include "tests/plugin/wrapped.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class ServerClose : public Frame {
  protected:
    ~ServerClose() override { wrapped::clear(); }

    static std::string failure(const std::string& message) {
        return error_line("throttling_close_server_v7", message);
    }

    const std::string enter = "3 [throttling_close_server_v7]enter.";
    const std::string leave = "3 [throttling_close_server_v7]leave.";
};

TEST_F(ServerClose, ClosesTheNextLayersServerAndThenItsSession) {
    EXPECT_EQ(throttling_close_server_v7(open().release()), STS_OK);
    EXPECT_EQ(take_whole_story(),
              (lines{enter, "-> close_handle(#2, 0)", "-> close_handle(#1, 0)", leave}));
}

TEST_F(ServerClose, ServerWithoutANextLayerClosesNothingBelow) {
    EXPECT_EQ(throttling_close_server_v7(open("CS_throttle:global:").release()), STS_OK);
    EXPECT_EQ(take_whole_story(), (lines{enter, leave}));
}

TEST_F(ServerClose, ServerThatCantBeClosedBelowIsLoggedAndDoesNotCount) {
    next_layer().effects["close_handle"] = [](const next_call& call) {
        next_layer().answers["close_handle"] = call.arguments[0].text == "#2" ? 0 : 4711;
    };
    next_layer().answers["close_handle"] = 4711; // the server; then its session is closed well
    EXPECT_EQ(throttling_close_server_v7(open().release()), STS_OK);
    EXPECT_EQ(take_whole_story(),
              (lines{enter, "-> close_handle(#2, 0)",
                     failure("fail to close server handle of the next plugin: 4711"),
                     "-> close_handle(#1, 0)", leave}));
}

TEST_F(ServerClose, StatusOfTheSessionsCloseIsTheResult) {
    next_layer().effects["close_handle"] = [](const next_call&) {
        next_layer().answers["close_handle"] = 4711;
    };
    EXPECT_EQ(throttling_close_server_v7(open().release()), 4711);
    EXPECT_EQ(take_whole_story(),
              (lines{enter, "-> close_handle(#2, 0)", "-> close_handle(#1, 0)",
                     failure("fail to close session handle of this plugin: 4711"), leave}));
}

TEST_F(ServerClose, HandleGoesAwayEvenIfEverythingBelowFails) {
    const fault::retained_memory kept;
    throttling_server_s* const server = open().release();
    next_layer().answers["close_handle"] = 4711;
    EXPECT_EQ(throttling_close_server_v7(server), 4711);
    EXPECT_EQ(server->magic, 0U);
    EXPECT_EQ(throttling_close_server_v7(server), STS_ERR_INVALID);
}

TEST_F(ServerClose, WithNoNextLayerBoundTheHandleGoesAwayAllTheSame) {
    throttling_server_s* const server = open().release();
    sts_api = nullptr;
    EXPECT_EQ(throttling_close_server_v7(server), STS_ERR_NOT_INIT);
    EXPECT_EQ(take_whole_story(),
              (lines{enter, failure("fail to close server handle of the next plugin: 2060010"),
                     failure("fail to close session handle of this plugin: 2060010"), leave}));
}

TEST_F(ServerClose, IsRefusedWhileAnImageIsOpenAndSucceedsLater) {
    server_ptr server = open();
    image_ptr image = open_image(server);
    EXPECT_EQ(server->open_handles, 1);
    EXPECT_EQ(throttling_close_server_v7(server.get()), STS_ERR_BUSY);
    EXPECT_EQ(take_whole_story(), lines{enter});
    EXPECT_EQ(server->magic, 0xab83356fU);
    image.reset();
    EXPECT_EQ(throttling_close_server_v7(server.release()), STS_OK);
    EXPECT_THAT(next_layer().open_handles(), IsEmpty());
}

TEST_F(ServerClose, IsRefusedWhileTheCountIsBelowZeroToo) {
    const server_ptr server = open();
    server->open_handles = -1;
    EXPECT_EQ(throttling_close_server_v7(server.get()), STS_ERR_BUSY);
}

TEST_F(ServerClose, NullAndAForeignMagicAreRefusedWithoutALine) {
    EXPECT_EQ(throttling_close_server_v7(nullptr), STS_ERR_INVALID);
    const server_ptr server = open();
    server->magic = IMAGE_MAGIC;
    EXPECT_EQ(throttling_close_server_v7(server.get()), STS_ERR_INVALID);
    server->magic = SERVER_MAGIC;
    EXPECT_EQ(take_whole_story(), lines{});
}

// --- the service -------------------------------------------------------------------------------

class ServerCloseThrottled : public ServerClose {
  protected:
    ServerCloseThrottled() {
        turn_throttling_on();
        server = open();
        open_image(server).reset();
        forget();
    }

    server_ptr server;
};

TEST_F(ServerCloseThrottled, GivesItsConnectionBackBeforeAnythingIsClosedBelow) {
    EXPECT_EQ(throttling_close_server_v7(server.release()), STS_OK);
    EXPECT_EQ(take_story(),
              (lines{enter, "3 [check_connections]enter.", "=> check_connections(a:s3, a_b, -1)",
                     "3 [check_connections]response:0,connection# for r:1,connection# for w:1,free "
                     "flow:0,wait seconds:0",
                     "3 [check_connections]leaving with return value =0", "-> close_handle(#2, 0)",
                     "-> close_handle(#1, 0)", leave}));
}

TEST_F(ServerCloseThrottled, DeletesTheClient) {
    EXPECT_EQ(service().clients_alive, 1);
    throttling_close_server_v7(server.release());
    EXPECT_EQ(service().clients_alive, 0);
    EXPECT_EQ(service().clients_made, 1);
}

TEST_F(ServerCloseThrottled, WaitOfTheServiceIsSleptThroughAtOnce) {
    service().usual.out = reply_text(1, 1, 0, 9);
    throttling_close_server_v7(server.release());
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(9U));
}

TEST_F(ServerCloseThrottled, ServiceThatFailsOrRefusesOrRunsOutOfMemoryIsLoggedAndTheCloseGoesOn) {
    for (const int status : {STS_ERR_FILE, STS_ERR_MAX_CONNECTIONS, STS_ERR_NOMEM}) {
        service().usual.status = status;
        service().usual.throws = status == STS_ERR_NOMEM;
        const std::string next_server = next_layer().text_of(server->next_server);
        const std::string next_session = next_layer().text_of(server->next_session);
        EXPECT_EQ(throttling_close_server_v7(server.release()), STS_OK);
        lines story = take_story();
        EXPECT_EQ((lines{story.end() - 4, story.end()}),
                  (lines{failure("fail to check connections from service."),
                         "-> close_handle(" + next_server + ", 0)",
                         "-> close_handle(" + next_session + ", 0)", leave}));
        EXPECT_EQ(service().clients_alive, 0);
        service().usual = {0, reply_text(1, 1, 0, 0)};
        server = open();
        open_image(server).reset();
        forget();
    }
}

TEST_F(ServerCloseThrottled, DisconnectThatFailsIsLoggedAndTheCloseGoesOn) {
    wrapped::connector_disconnect = 55;
    EXPECT_EQ(throttling_close_server_v7(server.release()), STS_OK);
    const lines story = take_story();
    EXPECT_EQ((lines{story.end() - 4, story.end()}),
              (lines{failure("fail to disconnect from service."), "-> close_handle(#2, 0)",
                     "-> close_handle(#1, 0)", leave}));
}

TEST_F(ServerCloseThrottled, ServerThatNeverOpenedAnImageNeverAsksTheService) {
    throttling_close_server_v7(open("CS_throttle:cloud:disk:other").release());
    EXPECT_THAT(service().exchanges, IsEmpty());
    EXPECT_EQ(service().clients_made, 1); // that of the fixture's server
}

} // namespace
