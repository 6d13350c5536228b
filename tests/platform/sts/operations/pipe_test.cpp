// Servers that keep nothing.

#include "tests/platform/sts/disk_store.h"

#include <filesystem>

namespace {

class StsPipe : public DiskStore {
  protected:
    sts_next_server_s* open_pipe(const std::string& name = "pipe:nas1") {
        sts_next_server_s* opened = nullptr;
        EXPECT_EQ(api->open_server(session, name.c_str(), nullptr, 0, &opened), STS_OK);
        return opened;
    }
    static sts_lsu_ref_s lsu_of(sts_next_server_s* pipe) {
        sts_lsu_ref_s lsu = {};
        lsu.server = reinterpret_cast<decltype(lsu.server)>(pipe);
        set_field(lsu.name, "any");
        return lsu;
    }
};

TEST_F(StsPipe, TakesAnyBytesAndGivesZeros) {
    sts_next_server_s* const pipe = open_pipe();
    const sts_lsu_ref_s lsu = lsu_of(pipe);
    const sts_image_def_s image = image_def("a");
    sts_next_image_s* handles[2] = {};
    ASSERT_EQ(api->create_image(&lsu, &image, STS_IMAGE_WRITE, &handles[0]), STS_OK);
    ASSERT_EQ(api->open_image(&lsu, &image, STS_IMAGE_READ, &handles[1]), STS_OK);
    uint64_t moved = 0;
    EXPECT_EQ(api->write_image(handles[0], 0, "hello", 5, 1ULL << 62, &moved), STS_OK);
    EXPECT_EQ(moved, 5U);
    char bytes[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(api->read_image(handles[1], bytes, 3, 7, &moved), STS_OK);
    EXPECT_EQ(moved, 3U);
    EXPECT_EQ(std::string(bytes, 4), std::string("\0\0\0x", 4));
    EXPECT_EQ(close(pipe), STS_ERR_BUSY);
    EXPECT_EQ(close(handles[0], 7), STS_ERR_INVALID);
    EXPECT_EQ(close(handles[1], STS_CLOSE_ABANDON), STS_OK);
    EXPECT_EQ(close(pipe), STS_OK);
    EXPECT_EQ(close(pipe), STS_ERR_INVALID);
    EXPECT_EQ(api->write_image(handles[1], 0, "hello", 5, 0, &moved), STS_ERR_INVALID);
}

TEST_F(StsPipe, RefusesNamesThatAreNone) {
    sts_next_server_s* opened = nullptr;
    for (const char* const name : {"pipe:", "pipe:..", "pipe:a/b"}) {
        EXPECT_EQ(api->open_server(session, name, nullptr, 0, &opened), STS_ERR_INVALID) << name;
    }
    sts_next_server_s* const pipe = open_pipe();
    sts_lsu_ref_s lsu = lsu_of(pipe);
    sts_next_image_s* handle = nullptr;
    sts_image_def_s image = image_def("..");
    EXPECT_EQ(api->create_image(&lsu, &image, STS_IMAGE_WRITE, &handle), STS_ERR_INVALID);
    EXPECT_EQ(api->create_image(&lsu, nullptr, STS_IMAGE_WRITE, &handle), STS_ERR_INVALID);
    image = image_def("a");
    EXPECT_EQ(api->open_image(&lsu, &image, 64, &handle), STS_ERR_INVALID);
    EXPECT_EQ(api->open_image(nullptr, &image, STS_IMAGE_READ, &handle), STS_ERR_INVALID);
    set_field(lsu.name, "..");
    EXPECT_EQ(api->open_image(&lsu, &image, STS_IMAGE_READ, &handle), STS_ERR_INVALID);
}

TEST_F(StsPipe, AnswersAllElseAsAHandleOfTheWrongKind) {
    sts_next_server_s* const pipe = open_pipe();
    const sts_lsu_ref_s lsu = lsu_of(pipe);
    sts_server_info_s info = {};
    EXPECT_EQ(api->get_server_prop(pipe, &info), STS_ERR_INVALID);
    sts_next_lsu_list_s* list = nullptr;
    EXPECT_EQ(api->open_lsu_list(pipe, 0, &list), STS_ERR_INVALID);
    sts_image_def_s image = image_def("a");
    EXPECT_EQ(api->delete_image(&lsu, &image, 0), STS_ERR_INVALID);
    sts_next_image_s* handle = nullptr;
    ASSERT_EQ(api->create_image(&lsu, &image, STS_IMAGE_WRITE, &handle), STS_OK);
    sts_image_info_s shown = {};
    EXPECT_EQ(api->get_image_prop(handle, &shown), STS_ERR_INVALID);
    EXPECT_EQ(api->write_image_meta(handle, forward("x"), 1, 0, forward(&shown), 0),
              STS_ERR_INVALID);
}

} // namespace
