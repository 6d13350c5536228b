#include "tests/platform/sts/store/kill_store.h"

#include "tests/platform/sts/system_calls.h"

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr size_t block_size = 4096;
constexpr size_t meta_size = 10;

/// How many blocks an image has in that version.
size_t blocks_in(unsigned version) { return 1 + version % 5; }

unsigned chosen_seed() {
    const int asked_for = GTEST_FLAG_GET(random_seed);
    const unsigned seed =
        asked_for != 0 ? static_cast<unsigned>(asked_for) : 1 + std::random_device()() % 99999;
    printf("[   SEED   ] --gtest_random_seed=%u\n", seed);
    return seed;
}

/// A process that runs `body` and can't outlive this one.
template <typename Body>
pid_t start_process(Body body) {
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        body();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    EXPECT_NE(child, -1);
    return child;
}

int end_of(pid_t child) {
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

bool was_killed(int status) { return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL; }

} // namespace

void KillStore::at_random_moments(unsigned rounds, unsigned longest_microseconds,
                                  const std::function<void(std::mt19937& random)>& body,
                                  const std::function<void()>& check) {
    std::mt19937 random(chosen_seed());
    int begun[2];
    ASSERT_EQ(pipe(begun), 0);
    for (unsigned round = 0; round < rounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const pid_t child = start_process([&] {
            std::mt19937 own(random());
            (void)!::write(begun[1], "x", 1);
            for (;;) {
                body(own);
            }
        });
        char byte = 0;
        ASSERT_EQ(::read(begun[0], &byte, 1), 1);
        usleep(static_cast<useconds_t>(random() % longest_microseconds));
        kill(child, SIGKILL);
        ASSERT_TRUE(was_killed(end_of(child)));
        left_behind += leftovers();
        expect_tidy();
        check();
        expect_readable_events();
    }
    ::close(begun[0]);
    ::close(begun[1]);
}

void KillStore::at_every_call(const std::function<void()>& prepare,
                              const std::function<void()>& body,
                              const std::function<void()>& check) {
    bool has_ended = false;
    int killed = 0;
    while (!has_ended) {
        ASSERT_LT(killed, 500);
        prepare();
        const int status = end_of(start_process([&] {
            system_calls::kill_after(killed);
            body();
        }));
        has_ended = WIFEXITED(status);
        ASSERT_TRUE(has_ended ? WEXITSTATUS(status) == 0 : was_killed(status)) << status;
        SCOPED_TRACE("killed at call " + std::to_string(killed));
        expect_tidy();
        check();
        expect_readable_events();
        killed += has_ended ? 0 : 1;
    }
    EXPECT_GT(killed, 5);
}

size_t KillStore::leftovers() const {
    size_t found = 0;
    for (const fs::directory_entry& each : fs::directory_iterator(path("store"))) {
        // Images that are being written, and LSUs that are being made or removed.
        for (const fs::path& work : {each.path() / "new", each.path()}) {
            if ((work.filename() == "new" || work.filename() == ".new") && fs::exists(work)) {
                const fs::directory_iterator all(work);
                found += static_cast<size_t>(std::distance(fs::begin(all), fs::end(all)));
            }
        }
    }
    return found;
}

void KillStore::expect_tidy() {
    EXPECT_EQ(close(open_server()), STS_OK);
    EXPECT_EQ(leftovers(), 0U);
}

void KillStore::expect_readable_events() {
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

void KillStore::write_version(sts_next_image_s* image, unsigned version) {
    uint64_t count = 0;
    (void)api->delete_files(image, STS_FILES_DATA | STS_FILES_META, 0, 0, 0, 0);
    const std::string block(block_size, static_cast<char>(version));
    for (size_t each = 0; each < blocks_in(version); ++each) {
        (void)api->write_image(image, 0, block.data(), block.size(), each * block_size, &count);
    }
    (void)api->write_image_meta(image, forward(block.data()), meta_size, 0, forward(&count), 0);
}

void KillStore::store_version(const std::string& name, unsigned version) {
    (void)delete_image(name);
    sts_next_image_s* const image = create(name);
    write_version(image, version);
    EXPECT_EQ(close(image), STS_OK);
}

unsigned KillStore::whole_version(const std::string& name, const std::string& lsu) {
    sts_next_image_s* const image = open(name, STS_IMAGE_READ, lsu);
    const std::string data = read(image);
    const char byte = data.empty() ? '\0' : data[0];
    const unsigned version = static_cast<unsigned char>(byte);
    EXPECT_EQ(data, std::string(blocks_in(version) * block_size, byte)) << name;
    char meta[meta_size + 1] = {};
    uint64_t count = 0;
    EXPECT_EQ(api->read_image_meta(image, forward(meta), sizeof meta, 0, forward(&count), 0),
              STS_OK);
    EXPECT_EQ(std::string(meta, count), std::string(meta_size, byte)) << name;
    EXPECT_EQ(close(image), STS_OK);
    return version;
}
