// Handles that must not be trusted: stale ones and those of another kind, at every entry that takes
// one. Null is held beside each entry's own tests.

#include "tests/plugin/frame.h"

#include <cstring>

namespace {

class Handles : public Frame {
  protected:
    /// Every entry that takes a server refuses this one, without a line or a call.
    void expect_refused_as_server(throttling_server_s* server) {
        char info[STS_NAME_SIZE];
        EXPECT_EQ(throttling_close_server_v7(server), STS_ERR_INVALID);
        EXPECT_EQ(throttling_get_server_prop_v8(server, reinterpret_cast<sts_server_info_s*>(info)),
                  STS_ERR_INVALID);
        const sts_lsu_ref_s lsu = lsu_of(server);
        throttling_image_s* out = untouched<throttling_image_s>();
        EXPECT_EQ(throttling_open_image_v10(&lsu, image_def, 3, &out), STS_ERR_INVALID);
        EXPECT_EQ(throttling_create_image_v10(&lsu, image_def, 3, &out), STS_ERR_INVALID);
        EXPECT_EQ(out, untouched<throttling_image_s>());
        EXPECT_EQ(take_whole_story(), lines{});
    }

    /// As above for an image.
    void expect_refused_as_image(throttling_image_s* image) {
        char buffer[16];
        uint64_t moved = 77;
        EXPECT_EQ(throttling_read_image_v7(image, buffer, 16, 0, &moved), STS_ERR_INVALID);
        EXPECT_EQ(throttling_write_image_v7(image, 5, buffer, 16, 0, &moved), STS_ERR_INVALID);
        EXPECT_EQ(throttling_close_image_v7(image, 0, 0), STS_ERR_INVALID);
        EXPECT_EQ(moved, 77U);
        EXPECT_EQ(take_whole_story(), lines{});
    }
};

TEST_F(Handles, StaleServerIsRefusedEverywhere) {
    const fault::retained_memory kept;
    throttling_server_s* const server = open().release();
    throttling_close_server_v7(server);
    forget();
    expect_refused_as_server(server);
}

TEST_F(Handles, ServerOfAFailedOpenIsStale) {
    const fault::retained_memory kept;
    const server_ptr other = open();
    const auto to_session =
        reinterpret_cast<char*>(&other->next_session) - reinterpret_cast<char*>(other.get());
    throttling_server_s* seen = nullptr;
    next_layer().effects["open_session"] = [&](const next_call& call) {
        // The place that the next layer stores its session in lies in the handle.
        seen = reinterpret_cast<throttling_server_s*>(call.pointer<char>(1) - to_session);
        EXPECT_EQ(seen->magic, 0xab83356fU);
    };
    next_layer().answers["open_session"] = 4711;
    throttling_server_s* out = nullptr;
    EXPECT_EQ(throttling_open_server_v7(&session, "CS_throttle:cloud:disk:s3", nullptr, 7, &out),
              4711);
    forget();
    ASSERT_NE(seen, nullptr);
    expect_refused_as_server(seen);
}

/// The server that the next layer's session was last stored in, and its magic at the last line.
throttling_server_s* opened = nullptr;
uint32_t magic_at_leave = 1;

TEST_F(Handles, ServerOfAFailedOpenIsReleasedBeforeTheLastLine) {
    const fault::retained_memory kept;
    const server_ptr other = open();
    const auto to_session =
        reinterpret_cast<char*>(&other->next_session) - reinterpret_cast<char*>(other.get());
    next_layer().effects["open_session"] = [&](const next_call& call) {
        opened = reinterpret_cast<throttling_server_s*>(call.pointer<char>(1) - to_session);
    };
    next_layer().answers["open_session"] = 4711;
    session.log = [](const char*, const char* message, sts_severity_v7_t) {
        if (opened != nullptr && strcmp(message, "[throttling_open_server_v7]leave.") == 0) {
            magic_at_leave = opened->magic;
        }
    };
    throttling_server_s* out = nullptr;
    throttling_open_server_v7(&session, "CS_throttle:cloud:disk:s3", nullptr, 7, &out);
    EXPECT_EQ(magic_at_leave, 0U);
    opened = nullptr;
}

TEST_F(Handles, StaleImageIsRefusedEverywhere) {
    const fault::retained_memory kept;
    const server_ptr server = open();
    throttling_image_s* const image = open_image(server).release();
    throttling_close_image_v7(image, 0, 0);
    forget();
    expect_refused_as_image(image);
}

TEST_F(Handles, ImageOfAFailedOpenIsStale) {
    const fault::retained_memory kept;
    const server_ptr server = open();
    throttling_image_s* seen = nullptr;
    next_layer().effects["open_image"] = [&](const next_call& call) {
        // So does the record, in the image's.
        seen = reinterpret_cast<throttling_image_s*>(call.arguments[0].value -
                                                     offsetof(throttling_image_s, next_lsu));
        EXPECT_EQ(seen->magic, 0x35daa76bU);
    };
    next_layer().answers["open_image"] = 4711;
    const sts_lsu_ref_s lsu = lsu_of(server.get());
    throttling_image_s* out = nullptr;
    EXPECT_EQ(throttling_open_image_v10(&lsu, image_def, 3, &out), 4711);
    forget();
    ASSERT_NE(seen, nullptr);
    expect_refused_as_image(seen);
}

TEST_F(Handles, HandleOfAnotherKindIsRefusedEverywhere) {
    const server_ptr server = open();
    const image_ptr image = open_image(server);
    expect_refused_as_server(reinterpret_cast<throttling_server_s*>(image.get()));
    expect_refused_as_image(reinterpret_cast<throttling_image_s*>(server.get()));
}

TEST_F(Handles, MemoryThatIsNoHandleIsRefusedEverywhere) {
    uint64_t words[] = {0, 1, 0xffffffff, 0xab83356e, 0x35daa76a};
    for (uint64_t& word : words) {
        expect_refused_as_server(reinterpret_cast<throttling_server_s*>(&word));
        expect_refused_as_image(reinterpret_cast<throttling_image_s*>(&word));
    }
}

} // namespace
