// How the two files are read into a record.

#include "tests/config/config_fixture.h"

#include <filesystem>
#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using limits = std::map<std::string, uint32_t>;

std::string debug(const std::string& text) { return "3 [read_config_file_to_var]" + text; }

class ReadFile : public ConfigTest {
  protected:
    /// Reads our file with that text into `config`; the warnings, or everything with `session`.
    std::vector<std::string> read(const std::string& text, const sts_session_def_v7_t& by) {
        files.write_plugin_file(text);
        EXPECT_EQ(read_config_file_to_var(&by, &config, files.plugin_file().c_str()), 0);
        return take_log();
    }
    std::vector<std::string> warnings(const std::string& text) { return read(text, warned); }

    throttling_config_s config;
    const field_list defaults = fields(config);
};

TEST_F(ReadFile, EveryKeyReachesItsField) {
    const std::string text = "THR:READ_BANDWIDTH_PERCENT=1\n"
                             "THR:WRITE_BANDWIDTH_PERCENT=2\n"
                             "THR:DEFAULT_MAX_CONNECTIONS=3\n"
                             "THR:AVAIL_BANDWIDTH=4\n"
                             "THR:WORK_TIME_START=5\n"
                             "THR:WORK_TIME_END=6\n"
                             "THR:WORK_TIME_BANDWIDTH_PERCENT=7\n"
                             "THR:OFF_TIME_START=8\n"
                             "THR:OFF_TIME_END=9\n"
                             "THR:OFF_TIME_BANDWIDTH_PERCENT=10\n"
                             "THR:WEEKEND_START=2\n"
                             "THR:WEEKEND_END=3\n"
                             "THR:WEEKEND_BANDWIDTH_PERCENT=13\n"
                             "THR:SAMPLE_INTERVAL=14\n"
                             "THR:LOG_LEVEL=4\n"
                             "CSSC_PORT=16\n"
                             "THR:CSSC_HOST_NAME=media\n"
                             "THR:s3=18\n";
    EXPECT_THAT(warnings(text), IsEmpty());
    const field_list expected = {
        {"read_bandwidth_percent", "1"},
        {"write_bandwidth_percent", "2"},
        {"default_max_connections", "3"},
        {"avail_bandwidth", "4"},
        {"work_time_start", "5"},
        {"work_time_end", "6"},
        {"work_time_bandwidth_percent", "7"},
        {"off_time_start", "8"},
        {"off_time_end", "9"},
        {"off_time_bandwidth_percent", "10"},
        {"weekend_start", "2"},
        {"weekend_end", "3"},
        {"weekend_bandwidth_percent", "13"},
        {"sample_interval", "14"},
        {"log_level", "4"},
        {"cssc_port_number", "16"},
        {"cssc_host_name", "media"},
        {"connections[s3]", "18"},
    };
    EXPECT_EQ(fields(config), expected);
}

TEST_F(ReadFile, LogsEnterThenEachLineAsItComesThenLeave) {
    const std::string text = "# THR:s3=1\n"
                             "THR:READ_BANDWIDTH_PERCENT=50\n"
                             "nonsense\n"
                             "\n"
                             "THR:LOG_LEVEL=9\n"
                             "unknown=1\n"
                             "#\n"
                             "last=1";
    EXPECT_THAT(read(text, session),
                ElementsAre(debug("enter."), debug("Comment:# THR:s3=1\n"),
                            debug("THR:READ_BANDWIDTH_PERCENT=50\n"), ignored("nonsense\n"),
                            ignored("\n"), debug("THR:LOG_LEVEL=9\n"),
                            "2 [parse_oneline_to_var]invalid log_level, set to default.",
                            debug("unknown=1\n"), "2 [parse_oneline_to_var]Ignore item:unknown.",
                            debug("Comment:#\n"), ignored("last=1"), debug("leave.")));
}

TEST_F(ReadFile, WindowsAreMendedBeforeItLeaves) {
    EXPECT_THAT(read("THR:WORK_TIME_END=19\n", session),
                ElementsAre(debug("enter."), debug("THR:WORK_TIME_END=19\n"),
                            "2 [check_time]work time overlaps with off time, set off_time_end as "
                            "work_time_start, set off_time_start as work_time_end.",
                            debug("leave.")));
    EXPECT_EQ(config.off_time_start, 19);
    EXPECT_EQ(config.off_time_end, 8);
}

TEST_F(ReadFile, MissingFileWarnsAndLeavesTheRecordEvenWithWindowsToMend) {
    config.work_time_end = config.work_time_start;
    const field_list before = fields(config);
    const std::string path = files.path() + "/none.conf";
    EXPECT_EQ(read_config_file_to_var(&session, &config, path.c_str()), 2060013);
    EXPECT_EQ(take_log(), missing_file_log(path));
    EXPECT_EQ(fields(config), before);
}

TEST_F(ReadFile, EmptyFileLeavesTheRecordAsItWasApartFromItsWindows) {
    config.read_bandwidth_percent = 33;
    config.connections["s3"] = 2;
    field_list before = fields(config);
    EXPECT_THAT(read("", session), ElementsAre(debug("enter."), debug("leave.")));
    EXPECT_EQ(fields(config), before);

    config.work_time_end = config.work_time_start;
    EXPECT_EQ(warnings("").size(), 1U);
    EXPECT_EQ(config.work_time_end, 9);
}

TEST_F(ReadFile, LastLineWithoutANewlineIsLostWithAWarning) {
    EXPECT_THAT(warnings("THR:READ_BANDWIDTH_PERCENT=50\nTHR:WRITE_BANDWIDTH_PERCENT=50"),
                ElementsAre(ignored("THR:WRITE_BANDWIDTH_PERCENT=50")));
    EXPECT_EQ(config.read_bandwidth_percent, 50);
    EXPECT_EQ(config.write_bandwidth_percent, 100);
}

TEST_F(ReadFile, LineIsCutAtItsFirstEqualsSign) {
    EXPECT_THAT(warnings("THR:CSSC_HOST_NAME=a=b=\nTHR:s3==5\n"),
                ElementsAre("2 [parse_oneline_to_var]invalid connections count, set to default."));
    EXPECT_STREQ(config.cssc_host_name, "a=b=");
    EXPECT_EQ(config.connections, (limits{{"s3", 10}}));
}

TEST_F(ReadFile, BlankBeforeTheEqualsSignMakesAConnectionEntryThatEndsInABlank) {
    EXPECT_THAT(warnings("THR:READ_BANDWIDTH_PERCENT =50\n"), IsEmpty());
    EXPECT_EQ(config.read_bandwidth_percent, 100);
    EXPECT_EQ(config.connections, (limits{{"READ_BANDWIDTH_PERCENT ", 50}}));
}

TEST_F(ReadFile, NothingIsTrimmed) {
    EXPECT_THAT(warnings(" THR:s3=5\n\t#=1\n =2\nTHR:CSSC_HOST_NAME= h \n"),
                ElementsAre("2 [parse_oneline_to_var]Ignore item: THR:s3.",
                            "2 [parse_oneline_to_var]Ignore item:\t#.",
                            "2 [parse_oneline_to_var]Ignore item: ."));
    EXPECT_STREQ(config.cssc_host_name, " h ");
    EXPECT_THAT(config.connections, IsEmpty());
}

TEST_F(ReadFile, StorageWithLimitZeroGetsTheDefaultLimitWithAWarning) {
    EXPECT_THAT(warnings("THR:s3=0\n"),
                ElementsAre("2 [parse_oneline_to_var]invalid connections count, set to default."));
    EXPECT_EQ(config.connections, (limits{{"s3", 10}}));
}

TEST_F(ReadFile, SampleIntervalStaysZeroUnderEveryOtherValue) {
    std::string text = default_file("THR:s3=1\n");
    const std::string line = "THR:SAMPLE_INTERVAL=0\n";
    text.erase(text.find(line), line.size());
    EXPECT_THAT(warnings(text), IsEmpty());
    EXPECT_EQ(config.sample_interval, 0); // the switch of throttling is off
}

TEST_F(ReadFile, ItsFilesAreClosed) {
    files.write_plugin_file(default_file());
    const size_t before = descriptors();
    for (int each = 0; each < 10; ++each) {
        read_config_file_to_var(nullptr, &config);
        read_config_file_to_var(nullptr, &config, "/nowhere/at/all");
    }
    EXPECT_EQ(descriptors(), before);
}

class ReadFiles : public ReadFile {};

TEST_F(ReadFiles, ServicesFileIsReadFirstThenOurs) {
    files.write_service_file("CSSC_PORT=80\nCSSC_IS_SECURE=0\n");
    files.write_plugin_file("THR:s3=1\n");
    EXPECT_EQ(read_config_file_to_var(&session, &config), 0);
    EXPECT_THAT(take_log(),
                ElementsAre(debug("enter."), debug("CSSC_PORT=80\n"), debug("CSSC_IS_SECURE=0\n"),
                            "2 [parse_oneline_to_var]Ignore item:CSSC_IS_SECURE.", debug("leave."),
                            debug("enter."), debug("THR:s3=1\n"), debug("leave.")));
}

TEST_F(ReadFiles, MissingFilesGiveTheDefaultsAndSuccess) {
    EXPECT_EQ(read_config_file_to_var(&session, &config), 0);
    std::vector<std::string> expected = missing_file_log(files.service_file());
    for (const std::string& each : missing_file_log(files.plugin_file())) {
        expected.push_back(each);
    }
    EXPECT_EQ(take_log(), expected);
    EXPECT_EQ(fields(config), defaults);
}

TEST_F(ReadFiles, PortInTheServicesFileSetsThePort) {
    files.write_service_file("CSSC_PORT=8443\n");
    files.write_plugin_file(default_file());
    EXPECT_EQ(read_config_file_to_var(nullptr, &config), 0);
    EXPECT_EQ(config.cssc_port_number, 8443);
}

TEST_F(ReadFiles, PortInOurFileHasNoLastingEffect) {
    files.write_plugin_file("CSSC_PORT=8443\n");
    EXPECT_EQ(read_config_file_to_var(&warned, &config), 0);
    EXPECT_EQ(config.cssc_port_number, 5637);
    files.write_service_file("CSSC_PORT=99\n");
    EXPECT_EQ(read_config_file_to_var(&warned, &config), 0);
    EXPECT_EQ(config.cssc_port_number, 99);
}

TEST_F(ReadFiles, InvalidPortGivesTheDefaultPortWhateverTheRecordHeld) {
    config.cssc_port_number = 1;
    files.write_service_file("CSSC_PORT=-1\n");
    files.write_plugin_file("");
    EXPECT_EQ(read_config_file_to_var(&warned, &config), 0);
    EXPECT_THAT(take_log(),
                ElementsAre("2 [parse_oneline_to_var]invalid cssc_port_number, set to default."));
    EXPECT_EQ(config.cssc_port_number, 5637);
}

TEST_F(ReadFiles, NothingButThePortComesFromTheServicesFile) {
    files.write_service_file(
        "THR:READ_BANDWIDTH_PERCENT=1\nTHR:s3=2\nTHR:CSSC_HOST_NAME=h\nCSSC_PORT=3\n");
    EXPECT_EQ(read_config_file_to_var(nullptr, &config), 0);
    config.cssc_port_number = 5637;
    EXPECT_EQ(fields(config), defaults);
}

TEST_F(ReadFiles, RecordKeepsWhatOurFileDoesNotName) {
    config.write_bandwidth_percent = 22;
    config.connections = {{"azure", 7}, {"s3", 8}};
    files.write_plugin_file("THR:READ_BANDWIDTH_PERCENT=11\nTHR:s3=9\n");
    EXPECT_EQ(read_config_file_to_var(nullptr, &config), 0);
    EXPECT_EQ(config.read_bandwidth_percent, 11);
    EXPECT_EQ(config.write_bandwidth_percent, 22);
    EXPECT_EQ(config.connections, (limits{{"azure", 7}, {"s3", 9}}));
}

} // namespace
