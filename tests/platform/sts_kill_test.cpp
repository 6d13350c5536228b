// A writer killed at any moment leaves whole images or none.

#include "tests/platform/disk_store.h"

#include <csignal>
#include <cstring>
#include <filesystem>
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
    std::mt19937 random(1);
    size_t found = 0;
    size_t abandoned = 0;
    for (unsigned round = 0; round < 200; ++round) {
        set("STS:SYNC_AT_CLOSE", round % 10 == 0 ? 1 : 0);
        const pid_t writer = fork();
        ASSERT_NE(writer, -1);
        if (writer == 0) {
            write_for_ever(round);
        }
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
    // The writer was met at its work often enough for this to mean something.
    EXPECT_GT(found, 100U);
    EXPECT_GT(abandoned, 50U);
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
