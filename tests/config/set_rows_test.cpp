// What a row text that is set changes in our file.

#include "tests/config/config_fixture.h"

#include <cerrno>
#include <filesystem>
#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class SetRows : public ConfigTest {
  protected:
    int set(std::string text, std::string type, std::string name) {
        return write_config_file_from_buf(&session, text.data(), type.data(), name.data());
    }
    int set_global(const std::string& text) { return set(text, "global", ""); }
    std::string file() const { return conf_dir::read(files.plugin_file()); }

    /// The default file with one line in place of another.
    static std::string with(const std::string& line, const std::string& instead,
                            const std::string& connections = "") {
        std::string text = default_file(connections);
        return text.replace(text.find(line), line.size(), instead);
    }
};

const char* const half_read = "name=THR:READ_BANDWIDTH_PERCENT,description=x,type=int,value=50,"
                              "fixed=n;";

TEST_F(SetRows, GlobalTextSetsWhatItNamesAndTheRestToTheDefaultsAndKeepsTheLimits) {
    files.write_plugin_file("THR:READ_BANDWIDTH_PERCENT=1\nTHR:WRITE_BANDWIDTH_PERCENT=2\n"
                            "THR:DEFAULT_MAX_CONNECTIONS=3\nTHR:s3=4\nTHR:azure=5\n"
                            "THR:AVAIL_BANDWIDTH=6\nTHR:SAMPLE_INTERVAL=7\n");
    EXPECT_EQ(set_global(half_read), 0);
    EXPECT_EQ(file(), with("READ_BANDWIDTH_PERCENT=100", "READ_BANDWIDTH_PERCENT=50",
                           "THR:azure=5\nTHR:s3=4\n"));
}

TEST_F(SetRows, GlobalTextKeepsTheLogLevel) {
    files.write_plugin_file("THR:LOG_LEVEL=4\n");
    EXPECT_EQ(set_global("name=THR:LOG_LEVEL,value=1,"), 0);
    EXPECT_EQ(file(), with("LOG_LEVEL=0", "LOG_LEVEL=4"));
}

TEST_F(SetRows, GlobalTextRewritesTheHostNameAsItsDefault) {
    files.write_plugin_file("THR:CSSC_HOST_NAME=media\n");
    EXPECT_EQ(set_global(half_read), 0);
    EXPECT_EQ(file(), with("READ_BANDWIDTH_PERCENT=100", "READ_BANDWIDTH_PERCENT=50"));
}

TEST_F(SetRows, StorageRowsOfAGlobalTextHaveNoEffect) {
    files.write_plugin_file("THR:s3=4\n");
    EXPECT_EQ(set_global("name=THR:s3,value=9,fixed=n;name=THR:azure,value=8,fixed=n;"), 0);
    EXPECT_EQ(file(), default_file("THR:s3=4\n"));
}

TEST_F(SetRows, GlobalTextIsWrittenMended) {
    EXPECT_EQ(set_global("name=THR:WORK_TIME_END,value=8,"), 0);
    EXPECT_NE(file().find("THR:WORK_TIME_START=8\nTHR:WORK_TIME_END=9\n"), std::string::npos);
}

TEST_F(SetRows, EmptyTextOnAGlobalServerWritesNothing) {
    EXPECT_EQ(set_global(""), 0);
    EXPECT_FALSE(std::filesystem::exists(files.plugin_file()));
}

TEST_F(SetRows, GlobalTextWithoutARowOfOursWritesNothing) {
    files.write_plugin_file("# kept\n");
    for (const char* text : {"name=OTHER,value=1,", "name= THR:x,value=1,", "THR:x", "name=TH"}) {
        EXPECT_EQ(set_global(text), 0);
        EXPECT_EQ(file(), "# kept\n") << text;
    }
}

TEST_F(SetRows, GlobalTextNeedsNoMoreThanABeginningToBeWritten) {
    files.write_plugin_file("# lost\n");
    EXPECT_EQ(set_global("name=THR"), 0);
    EXPECT_EQ(file(), default_file());
}

TEST_F(SetRows, OtherServerSetsItsOwnLimitAlone) {
    files.write_plugin_file("THR:READ_BANDWIDTH_PERCENT=40\nTHR:s3=4\nTHR:azure=5\n"
                            "THR:CSSC_HOST_NAME=media\nTHR:LOG_LEVEL=2\n");
    EXPECT_EQ(set(std::string(half_read) + "name=THR:azure,value=8,;name=THR:s3,value=9,;"
                                           "name=THR:LOG_LEVEL,value=1,;",
                  "cloud", "s3"),
              0);
    std::string expected =
        with("READ_BANDWIDTH_PERCENT=100", "READ_BANDWIDTH_PERCENT=40", "THR:azure=5\nTHR:s3=9\n");
    expected.replace(expected.find("LEVEL=0"), 7, "LEVEL=2");
    expected.replace(expected.find("localhost"), 9, "media");
    EXPECT_EQ(file(), expected);
}

TEST_F(SetRows, OtherServerIsAddedWhereItIsNotKnown) {
    EXPECT_EQ(set("name=THR:s3,value=9,;", "cloud", "s3"), 0);
    EXPECT_EQ(file(), default_file("THR:s3=9\n"));
}

TEST_F(SetRows, OtherServersTextWithoutARowForItStoresALimitOfZero) {
    files.write_plugin_file("THR:s3=4\n");
    for (const char* text : {"", "name=THR:azure,value=8,;", "nonsense"}) {
        EXPECT_EQ(set(text, "cloud", "s3"), 0);
        EXPECT_EQ(file(), default_file("THR:s3=0\n"));
    }
    throttling_config_s config;
    take_log();
    read_config_file_to_var(&warned, &config);
    EXPECT_EQ(config.connections.at("s3"), 10U); // the next read falls back to the default limit
    EXPECT_EQ(take_log().back(),
              "2 [parse_oneline_to_var]invalid connections count, set to default.");
}

TEST_F(SetRows, InvalidLimitOfAServerBecomesTheDefaultOfTheText) {
    files.write_plugin_file("THR:DEFAULT_MAX_CONNECTIONS=3\n");
    EXPECT_EQ(set("name=THR:s3,value=0,;", "cloud", "s3"), 0);
    EXPECT_NE(file().find("THR:s3=10\n"), std::string::npos);
}

TEST_F(SetRows, LogsTheReadsTheTextAndTheWriteInOrder) {
    files.write_plugin_file("");
    files.write_service_file("");
    const std::vector<std::string> reads = {"3 [write_config_file_from_buf]enter.",
                                            "3 [read_config_file_to_var]enter.",
                                            "3 [read_config_file_to_var]leave.",
                                            "3 [read_config_file_to_var]enter.",
                                            "3 [read_config_file_to_var]leave.",
                                            "3 [read_buf_to_var]enter.",
                                            "3 [read_buf_to_var]leave."};
    const auto and_then = [&](std::vector<std::string> lines) {
        lines.insert(lines.begin(), reads.begin(), reads.end());
        return lines;
    };
    EXPECT_EQ(set_global(""), 0);
    EXPECT_EQ(take_log(), and_then({"3 [write_config_file_from_buf]leave."}));
    for (const char* type : {"global", "cloud"}) {
        files.write_plugin_file("");
        EXPECT_EQ(set(half_read, type, "s3"), 0);
        EXPECT_EQ(take_log(), and_then({"3 [write_config_file_from_var]enter.",
                                        "3 [write_config_file_from_var]leave.",
                                        "3 [write_config_file_from_buf]leave."}));
    }
}

TEST_F(SetRows, FailuresOfTheWriteAreHandedOnAfterLeave) {
    const struct {
        const char* call;
        int after; // calls that pass: the two reads
        int status;
    } cases[] = {{"fopen", 2, 2060013},
                 {"fputs", 0, 2060017},
                 {"fclose", 2, 2060017},
                 {"onet_chown_service_user_if_root", 0, 2060017},
                 {"chmod", 0, 2060017}};
    for (const auto& each : cases) {
        for (const char* type : {"global", "cloud"}) {
            SCOPED_TRACE(each.call);
            files.write_plugin_file("");
            files.write_service_file("");
            const size_t open = descriptors();
            fault::fail(each.call, EIO, 1, each.after);
            EXPECT_EQ(set(half_read, type, "s3"), each.status);
            EXPECT_EQ(take_log().back(), "3 [write_config_file_from_buf]leave.");
            EXPECT_EQ(descriptors(), open);
        }
    }
}

TEST_F(SetRows, FormedTextSetsWhatItShows) {
    files.write_plugin_file("THR:READ_BANDWIDTH_PERCENT=40\nTHR:s3=4\nTHR:SAMPLE_INTERVAL=60\n");
    char type[] = "global";
    char name[] = "s3";
    std::vector<char> text(10240);
    EXPECT_EQ(read_config_file_to_buf(nullptr, text.data(), type, name), 0);
    throttling_config_s before;
    read_config_file_to_var(nullptr, &before);
    EXPECT_EQ(write_config_file_from_buf(nullptr, text.data(), type, name), 0);
    throttling_config_s after;
    read_config_file_to_var(nullptr, &after);
    EXPECT_EQ(fields(after), fields(before));
}

} // namespace
