// A writer killed at any moment leaves whole images or none: at random moments, and then at every
// single call that changes a file.

#include "tests/platform/disk_store.h"
#include "tests/platform/system_calls.h"

#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr size_t block_size = 4096;
constexpr uint64_t image_count = 4;

/// One block of an image: the same byte all over, its version.
std::string block_of(unsigned version) {
    return std::string(block_size, static_cast<char>(version));
}

/// How many blocks an image has in that version.
size_t blocks_in(unsigned version) { return 1 + version % 5; }

class StsKill : public DiskStore {
  protected:
    /// Creates, rewrites and deletes images until somebody ends it.
    [[noreturn]] void write_for_ever(unsigned seed) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        std::mt19937 random(seed);
        for (unsigned version = seed;; ++version) {
            const std::string name = "image" + std::to_string(random() % image_count);
            const sts_lsu_ref_s lsu = ref();
            const sts_image_def_s definition = image_def(name);
            sts_next_image_s* image = nullptr;
            if (api->create_image(&lsu, &definition, 0, &image) == STS_OK ||
                api->open_image(&lsu, &definition, STS_IMAGE_WRITE, &image) == STS_OK) {
                write_version(image, version % 256);
                (void)api->close_handle(image, STS_CLOSE_COMPLETE);
            }
            if (random() % 4 == 0) {
                (void)api->delete_image(&lsu, &definition, 0);
            }
        }
    }

    void write_version(sts_next_image_s* image, unsigned version) {
        uint64_t count = 0;
        (void)api->delete_files(image, STS_FILES_DATA | STS_FILES_META, 0, 0, 0, 0);
        const std::string block = block_of(version);
        for (size_t each = 0; each < blocks_in(version); ++each) {
            (void)api->write_image(image, 0, block.data(), block.size(), each * block_size, &count);
        }
        (void)api->write_image_meta(image, forward(block.data()), 10, 0, forward(&count), 0);
    }

    /// Whether the image is one version from end to end, its metadata too.
    void expect_whole(const std::string& name) {
        sts_next_image_s* const image = open(name);
        const std::string data = read(image);
        ASSERT_FALSE(data.empty());
        const auto version = static_cast<unsigned char>(data[0]);
        EXPECT_EQ(data, std::string(blocks_in(version) * block_size, data[0])) << name;
        char meta[11] = {};
        uint64_t count = 0;
        EXPECT_EQ(api->read_image_meta(image, forward(meta), sizeof meta, 0, forward(&count), 0),
                  STS_OK);
        EXPECT_EQ(std::string(meta, count), std::string(10, data[0])) << name;
        EXPECT_EQ(close(image), STS_OK);
    }

    void expect_readable_events() {
        sts_next_evchannel_s* channel = nullptr;
        ASSERT_EQ(api->open_evchannel(session, 0, 0, &channel), STS_OK);
        sts_event_source_s source = {};
        ASSERT_EQ(api->add_evsource(channel, 0, STS_EVENTS_KEPT, server_name().c_str(), &source, 0),
                  STS_OK);
        sts_event_s event = {};
        uint64_t last = 0;
        int status = STS_OK;
        while ((status = api->get_event(channel, &event)) == STS_OK) {
            EXPECT_GT(event.number, last);
            last = event.number;
        }
        EXPECT_EQ(status, STS_ERR_NO_EVENT);
        EXPECT_EQ(close(channel), STS_OK);
    }

    size_t drafts() {
        const fs::directory_iterator all(path("store/lsu/new"));
        return static_cast<size_t>(std::distance(fs::begin(all), fs::end(all)));
    }
};

TEST_F(StsKill, AtAnyOf200MomentsLeavesWholeImagesOrNone) {
    set("STS:EVENTS_KEPT", 20);
    int begun[2];
    ASSERT_EQ(pipe(begun), 0);
    std::mt19937 random(1);
    size_t found = 0;
    size_t abandoned = 0;
    for (unsigned round = 0; round < 200; ++round) {
        set("STS:SYNC_AT_CLOSE", round % 10 == 0 ? 1 : 0);
        const pid_t writer = fork();
        ASSERT_NE(writer, -1);
        if (writer == 0) {
            (void)!::write(begun[1], "x", 1);
            write_for_ever(round);
        }
        char byte = 0;
        ASSERT_EQ(::read(begun[0], &byte, 1), 1);
        usleep(static_cast<useconds_t>(random() % 12000));
        kill(writer, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(writer, &status, 0), writer);
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;

        abandoned += fs::exists(path("store/lsu/new")) ? drafts() : 0;
        ASSERT_EQ(close(open_server()), STS_OK); // cleans up
        for (const std::string& name : image_names()) {
            expect_whole(name);
            ++found;
        }
        if (fs::exists(path("store/lsu/new"))) {
            ASSERT_EQ(drafts(), 0U);
        }
        expect_readable_events();
    }
    EXPECT_GT(found, 0U); // the writer was met at its work
    EXPECT_GT(abandoned, 0U);
    ::close(begun[0]);
    ::close(begun[1]);
}

class StsKillAtEveryCall : public StsKill {
  protected:
    /// Runs `body` in children that are killed at one call after the other, with `check` behind
    /// each, until one of them comes to its end.
    void at_every_call(const std::function<void()>& prepare, const std::function<void()>& body,
                       const std::function<void()>& check) {
        bool has_ended = false;
        int killed = 0;
        while (!has_ended) {
            ASSERT_LT(killed, 500);
            prepare();
            const pid_t child = fork();
            ASSERT_NE(child, -1);
            if (child == 0) {
                prctl(PR_SET_PDEATHSIG, SIGKILL);
                system_calls::kill_after(killed);
                body();
                _exit(HasFailure() ? 1 : 0);
            }
            int status = 0;
            ASSERT_EQ(waitpid(child, &status, 0), child);
            has_ended = WIFEXITED(status);
            ASSERT_TRUE((has_ended && WEXITSTATUS(status) == 0) || WIFSIGNALED(status)) << status;
            SCOPED_TRACE("killed at call " + std::to_string(killed));
            ASSERT_EQ(close(open_server()), STS_OK); // cleans up
            ASSERT_TRUE(!fs::exists(path("store/lsu/new")) || drafts() == 0U);
            check();
            expect_readable_events();
            killed += has_ended ? 0 : 1;
        }
        EXPECT_GT(killed, 5);
    }
    void expect_version(unsigned version) {
        expect_whole("image");
        EXPECT_EQ(content_of("image")[0], static_cast<char>(version));
    }
    bool is_there() { return !image_names().empty(); }
    /// Puts the image, in version 7, into its place.
    void restore() {
        (void)delete_image("image");
        sts_next_image_s* const image = create("image");
        write_version(image, 7);
        ASSERT_EQ(close(image), STS_OK);
    }
};

TEST_F(StsKillAtEveryCall, OfACreateLeavesTheWholeImageOrNone) {
    at_every_call([this] { (void)delete_image("image"); },
                  [this] {
                      sts_next_image_s* const image = create("image");
                      write_version(image, 8);
                      EXPECT_EQ(close(image), STS_OK);
                  },
                  [this] {
                      if (is_there()) {
                          expect_version(8);
                      }
                  });
    EXPECT_TRUE(is_there());
}

TEST_F(StsKillAtEveryCall, OfARewriteLeavesTheWholeOldImageOrTheWholeNewOne) {
    bool was_old = false;
    at_every_call([this] { restore(); },
                  [this] {
                      sts_next_image_s* const image = open("image", STS_IMAGE_WRITE);
                      write_version(image, 8);
                      EXPECT_EQ(close(image), STS_OK);
                  },
                  [&] {
                      ASSERT_TRUE(is_there());
                      const bool is_old = content_of("image")[0] == 7;
                      was_old = was_old || is_old;
                      expect_version(is_old ? 7 : 8);
                  });
    EXPECT_TRUE(was_old);
    expect_version(8);
}

TEST_F(StsKillAtEveryCall, OfADeleteLeavesTheWholeImageOrNone) {
    bool was_there = false;
    at_every_call([this] { restore(); }, [this] { EXPECT_EQ(delete_image("image"), STS_OK); },
                  [&] {
                      if (is_there()) {
                          expect_version(7);
                          was_there = true;
                      }
                  });
    EXPECT_TRUE(was_there);
    EXPECT_FALSE(is_there());
}

TEST_F(StsKillAtEveryCall, OfALabelLeavesTheOldOneOrTheNewOne) {
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

TEST_F(StsKillAtEveryCall, OfASettingLeavesTheOldOnesOrTheNewOnes) {
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
    EXPECT_EQ(drafts(), 1U);
    kill(writer, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(writer, &status, 0), writer);
    ASSERT_EQ(close(open_server()), STS_OK);
    EXPECT_EQ(drafts(), 0U);
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
    EXPECT_EQ(drafts(), 1U);
    const sts_lsu_ref_s lsu = ref();
    EXPECT_EQ(api->delete_lsu(&lsu), STS_OK);
}

} // namespace
