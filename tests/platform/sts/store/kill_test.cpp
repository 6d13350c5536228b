// A writer killed at any moment leaves whole images or none, and settings and labels as they were
// or as they were to be.

#include "tests/platform/sts/store/kill_store.h"

#include <csignal>
#include <functional>
#include <memory>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr unsigned old_version = 7;
constexpr unsigned new_version = 8;

class StsKill : public KillStore {
  protected:
    /// Creates, rewrites or deletes one of four images.
    void change_some_image(std::mt19937& random) {
        const sts_lsu_ref_s lsu = ref();
        const sts_image_def_s definition = image_def("image" + std::to_string(random() % 4));
        sts_next_image_s* image = nullptr;
        if (api->create_image(&lsu, &definition, 0, &image) == STS_OK ||
            api->open_image(&lsu, &definition, STS_IMAGE_WRITE, &image) == STS_OK) {
            write_version(image, random() % 256);
            (void)api->close_handle(image, STS_CLOSE_COMPLETE);
        }
        if (random() % 4 == 0) {
            (void)api->delete_image(&lsu, &definition, 0);
        }
    }
    bool is_there() { return !image_names().empty(); }
};

TEST_F(StsKill, AtAnyOf200MomentsLeavesWholeImagesOrNone) {
    set("STS:EVENTS_KEPT", 20);
    size_t found = 0;
    unsigned round = 0;
    const auto check = [&] {
        for (const std::string& name : image_names()) {
            whole_version(name);
            ++found;
        }
        set("STS:SYNC_AT_CLOSE", ++round % 10 == 0 ? 1 : 0);
    };
    at_random_moments(
        200, 12000, [this](std::mt19937& random) { change_some_image(random); }, check);
    EXPECT_GT(found, 0U); // the writer was met at its work
    EXPECT_GT(left_behind, 0U);
}

TEST_F(StsKill, AtEveryCallOfACreateLeavesTheWholeImageOrNone) {
    at_every_call([this] { (void)delete_image("image"); },
                  [this] { store_version("image", new_version); },
                  [this] {
                      if (is_there()) {
                          EXPECT_EQ(whole_version("image"), new_version);
                      }
                  });
    EXPECT_TRUE(is_there());
}

TEST_F(StsKill, AtEveryCallOfARewriteLeavesTheWholeOldImageOrTheWholeNewOne) {
    bool was_old = false;
    at_every_call([this] { store_version("image", old_version); },
                  [this] {
                      sts_next_image_s* const image = open("image", STS_IMAGE_WRITE);
                      write_version(image, new_version);
                      EXPECT_EQ(close(image), STS_OK);
                  },
                  [&] {
                      ASSERT_TRUE(is_there());
                      const unsigned version = whole_version("image");
                      EXPECT_TRUE(version == old_version || version == new_version) << version;
                      was_old = was_old || version == old_version;
                  });
    EXPECT_TRUE(was_old);
    EXPECT_EQ(whole_version("image"), new_version);
}

TEST_F(StsKill, AtEveryCallOfADeleteLeavesTheWholeImageOrNone) {
    bool was_there = false;
    at_every_call([this] { store_version("image", old_version); },
                  [this] { EXPECT_EQ(delete_image("image"), STS_OK); },
                  [&] {
                      if (is_there()) {
                          EXPECT_EQ(whole_version("image"), old_version);
                          was_there = true;
                      }
                  });
    EXPECT_TRUE(was_there);
    EXPECT_FALSE(is_there());
}

TEST_F(StsKill, AtEveryCallOfALabelLeavesTheOldOneOrTheNewOne) {
    const sts_lsu_ref_s lsu = ref();
    at_every_call([&] { ASSERT_EQ(api->label_lsu(&lsu, forward("old label")), STS_OK); },
                  [&] { EXPECT_EQ(api->label_lsu(&lsu, forward("new")), STS_OK); },
                  [&] {
                      const auto info = std::make_unique<sts_lsu_info_s>();
                      ASSERT_EQ(api->get_lsu_prop_byname(&lsu, info.get()), STS_OK);
                      const std::string label = info->label;
                      EXPECT_TRUE(label == "old label" || label == "new") << label;
                  });
}

TEST_F(StsKill, AtEveryCallOfASettingLeavesTheOldOnesOrTheNewOnes) {
    at_every_call(
        [this] {
            set("STS:EVENTS_KEPT", 100);
            set("STS:SYNC_AT_CLOSE", 1);
        },
        [this] {
            char error[100];
            EXPECT_EQ(api->set_server_config(
                          server, "name=STS:EVENTS_KEPT,value=20;name=STS:SYNC_AT_CLOSE,value=0;",
                          error, sizeof error),
                      STS_OK);
        },
        [this] {
            char text[STS_CONFIG_SIZE];
            uint32_t used = 0;
            ASSERT_EQ(api->get_server_config(server, text, sizeof text, &used), STS_OK);
            const std::string all = text;
            EXPECT_EQ(all.find("value=100,") != std::string::npos,
                      all.find("value=1,") != std::string::npos);
            EXPECT_EQ(all.find("value=20,") != std::string::npos,
                      all.find("value=0,") != std::string::npos);
        });
}

// --- drafts -------------------------------------------------------------------------------------

TEST_F(StsKill, LeavesTheDraftOfALivingWriterAlone) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t writer = fork();
    ASSERT_NE(writer, -1);
    if (writer == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        create("image");
        (void)!::write(ready[1], "x", 1);
        pause();
    }
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    ASSERT_EQ(close(open_server()), STS_OK);
    EXPECT_EQ(leftovers(), 1U);
    kill(writer, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(writer, &status, 0), writer);
    ASSERT_EQ(close(open_server()), STS_OK);
    EXPECT_EQ(leftovers(), 0U);
    ::close(ready[0]);
    ::close(ready[1]);
}

TEST_F(StsKill, LeavesAnLsuThatCanBeDeleted) {
    const pid_t writer = fork();
    ASSERT_NE(writer, -1);
    if (writer == 0) {
        create("image");
        kill(getpid(), SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(waitpid(writer, &status, 0), writer);
    EXPECT_EQ(leftovers(), 1U);
    const sts_lsu_ref_s lsu = ref();
    EXPECT_EQ(api->delete_lsu(&lsu), STS_OK);
}

} // namespace
