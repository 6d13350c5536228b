// throttling_close_image_v7 with the real engine: the modes, the order of what is settled, and a
// close that the next layer refuses.

#include "tests/plugin/frame.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class ImageClose : public Frame {
  protected:
    void open_server_and_image() {
        server = open();
        image = open_image(server);
    }
    void read() { throttling_read_image_v7(image.get(), buffer, 1000, 0, &moved); }
    void write() { throttling_write_image_v7(image.get(), 5, buffer, 3000, 0, &moved); }

    char buffer[3000];
    uint64_t moved = 0;
    server_ptr server;
    image_ptr image;
};

TEST_F(ImageClose, PassesTheSecondModeUnlessItIsZero) {
    struct {
        int32_t first, second;
        const char* passed;
    } const cases[] = {{0, 0, "0"}, {3, 0, "3"}, {3, 5, "5"}, {0, 5, "5"}, {3, -1, "-1"}};
    server = open();
    for (const auto& each : cases) {
        image = open_image(server);
        const std::string closed = next_layer().text_of(image->next_image);
        EXPECT_EQ(throttling_close_image_v7(image.release(), each.first, each.second), STS_OK);
        EXPECT_EQ(take_whole_story(),
                  lines{"-> close_handle(" + closed + ", " + each.passed + ")"});
    }
}

TEST_F(ImageClose, LowersTheServersCountAndClearsTheMagic) {
    const fault::retained_memory kept;
    open_server_and_image();
    throttling_image_s* const closed = image.release();
    EXPECT_EQ(throttling_close_image_v7(closed, 0, 0), STS_OK);
    EXPECT_EQ(server->open_handles, 0);
    EXPECT_EQ(closed->magic, 0U);
    EXPECT_EQ(throttling_close_image_v7(closed, 0, 0), STS_ERR_INVALID);
    EXPECT_EQ(server->open_handles, 0);
}

TEST_F(ImageClose, RefusedByTheNextLayerIsLoggedAndTheHandleGoesAwayAllTheSame) {
    const fault::retained_memory kept;
    open_server_and_image();
    throttling_image_s* const closed = image.release();
    next_layer().answers["close_handle"] = 4711;
    EXPECT_EQ(throttling_close_image_v7(closed, 0, 0), 4711);
    EXPECT_EQ(take_whole_story(),
              (lines{"-> close_handle(#3, 0)",
                     error_line("throttling_close_image_v7",
                                "fail to call sts_close_image, error code = 4711")}));
    EXPECT_EQ(server->open_handles, 0);
    EXPECT_EQ(throttling_close_image_v7(closed, 0, 0), STS_ERR_INVALID);
    EXPECT_EQ(take_whole_story(), lines{});
}

TEST_F(ImageClose, WithNoNextLayerBoundTheHandleGoesAwayAllTheSame) {
    open_server_and_image();
    sts_api = nullptr;
    EXPECT_EQ(throttling_close_image_v7(image.release(), 0, 0), STS_ERR_NOT_INIT);
    EXPECT_EQ(server->open_handles, 0);
}

TEST_F(ImageClose, OfNothingIsInvalid) {
    EXPECT_EQ(throttling_close_image_v7(nullptr, 0, 0), STS_ERR_INVALID);
    EXPECT_EQ(take_whole_story(), lines{});
}

// --- the service -------------------------------------------------------------------------------

class ImageCloseThrottled : public ImageClose {
  protected:
    ImageCloseThrottled() {
        turn_throttling_on();
        open_server_and_image();
    }
};

TEST_F(ImageCloseThrottled, ClosesBelowThenReportsReadAndWriteThenGivesBothConnectionsBack) {
    read();
    write();
    forget();
    EXPECT_EQ(throttling_close_image_v7(image.release(), 3, 0), STS_OK);
    const std::string response = "response:0,connection# for r:1,connection# for w:1,free "
                                 "flow:0,wait seconds:0";
    const lines checked = {"3 [check_bandwidth]enter.", "3 [get_bandwidth_per_second]Enter.",
                           "3 [get_bandwidth_per_second]Leave.",
                           "3 [check_bandwidth]bandwidth_per_second=1000,conne#=1."};
    const lines reported = {"3 [check_bandwidth]" + response,
                            "3 [check_bandwidth]leaving with return vale 0"};
    const lines given_back = {"3 [check_connections]" + response,
                              "3 [check_connections]leaving with return value =0"};
    lines expected = {"-> close_handle(#3, 3)"};
    const auto add = [&](const lines& more) {
        expected.insert(expected.end(), more.begin(), more.end());
    };
    add(checked);
    add({"3 [check_bandwidth]gap_seconds=0,bandwidth->data_length=1000.",
         "3 [check_bandwidth]sleep locally=1.", "sleep(1)", "3 [check_bandwidth]wait_seconds_=0.",
         "=> check_bandwidth(r:s3, a_b, 1000 bytes)"});
    add(reported);
    add(checked);
    add({"3 [check_bandwidth]gap_seconds=1,bandwidth->data_length=3000.",
         "3 [check_bandwidth]sleep locally=2.", "sleep(2)", "3 [check_bandwidth]wait_seconds_=0.",
         "=> check_bandwidth(w:s3, a_b, 3000 bytes)"});
    add(reported);
    add({"3 [check_connections]enter.", "=> check_connections(r:s3, a_b, -1)"});
    add(given_back);
    add({"3 [check_connections]enter.", "=> check_connections(w:s3, a_b, -1)"});
    add(given_back);
    EXPECT_EQ(take_whole_story(), expected);
}

TEST_F(ImageCloseThrottled, LastBytesArePacedToo) {
    write();
    image.reset();
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(3U));
}

TEST_F(ImageCloseThrottled, ImageThatWasNeverReadOrWrittenTellsTheServiceNothing) {
    EXPECT_EQ(throttling_close_image_v7(image.release(), 0, 0), STS_OK);
    EXPECT_EQ(take_whole_story(), lines{"-> close_handle(#3, 0)"});
    EXPECT_THAT(service().exchanges, IsEmpty());
}

TEST_F(ImageCloseThrottled, OnlyTheLastImageOfADirectionGivesTheConnectionBack) {
    image_ptr second = open_image(server);
    read();
    throttling_read_image_v7(second.get(), buffer, 1, 0, &moved);
    service().take();
    image.reset();
    ASSERT_EQ(service().exchanges.size(), 1U);
    EXPECT_EQ(service().take()[0].call, "check_bandwidth");
    second.reset();
    ASSERT_EQ(service().exchanges.size(), 2U);
    EXPECT_EQ(service().take()[1].call, "check_connections");
}

TEST_F(ImageCloseThrottled, RefusedByTheNextLayerSettlesWithTheServiceAllTheSame) {
    read();
    service().take();
    next_layer().answers["close_handle"] = 4711;
    EXPECT_EQ(throttling_close_image_v7(image.release(), 0, 0), 4711);
    EXPECT_EQ(service().exchanges.size(), 2U);
}

TEST_F(ImageCloseThrottled, EngineThatRunsOutOfMemoryIsLoggedAndTheHandleGoesAway) {
    read();
    write();
    service().usual.throws = true;
    EXPECT_EQ(throttling_close_image_v7(image.release(), 0, 0), STS_OK);
    for (const char* what : {"read bandwidth", "write bandwidth", "connections"}) {
        EXPECT_TRUE(has_logged(STS_SEV_ERROR, std::string("[throttling_close_image_v7]fail to "
                                                          "check ") +
                                                  what + " from service."));
    }
    EXPECT_EQ(server->open_handles, 0);
}

} // namespace
