// Many processes that have loaded the built plugin and share one settings file, and processes that
// die while they rewrite it. The calls by which a file is rewritten are this program's own: at the
// one that a test names, the process ends at once, as by a kill.

#include "plugin/stsapi.h"
#include "plugin/stspi_entries.h"

#include "tests/support/conf_dir.h"
#include "tests/support/fake_next_layer.h"
#include "tests/support/host_session.h"
#include "tests/support/loaded_plugin.h"
#include "tests/support/next_function.h"
#include "tests/support/process_state.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int killed = 70;

/// Calls that pass until the process ends; negative: it doesn't.
std::atomic<int> calls_left{-1};

/// Ends the process if this call's turn has come.
void pass() {
    if (calls_left >= 0 && calls_left-- == 0) {
        _exit(killed);
    }
}

/// Opens of the plugin's file for reading that fail with EMFILE.
std::atomic<int> failing_reads{0};

} // namespace

#define REPLACES __attribute__((visibility("default")))

extern "C" {

REPLACES FILE* fopen(const char* path, const char* mode) {
    pass();
    if (mode[0] == 'r' && std::string(path).find("libstspithrottling.conf") != std::string::npos &&
        failing_reads > 0 && failing_reads-- > 0) {
        errno = EMFILE;
        return nullptr;
    }
    return next_function<FILE*(const char*, const char*)>("fopen")(path, mode);
}
REPLACES int fputs(const char* text, FILE* file) {
    pass();
    return next_function<int(const char*, FILE*)>("fputs")(text, file);
}
REPLACES int fclose(FILE* file) {
    pass();
    return next_function<int(FILE*)>("fclose")(file);
}
REPLACES int fsync(int descriptor) {
    pass();
    return next_function<int(int)>("fsync")(descriptor);
}
REPLACES int rename(const char* from, const char* to) noexcept {
    pass();
    return next_function<int(const char*, const char*)>("rename")(from, to);
}
REPLACES int mkostemps(char* path, int suffix, int flags) {
    pass();
    return next_function<int(char*, int, int)>("mkostemps")(path, suffix, flags);
}
REPLACES int fchmod(int descriptor, mode_t mode) noexcept {
    pass();
    return next_function<int(int, mode_t)>("fchmod")(descriptor, mode);
}
REPLACES int fchown(int descriptor, uid_t user, gid_t group) noexcept {
    pass();
    return next_function<int(int, uid_t, gid_t)>("fchown")(descriptor, user, group);
}
REPLACES int chmod(const char* path, mode_t mode) noexcept {
    pass();
    return next_function<int(const char*, mode_t)>("chmod")(path, mode);
}
REPLACES int flock(int descriptor, int operation) noexcept {
    pass();
    return next_function<int(int, int)>("flock")(descriptor, operation);
}
REPLACES int close(int descriptor) {
    pass();
    return next_function<int(int)>("close")(descriptor);
}
REPLACES int unlink(const char* path) noexcept {
    pass();
    return next_function<int(const char*)>("unlink")(path);
}

} // extern "C"

namespace {

const std::string tuned = "THR:READ_BANDWIDTH_PERCENT=37\n"; // what the operator has set

/// The operator's file with those storages.
std::string tuned_file(const std::string& storages = "") {
    std::string text = default_file(storages);
    const std::string usual = "THR:READ_BANDWIDTH_PERCENT=100\n";
    return text.replace(text.find(usual), usual.size(), tuned);
}

class SettingsSharing : public testing::Test {
  protected:
    SettingsSharing() { next_layer() = {}; }
    ~SettingsSharing() override { calls_left = -1; }

    std::string text() const { return conf_dir::read(files.plugin_file()); }

    /// Opens and closes a server of that storage; the status of the open.
    static int use(const loaded_plugin& plugin, const std::string& storage) {
        const sts_session_def_v7_t session = host_session("s", STS_LOG_ERROR);
        throttling_server_s* server = nullptr;
        const int status = plugin.entries().open_server_v7(
            &session, ("CS_throttle:cloud:disk:" + storage).c_str(), nullptr, 0, &server);
        if (status == STS_OK) {
            plugin.entries().close_server_v7(server);
        }
        return status;
    }

    /// Runs `body` in a process of its own; the process.
    static pid_t start(const std::function<int()>& body) {
        const pid_t child = fork();
        if (child == 0) {
            _exit(body());
        }
        return child;
    }
    static int end_of(pid_t child) {
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    conf_dir files;
};

TEST_F(SettingsSharing, ProcessesThatOpenNewStoragesAtOnceLoseNothing) {
    constexpr int processes = 8;
    constexpr int rounds = 12;
    for (int round = 0; round < rounds; ++round) {
        files.write_plugin_file(tuned_file());
        std::vector<pid_t> children;
        int start_line[2];
        ASSERT_EQ(pipe(start_line), 0);
        for (int each = 0; each < processes; ++each) {
            children.push_back(start([&] {
                const loaded_plugin plugin(PLUGIN_FILE);
                close(start_line[1]);
                char none = 0;
                (void)!read(start_line[0], &none, 1); // until the parent closes its end
                return use(plugin, "s" + std::to_string(each)) == 0 ? 0 : 1;
            }));
        }
        close(start_line[0]);
        close(start_line[1]);
        std::string storages;
        for (int each = 0; each < processes; ++each) {
            EXPECT_EQ(end_of(children[static_cast<size_t>(each)]), 0);
            storages += "THR:s" + std::to_string(each) + "=10\n";
        }
        ASSERT_EQ(text(), tuned_file(storages)) << "round " << round;
        ASSERT_EQ(entries_of(files.path().c_str()), 1U);
    }
}

TEST_F(SettingsSharing, ProcessesThatStartWithoutAFileAtOnceLoseNoStorage) {
    for (int round = 0; round < 3; ++round) {
        std::filesystem::remove(files.plugin_file());
        std::vector<pid_t> children;
        for (int each = 0; each < 8; ++each) {
            children.push_back(start([&] {
                const loaded_plugin plugin(PLUGIN_FILE);
                return use(plugin, "s" + std::to_string(each)) == 0 ? 0 : 1;
            }));
        }
        std::string storages;
        for (size_t each = 0; each < children.size(); ++each) {
            EXPECT_EQ(end_of(children[each]), 0);
            storages += "THR:s" + std::to_string(each) + "=10\n";
        }
        ASSERT_EQ(text(), default_file(storages)) << "round " << round;
    }
}

TEST_F(SettingsSharing, ReaderSeesTheOldTextOrTheNewOne) {
    files.write_plugin_file(tuned_file());
    const pid_t writer = start([&] {
        const loaded_plugin plugin(PLUGIN_FILE);
        for (int each = 0; each < 60; ++each) {
            use(plugin, "s" + std::to_string(each));
        }
        return 0;
    });
    int status = 0;
    while (waitpid(writer, &status, WNOHANG) == 0) {
        const std::string seen = text();
        ASSERT_NE(seen.find(tuned), std::string::npos);
        ASSERT_NE(seen.find("THR:CSSC_HOST_NAME=localhost\n"), std::string::npos);
    }
    EXPECT_EQ(status, 0);
}

TEST_F(SettingsSharing, KillAtEveryCallOfTheRewriteLeavesTheOldTextOrTheNewOne) {
    const std::string before = tuned_file();
    const std::string after = tuned_file("THR:s3=10\n");
    int old_texts = 0;
    int new_texts = 0;
    for (int call = 0;; ++call) {
        files.write_plugin_file(before);
        const int ended = end_of(start([&] {
            const loaded_plugin plugin(PLUGIN_FILE);
            calls_left = call;
            const int status = use(plugin, "s3");
            calls_left = -1;
            return status == 0 ? 0 : 1;
        }));
        const std::string now = text();
        ASSERT_TRUE(now == before || now == after) << "call " << call << ":\n" << now;
        old_texts += now == before;
        new_texts += now == after;
        if (ended != killed) {
            EXPECT_EQ(ended, 0);
            break;
        }
        ASSERT_LT(call, 200);
    }
    EXPECT_GT(old_texts, 10);
    EXPECT_GT(new_texts, 2);
    // Nobody waits for what the dead have left, and it goes in time.
    for (const auto& each : std::filesystem::directory_iterator(files.path())) {
        std::filesystem::last_write_time(each, std::filesystem::file_time_type::clock::now() -
                                                   std::chrono::hours(1));
    }
    const loaded_plugin plugin(PLUGIN_FILE);
    EXPECT_EQ(use(plugin, "s4"), 0);
    EXPECT_EQ(entries_of(files.path().c_str()), 1U);
}

TEST_F(SettingsSharing, OpenGoesOnWithoutSettingsThatCanNotBeReadAndLeavesTheFile) {
    files.write_plugin_file(tuned_file());
    const loaded_plugin plugin(PLUGIN_FILE);
    failing_reads = 1;
    EXPECT_EQ(use(plugin, "s3"), 0);
    EXPECT_EQ(text(), tuned_file());
    EXPECT_EQ(use(plugin, "s3"), 0); // records it
    EXPECT_EQ(text(), tuned_file("THR:s3=10\n"));
}

TEST_F(SettingsSharing, SetThroughThePluginKeepsWhatOthersSetMeanwhile) {
    files.write_plugin_file(tuned_file("THR:s0=1\nTHR:s1=1\nTHR:s2=1\nTHR:s3=1\n"));
    std::vector<pid_t> children;
    for (int each = 0; each < 4; ++each) {
        children.push_back(start([each] {
            const loaded_plugin plugin(PLUGIN_FILE);
            const sts_session_def_v7_t session = host_session("s", STS_LOG_ERROR);
            const std::string storage = "s" + std::to_string(each);
            throttling_server_s* server = nullptr;
            if (plugin.entries().open_server_v7(&session,
                                                ("CS_throttle:cloud:disk:" + storage).c_str(),
                                                nullptr, 0, &server) != 0) {
                return 1;
            }
            for (int limit = 2; limit <= 20; ++limit) {
                std::string rows = "name=THR:" + storage +
                                   ",description=x,type=int,value=" + std::to_string(limit) +
                                   ",fixed=n;";
                char error[100] = "";
                if (plugin.entries().set_server_config_v11(server, rows.data(), error,
                                                           sizeof error) != 0) {
                    return 2;
                }
            }
            plugin.entries().close_server_v7(server);
            return 0;
        }));
    }
    for (const pid_t each : children) {
        EXPECT_EQ(end_of(each), 0);
    }
    EXPECT_EQ(text(), tuned_file("THR:s0=20\nTHR:s1=20\nTHR:s2=20\nTHR:s3=20\n"));
}

} // namespace
