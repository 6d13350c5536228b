// The settings file on the disk: links, owners, neighbours that write meanwhile, reads that fail,
// and what is no file at all.

#include "tests/config/config_fixture.h"
#include "tests/support/stopwatch.h"

#include "config/settings_file.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

class SettingsFile : public ConfigTest {
  protected:
    int write() { return write_config_file_from_var(&session, &config); }
    std::string text() const { return conf_dir::read(files.plugin_file()); }
    size_t count() const { return entries_of(files.path().c_str()); }
    /// As a host does, over the shared settings.
    int give_s3_five_connections() {
        char rows[] = "name=THR:s3,description=x,type=int,value=5,fixed=n;";
        char type[] = "cloud";
        char name[] = "s3";
        return write_config_file_from_buf(&session, rows, type, name);
    }
    static struct stat of(const std::string& path) {
        struct stat file = {};
        EXPECT_EQ(lstat(path.c_str(), &file), 0) << path;
        return file;
    }

    /// Runs `body` in a process of its own as a user who isn't root; its result, or 99 when there
    /// is no such user.
    template <typename Body>
    static int as_nobody(Body body) {
        const pid_t child = fork();
        if (child == 0) {
            const passwd* const nobody = geteuid() == 0 ? getpwnam("nobody") : getpwuid(geteuid());
            if (nobody == nullptr ||
                (geteuid() == 0 && (setgid(nobody->pw_gid) != 0 || setuid(nobody->pw_uid) != 0))) {
                _exit(99);
            }
            _exit(body());
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    throttling_config_s config;
};

// --- what a rewrite keeps ----------------------------------------------------------------------

TEST_F(SettingsFile, OpenFileKeepsTheOldTextAndTheNewOneIsWhole) {
    files.write_plugin_file("before\n");
    FILE* const reader = fopen(files.plugin_file().c_str(), "r");
    EXPECT_EQ(write(), 0);
    char line[100] = "";
    EXPECT_STREQ(fgets(line, sizeof line, reader), "before\n");
    fclose(reader);
    EXPECT_EQ(text(), default_file());
    EXPECT_EQ(count(), 1U);
}

TEST_F(SettingsFile, LinkStaysALinkAndItsTargetIsReplaced) {
    fs::create_directory(files.path() + "/real");
    const std::string target = files.path() + "/real/settings";
    conf_dir::write(target, "before\n");
    fs::create_symlink("real/settings", files.path() + "/second");
    fs::create_symlink("second", files.plugin_file());
    const ino_t inode = of(target).st_ino;
    EXPECT_EQ(write(), 0);
    EXPECT_TRUE(fs::is_symlink(files.plugin_file()));
    EXPECT_TRUE(fs::is_symlink(files.path() + "/second"));
    EXPECT_EQ(conf_dir::read(target), default_file());
    EXPECT_NE(of(target).st_ino, inode); // replaced whole
    EXPECT_EQ(entries_of((files.path() + "/real").c_str()), 1U);
}

TEST_F(SettingsFile, LinkToNothingGetsItsTarget) {
    fs::create_symlink("later", files.plugin_file());
    EXPECT_EQ(config_init(&config), 0);
    EXPECT_TRUE(fs::is_symlink(files.plugin_file()));
    EXPECT_EQ(conf_dir::read(files.path() + "/later"), default_file());
}

TEST_F(SettingsFile, LinkToItselfCanNotBeOpened) {
    fs::create_symlink("libstspithrottling.conf", files.plugin_file());
    EXPECT_EQ(write(), 2060013);
    EXPECT_EQ(config_init(&config), 2060017);
}

TEST_F(SettingsFile, EveryNameOfAFileShowsTheNewText) {
    files.write_plugin_file("before\n");
    fs::create_hard_link(files.plugin_file(), files.path() + "/other");
    EXPECT_EQ(write(), 0);
    EXPECT_EQ(conf_dir::read(files.path() + "/other"), default_file());
    EXPECT_EQ(of(files.plugin_file()).st_nlink, 2U);
    EXPECT_EQ(count(), 2U);
}

TEST_F(SettingsFile, OwnerStaysAndExtendedAttributesToo) {
    files.write_plugin_file("before\n");
    if (geteuid() == 0) {
        ASSERT_EQ(chown(files.plugin_file().c_str(), 12345, 54321), 0);
    }
    const bool attributes = setxattr(files.plugin_file().c_str(), "user.note", "kept", 4, 0) == 0;
    const struct stat before = of(files.plugin_file());
    settings_seen seen;
    read_config_file_to_var(nullptr, &config, seen);
    ASSERT_EQ(replace_settings(plugin_config_path, "after\n", &seen), 0);
    const struct stat after = of(files.plugin_file());
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(text(), "after\n");
    char value[10] = "";
    if (attributes) {
        EXPECT_EQ(getxattr(files.plugin_file().c_str(), "user.note", value, sizeof value), 4);
    }
}

TEST_F(SettingsFile, IsRewrittenWhereItIsInADirectoryThatTakesNoOther) {
    files.write_plugin_file("before\n");
    chmod(files.plugin_file().c_str(), 0666);
    chmod(files.path().c_str(), 0555);
    if (geteuid() == 0) { // what the next one is to own
        const passwd* const nobody = getpwnam("nobody");
        ASSERT_NE(nobody, nullptr);
        ASSERT_EQ(chown(files.plugin_file().c_str(), nobody->pw_uid, nobody->pw_gid), 0);
    }
    const ino_t inode = of(files.plugin_file()).st_ino;
    EXPECT_EQ(as_nobody([&] { return write() == 0 ? 0 : 1; }), 0);
    EXPECT_EQ(text(), default_file());
    EXPECT_EQ(of(files.plugin_file()).st_ino, inode);
    EXPECT_EQ(of(files.plugin_file()).st_mode & 07777U, 0644U);
    chmod(files.path().c_str(), 0755);
}

TEST_F(SettingsFile, OfAnotherOwnerIsRewrittenWhereItIsAndItsModeCanNotBeSet) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, who can make a file of another owner";
    }
    files.write_plugin_file("before\n");
    chmod(files.plugin_file().c_str(), 0666);
    chmod(files.path().c_str(), 0777);
    const ino_t inode = of(files.plugin_file()).st_ino;
    EXPECT_EQ(as_nobody([&] { return write() == 2060017 ? 0 : 1; }), 0);
    EXPECT_EQ(text(), default_file());
    EXPECT_EQ(of(files.plugin_file()).st_ino, inode);
    EXPECT_EQ(of(files.plugin_file()).st_uid, 0U);
    EXPECT_EQ(count(), 1U);
}

TEST_F(SettingsFile, ThatMayNotBeWrittenCanNotBeOpenedEvenWhereItsDirectoryTakesAnother) {
    files.write_plugin_file("before\n");
    chmod(files.plugin_file().c_str(), 0444);
    chmod(files.path().c_str(), 0777);
    EXPECT_EQ(as_nobody([&] { return write() == 2060013 ? 0 : 1; }), 0);
    EXPECT_EQ(text(), "before\n");
    EXPECT_EQ(count(), 1U);
}

TEST_F(SettingsFile, WhatAKilledProcessLeftGoesAtALaterRewrite) {
    const std::string left = files.plugin_file() + ".aB3xyZ.new";
    const std::string in_use = files.plugin_file() + ".aB3xyY.new";
    const std::string others = files.plugin_file() + ".backup";
    for (const std::string& each : {left, in_use, others}) {
        conf_dir::write(each, "x");
    }
    const auto hour_ago = fs::file_time_type::clock::now() - std::chrono::hours(1);
    fs::last_write_time(left, hour_ago);
    fs::last_write_time(others, hour_ago);
    EXPECT_EQ(write(), 0);
    EXPECT_FALSE(fs::exists(left));
    EXPECT_TRUE(fs::exists(in_use));
    EXPECT_TRUE(fs::exists(others));
}

// --- neighbours --------------------------------------------------------------------------------

TEST_F(SettingsFile, TextThatStemsFromAnOlderOneIsNotWritten) {
    files.write_plugin_file("THR:s3=1\n");
    settings_seen seen;
    read_config_file_to_var(nullptr, &config, seen);
    for (const char* const other : {"THR:s3=2\n", "THR:s3=1\nTHR:s4=1\n", ""}) {
        files.write_plugin_file(other);
        EXPECT_EQ(write_config_file_from_var(nullptr, &config, seen), settings_overtaken);
        EXPECT_EQ(text(), other);
    }
    fs::remove(files.plugin_file());
    EXPECT_EQ(write_config_file_from_var(nullptr, &config, seen), settings_overtaken);
    files.write_plugin_file("THR:s3=1\n");
    EXPECT_EQ(write_config_file_from_var(nullptr, &config, seen), 0);
    EXPECT_EQ(text(), default_file("THR:s3=1\n"));
}

TEST_F(SettingsFile, FileThatAppearsAfterTheLookIsNotWrittenOver) {
    settings_seen seen;
    read_config_file_to_var(nullptr, &config, seen);
    files.write_plugin_file("THR:s3=1\n");
    EXPECT_EQ(write_config_file_from_var(nullptr, &config, seen), settings_overtaken);
    EXPECT_EQ(text(), "THR:s3=1\n");
}

TEST_F(SettingsFile, SetThatIsOvertakenIsMadeAgainOnWhatIsThere) {
    files.write_plugin_file(default_file());
    static std::string path;
    static int rows;
    path = files.plugin_file();
    rows = 0;
    session.log = [](const char*, const char* message, sts_severity_v7_t) {
        if (std::string(message) == "[read_buf_to_var]enter." && rows++ == 0) {
            conf_dir::write(path, default_file("THR:other=7\n")); // a neighbour's
        }
    };
    EXPECT_EQ(give_s3_five_connections(), 0);
    EXPECT_EQ(rows, 2);
    EXPECT_EQ(text(), default_file("THR:other=7\nTHR:s3=5\n"));
}

TEST_F(SettingsFile, FileThatNeverRestsIsAFailureAndNotAnEndlessLoop) {
    files.write_plugin_file(default_file());
    static std::string path;
    static int rows;
    path = files.plugin_file();
    rows = 0;
    session.log = [](const char*, const char* message, sts_severity_v7_t) {
        if (std::string(message) == "[read_buf_to_var]enter.") {
            conf_dir::write(path, "THR:other=" + std::to_string(++rows) + "\n");
        }
    };
    EXPECT_EQ(give_s3_five_connections(), 2060017);
    EXPECT_EQ(text(), "THR:other=" + std::to_string(rows) + "\n");
}

TEST_F(SettingsFile, NoLockIsHeldWhileTheHostsCallbackRuns) {
    files.write_plugin_file("THR:s3=1\n");
    static std::string directory;
    static int refused;
    directory = files.path();
    refused = 0;
    session.log = [](const char*, const char*, sts_severity_v7_t) {
        const int descriptor = open(directory.c_str(), O_RDONLY | O_DIRECTORY);
        refused += flock(descriptor, LOCK_EX | LOCK_NB) != 0;
        close(descriptor);
    };
    EXPECT_EQ(give_s3_five_connections(), 0);
    EXPECT_EQ(refused, 0);
    EXPECT_EQ(count(), 1U);
}

TEST_F(SettingsFile, StrangersLockCostsASecondOnceInRealTime) {
    files.write_plugin_file("THR:s3=1\n");
    const int stranger = open(files.path().c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_EQ(flock(stranger, LOCK_EX), 0);
    const double waited = seconds_of([&] {
        for (int each = 0; each < 100; ++each) {
            EXPECT_EQ(read_config_file_to_var(nullptr, &config), 0);
            EXPECT_EQ(write(), 0);
        }
    });
    EXPECT_LT(waited, 10);
    EXPECT_EQ(config.connections.count("s3"), 1U);
    close(stranger);
}

// --- reads that fail ---------------------------------------------------------------------------

TEST_F(SettingsFile, SetOnSettingsThatCanNotBeReadFailsAndChangesNothing) {
    files.write_plugin_file("THR:s3=1\n");
    char rows_text[] = "name=THR:s3,description=x,type=int,value=5,fixed=n;";
    for (std::string type : {"cloud", "global"}) {
        char name[] = "s3";
        for (const int error : {EMFILE, EIO, EACCES, ENOMEM}) {
            fault::fail("fopen", error, 1, 0);
            fault::fail("fopen", error, 2); // the service's file, and ours
            EXPECT_EQ(write_config_file_from_buf(&warned, rows_text, type.data(), name), 2060017);
            EXPECT_EQ(text(), "THR:s3=1\n");
        }
        fault::clear();
        fault::fail("fgets", EIO); // there is no service's file
        take_log();
        session.log_mask = STS_LOG_ERROR;
        EXPECT_EQ(write_config_file_from_buf(&session, rows_text, type.data(), name), 2060017);
        EXPECT_THAT(take_log(),
                    ElementsAre("4 [write_config_file_from_var]file " + files.plugin_file() +
                                " can't be read, so it is left as it is."));
        EXPECT_EQ(text(), "THR:s3=1\n");
    }
}

// --- what is no file ---------------------------------------------------------------------------

TEST_F(SettingsFile, FifoInItsPlaceHangsNobody) {
    ASSERT_EQ(mkfifo(files.plugin_file().c_str(), 0666), 0);
    ASSERT_EQ(mkfifo(files.service_file().c_str(), 0666), 0);
    EXPECT_EQ(config_init(&config), 2060017);
    EXPECT_EQ(read_config_file_to_var(&session, &config, plugin_config_path), 2060013);
    EXPECT_EQ(take_log(), missing_file_log(files.plugin_file()));
    EXPECT_EQ(read_config_file_to_var(nullptr, &config), 0);
    EXPECT_EQ(get_cssc_security(&warned), 1);
    EXPECT_THAT(take_log(), Contains(HasSubstr("not found, use default issecure value.")));
    EXPECT_EQ(write(), 2060013);
    EXPECT_TRUE(fs::is_fifo(files.plugin_file()));
    EXPECT_EQ(fields(config), fields({}));
}

TEST_F(SettingsFile, DeviceInItsPlaceIsNotReadWithoutEndAndKeepsItsMode) {
    struct attempt {
        const char* device;
        int status;
    };
    for (const auto& [device, status] :
         {attempt{"/dev/zero", 0}, {"/dev/null", 0}, {"/dev/full", STS_ERR_FILE}}) {
        fs::remove(files.plugin_file());
        fs::create_symlink(device, files.plugin_file());
        const mode_t mode = of(device).st_mode;
        EXPECT_EQ(config_init(&config), 2060017);
        EXPECT_EQ(read_config_file_to_var(nullptr, &config), 0);
        EXPECT_EQ(write(), status) << device;
        EXPECT_EQ(of(device).st_mode, mode) << device;
    }
}

} // namespace
