// The layer before its first start: what the tests of start and stop share.
#pragma once

#include "tests/log/log_file.h"
#include "tests/plugin/frame.h"
#include "tests/plugin/wrapped.h"

#include <cstring>

class LayerStart : public Frame {
  protected:
    LayerStart() {
        sts_api = nullptr;
        clear_record();
    }

    ~LayerStart() override {
        wrapped::clear();
        while (throttling_terminate_v7() == STS_OK) {
        }
    }

    /// Configures the log file to take every severity.
    log_file log_everything() {
        files.write_plugin_file("THR:LOG_LEVEL=5\n");
        return log_file();
    }

    void clear_record() { memset(&record, 0x5a, sizeof record); }
    bool record_is_filled() const {
        return record.version == 11 && record.ep == &ep && record.version_copy == 11;
    }

    /// The start failed for good: a repeat takes the short way, but no operation can work.
    void expect_counted_but_unbound() {
        EXPECT_EQ(sts_api, nullptr);
        EXPECT_FALSE(record_is_filled());
        EXPECT_EQ(stspi_init(12, path, &record), STS_OK);
        EXPECT_TRUE(record_is_filled());
        EXPECT_EQ(sts_api, nullptr);
        EXPECT_THAT(next_layer().calls, testing::IsEmpty());
        throttling_server_s* server = untouched<throttling_server_s>();
        EXPECT_EQ(
            throttling_open_server_v7(&session, "CS_throttle:cloud:disk:s3", nullptr, 0, &server),
            STS_ERR_NOT_INIT);
        EXPECT_EQ(server, untouched<throttling_server_s>());
        EXPECT_EQ(throttling_terminate_v7(), STS_OK); // two starts were counted
        EXPECT_THAT(next_layer().calls, testing::IsEmpty());
    }

    const char* const path = "/some/plugins";
    stspi_api_rec_t record;
};
