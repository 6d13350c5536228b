// Whoever copies an image is killed at any moment: the copy is whole or it isn't there, the image
// that it is made from is as it was, and the next copy can be made.

#include "tests/platform/sts/store/kill_store.h"

using testing::ElementsAre;

namespace {

constexpr unsigned stored_version = 9;
constexpr uint64_t copied_at_once = 512;

class StsKillCopy : public KillStore {
  protected:
    StsKillCopy() {
        store_version("image", stored_version);
        create_lsu("target");
    }

    /// Copies the image into "target", block by block and to its end. The result.
    int copy_to(const std::string& name) {
        const sts_lsu_ref_s lsu = ref();
        const sts_image_def_s source = image_def("image");
        sts_copy_target_s target = {};
        set_field(target.lsu, "target");
        set_field(target.image, name);
        sts_disk_copy_params_s params = {};
        params.block_size = copied_at_once;
        sts_copy_params_s carried = {};
        memcpy(&carried, &params, sizeof carried);
        sts_next_operation_s* copy = nullptr;
        sts_async_status_s last = {};
        const int started = api->async_copy_image(nullptr, forward(&source), &lsu, forward(&target),
                                                  &copy, 0, carried);
        if (started != STS_OK) {
            return started;
        }
        EXPECT_EQ(api->async_wait(nullptr, copy, -1, &last), STS_OK);
        return last.result;
    }
    void expect_source() {
        EXPECT_THAT(image_names(), ElementsAre("image"));
        EXPECT_EQ(whole_version("image"), stored_version);
    }
    bool is_copied() { return !image_names("target").empty(); }
};

TEST_F(StsKillCopy, AtAnyOf100MomentsLeavesWholeCopiesOrNone) {
    size_t found = 0;
    const auto check = [&] {
        expect_source();
        for (const std::string& name : image_names("target")) {
            EXPECT_EQ(whole_version(name, "target"), stored_version);
            EXPECT_EQ(delete_image(name, "target"), STS_OK);
            ++found;
        }
        ASSERT_EQ(copy_to("another"), STS_OK);
        EXPECT_EQ(delete_image("another", "target"), STS_OK);
    };
    set("STS:SYNC_AT_CLOSE", 0);
    at_random_moments(
        100, 12000,
        [this](std::mt19937& random) { (void)copy_to("copy" + std::to_string(random() % 100)); },
        check);
    EXPECT_GT(found, 0U); // the copies were met at their work
    EXPECT_GT(left_behind, 0U);
}

TEST_F(StsKillCopy, AtEveryCallLeavesTheWholeCopyOrNone) {
    bool was_missing = false;
    at_every_call([this] { (void)delete_image("copy", "target"); },
                  [this] { EXPECT_EQ(copy_to("copy"), STS_OK); },
                  [&] {
                      expect_source();
                      if (is_copied()) {
                          EXPECT_EQ(whole_version("copy", "target"), stored_version);
                      } else {
                          was_missing = true;
                      }
                  });
    EXPECT_TRUE(was_missing);
    EXPECT_TRUE(is_copied());
}

} // namespace
