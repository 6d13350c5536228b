// Handles that aren't what a call wants: of another kind, stale, none at all.

#include "tests/conformance/storage.h"
#include "tests/support/fault.h"

#include <memory>

namespace {

class Refusal : public Storage {
  protected:
    /// Calls everything that looks at the handle of a server.
    void refuses_as_server(handle wrong) {
        sts_server_info_s info = {};
        char text[100] = {};
        uint32_t used = 0;
        handle opened;
        const auto buffer = std::make_unique<sts_config_buffer_s>();
        EXPECT_EQ(call::get_server_prop(wrong, &info), STS_ERR_INVALID);
        EXPECT_EQ(call::get_server_config(wrong, text, 100U, &used), STS_ERR_INVALID);
        EXPECT_EQ(call::set_server_config(wrong, "x", text, 100U), STS_ERR_INVALID);
        EXPECT_EQ(call::ioctl(wrong, 13U, buffer.get()), STS_ERR_INVALID);
        EXPECT_EQ(call::open_lsu_list(wrong, 0, out(opened)), STS_ERR_INVALID);
        refuses_in_lsu(wrong);
        if (!differs(rules::trusted_handles)) {
            const sts_lsu_def_s definition = lsu_def("x");
            sts_event_s event = {};
            sts_lsu_entry_s entry = {};
            EXPECT_EQ(call::create_lsu(wrong, &definition, out(opened)), STS_ERR_INVALID);
            EXPECT_EQ(call::find_lsu(wrong, forward("x"), forward(&entry), 0, 0, 0),
                      STS_ERR_INVALID);
            EXPECT_EQ(call::delete_event(wrong, &event), STS_ERR_INVALID);
            EXPECT_EQ(call::open_target_server(wrong, 0, 0, 0, out(opened)), STS_ERR_INVALID);
        }
        EXPECT_EQ(opened.value, nullptr);
    }
    /// The same for the record that names an LSU.
    void refuses_in_lsu(handle wrong) {
        const sts_lsu_ref_s lsu = ref_on(wrong);
        const sts_image_def_s image = image_def("image");
        const auto lsu_info = std::make_unique<sts_lsu_info_s>();
        const auto image_info = std::make_unique<sts_image_info_s>();
        handle opened;
        EXPECT_EQ(call::create_image(&lsu, &image, 0U, out(opened)), STS_ERR_INVALID);
        EXPECT_EQ(call::open_image(&lsu, &image, 0U, out(opened)), STS_ERR_INVALID);
        EXPECT_EQ(call::delete_image(&lsu, &image, 0U), STS_ERR_INVALID);
        EXPECT_EQ(call::get_image_prop_byname(&lsu, &image, image_info.get()), STS_ERR_INVALID);
        EXPECT_EQ(call::get_lsu_prop_byname(&lsu, lsu_info.get()), STS_ERR_INVALID);
        EXPECT_EQ(call::get_lsu_replication_prop(&lsu, 0U, nullptr, 0U, nullptr), STS_ERR_INVALID);
        EXPECT_EQ(call::open_image_list(&lsu, 0, out(opened)), STS_ERR_INVALID);
        EXPECT_EQ(opened.value, nullptr);
    }
    void refuses_as_image(handle wrong) {
        char buffer[10] = {};
        uint64_t moved = 0;
        EXPECT_EQ(call::read_image(wrong, buffer, 10, 0, &moved), STS_ERR_INVALID);
        EXPECT_EQ(call::write_image(wrong, 0, buffer, 10, 0, &moved), STS_ERR_INVALID);
        if (!differs(rules::trusted_handles)) {
            EXPECT_EQ(call::flush(wrong, 0, 0, 0, 0, 0), STS_ERR_INVALID);
            EXPECT_EQ(call::delete_files(wrong, STS_FILES_DATA, 0, 0, 0, 0), STS_ERR_INVALID);
            EXPECT_EQ(call::copy_extent(wrong, 0, wrong, 5, 1, forward(&moved), 0),
                      STS_ERR_INVALID);
            EXPECT_EQ(call::include_in_image(wrong, 0, wrong, forward(&moved), 0, 0),
                      STS_ERR_INVALID);
            EXPECT_EQ(call::read_image_meta(wrong, forward(buffer), 1, 0, forward(&moved), 0),
                      STS_ERR_INVALID);
            EXPECT_EQ(call::write_image_meta(wrong, forward(buffer), 1, 0, forward(&moved), 0),
                      STS_ERR_INVALID);
        }
    }
    void refuses_as_list(handle wrong) {
        sts_image_entry_s image = {};
        sts_lsu_entry_s lsu = {};
        EXPECT_EQ(call::list_image(wrong, &image), STS_ERR_INVALID);
        EXPECT_EQ(call::list_lsu(wrong, &lsu), STS_ERR_INVALID);
    }
};

TEST_F(Refusal, OfNoHandleAtAll) {
    refuses_as_server(handle{});
    refuses_as_image(handle{});
    refuses_as_list(handle{});
    EXPECT_EQ(call::close_server(handle{}), STS_ERR_INVALID);
    EXPECT_EQ(close(handle{}), STS_ERR_INVALID);
    EXPECT_EQ(call::close_image_list(handle{}), STS_ERR_INVALID);
    EXPECT_EQ(call::close_lsu_list(handle{}), STS_ERR_INVALID);
}

TEST_F(Refusal, OfAHandleOfAnotherKind) {
    const handle image = create("image");
    handle images;
    handle lsus;
    const sts_lsu_ref_s lsu = ref();
    ASSERT_EQ(call::open_image_list(&lsu, 0, out(images)), STS_OK);
    ASSERT_EQ(call::open_lsu_list(server, 0, out(lsus)), STS_OK);
    for (const handle each : {image, images, lsus}) {
        refuses_as_server(each);
    }
    for (const handle each : {server, images, lsus}) {
        refuses_as_image(each);
    }
    refuses_as_list(server);
    refuses_as_list(image);
    EXPECT_EQ(call::close_lsu_list(lsus), STS_OK);
    EXPECT_EQ(call::close_image_list(images), STS_OK);
    EXPECT_EQ(close(image), STS_OK);
}

TEST_F(Refusal, OfAHandleThatIsClosed) {
    const fault::retained_memory readable; // a layer looks at what it has released
    const sts_lsu_ref_s lsu = ref();
    const handle image = create("image");
    handle images;
    handle lsus;
    ASSERT_EQ(call::open_image_list(&lsu, 0, out(images)), STS_OK);
    ASSERT_EQ(call::open_lsu_list(server, 0, out(lsus)), STS_OK);
    EXPECT_EQ(close(image), STS_OK);
    EXPECT_EQ(call::close_image_list(images), STS_OK);
    EXPECT_EQ(call::close_lsu_list(lsus), STS_OK);
    const handle second = open_server();
    EXPECT_EQ(call::close_server(second), STS_OK);
    refuses_as_image(image);
    refuses_as_list(images);
    refuses_as_list(lsus);
    refuses_as_server(second);
    EXPECT_EQ(close(image), STS_ERR_INVALID);
    EXPECT_EQ(call::close_image_list(images), STS_ERR_INVALID);
    EXPECT_EQ(call::close_lsu_list(lsus), STS_ERR_INVALID);
    EXPECT_EQ(call::close_server(second), STS_ERR_INVALID);
}

} // namespace
