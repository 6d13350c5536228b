// What the tool takes for allowed is what the plugin enforces.

#include "tools/host/allowance.h"

#include "tests/support/conf_dir.h"
#include "tests/support/virtual_clock.h"
#include "tools/host/engine_watch.h"

#include <gtest/gtest.h>

namespace {

class Allowance : public testing::Test {
  protected:
    conf_dir files;
    virtual_clock clock{local_time(2024, 3, 4, 10)}; // a Monday
};

TEST_F(Allowance, FollowsDirectionAndWindow) {
    files.write_plugin_file("THR:SAMPLE_INTERVAL=30\nTHR:AVAIL_BANDWIDTH=1000\n"
                            "THR:READ_BANDWIDTH_PERCENT=50\nTHR:WORK_TIME_BANDWIDTH_PERCENT=20\n");
    const allowance reads("CS_throttle:t:disk:x", OPERATION_READ);
    const allowance writes("CS_throttle:t:disk:x", OPERATION_WRITE);
    EXPECT_EQ(reads.now(), 100U);
    EXPECT_EQ(writes.now(), 200U);
    clock.set(local_time(2024, 3, 4, 18));
    EXPECT_EQ(reads.now(), 500U);
    EXPECT_EQ(writes.now(), 1000U);
}

TEST_F(Allowance, NothingIsThrottledWithoutAnInterval) {
    files.write_plugin_file("THR:SAMPLE_INTERVAL=0\nTHR:WRITE_BANDWIDTH_PERCENT=0\n");
    const allowance writes("CS_throttle:t:disk:x", OPERATION_WRITE);
    EXPECT_FALSE(writes.now());
    EXPECT_FALSE(writes.is_nothing());
}

TEST_F(Allowance, ServersThatNeedNoServiceArePacedByTheDefaults) {
    files.write_plugin_file("THR:SAMPLE_INTERVAL=30\nTHR:AVAIL_BANDWIDTH=1000\n");
    for (const char* server : {"CS_throttle:global:disk:x", "CS_throttle:t:disk:"}) {
        EXPECT_EQ(allowance(server, OPERATION_READ).now(), 104857600U) << server;
    }
    EXPECT_EQ(allowance("CS_throttle:globally:disk:x", OPERATION_READ).now(), 1000U);
}

TEST_F(Allowance, IsNothingAtARateOfZero) {
    files.write_plugin_file("THR:SAMPLE_INTERVAL=30\nTHR:WORK_TIME_BANDWIDTH_PERCENT=0\n");
    const allowance reads("CS_throttle:t:disk:x", OPERATION_READ);
    EXPECT_TRUE(reads.is_nothing());
    clock.set(local_time(2024, 3, 4, 20));
    EXPECT_FALSE(reads.is_nothing());
}

TEST_F(Allowance, IsSharedAmongTheConnectionsThatTheEngineSpeaksOf) {
    files.write_plugin_file("THR:SAMPLE_INTERVAL=30\nTHR:AVAIL_BANDWIDTH=1000\n");
    const allowance reads("CS_throttle:t:disk:x", OPERATION_READ);
    const sts_session_def_v7_t session = watching_session("id", log_choice::nothing);
    session.log("id", "[check_bandwidth]bandwidth_per_second=333,conne#=3.", STS_SEV_DEBUG);
    EXPECT_EQ(reads.now(), 333U);
    session.log("id", "[check_bandwidth]bandwidth_per_second=1000,conne#=1.", STS_SEV_DEBUG);
    EXPECT_EQ(reads.now(), 1000U);
}

} // namespace
