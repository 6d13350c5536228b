// Files that nobody should have written: each is read to its end, and what can be understood
// counts.

#include "tests/config/config_fixture.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using limits = std::map<std::string, uint32_t>;

constexpr size_t longest_piece = 10239; // what is read of a line at once

class HostileFile : public ConfigTest {
  protected:
    int read() { return read_config_file_to_var(&warned, &config, plugin_config_path); }

    /// Reads our file with that text; the warnings.
    std::vector<std::string> warnings(const std::string& text) {
        files.write_plugin_file(text);
        EXPECT_EQ(read(), 0);
        return take_log();
    }

    throttling_config_s config;
    const field_list defaults = fields(config);
};

TEST_F(HostileFile, DirectoryInItsPlaceReadsAsAnEmptyFile) {
    std::filesystem::create_directory(files.plugin_file());
    std::filesystem::create_directory(files.service_file());
    const size_t open = descriptors();
    EXPECT_EQ(config_init(&config), 0);
    EXPECT_EQ(read_config_file_to_var(&warned, &config), 0);
    EXPECT_EQ(get_cssc_security(&warned), 1);
    EXPECT_THAT(take_log(), IsEmpty());
    EXPECT_EQ(fields(config), defaults);
    EXPECT_EQ(descriptors(), open);
}

TEST_F(HostileFile, UnreadableFileIsAsGoodAsMissing) {
    files.write_plugin_file("THR:READ_BANDWIDTH_PERCENT=50\n");
    fault::fail("fopen", EACCES, 2);
    EXPECT_EQ(read_config_file_to_var(&session, &config), 0);
    std::vector<std::string> expected = missing_file_log(files.service_file());
    for (const std::string& line : missing_file_log(files.plugin_file())) {
        expected.push_back(line);
    }
    EXPECT_EQ(take_log(), expected);
    EXPECT_EQ(fields(config), defaults);
}

TEST_F(HostileFile, ReadThatFailsInTheMiddleEndsTheFile) {
    files.write_plugin_file("THR:READ_BANDWIDTH_PERCENT=50\nTHR:WRITE_BANDWIDTH_PERCENT=60\n");
    fault::fail("fgets", EIO, 1, 1);
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(config.read_bandwidth_percent, 50);
    EXPECT_EQ(config.write_bandwidth_percent, 100);
}

TEST_F(HostileFile, ZeroByteEndsItsLine) {
    const std::string text =
        std::string("THR:a\0b=5\n", 10) +        // no equals sign is seen
        std::string("THR:c=6\0\n", 9) +          // nor the newline here
        std::string("\0THR:d=7\n", 9) +          // nor anything here
        std::string("THR:e=8\n\0THR:f=9\n", 17); // and a new line starts with one
    EXPECT_THAT(warnings(text),
                ElementsAre(ignored("THR:a"), ignored("THR:c=6"), ignored(""), ignored("")));
    EXPECT_EQ(config.connections, (limits{{"e", 8}}));
}

TEST_F(HostileFile, CarriageReturnsBelongToTheValue) {
    EXPECT_THAT(warnings("# note\r\n\r\nTHR:READ_BANDWIDTH_PERCENT=50\r\n"
                         "THR:CSSC_HOST_NAME=media\r\nTHR:s3=4\r\nTHR:AVAIL_BANDWIDTH=\r\n"),
                ElementsAre(ignored("\r\n"),
                            "2 [parse_oneline_to_var]invalid avail_bandwidth, set to default."));
    EXPECT_EQ(config.read_bandwidth_percent, 50);
    EXPECT_STREQ(config.cssc_host_name, "media\r");
    EXPECT_EQ(config.connections, (limits{{"s3", 4}}));
}

TEST_F(HostileFile, KeysWithoutValuesFollowTheRulesOfTheirKeys) {
    EXPECT_THAT(
        warnings("THR:READ_BANDWIDTH_PERCENT=\nTHR:DEFAULT_MAX_CONNECTIONS=\n"
                 "THR:AVAIL_BANDWIDTH=\nTHR:WEEKEND_START=\nTHR:CSSC_HOST_NAME=\nTHR:s3=\n"
                 "THR:=\n=\nTHR:LOG_LEVEL\n"),
        ElementsAre("2 [parse_oneline_to_var]invalid default_max_connections, set to default.",
                    "2 [parse_oneline_to_var]invalid avail_bandwidth, set to default.",
                    "2 [parse_oneline_to_var]invalid weekend_start, set to default.",
                    "2 [parse_oneline_to_var]invalid cssc_host_name, set to default.",
                    "2 [parse_oneline_to_var]invalid connections count, set to default.",
                    "2 [parse_oneline_to_var]invalid connections count, set to default.",
                    "2 [parse_oneline_to_var]Ignore item:.", ignored("THR:LOG_LEVEL\n")));
    EXPECT_EQ(config.read_bandwidth_percent, 0);
    EXPECT_EQ(config.connections, (limits{{"", 10}, {"s3", 10}}));
}

TEST_F(HostileFile, NumbersBeyondSixtyFourBitsWarnOrAreZero) {
    EXPECT_THAT(
        warnings("THR:READ_BANDWIDTH_PERCENT=99999999999999999999\n"
                 "THR:WRITE_BANDWIDTH_PERCENT=-99999999999999999999\n"
                 "THR:AVAIL_BANDWIDTH=99999999999999999999\n" +
                 ("THR:SAMPLE_INTERVAL=" + std::string(9000, '9') + "\n")),
        ElementsAre("2 [parse_oneline_to_var]invalid read_bandwidth_percent, set to default.",
                    "2 [parse_oneline_to_var]invalid avail_bandwidth, set to default.",
                    "2 [parse_oneline_to_var]invalid sample_interval, set to default."));
    EXPECT_EQ(config.read_bandwidth_percent, 100);
    EXPECT_EQ(config.write_bandwidth_percent, 0);
}

TEST_F(HostileFile, LongLinesArriveInPiecesAndTheNextLineIsWhole) {
    for (const size_t length : {10238U, 10239U, 10240U, 10241U, 20477U, 20478U, 20479U, 20480U}) {
        SCOPED_TRACE(length);
        config = {};
        const std::string line = std::string(length, 'x') + "\n";
        std::vector<std::string> expected;
        for (size_t start = 0; start < line.size(); start += longest_piece) {
            expected.push_back(ignored(line.substr(start, longest_piece)));
        }
        EXPECT_EQ(warnings(line + "THR:READ_BANDWIDTH_PERCENT=50\n"), expected);
        EXPECT_EQ(config.read_bandwidth_percent, 50);
    }
}

TEST_F(HostileFile, LongSettingCountsWhileItsNewlineIsInThePiece) {
    const std::string key = "THR:CSSC_HOST_NAME=";
    const auto line_of = [&](size_t length) {
        return key + std::string(length - key.size() - 1, 'h') + "\n";
    };
    EXPECT_THAT(warnings(line_of(longest_piece)), IsEmpty());
    EXPECT_EQ(config.cssc_host_name, std::string(511, 'h'));

    config = {};
    const std::string line = line_of(longest_piece + 1);
    EXPECT_THAT(warnings(line), ElementsAre(ignored(line.substr(0, longest_piece)), ignored("\n")));
    EXPECT_STREQ(config.cssc_host_name, "localhost");
}

TEST_F(HostileFile, LongStorageNameIsKeptWhole) {
    const std::string name(longest_piece - strlen("THR:=5\n"), 'n');
    EXPECT_THAT(warnings("THR:" + name + "=5\n"), IsEmpty());
    EXPECT_EQ(config.connections, (limits{{name, 5}}));
}

TEST_F(HostileFile, PieceThatLooksLikeALineIsTakenForOne) {
    const std::string comment = "#" + std::string(longest_piece - 1, 'x');
    EXPECT_THAT(warnings(comment + "THR:s3=5\n" + comment + "#THR:azure=6\n"), IsEmpty());
    EXPECT_EQ(config.connections, (limits{{"s3", 5}}));
}

TEST_F(HostileFile, HundredMegabytesOfZeroBytesAreReadToTheEnd) {
    files.write_plugin_file("THR:READ_BANDWIDTH_PERCENT=50\n");
    std::filesystem::resize_file(files.plugin_file(), 100U << 20); // takes no room on the disk
    std::ofstream(files.plugin_file(), std::ios::app) << "\nTHR:WRITE_BANDWIDTH_PERCENT=60\n";
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(config.read_bandwidth_percent, 50);
    EXPECT_EQ(config.write_bandwidth_percent, 60);
}

TEST_F(HostileFile, HundredMegabytesOfSettingsAreReadToTheEnd) {
    std::string megabyte;
    while (megabyte.size() < 1U << 20) {
        megabyte += "THR:a storage with a name of some length, as they are seen at times=12345\n";
    }
    {
        std::ofstream file(files.plugin_file());
        for (int each = 0; each < 100; ++each) {
            file << megabyte;
        }
        file << "THR:s3=6\n";
    }
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(config.connections.size(), 2U);
    EXPECT_EQ(config.connections["s3"], 6U);
}

} // namespace
