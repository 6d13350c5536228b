// Images where memory can't be had, and the paths that must do without any.

#include "tests/plugin/frame.h"
#include "tests/plugin/memory_layer.h"

#include <cstring>

namespace {

class ImageMemory : public Frame {
  protected:
    ImageMemory() {
        session.log = nullptr; // what keeps lines or exchanges would allocate
        service().on_exchange = nullptr;
        sts_api = memory_layer::table();
    }

    /// Opens an image that has data to read, and has read and written once.
    void open_warm_image() {
        server = open();
        image = open_image(server);
        memset(buffer, 0, sizeof buffer);
        transfer();
    }
    void transfer() {
        EXPECT_EQ(throttling_write_image_v7(image.get(), 5, buffer, sizeof buffer, 0, &moved), 0);
        EXPECT_EQ(throttling_read_image_v7(image.get(), buffer, sizeof buffer, 0, &moved), 0);
    }

    char buffer[512];
    uint64_t moved = 0;
    server_ptr server;
    image_ptr image;
};

TEST_F(ImageMemory, ReadsAndWritesDontAllocateWithThrottlingOff) {
    open_warm_image();
    fault::take_allocations();
    for (int i = 0; i < 100; ++i) {
        transfer();
    }
    EXPECT_EQ(fault::take_allocations(), 0);
}

TEST_F(ImageMemory, ReadsAndWritesDontAllocateWithThrottlingOnWhereNothingIsReported) {
    files.write_plugin_file("THR:SAMPLE_INTERVAL=30\n");
    open_warm_image();
    fault::take_allocations();
    for (int i = 0; i < 100; ++i) {
        transfer();
    }
    EXPECT_EQ(fault::take_allocations(), 0);
    EXPECT_EQ(server->bandwidth[OPERATION_WRITE].data_length, 101 * sizeof buffer);
}

TEST_F(ImageMemory, OpenWithoutMemoryForItsHandleLeavesOutAsItWas) {
    server = open();
    const sts_lsu_ref_s lsu = lsu_of(server.get());
    const long open_before = memory_layer::open_handles();
    for (const auto entry : {throttling_open_image_v10, throttling_create_image_v10}) {
        throttling_image_s* out = untouched<throttling_image_s>();
        fault::fail_new_after(0);
        const int status = entry(&lsu, image_def, 3, &out);
        fault::fail_new_after(-1);
        EXPECT_EQ(status, STS_ERR_NOMEM);
        EXPECT_EQ(out, untouched<throttling_image_s>());
        EXPECT_EQ(server->open_handles, 0);
        EXPECT_EQ(memory_layer::open_handles(), open_before);
    }
}

TEST_F(ImageMemory, OpenWithoutMemoryAnywhereInTheEngineGoesOn) {
    turn_throttling_on();
    int passed_over = 0;
    for (int count = 0;; ++count) {
        server = open();
        const sts_lsu_ref_s lsu = lsu_of(server.get());
        const long open_before = memory_layer::open_handles();
        throttling_image_s* out = untouched<throttling_image_s>();
        fault::fail_new_after(count);
        const int status = throttling_open_image_v10(&lsu, image_def, 3, &out);
        fault::fail_new_after(-1);
        if (status == STS_ERR_NOMEM) { // the handle is the last thing that needs memory
            EXPECT_EQ(out, untouched<throttling_image_s>());
            EXPECT_EQ(server->open_handles, 0);
            EXPECT_EQ(memory_layer::open_handles(), open_before);
            break;
        }
        ASSERT_EQ(status, STS_OK) << count;
        ++passed_over;
        image.reset(out);
        transfer();
        image.reset();
    }
    EXPECT_GT(passed_over, 3);
}

TEST_F(ImageMemory, FailuresOfTheEngineForWantOfMemoryAreLoggedWithTheirStatus) {
    turn_throttling_on();
    session = host_session();
    server = open();
    service().params_reply.throws = true;
    service().usual.throws = true;
    const sts_lsu_ref_s lsu = lsu_of(server.get());
    throttling_image_s* out = nullptr;
    EXPECT_EQ(throttling_open_image_v10(&lsu, image_def, 3, &out), STS_OK);
    image.reset(out);
    EXPECT_TRUE(
        has_logged(STS_SEV_ERROR, "[create_or_open_image_v10]set config params error:2060002."));
    EXPECT_TRUE(has_logged(STS_SEV_ERROR,
                           "[create_or_open_image_v10]fail to check connections from service."));
}

TEST_F(ImageMemory, ReportWithoutMemoryAnywhereLetsTheDataFlow) {
    turn_throttling_on();
    for (int count = 0; count < 12; ++count) {
        server = open();
        image = open_image(server);
        fault::fail_new_after(count);
        const int written =
            throttling_write_image_v7(image.get(), 5, buffer, sizeof buffer, 0, &moved);
        const int read = throttling_read_image_v7(image.get(), buffer, sizeof buffer, 0, &moved);
        fault::fail_new_after(-1);
        EXPECT_EQ(written, STS_OK) << count;
        EXPECT_EQ(read, STS_OK) << count;
        image.reset();
    }
}

} // namespace
