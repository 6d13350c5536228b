// How check_bandwidth paces one sample.

#include "engine/service_connector.h"

#include "tests/support/conf_dir.h"
#include "tests/support/host_session.h"
#include "tests/support/scripted_client.h"
#include "tests/support/virtual_clock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;

namespace {

/// A connected connector on a virtual clock, with settings of the test's own.
class Pacing : public testing::Test {
  protected:
    Pacing() {
        service() = {};
        take_log();
        config.sample_interval = 30;
        config.avail_bandwidth = 1000;
    }

    void connect() {
        char type[] = "cloud";
        char name[] = "s3";
        ASSERT_EQ(connector.connect_service(&session, type, name), 0);
        ASSERT_EQ(connector.set_config_params(&config, 0), 0);
        service().take();
        take_log();
    }

    conf_dir files;
    virtual_clock clock{local_time(2024, 3, 4, 10)}; // a Monday
    sts_session_def_v7_t session = host_session("a:b");
    throttling_config_s config;
    ServiceConnector connector;
};

TEST_F(Pacing, SleepsWhatTheSampleIsAheadOfItsRate) {
    connect();
    bandwidth_s sample = {OPERATION_READ, clock.now() - 2, clock.now() - 2, 5000};
    EXPECT_EQ(connector.check_bandwidth(&sample, 0, 0), 0);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(3U));
    EXPECT_EQ(sample.data_length, 5000U);
}

} // namespace
