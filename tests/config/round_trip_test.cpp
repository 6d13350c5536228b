// Whatever a record holds is the same once it was written and read back, by file and by rows.
// The records are drawn at random from a fixed seed.

#include "tests/config/config_fixture.h"

#include <filesystem>
#include <random>

namespace {

class RoundTrip : public ConfigTest {
  protected:
    int32_t between(int32_t low, int32_t high) {
        return std::uniform_int_distribution<int32_t>(low, high)(random);
    }

    /// Any bytes but those that end a name or a value where it is spelled.
    std::string bytes_without(const std::string& excluded, int shortest, int longest) {
        std::string text;
        for (int left = between(shortest, longest); left > 0; --left) {
            char each = '\0';
            while (each == '\0' || excluded.find(each) != std::string::npos) {
                each = static_cast<char>(between(1, 255));
            }
            text += each;
        }
        return text;
    }

    /// A record as any file could give: every field within its bounds, the windows mended.
    throttling_config_s draw(const std::string& excluded) {
        throttling_config_s c;
        c.read_bandwidth_percent = between(0, 100);
        c.write_bandwidth_percent = between(0, 100);
        c.default_max_connections = between(1, INT32_MAX);
        c.avail_bandwidth = std::uniform_int_distribution<uint64_t>(1, INT64_MAX)(random);
        c.work_time_start = between(0, 23);
        c.work_time_end = between(0, 23);
        c.work_time_bandwidth_percent = between(0, 100);
        c.off_time_start = between(0, 23);
        c.off_time_end = between(0, 23);
        c.off_time_bandwidth_percent = between(0, 100);
        c.weekend_start = between(1, 7);
        c.weekend_end = between(1, 7);
        c.weekend_bandwidth_percent = between(0, 100);
        c.sample_interval = between(0, INT32_MAX);
        c.log_level = between(0, 5);
        c.cssc_port_number = between(0, INT32_MAX);
        snprintf(c.cssc_host_name, sizeof c.cssc_host_name, "%s",
                 bytes_without("\n", 1, 511).c_str());
        for (int left = between(0, 20); left > 0; --left) {
            c.connections[bytes_without(excluded, 0, 200)] =
                static_cast<uint32_t>(between(1, INT32_MAX));
        }
        check_time(nullptr, &c);
        return c;
    }

    std::mt19937 random{20240304}; // NOLINT(cert-msc51-cpp): the same records every time
};

TEST_F(RoundTrip, RecordWrittenAndReadBackIsEqualButForThePort) {
    for (int each = 0; each < 1000; ++each) {
        const throttling_config_s record = draw("=\n");
        std::filesystem::remove(files.plugin_file()); // a rewrite waits for the disk
        std::filesystem::remove(files.service_file());
        ASSERT_EQ(write_config_file_from_var(nullptr, &record), 0);
        files.write_service_file("CSSC_PORT=" + std::to_string(each) + "\n");
        throttling_config_s back;
        ASSERT_EQ(read_config_file_to_var(&warned, &back), 0);
        throttling_config_s expected = record;
        expected.cssc_port_number = each;
        ASSERT_EQ(fields(back), fields(expected)) << each;
        ASSERT_TRUE(take_log().empty());
    }
}

TEST_F(RoundTrip, RowsOfARecordGiveItsSharedSettingsAndLimits) {
    char type[] = "global";
    char name[] = "";
    for (int each = 0; each < 1000; ++each) {
        const throttling_config_s record = draw("=\n,");
        std::filesystem::remove(files.plugin_file());
        ASSERT_EQ(write_config_file_from_var(nullptr, &record), 0);
        std::vector<char> text(10240);
        ASSERT_EQ(read_config_file_to_buf(nullptr, text.data(), type, name), 0);
        throttling_config_s back = record;
        back.connections.clear();
        back.avail_bandwidth = 1;
        ASSERT_EQ(read_buf_to_var(&warned, text.data(), &back), 0);
        ASSERT_EQ(fields(back), fields(record)) << each;
    }
}

TEST_F(RoundTrip, FileOfAnyBytesIsReadAndTheRecordIsSound) {
    const std::string pieces[] = {"THR:",
                                  "=",
                                  "\n",
                                  "#",
                                  "READ_BANDWIDTH_PERCENT",
                                  "WORK_TIME_END",
                                  "CSSC_HOST_NAME",
                                  "-",
                                  "7",
                                  "99999999999",
                                  "\r",
                                  " ",
                                  std::string(1, '\0'),
                                  "DEFAULT_MAX_CONNECTIONS",
                                  "s3",
                                  "AVAIL_BANDWIDTH",
                                  "SAMPLE_INTERVAL"};
    for (int each = 0; each < 2000; ++each) {
        std::string text;
        for (int left = between(0, 200); left > 0; --left) {
            const auto which = static_cast<size_t>(between(0, 16));
            text += between(0, 9) == 0 ? bytes_without("", 1, 30) : pieces[which];
        }
        std::filesystem::remove(files.plugin_file());
        files.write_plugin_file(text);
        throttling_config_s config;
        ASSERT_EQ(read_config_file_to_var(nullptr, &config), 0);
        ASSERT_TRUE(config.read_bandwidth_percent >= 0 && config.read_bandwidth_percent <= 100);
        ASSERT_TRUE(config.work_time_end >= 0 && config.work_time_end <= 23);
        ASSERT_NE(config.work_time_start, config.work_time_end);
        ASSERT_GT(config.default_max_connections, 0);
        ASSERT_GT(config.avail_bandwidth, 0U);
        ASSERT_GE(config.sample_interval, 0);
        ASSERT_NE(config.cssc_host_name[0], '\0');
        for (const auto& [storage, limit] : config.connections) {
            ASSERT_TRUE(limit > 0 && limit <= INT32_MAX) << storage;
        }
    }
}

} // namespace
