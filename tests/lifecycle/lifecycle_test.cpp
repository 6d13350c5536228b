// The built plugin, loaded and unloaded again and again by a host that goes on living: each round
// opens a throttled server, moves data, talks to the service, and leaves nothing behind.

#include "plugin/stsapi.h"
#include "plugin/stspi_entries.h"

#include "tests/support/conf_dir.h"
#include "tests/support/fake_next_layer.h"
#include "tests/support/host_session.h"
#include "tests/support/loaded_plugin.h"
#include "tests/support/next_function.h"
#include "tests/support/process_state.h"
#include "tests/support/scripted_service.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

std::string log_root; ///< where the plugin's log lies; empty: where it says

bool is_loaded(const std::string& file) {
    void* const library = dlopen(file.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (library != nullptr) {
        dlclose(library);
    }
    return library != nullptr;
}

/// A backup to a throttled server: opened and written to at once, closed at the end.
class backup {
  public:
    explicit backup(const stspi_ep_t& entries) : entries_(entries) {
        EXPECT_EQ(
            entries.open_server_v7(&session_, "CS_throttle:cloud:disk:s3", nullptr, 7, &server_),
            STS_OK);
        sts_lsu_ref_s lsu = {};
        lsu.server = server_;
        strcpy(lsu.name, "lsu1");
        char data[100] = {};
        const auto* const image_def = reinterpret_cast<const sts_image_def_s*>(data);
        EXPECT_EQ(entries.create_image_v10(&lsu, image_def, 2, &image_), STS_OK);
        uint64_t moved = 0;
        EXPECT_EQ(entries.write_image_v7(image_, 5, data, 100, 200, &moved), STS_OK);
    }
    ~backup() {
        EXPECT_EQ(entries_.close_image_v7(image_, 1, 2), STS_OK);
        EXPECT_EQ(entries_.close_server_v7(server_), STS_OK);
    }
    backup(const backup&) = delete;
    backup& operator=(const backup&) = delete;

  private:
    const stspi_ep_t& entries_;
    const sts_session_def_v7_t session_ = host_session("host");
    throttling_server_s* server_ = nullptr;
    throttling_image_s* image_ = nullptr;
};

class Lifecycle : public testing::Test {
  protected:
    Lifecycle() {
        files.write_plugin_file("THR:AVAIL_BANDWIDTH=1000000000\nTHR:SAMPLE_INTERVAL=1\n");
    }

    /// What a host does of a day.
    void live_once() {
        next_layer() = {};
        {
            const loaded_plugin plugin(PLUGIN_FILE);
            const backup running(plugin.entries());
        }
        EXPECT_FALSE(is_loaded(PLUGIN_FILE));
        next_layer() = {};
        take_log();
    }

    /// How often the service was asked to end a session since the last time.
    long sessions_ended() {
        const std::vector<std::string> asked = service.take();
        return std::count(asked.begin(), asked.end(), "destroy()");
    }

    const conf_dir files;
    remote_service service;
};

constexpr size_t all_rounds = 100;
constexpr size_t stretch = 10; ///< rounds

/// Bytes of each round of the stretch that grew least: what leaks shows in every one, and what is
/// made once in the process or comes and goes doesn't.
long least_growth(const std::vector<size_t>& after_round) {
    long least = std::numeric_limits<long>::max();
    for (size_t end = stretch; end < after_round.size(); ++end) {
        least = std::min(least, static_cast<long>(after_round[end]) -
                                    static_cast<long>(after_round[end - stretch]));
    }
    return least / static_cast<long>(stretch);
}

TEST_F(Lifecycle, AHundredRoundsLeaveNoThreadNoDescriptorAndNoGrowingMemory) {
    std::thread([] {}).join(); // a sanitizer has its own thread from the first one on
    const size_t threads_before = threads();
    live_once();
    const size_t descriptors_after_one = descriptors();
    std::vector<size_t> after_round = {allocated()};
    while (after_round.size() < all_rounds) {
        live_once();
        after_round.push_back(allocated());
    }
    EXPECT_TRUE(comes_down_to(threads, threads_before));
    EXPECT_TRUE(comes_down_to(descriptors, descriptors_after_one));
    // CurlSentry's one object is never deleted: the least that the heap gives out.
    EXPECT_LE(least_growth(after_round), 32) << "bytes a round";
    EXPECT_EQ(sessions_ended(), all_rounds);
}

TEST_F(Lifecycle, HostForksWhileTheLogIsOpenAndWhenThePluginIsGone) {
    files.write_plugin_file("THR:LOG_LEVEL=5\n");
    log_root = files.path();
    std::filesystem::create_directory(log_root + "/vlcssc");
    const auto fork_and = [](auto work) {
        const pid_t forked = fork();
        if (forked == 0) {
            work();
            _exit(0);
        }
        int status = -1;
        EXPECT_EQ(waitpid(forked, &status, 0), forked);
        EXPECT_EQ(status, 0);
        return forked;
    };
    pid_t forked = 0;
    {
        const loaded_plugin plugin(PLUGIN_FILE);
        plugin.entries().claim_v7("CS_throttle:cloud:disk:s3");
        forked = fork_and([&] { plugin.entries().claim_v7("CS_throttle:cloud:disk:s3"); });
    }
    EXPECT_FALSE(is_loaded(PLUGIN_FILE));
    fork_and([] {});
    size_t lines = 0;
    for (const auto& each : std::filesystem::directory_iterator(log_root + "/vlcssc")) {
        std::ifstream log(each.path());
        for (std::string line; std::getline(log, line);) {
            lines += line.find(" [" + std::to_string(forked) + "]") != std::string::npos;
        }
    }
    EXPECT_EQ(lines, 1U) << "of the forked process";
    log_root.clear();
}

/// Two copies of the plugin share the process's ORB.
class TwoCopies : public Lifecycle {
  protected:
    TwoCopies() { std::filesystem::copy_file(PLUGIN_FILE, copy); }

    const std::string copy = files.path() + "/copy.so";
};

TEST_F(TwoCopies, TheFirstConnectsAgainAfterTheSecondIsGone) {
    const loaded_plugin first(PLUGIN_FILE);
    backup(first.entries());
    {
        const loaded_plugin second(copy);
        backup(second.entries());
    }
    backup(first.entries());
    EXPECT_EQ(sessions_ended(), 3);
}

TEST_F(TwoCopies, TheSecondStaysConnectedAfterTheFirstIsGone) {
    auto first = std::make_unique<loaded_plugin>(PLUGIN_FILE);
    {
        const loaded_plugin second(copy);
        {
            const backup running(second.entries());
            first.reset();
            EXPECT_TRUE(is_loaded(PLUGIN_FILE)); // whose code the second one's references run
        }
        backup(second.entries());
    }
    EXPECT_FALSE(is_loaded(PLUGIN_FILE));
    EXPECT_FALSE(is_loaded(copy));
    EXPECT_EQ(sessions_ended(), 2);
}

TEST_F(TwoCopies, BothGoInTheEnd) {
    {
        const loaded_plugin first(PLUGIN_FILE);
        const loaded_plugin second(copy);
    }
    EXPECT_FALSE(is_loaded(PLUGIN_FILE));
    EXPECT_FALSE(is_loaded(copy));
}

TEST_F(TwoCopies, TheFirstStaysConnectedWhileTheSecondComesAndGoes) {
    const loaded_plugin first(PLUGIN_FILE);
    {
        const backup running(first.entries());
        {
            const loaded_plugin second(copy);
            backup(second.entries());
        }
        EXPECT_EQ(sessions_ended(), 1);
    }
    EXPECT_EQ(sessions_ended(), 1);
    backup(first.entries());
    EXPECT_EQ(sessions_ended(), 1);
}

} // namespace

extern "C" __attribute__((visibility("default"))) FILE* fopen(const char* path, const char* mode) {
    std::string target = path;
    if (!log_root.empty() && target.rfind(THROTTLING_LOG_ROOT, 0) == 0) {
        target.replace(0, strlen(THROTTLING_LOG_ROOT), log_root);
    }
    return next_function<FILE*(const char*, const char*)>("fopen")(target.c_str(), mode);
}
