// How a record becomes our file.

#include "tests/config/config_fixture.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::StartsWith;

namespace {

class WriteFile : public ConfigTest {
  protected:
    /// The open of the text that is laid beside the file.
    auto opens_beside() const {
        return AllOf(StartsWith("fopen " + files.plugin_file() + "."), EndsWith(".new w+"));
    }
    std::string written() {
        EXPECT_EQ(write_config_file_from_var(&session, &config), 0);
        return conf_dir::read(files.plugin_file());
    }

    throttling_config_s config;
};

TEST_F(WriteFile, DefaultsAreSpelledInOrder) { EXPECT_EQ(written(), default_file()); }

TEST_F(WriteFile, EveryFieldIsSpelledInOrder) {
    config.read_bandwidth_percent = 1;
    config.write_bandwidth_percent = 2;
    config.default_max_connections = 3;
    config.connections = {{"s3", 5}, {"azure", 4}, {"", 6}, {"Z", 4294967295U}};
    config.avail_bandwidth = 18446744073709551615U;
    config.work_time_start = 7;
    config.work_time_end = 8;
    config.work_time_bandwidth_percent = 9;
    config.off_time_start = 10;
    config.off_time_end = 11;
    config.off_time_bandwidth_percent = 12;
    config.weekend_start = 13;
    config.weekend_end = 14;
    config.weekend_bandwidth_percent = 15;
    config.sample_interval = -16;
    config.log_level = 17;
    config.cssc_port_number = 18; // never written
    snprintf(config.cssc_host_name, sizeof config.cssc_host_name, "%s", "media");
    EXPECT_EQ(written(), "THR:READ_BANDWIDTH_PERCENT=1\n"
                         "THR:WRITE_BANDWIDTH_PERCENT=2\n"
                         "THR:DEFAULT_MAX_CONNECTIONS=3\n"
                         "THR:=6\n"
                         "THR:Z=-1\n"
                         "THR:azure=4\n"
                         "THR:s3=5\n"
                         "THR:AVAIL_BANDWIDTH=18446744073709551615\n"
                         "THR:WORK_TIME_START=7\n"
                         "THR:WORK_TIME_END=8\n"
                         "THR:WORK_TIME_BANDWIDTH_PERCENT=9\n"
                         "THR:OFF_TIME_START=10\n"
                         "THR:OFF_TIME_END=11\n"
                         "THR:OFF_TIME_BANDWIDTH_PERCENT=12\n"
                         "THR:WEEKEND_START=13\n"
                         "THR:WEEKEND_END=14\n"
                         "THR:WEEKEND_BANDWIDTH_PERCENT=15\n"
                         "THR:SAMPLE_INTERVAL=-16\n"
                         "THR:LOG_LEVEL=17\n"
                         "THR:CSSC_HOST_NAME=media\n");
}

TEST_F(WriteFile, OpensWritesClosesGivesAwayAndSetsTheMode) {
    fault::watch_calls();
    EXPECT_EQ(write_config_file_from_var(nullptr, &config), 0);
    const std::string path = files.plugin_file();
    EXPECT_THAT(fault::take_calls(), ElementsAre(opens_beside(), "fputs", "fclose",
                                                 "onet_chown_service_user_if_root " + path + " 0",
                                                 "chmod " + path + " 644"));
}

TEST_F(WriteFile, LogsEnterAndLeave) {
    written();
    EXPECT_THAT(take_log(), ElementsAre("3 [write_config_file_from_var]enter.",
                                        "3 [write_config_file_from_var]leave."));
}

TEST_F(WriteFile, ModeIs0644WhateverTheMaskOfTheProcess) {
    const mode_t mask = umask(0077);
    written();
    umask(mask);
    struct stat file = {};
    ASSERT_EQ(stat(files.plugin_file().c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 07777U, 0644U);
}

TEST_F(WriteFile, FileIsRewrittenWhole) {
    files.write_plugin_file("# a note\nunknown=1\nTHR:old=3\nCSSC_PORT=1\n" +
                            std::string(20000, 'x'));
    EXPECT_EQ(written(), default_file());
}

TEST_F(WriteFile, MisspelledKeyIsWrittenBackAsItCame) {
    files.write_plugin_file("THR:READ_BANDWIDHT_PERCENT=50\n");
    read_config_file_to_var(nullptr, &config);
    EXPECT_EQ(written(), default_file("THR:READ_BANDWIDHT_PERCENT=50\n"));
}

TEST_F(WriteFile, TextIsCutAt10239Bytes) {
    std::string lines;
    for (int number = 1000; number < 2000; ++number) {
        const std::string name = "storage-" + std::to_string(number);
        config.connections[name] = 10;
        lines += "THR:" + name + "=10\n";
    }
    EXPECT_EQ(written(), default_file(lines).substr(0, 10239));
}

TEST_F(WriteFile, TextOf10239BytesIsWhole) {
    const size_t room = 10239 - default_file("THR:=1\n").size();
    for (const size_t length : {room - 1, room, room + 1, room + 11, room + 12000}) {
        config.connections = {{std::string(length, 'n'), 1}};
        const std::string whole = default_file("THR:" + std::string(length, 'n') + "=1\n");
        EXPECT_EQ(written(), whole.substr(0, 10239)) << whole.size();
    }
}

TEST_F(WriteFile, EntryLongerThanTheFileFillsIt) {
    config.connections = {{std::string(30000, 'n'), 1}, {"z", 2}};
    EXPECT_EQ(written(), default_file("THR:" + std::string(30000, 'n')).substr(0, 10239));
}

/// One step of writing that fails, and what comes of it.
struct write_fault {
    const char* call;
    int error;
    int status;
    bool rewritten;
};

class FailedWrite : public WriteFile, public testing::WithParamInterface<write_fault> {};

TEST_P(FailedWrite, GivesItsStatusAndLeavesNoFileOpen) {
    files.write_plugin_file("before\n");
    fault::fail(GetParam().call, GetParam().error);
    const size_t open = descriptors();
    EXPECT_EQ(write_config_file_from_var(&session, &config), GetParam().status);
    EXPECT_EQ(descriptors(), open);
    EXPECT_THAT(take_log(), ElementsAre("3 [write_config_file_from_var]enter."));
    EXPECT_EQ(conf_dir::read(files.plugin_file()),
              GetParam().rewritten ? default_file() : "before\n");
    EXPECT_EQ(entries_of(files.path().c_str()), 1U);
}

INSTANTIATE_TEST_SUITE_P(WriteFile, FailedWrite,
                         testing::Values(write_fault{"fopen", EACCES, 2060013, false},
                                         write_fault{"fputs", ENOSPC, 2060017, false},
                                         write_fault{"fclose", EIO, 2060017, false},
                                         write_fault{"onet_chown_service_user_if_root", EPERM,
                                                     2060017, true},
                                         write_fault{"chmod", EPERM, 2060017, true}),
                         [](const auto& each) { return std::string(each.param.call); });

TEST_F(WriteFile, FileThatCanNotBeOpenedKeepsItsText) {
    files.write_plugin_file("before\n");
    fault::fail("fopen", EACCES);
    EXPECT_EQ(write_config_file_from_var(nullptr, &config), 2060013);
    EXPECT_EQ(conf_dir::read(files.plugin_file()), "before\n");
}

TEST_F(WriteFile, FailedTextStopsBeforeTheOwnerAndTheMode) {
    fault::fail("fputs", ENOSPC);
    fault::watch_calls();
    EXPECT_EQ(write_config_file_from_var(nullptr, &config), 2060017);
    EXPECT_THAT(fault::take_calls(), ElementsAre(opens_beside(), "fputs", "fclose"));
}

TEST_F(WriteFile, FailedOwnerStopsBeforeTheMode) {
    fault::fail("onet_chown_service_user_if_root", EPERM);
    fault::watch_calls();
    EXPECT_EQ(write_config_file_from_var(nullptr, &config), 2060017);
    EXPECT_EQ(fault::take_calls().size(), 4U);
}

TEST_F(WriteFile, TextThatTheDiskHasNoRoomForIsAFailureAndTheOldOneStays) {
    files.write_plugin_file("before\n");
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    rlimit usual = {};
    getrlimit(RLIMIT_FSIZE, &usual);
    const rlimit full = {100, usual.rlim_max}; // a disk with room for 100 bytes
    setrlimit(RLIMIT_FSIZE, &full);
    const int status = write_config_file_from_var(nullptr, &config);
    setrlimit(RLIMIT_FSIZE, &usual);
    signal(SIGXFSZ, handler);
    EXPECT_EQ(status, 2060017);
    EXPECT_EQ(conf_dir::read(files.plugin_file()), "before\n");
    EXPECT_EQ(entries_of(files.path().c_str()), 1U);
}

TEST_F(WriteFile, DirectoryInThePlaceOfTheFileCanNotBeOpened) {
    std::filesystem::create_directory(files.plugin_file());
    EXPECT_EQ(write_config_file_from_var(nullptr, &config), 2060013);
}

} // namespace
