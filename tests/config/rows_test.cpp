// The row text: how it is formed from the files, and what it does to a record.

#include "tests/config/config_fixture.h"

#include <algorithm>
#include <gmock/gmock.h>

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using limits = std::map<std::string, uint32_t>;

/// The rows of the defaults, the shared ones with that mark; `storages` stands behind the third.
std::string default_rows(const std::string& fixed, const std::string& storages = "") {
    const auto row = [&](const std::string& key, const std::string& text,
                         const std::string& value) {
        return "name=THR:" + key + ",description=" + text + ",type=int,value=" + value +
               ",fixed=" + fixed + ";";
    };
    return row("READ_BANDWIDTH_PERCENT", "bandwidth percent for read[%]", "100") +
           row("WRITE_BANDWIDTH_PERCENT", "bandwidth percent for write[%]", "100") +
           row("DEFAULT_MAX_CONNECTIONS", "default maximum connections for each cloud storage",
               "10") +
           storages +
           row("AVAIL_BANDWIDTH", "the whole bandwidth available[bytes/second]", "104857600") +
           row("WORK_TIME_START", "work time start[hour]", "8") +
           row("WORK_TIME_END", "work time end[hour]", "18") +
           row("WORK_TIME_BANDWIDTH_PERCENT", "bandwidth percent in work time[%]", "100") +
           row("OFF_TIME_START", "off timestart[hour]", "18") +
           row("OFF_TIME_END", "off time end[hour]", "8") +
           row("OFF_TIME_BANDWIDTH_PERCENT", "bandwidth percent in off time[%]", "100") +
           row("WEEKEND_START", "weekend start[day of week]", "6") +
           row("WEEKEND_END", "weekend end[day of week]", "7") +
           row("WEEKEND_BANDWIDTH_PERCENT", "bandwidth percent in weekend[%]", "100") +
           row("SAMPLE_INTERVAL", "the interval of sampling[seconds]", "0");
}

std::string storage_row(const std::string& name, int limit, const std::string& fixed) {
    return "name=THR:" + name +
           ",description=maximum connections for cloud storage,type=int,value=" +
           std::to_string(limit) + ",fixed=" + fixed + ";";
}

class RowText : public ConfigTest {
  protected:
    std::string rows(std::string type, std::string name) {
        EXPECT_EQ(read_config_file_to_buf(&session, buffer.data(), type.data(), name.data()), 0);
        return buffer.data();
    }

    std::vector<char> buffer = std::vector<char>(10240, 'X');
};

TEST_F(RowText, EmptyConnectionsGiveFourteenRows) {
    const std::string text = rows("global", "");
    EXPECT_EQ(text, default_rows("n"));
    EXPECT_EQ(std::count(text.begin(), text.end(), ';'), 14);
}

TEST_F(RowText, GlobalServerMayChangeTheSharedRowsAndNoStorages) {
    files.write_plugin_file("THR:s3=4\n");
    EXPECT_EQ(rows("global", ""), default_rows("n", storage_row("s3", 4, "y")));
}

TEST_F(RowText, GlobalServerWithTheNameOfAStorageMayChangeThatRowToo) {
    files.write_plugin_file("THR:s3=4\n");
    EXPECT_EQ(rows("global", "s3"), default_rows("n", storage_row("s3", 4, "n")));
}

TEST_F(RowText, ServerInTheMapMayChangeItsOwnRowAlone) {
    files.write_plugin_file("THR:s3=4\nTHR:azure=5\nTHR:s33=6\n");
    EXPECT_EQ(rows("cloud", "s3"),
              default_rows("y", storage_row("azure", 5, "y") + storage_row("s3", 4, "n") +
                                    storage_row("s33", 6, "y")));
}

TEST_F(RowText, ServerThatIsNotInTheMapMayChangeNoRow) {
    files.write_plugin_file("THR:s3=4\n");
    const std::string text = rows("cloud", "azure");
    EXPECT_EQ(text, default_rows("y", storage_row("s3", 4, "y")));
    EXPECT_EQ(text.find("fixed=n"), std::string::npos);
}

TEST_F(RowText, OnlyTheExactWordGlobalMakesAServerGlobal) {
    for (const char* type : {"", "Global", "globals", "globa"}) {
        EXPECT_EQ(rows(type, "s3"), default_rows("y")) << type;
    }
}

TEST_F(RowText, ShowsTheValuesOfTheFiles) {
    files.write_plugin_file("THR:READ_BANDWIDTH_PERCENT=1\nTHR:WRITE_BANDWIDTH_PERCENT=2\n"
                            "THR:DEFAULT_MAX_CONNECTIONS=3\nTHR:AVAIL_BANDWIDTH="
                            "9223372036854775807\nTHR:WORK_TIME_START=5\nTHR:WORK_TIME_END=6\n"
                            "THR:WORK_TIME_BANDWIDTH_PERCENT=7\nTHR:OFF_TIME_START=9\n"
                            "THR:OFF_TIME_END=10\nTHR:OFF_TIME_BANDWIDTH_PERCENT=11\n"
                            "THR:WEEKEND_START=1\nTHR:WEEKEND_END=2\n"
                            "THR:WEEKEND_BANDWIDTH_PERCENT=14\nTHR:SAMPLE_INTERVAL=15\n"
                            "THR:LOG_LEVEL=3\nTHR:CSSC_HOST_NAME=h\n");
    throttling_config_s config;
    std::string text = rows("cloud", "");
    EXPECT_EQ(read_buf_to_var(nullptr, text.data(), &config), 0);
    EXPECT_EQ(config.read_bandwidth_percent, 1);
    EXPECT_EQ(config.write_bandwidth_percent, 2);
    EXPECT_EQ(config.default_max_connections, 3);
    EXPECT_EQ(config.avail_bandwidth, 9223372036854775807U);
    EXPECT_EQ(config.work_time_start, 5);
    EXPECT_EQ(config.work_time_end, 6);
    EXPECT_EQ(config.work_time_bandwidth_percent, 7);
    EXPECT_EQ(config.off_time_start, 9);
    EXPECT_EQ(config.off_time_end, 10);
    EXPECT_EQ(config.off_time_bandwidth_percent, 11);
    EXPECT_EQ(config.weekend_start, 1);
    EXPECT_EQ(config.weekend_end, 2);
    EXPECT_EQ(config.weekend_bandwidth_percent, 14);
    EXPECT_EQ(config.sample_interval, 15);
    EXPECT_EQ(config.log_level, 0); // no rows for these
    EXPECT_STREQ(config.cssc_host_name, "localhost");
    for (const char* hidden : {"LOG_LEVEL", "CSSC"}) {
        EXPECT_EQ(text.find(hidden), std::string::npos);
    }
}

TEST_F(RowText, RestOfTheBufferIsZero) {
    const size_t used = rows("global", "").size();
    EXPECT_THAT(std::vector<char>(buffer.begin() + static_cast<long>(used), buffer.end()),
                Each('\0'));
}

TEST_F(RowText, IsCutAt10239Characters) {
    std::string lines;
    std::string storages;
    for (int number = 100; number < 250; ++number) {
        lines += "THR:storage-" + std::to_string(number) + "=10\n";
        storages += storage_row("storage-" + std::to_string(number), 10, "y");
    }
    files.write_plugin_file(lines);
    EXPECT_EQ(rows("cloud", "s3"), default_rows("y", storages).substr(0, 10239));
}

TEST_F(RowText, LogsEnterTheReadsAndLeave) {
    rows("global", "");
    std::vector<std::string> expected = {"3 [read_config_file_to_buf]enter."};
    for (const std::string& path : {files.service_file(), files.plugin_file()}) {
        for (const std::string& line : missing_file_log(path)) {
            expected.push_back(line);
        }
    }
    expected.emplace_back("3 [read_config_file_to_buf]leave.");
    EXPECT_EQ(take_log(), expected);
}

class ReadRows : public ConfigTest {
  protected:
    /// Applies the text, which must be whole again afterwards; the warnings.
    std::vector<std::string> apply(const std::string& text) {
        std::vector<char> copy(text.c_str(), text.c_str() + text.size() + 1);
        EXPECT_EQ(read_buf_to_var(&warned, copy.data(), &config), 0);
        EXPECT_EQ(std::string(copy.data()), text);
        return take_log();
    }

    throttling_config_s config;
    const field_list defaults = fields(config);
};

TEST_F(ReadRows, NamesAndValuesAreApplied) {
    EXPECT_THAT(apply(default_rows("n", storage_row("s3", 4, "y"))), IsEmpty());
    EXPECT_EQ(config.connections, (limits{{"s3", 4}}));
    apply("name=THR:READ_BANDWIDTH_PERCENT,description=x,type=int,value=50,fixed=n;"
          "name=THR:CSSC_HOST_NAME,value=media,");
    EXPECT_EQ(config.read_bandwidth_percent, 50);
    EXPECT_STREQ(config.cssc_host_name, "media");
}

TEST_F(ReadRows, LogsEnterWarningsMendingAndLeave) {
    std::string text = "name=THR:WORK_TIME_END,value=19,;name=THR:LOG_LEVEL,value=6,;";
    EXPECT_EQ(read_buf_to_var(&session, text.data(), &config), 0);
    EXPECT_THAT(take_log(),
                ElementsAre("3 [read_buf_to_var]enter.",
                            "2 [parse_oneline_to_var]invalid log_level, set to default.",
                            "2 [check_time]work time overlaps with off time, set off_time_end as "
                            "work_time_start, set off_time_start as work_time_end.",
                            "3 [read_buf_to_var]leave."));
    EXPECT_EQ(config.off_time_start, 19);
}

TEST_F(ReadRows, EmptyTextChangesNothing) {
    EXPECT_THAT(apply(""), IsEmpty());
    EXPECT_EQ(fields(config), defaults);
}

TEST_F(ReadRows, UnfinishedRowsChangeNothing) {
    const std::string row = "name=THR:READ_BANDWIDTH_PERCENT,description=x,type=int,value=50,";
    for (size_t length = 0; length < row.size(); ++length) {
        EXPECT_THAT(apply(row.substr(0, length)), IsEmpty()) << length;
        EXPECT_EQ(fields(config), defaults) << row.substr(0, length);
    }
    apply(row);
    EXPECT_EQ(config.read_bandwidth_percent, 50);
}

TEST_F(ReadRows, RowWithoutACommaBehindItsValueSwallowsTheNextOne) {
    EXPECT_THAT(apply("name=THR:READ_BANDWIDTH_PERCENT,value=50;"
                      "name=THR:WRITE_BANDWIDTH_PERCENT,value=60,;"),
                IsEmpty());
    EXPECT_EQ(config.read_bandwidth_percent, 50); // "50;name=THR:WRITE_BANDWIDTH_PERCENT"
    EXPECT_EQ(config.write_bandwidth_percent, 100);
}

TEST_F(ReadRows, RowWithoutACommaBehindItsValueIsDroppedAtTheEnd) {
    EXPECT_THAT(apply("name=THR:WRITE_BANDWIDTH_PERCENT,value=60,;"
                      "name=THR:READ_BANDWIDTH_PERCENT,value=50;"),
                IsEmpty());
    EXPECT_EQ(config.read_bandwidth_percent, 100);
    EXPECT_EQ(config.write_bandwidth_percent, 60);
}

TEST_F(ReadRows, TextWithoutCommasChangesNothing) {
    EXPECT_THAT(apply("name=THR:s3 value=50;name=THR:azure value=60;"), IsEmpty());
    EXPECT_EQ(fields(config), defaults);
}

TEST_F(ReadRows, NamesOfOthersArePassedOver) {
    EXPECT_THAT(apply("name=OTHER,value=1,fixed=n;name=CSSC_PORT,value=2,fixed=n;"
                      "name= THR:a,value=3,fixed=n;name=thr:b,value=4,fixed=n;"
                      "name=THR:c,value=5,fixed=n;"),
                IsEmpty());
    EXPECT_EQ(config.cssc_port_number, 5637);
    EXPECT_EQ(config.connections, (limits{{"c", 5}}));
}

TEST_F(ReadRows, ValueIsLookedForBehindTheNamesComma) {
    EXPECT_THAT(apply("value=9,name=THR:a,x=1,name=THR:b,value=2,name=THR:c,value=3,"), IsEmpty());
    EXPECT_EQ(config.connections, (limits{{"a", 2}, {"c", 3}})); // b lay between a and its value
    config.connections.clear();
    EXPECT_THAT(apply("name=THR:value=4,value=5,"), IsEmpty());
    EXPECT_EQ(config.connections, (limits{{"value=4", 5}}));
}

TEST_F(ReadRows, NamesNestedInNamesAreFoundWhereTheOuterOneFails) {
    EXPECT_THAT(apply("name=name=THR:a,value=1,"), IsEmpty());
    EXPECT_EQ(config.connections, (limits{{"a", 1}}));
    EXPECT_THAT(apply("name=THR:name=THR:b,value=2,"), IsEmpty()); // here it doesn't fail
    EXPECT_EQ(config.connections, (limits{{"a", 1}, {"name=THR:b", 2}}));
}

TEST_F(ReadRows, ValueNestedInAValueBelongsToIt) {
    EXPECT_THAT(apply("name=THR:CSSC_HOST_NAME,value=value=5,value=6,"), IsEmpty());
    EXPECT_STREQ(config.cssc_host_name, "value=5");
}

TEST_F(ReadRows, DescriptionTypeAndMarkAreNotRead) {
    EXPECT_THAT(apply("name=THR:s3,description=,type=nonsense,fixed=y,value=7,"), IsEmpty());
    EXPECT_EQ(config.connections, (limits{{"s3", 7}}));
}

TEST_F(ReadRows, EmptyValuesFollowTheRulesOfTheFile) {
    EXPECT_THAT(apply("name=THR:READ_BANDWIDTH_PERCENT,value=,name=THR:s3,value=,"
                      "name=THR:CSSC_HOST_NAME,value=,"),
                ElementsAre("2 [parse_oneline_to_var]invalid connections count, set to default.",
                            "2 [parse_oneline_to_var]invalid cssc_host_name, set to default."));
    EXPECT_EQ(config.read_bandwidth_percent, 0);
    EXPECT_EQ(config.connections, (limits{{"s3", 10}}));
}

TEST_F(ReadRows, NewlinesAreNothingSpecial) {
    EXPECT_THAT(apply("name=THR:s3,\nvalue=5\n,\nname=THR:a\nb,value=6,"), IsEmpty());
    EXPECT_EQ(config.connections, (limits{{"s3", 5}, {"a\nb", 6}}));
}

} // namespace
