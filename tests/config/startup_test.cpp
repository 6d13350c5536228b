// Where the two files are, and what the start of the plugin does with them.

#include "tests/config/config_fixture.h"

#include "plugin/throttling_log.h"
#include "tests/log/log_file.h"
#include "tests/support/next_function.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <optional>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// What the platform answers instead of the directory, if anything.
struct platform_answer {
    int status;
    std::string directory;
};
std::optional<platform_answer> answer;

} // namespace

extern "C" __attribute__((visibility("default"))) int GetConfDir(char* directory, size_t size) {
    if (!answer) {
        return next_function<int(char*, size_t)>("GetConfDir")(directory, size);
    }
    snprintf(directory, size, "%s", answer->directory.c_str());
    return answer->status;
}

namespace {

class ConfigPath : public ConfigTest {
  protected:
    ~ConfigPath() override { answer.reset(); }

    /// Fails unless the paths stay as they are and the reason stands in the log.
    void expect_no_directory() {
        log_file log;
        ASSERT_EQ(log_init(5), 0);
        const std::string plugin = plugin_config_path;
        const std::string service = cloudstore_config_path;
        config_set_path(nullptr);
        EXPECT_EQ(plugin_config_path, plugin);
        EXPECT_EQ(cloudstore_config_path, service);
        EXPECT_THAT(log.entries(),
                    ElementsAre("[ERROR] [no session][config_set_path]Unable to find path for file "
                                "cloudstore.conf and config file libstspithrottling.conf"));
    }
};

TEST_F(ConfigPath, BothFilesAreInTheConfigurationDirectory) {
    answer = {0, "/etc/some where"};
    config_set_path("this isn't read");
    EXPECT_STREQ(plugin_config_path, "/etc/some where/libstspithrottling.conf");
    EXPECT_STREQ(cloudstore_config_path, "/etc/some where/cloudstore.conf");
    answer = {0, "/opt"};
    config_set_path(nullptr);
    EXPECT_STREQ(plugin_config_path, "/opt/libstspithrottling.conf");
    EXPECT_STREQ(cloudstore_config_path, "/opt/cloudstore.conf");
}

TEST_F(ConfigPath, StaysWhenThePlatformFails) {
    answer = {-1, "/etc"};
    expect_no_directory();
}

TEST_F(ConfigPath, StaysWhenTheDirectoryIsEmpty) {
    answer = {0, ""};
    expect_no_directory();
}

TEST_F(ConfigPath, StaysWhenTheDirectoryIsTooLongForThePlatform) {
    setenv("VL_CONF_DIR", ("/" + std::string(5000, 'd')).c_str(), 1);
    expect_no_directory();
}

TEST_F(ConfigPath, IsCutAt4095Characters) {
    const std::string directory = "/" + std::string(4083, 'd');
    answer = {0, directory};
    config_set_path(nullptr);
    EXPECT_EQ(plugin_config_path, directory + "/libstspith");
    EXPECT_EQ(cloudstore_config_path, directory + "/cloudstore");
}

class ConfigInit : public ConfigTest {
  protected:
    throttling_config_s config;
};

TEST_F(ConfigInit, NullRecordIsInvalid) {
    fault::watch_calls();
    EXPECT_EQ(config_init(nullptr), 2060001);
    EXPECT_THAT(fault::take_calls(), IsEmpty());
}

TEST_F(ConfigInit, ReadsBothFilesThatAreThere) {
    files.write_plugin_file("THR:LOG_LEVEL=4\n");
    files.write_service_file("CSSC_PORT=7\n");
    EXPECT_EQ(config_init(&config), 0);
    EXPECT_EQ(config.log_level, 4);
    EXPECT_EQ(config.cssc_port_number, 7);
    EXPECT_EQ(conf_dir::read(files.plugin_file()), "THR:LOG_LEVEL=4\n");
}

TEST_F(ConfigInit, FirstStartWithoutAFileCreatesOneWithTheDefaults) {
    EXPECT_EQ(config_init(&config), 0);
    EXPECT_EQ(conf_dir::read(files.plugin_file()), default_file());
    EXPECT_EQ(fields(config), fields({}));
}

TEST_F(ConfigInit, FileIsCreatedFromTheRecordAsItStands) {
    config.connections["s3"] = 2;
    EXPECT_EQ(config_init(&config), 0);
    EXPECT_EQ(conf_dir::read(files.plugin_file()), default_file("THR:s3=2\n"));
}

TEST_F(ConfigInit, OpensItsFileOnceToLookAndOnceToRead) {
    files.write_plugin_file("");
    fault::watch_calls();
    EXPECT_EQ(config_init(&config), 0);
    EXPECT_THAT(fault::take_calls(), ElementsAre("fopen " + files.plugin_file() + " r", "fclose",
                                                 "fopen " + files.service_file() + " r",
                                                 "fopen " + files.plugin_file() + " r", "fclose"));
}

TEST_F(ConfigInit, DirectoryThatCanNotBeWrittenDoesNotStopTheStart) {
    fault::fail("fopen", EACCES, 1, 1); // the second: the one that creates
    EXPECT_EQ(config_init(&config), 0);
    EXPECT_FALSE(std::filesystem::exists(files.plugin_file()));
    for (const char* call : {"fputs", "fclose", "onet_chown_service_user_if_root", "chmod"}) {
        std::filesystem::remove(files.plugin_file());
        fault::fail(call, EIO);
        EXPECT_EQ(config_init(&config), 0) << call;
    }
}

TEST_F(ConfigInit, DirectoryThatIsNotThereDoesNotStopTheStart) {
    setenv("VL_CONF_DIR", (files.path() + "/none").c_str(), 1);
    config_set_path(nullptr);
    EXPECT_EQ(config_init(&config), 0);
    EXPECT_FALSE(std::filesystem::exists(files.path() + "/none"));
}

TEST_F(ConfigInit, UnknownDirectoryDoesNotStopTheStart) {
    plugin_config_path[0] = cloudstore_config_path[0] = '\0';
    EXPECT_EQ(config_init(&config), 0);
    EXPECT_EQ(fields(config), fields({}));
}

TEST_F(ConfigInit, FileThatCanNotBeOpenedIsAFailure) {
    files.write_plugin_file("THR:LOG_LEVEL=4\n");
    for (const int error : {EACCES, EMFILE, EIO, ENOTDIR, ELOOP}) {
        fault::fail("fopen", error);
        EXPECT_EQ(config_init(&config), 2060017);
    }
    EXPECT_EQ(fields(config), fields({}));
    EXPECT_EQ(conf_dir::read(files.plugin_file()), "THR:LOG_LEVEL=4\n");
}

TEST_F(ConfigInit, EarlierErrorIsNotTakenForAMissingFile) {
    fault::fail("fopen", 0);
    errno = ENOENT; // somebody else's
    EXPECT_EQ(config_init(&config), 2060017);
}

TEST_F(ConfigInit, LogsWithoutASession) {
    log_file log;
    ASSERT_EQ(log_init(5), 0);
    EXPECT_EQ(config_init(&config), 0); // creates
    EXPECT_THAT(log.entries(),
                ElementsAre("[DEBUG] [no session][write_config_file_from_var]enter.",
                            "[DEBUG] [no session][write_config_file_from_var]leave."));
    EXPECT_EQ(config_init(&config), 0); // reads
    EXPECT_EQ(log.entries().at(2), "[DEBUG] [no session][read_config_file_to_var]enter.");
    EXPECT_EQ(log.entries().back(), "[DEBUG] [no session][read_config_file_to_var]leave.");
}

TEST(PluginDir, IsTheDirectoryPartOfAPath) {
    const struct {
        std::string path;
        int size;
        std::string directory;
    } cases[] = {
        {"/usr/lib/plugin.so", 100, "/usr/lib"},
        {"/usr/lib/", 100, "/usr"},
        {"/plugin.so", 100, "/"},
        {"plugin.so", 100, "."},
        {"lib/plugin.so", 100, "lib"},
        {"", 100, "."},
        {"/usr/lib/plugin.so", 9, "/usr/lib"},
        {"/usr/lib/plugin.so", 8, "/usr/li"},
        {"/usr/lib/plugin.so", 2, "/"},
        {"/usr/lib/plugin.so", 1, ""},
        {"/d/" + std::string(4092, 'f') + "/x", 5000, "/d"}, // only 4095 characters are looked at
        {"/" + std::string(4092, 'd') + "/x/y", 5000, "/" + std::string(4092, 'd')},
        {"/" + std::string(4000, 'd') + "/x", 5000, "/" + std::string(4000, 'd')},
    };
    for (const auto& each : cases) {
        std::vector<char> out(static_cast<size_t>(each.size), 'X');
        EXPECT_EQ(get_plugin_dir(each.path.c_str(), out.data(), each.size), out.data());
        EXPECT_EQ(std::string(out.data()), each.directory) << each.path;
        EXPECT_EQ(out.back(), '\0');
    }
}

TEST(PluginDir, NullPathGivesAnEmptyText) {
    char out[] = "XY";
    EXPECT_EQ(get_plugin_dir(nullptr, out, sizeof out), out);
    EXPECT_STREQ(out, "");
}

TEST(PluginDir, OutIsUntouchedWithoutRoomAndMayBeNull) {
    char out[] = "XY";
    EXPECT_EQ(get_plugin_dir("/a/b", out, 0), out);
    EXPECT_EQ(get_plugin_dir("/a/b", out, -1), out);
    EXPECT_STREQ(out, "XY");
    EXPECT_EQ(get_plugin_dir("/a/b", nullptr, 10), nullptr);
}

} // namespace
