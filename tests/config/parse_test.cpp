// What one key and its value do to a record.

#include "tests/config/config_fixture.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct number_setting {
    const char* key;
    const char* field;
    int32_t throttling_config_s::*value;
    int64_t low;
    int64_t high;
};

constexpr int64_t no_upper_bound = INT32_MAX;

const number_setting numbers[] = {
    {"THR:READ_BANDWIDTH_PERCENT", "read_bandwidth_percent",
     &throttling_config_s::read_bandwidth_percent, 0, 100},
    {"THR:WRITE_BANDWIDTH_PERCENT", "write_bandwidth_percent",
     &throttling_config_s::write_bandwidth_percent, 0, 100},
    {"THR:DEFAULT_MAX_CONNECTIONS", "default_max_connections",
     &throttling_config_s::default_max_connections, 1, no_upper_bound},
    {"THR:WORK_TIME_START", "work_time_start", &throttling_config_s::work_time_start, 0, 23},
    {"THR:WORK_TIME_END", "work_time_end", &throttling_config_s::work_time_end, 0, 23},
    {"THR:WORK_TIME_BANDWIDTH_PERCENT", "work_time_bandwidth_percent",
     &throttling_config_s::work_time_bandwidth_percent, 0, 100},
    {"THR:OFF_TIME_START", "off_time_start", &throttling_config_s::off_time_start, 0, 23},
    {"THR:OFF_TIME_END", "off_time_end", &throttling_config_s::off_time_end, 0, 23},
    {"THR:OFF_TIME_BANDWIDTH_PERCENT", "off_time_bandwidth_percent",
     &throttling_config_s::off_time_bandwidth_percent, 0, 100},
    {"THR:WEEKEND_START", "weekend_start", &throttling_config_s::weekend_start, 1, 7},
    {"THR:WEEKEND_END", "weekend_end", &throttling_config_s::weekend_end, 1, 7},
    {"THR:WEEKEND_BANDWIDTH_PERCENT", "weekend_bandwidth_percent",
     &throttling_config_s::weekend_bandwidth_percent, 0, 100},
    {"THR:SAMPLE_INTERVAL", "sample_interval", &throttling_config_s::sample_interval, 0,
     no_upper_bound},
    {"THR:LOG_LEVEL", "log_level", &throttling_config_s::log_level, 0, 5},
    {"CSSC_PORT", "cssc_port_number", &throttling_config_s::cssc_port_number, 0, no_upper_bound},
};

class ParseLine : public ConfigTest {
  protected:
    void parse(const std::string& key, const std::string& value) {
        parse_oneline_to_var(&session, &config, key.c_str(), value.c_str());
    }

    /// Fails unless `value` is stored as `number` without a word.
    void expect_stored(const number_setting& setting, const std::string& value, int64_t number) {
        SCOPED_TRACE(std::string(setting.key) + "=" + value);
        config.*setting.value = 3;
        parse(setting.key, value);
        EXPECT_EQ(config.*setting.value, number);
        EXPECT_THAT(take_log(), IsEmpty());
    }

    /// Fails unless `value` is reported and the field keeps what it had.
    void expect_rejected(const number_setting& setting, const std::string& value) {
        SCOPED_TRACE(std::string(setting.key) + "=" + value);
        config.*setting.value = 3;
        parse(setting.key, value);
        EXPECT_EQ(config.*setting.value, 3);
        EXPECT_THAT(take_log(), ElementsAre("2 [parse_oneline_to_var]invalid " +
                                            std::string(setting.field) + ", set to default."));
    }

    void expect_number(const number_setting& setting, const std::string& value, int64_t low_32) {
        if (low_32 >= setting.low && low_32 <= setting.high) {
            expect_stored(setting, value, low_32);
        } else {
            expect_rejected(setting, value);
        }
    }

    throttling_config_s config;
};

TEST_F(ParseLine, NumbersAreAcceptedWithinTheirBounds) {
    for (const number_setting& each : numbers) {
        expect_stored(each, std::to_string(each.low), each.low);
        expect_stored(each, std::to_string(each.low + 1), each.low + 1);
        expect_stored(each, std::to_string(each.high), each.high);
        expect_rejected(each, std::to_string(each.low - 1));
        expect_rejected(each, std::to_string(each.high + 1));
        expect_rejected(each, "-1");
        expect_rejected(each, "-100");
    }
}

TEST_F(ParseLine, PercentAboveHundredWarnsAndKeepsTheEarlierValue) {
    parse("THR:READ_BANDWIDTH_PERCENT", "40");
    parse("THR:READ_BANDWIDTH_PERCENT", "101");
    EXPECT_EQ(config.read_bandwidth_percent, 40);
    EXPECT_THAT(take_log(), ElementsAre("2 [parse_oneline_to_var]invalid read_bandwidth_percent, "
                                        "set to default."));
}

TEST_F(ParseLine, NegativePercentWarnsSinceTheTestIsUnsigned) {
    parse("THR:READ_BANDWIDTH_PERCENT", "-1");
    EXPECT_EQ(config.read_bandwidth_percent, 100);
    EXPECT_THAT(take_log(), ElementsAre("2 [parse_oneline_to_var]invalid read_bandwidth_percent, "
                                        "set to default."));
}

TEST_F(ParseLine, NumbersEndAtTheFirstCharacterThatIsNoDigit) {
    for (const number_setting& each : numbers) {
        for (const char* value :
             {"2", " 2", "\t2", "+2", "2abc", "2 1", "2.9", "2=5", "02", "2\r"}) {
            expect_stored(each, value, 2);
        }
    }
}

TEST_F(ParseLine, ValueWithoutDigitsIsZero) {
    for (const number_setting& each : numbers) {
        for (const char* value : {"", "abc", "x2", "=2", "-", "+", "0x2", " ", "\xff"}) {
            expect_number(each, value, 0);
        }
    }
}

TEST_F(ParseLine, LowThirtyTwoBitsOfANumberDecide) {
    for (const number_setting& each : numbers) {
        expect_number(each, "4294967296", 0);
        expect_number(each, "4294967301", 5); // 2^32 + 5
        expect_number(each, "-4294967291", 5);
        expect_number(each, "2147483648", INT32_MIN);
        expect_number(each, "4294967295", -1);
        expect_number(each, "9223372036854775807", -1); // 2^63 - 1
        expect_number(each, "-9223372036854775808", 0); // -2^63
    }
}

TEST_F(ParseLine, NumbersBeyondSixtyFourBitsAreTheNearestThatFits) {
    for (const number_setting& each : numbers) {
        expect_number(each, "9223372036854775808", -1);
        expect_number(each, "99999999999999999999999999", -1);
        expect_number(each, "-9223372036854775809", 0);
        expect_number(each, "-99999999999999999999999999", 0);
    }
}

TEST_F(ParseLine, BandwidthIsAcceptedFromOneToTheLargestSignedNumber) {
    const struct {
        const char* value;
        uint64_t stored; // 0: rejected
    } cases[] = {
        {"1", 1},
        {"104857601", 104857601},
        {"4294967296", 4294967296},
        {"9223372036854775807", 9223372036854775807U},
        {" 7", 7},
        {"7xyz", 7},
        {"-18446744073709551615", 1}, // the text's sign is taken modulo 2^64
        {"9223372036854775808", 0},
        {"18446744073709551615", 0},
        {"18446744073709551616", 0},
        {"99999999999999999999999999", 0},
        {"-99999999999999999999999999", 0},
        {"0", 0},
        {"-1", 0},
        {"", 0},
        {"fast", 0},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.value);
        config.avail_bandwidth = 42;
        parse("THR:AVAIL_BANDWIDTH", each.value);
        if (each.stored != 0) {
            EXPECT_EQ(config.avail_bandwidth, each.stored);
            EXPECT_THAT(take_log(), IsEmpty());
        } else {
            EXPECT_EQ(config.avail_bandwidth, 42U);
            EXPECT_THAT(take_log(), ElementsAre("2 [parse_oneline_to_var]invalid avail_bandwidth, "
                                                "set to default."));
        }
    }
}

TEST_F(ParseLine, HostNameIsCopiedAsItStands) {
    for (const std::string& value : {std::string("media-1.example"), std::string(" a=b \r"),
                                     std::string("\xff\x01"), std::string(511, 'h')}) {
        parse("THR:CSSC_HOST_NAME", value);
        EXPECT_EQ(config.cssc_host_name, value);
    }
    EXPECT_THAT(take_log(), IsEmpty());
}

TEST_F(ParseLine, HostNameIsCutTo511Characters) {
    for (const size_t length : {512U, 513U, 5000U}) {
        parse("THR:CSSC_HOST_NAME", std::string(length, 'h'));
        EXPECT_EQ(config.cssc_host_name, std::string(511, 'h'));
    }
    EXPECT_THAT(take_log(), IsEmpty());
}

TEST_F(ParseLine, ShorterHostNameLeavesNothingOfTheLongerOne) {
    parse("THR:CSSC_HOST_NAME", std::string(511, 'h'));
    parse("THR:CSSC_HOST_NAME", "m");
    EXPECT_STREQ(config.cssc_host_name, "m");
}

TEST_F(ParseLine, EmptyHostNameWarnsAndKeepsTheEarlierOne) {
    parse("THR:CSSC_HOST_NAME", "m");
    parse("THR:CSSC_HOST_NAME", "");
    EXPECT_STREQ(config.cssc_host_name, "m");
    EXPECT_THAT(take_log(), ElementsAre("2 [parse_oneline_to_var]invalid cssc_host_name, set to "
                                        "default."));
}

TEST_F(ParseLine, OtherKeysOfOursAreConnectionLimits) {
    parse("THR:s3", "4");
    parse("THR:", "5");
    parse("THR:THR:x", "2147483647");
    parse("THR:READ_BANDWIDTH", "6");          // misspelled
    parse("THR:READ_BANDWIDTH_PERCENTS", "7"); // so too
    parse("THR:READ_BANDWIDTH_PERCENT ", "8"); // a blank before the equals sign
    parse("THR:read_bandwidth_percent", "9");  // keys tell case
    parse("THR:\xff", "4294967306");           // 2^32 + 10
    const std::map<std::string, uint32_t> expected = {
        {"s3", 4},
        {"", 5},
        {"THR:x", 2147483647},
        {"READ_BANDWIDTH", 6},
        {"READ_BANDWIDTH_PERCENTS", 7},
        {"READ_BANDWIDTH_PERCENT ", 8},
        {"read_bandwidth_percent", 9},
        {"\xff", 10},
    };
    EXPECT_EQ(config.connections, expected);
    EXPECT_EQ(config.read_bandwidth_percent, 100);
    EXPECT_THAT(take_log(), IsEmpty());
}

TEST_F(ParseLine, LastLineForAStorageWins) {
    parse("THR:s3", "4");
    parse("THR:s3", "5");
    EXPECT_EQ(config.connections, (std::map<std::string, uint32_t>{{"s3", 5}}));
}

TEST_F(ParseLine, InvalidLimitWarnsAndBecomesTheDefaultLimit) {
    config.default_max_connections = 17;
    for (const char* value : {"0", "-1", "", "many", "2147483648", "4294967296",
                              "99999999999999999999", "-99999999999999999999"}) {
        SCOPED_TRACE(value);
        config.connections = {{"s3", 4}};
        parse("THR:s3", value);
        EXPECT_EQ(config.connections, (std::map<std::string, uint32_t>{{"s3", 17}}));
        EXPECT_THAT(take_log(), ElementsAre("2 [parse_oneline_to_var]invalid connections count, "
                                            "set to default."));
    }
}

TEST_F(ParseLine, InvalidLimitAboveTheDefaultsLineGetsTheEarlierDefault) {
    parse("THR:early", "0");
    parse("THR:DEFAULT_MAX_CONNECTIONS", "3");
    parse("THR:late", "0");
    EXPECT_EQ(config.connections, (std::map<std::string, uint32_t>{{"early", 10}, {"late", 3}}));
}

TEST_F(ParseLine, UnknownKeysAreIgnoredWithAWarning) {
    const field_list before = fields(config);
    for (const std::string key : {"", "THR", "thr:s3", " THR:s3", "CSSC_IS_SECURE", "cssc_port",
                                  "CSSC_PORT ", "READ_BANDWIDTH_PERCENT", "%s%n"}) {
        parse(key, "5");
        EXPECT_THAT(take_log(), ElementsAre("2 [parse_oneline_to_var]Ignore item:" + key + "."));
    }
    EXPECT_EQ(fields(config), before);
}

} // namespace
