// How settings come in: what set_config_params takes over, and what it tells the service.

#include "tests/engine/engine_fixture.h"

#include <algorithm>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

class Settings : public engine_test {
  protected:
    void SetUp() override {
        ASSERT_EQ(connect(connector, &session), STS_OK);
        take_log();
    }

    /// The row text of the files as this server sees it.
    std::string text_of_files() {
        char type[] = "cloud";
        char name[] = "s3";
        std::string text(STS_CONFIG_SIZE, '\0');
        read_config_file_to_buf(nullptr, text.data(), type, name);
        return text.c_str();
    }

    /// The log without what reading the files says.
    static std::vector<std::string> log_without_files() {
        std::vector<std::string> lines = take_log();
        lines.erase(std::remove_if(lines.begin(), lines.end(),
                                   [](const std::string& line) {
                                       return line.find("[read_config_file_to_var]") !=
                                              std::string::npos;
                                   }),
                    lines.end());
        return lines;
    }

    /// The rate in force for reads.
    unsigned long read_rate() {
        unsigned long rate = 0;
        connector.get_bandwidth_per_second(OPERATION_READ, rate);
        return rate;
    }
};

TEST_F(Settings, TakesOverTheRecordAndSendsTheTextOfTheFiles) {
    files.write_plugin_file("THR:READ_BANDWIDTH_PERCENT=42\nTHR:s3=5\nTHR:azure=6\n");
    EXPECT_EQ(connector.set_config_params(&config, 0), STS_OK);
    const exchange sent = only_exchange();
    EXPECT_EQ(sent.call, "set_config_params");
    EXPECT_EQ(sent.key, text_of_files());
    EXPECT_THAT(sent.key, HasSubstr("name=THR:READ_BANDWIDTH_PERCENT,description=bandwidth percent "
                                    "for read[%],type=int,value=42,fixed=y;"));
    EXPECT_THAT(sent.key, HasSubstr("name=THR:s3,description=maximum connections for cloud "
                                    "storage,type=int,value=5,fixed=n;"));
    EXPECT_THAT(sent.key, HasSubstr("storage,type=int,value=6,fixed=y;"));
    EXPECT_EQ(read_rate(), 1000U); // the record's, not the files'
}

TEST_F(Settings, LogsItsEnterItsExchangeAndItsStatusInThatOrder) {
    EXPECT_EQ(connector.set_config_params(&config, 0), STS_OK);
    EXPECT_EQ(log_without_files(),
              log_of("set_config_params", {"enter.", "3 [read_config_file_to_buf]enter.",
                                           "3 [read_config_file_to_buf]leave.",
                                           "0 set_config_params", "leaving with status 0"}));
}

TEST_F(Settings, AStatusOfTheServiceIsReturnedAndLoggedAndTheRecordIsTakenOverAllTheSame) {
    service().params_reply.status = STS_ERR_FILE;
    EXPECT_EQ(connector.set_config_params(&config, 0), STS_ERR_FILE);
    EXPECT_EQ(log_without_files().back(), "3 [set_config_params]leaving with status 2060017");
    EXPECT_EQ(read_rate(), 1000U);
}

TEST_F(Settings, TheFilesAreReadAnewForEveryImage) {
    for (const char* percent : {"31", "32", "33"}) {
        files.write_plugin_file(std::string("THR:WRITE_BANDWIDTH_PERCENT=") + percent + "\n");
        EXPECT_EQ(connector.set_config_params(&config, 0), STS_OK);
        EXPECT_THAT(only_exchange().key, HasSubstr(std::string("value=") + percent));
    }
}

TEST_F(Settings, WithoutFilesTheServiceHearsTheDefaults) {
    EXPECT_EQ(connector.set_config_params(&config, 0), STS_OK);
    EXPECT_THAT(only_exchange().key, HasSubstr("value=104857600,fixed=y;"));
}

TEST_F(Settings, WhetherTheServiceIsSecureChangesNothing) {
    for (const int is_secure : {-1, 0, 1}) {
        EXPECT_EQ(connector.set_config_params(&config, is_secure), STS_OK);
        EXPECT_EQ(only_exchange().key, text_of_files());
    }
}

TEST_F(Settings, TheRecordIsCopiedWhole) {
    throttling_config_s mine;
    mine.avail_bandwidth = 10'000;
    mine.read_bandwidth_percent = 90;
    mine.write_bandwidth_percent = 80;
    mine.work_time_start = 9;
    mine.work_time_end = 11;
    mine.work_time_bandwidth_percent = 70;
    mine.off_time_start = 11;
    mine.off_time_end = 12;
    mine.off_time_bandwidth_percent = 60;
    mine.weekend_start = 3;
    mine.weekend_end = 3;
    mine.weekend_bandwidth_percent = 50;
    mine.sample_interval = 7;
    mine.cssc_port_number = 99;
    mine.cssc_host_name[0] = 'L';
    ASSERT_EQ(connector.set_config_params(&mine, 0), STS_OK);
    mine = throttling_config_s(); // what it took over is its own

    EXPECT_EQ(read_rate(), 6300U);
    unsigned long rate = 0;
    connector.get_bandwidth_per_second(OPERATION_WRITE, rate);
    EXPECT_EQ(rate, 5600U);
    clock.set(local_time(2024, 3, 4, 11));
    EXPECT_EQ(read_rate(), 5400U);
    clock.set(local_time(2024, 3, 4, 12));
    EXPECT_EQ(read_rate(), 9000U);
    clock.set(local_time(2024, 3, 6, 10)); // a Wednesday
    EXPECT_EQ(read_rate(), 4500U);
    EXPECT_THAT(connector.access_uri("x", 0), StartsWith("http://Localhost:99/"));
    service().take();
    for (const time_t age : {6, 7}) {
        bandwidth_s moved = sample(OPERATION_READ, age, 1);
        EXPECT_EQ(connector.check_bandwidth(&moved, 0, 0), STS_OK);
        EXPECT_EQ(service().take().size(), age == 7 ? 1U : 0U);
    }
}

TEST_F(Settings, WhileNotConnectedItLogsOnlyItsEnterAndCopiesNothing) {
    connector.disconnect_service();
    EXPECT_EQ(connector.set_config_params(&config, 0), STS_OK);
    EXPECT_THAT(take_log(), ElementsAre("3 [set_config_params]enter."));
    EXPECT_THAT(service().take(), IsEmpty());
    EXPECT_EQ(read_rate(), 104857600U); // the default still
}

TEST_F(Settings, WhatWasTakenOverOutlivesTheConnection) {
    ASSERT_EQ(connector.set_config_params(&config, 0), STS_OK);
    connector.disconnect_service();
    EXPECT_EQ(read_rate(), 1000U);
}

} // namespace
