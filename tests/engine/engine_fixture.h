// One connector on a clock, a service and a configuration directory of the test's own.
#pragma once

#include "engine/service_connector.h"

#include "tests/support/conf_dir.h"
#include "tests/support/host_session.h"
#include "tests/support/scripted_client.h"
#include "tests/support/virtual_clock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

/// What happens shows up in the log in its order: messages as "3 [check_bandwidth]enter.", and
/// beside them each "0 sleep(3)" and each exchange with its key, as "0 check_bandwidth(r:s3)".
class engine_test : public testing::Test {
  protected:
    engine_test();
    ~engine_test() override;

    /// connect_service with texts that are gone afterwards.
    static int connect(ServiceConnector& target, const sts_session_def_v7_t* host,
                       std::string type = "cloud", std::string name = "s3");

    /// Connects the connector with `config`; log, exchanges, sleeps and clock reads begin at none.
    void start();

    /// A sample that began `age` seconds ago and has moved `bytes` since.
    bandwidth_s sample(operation_type_t operation, time_t age, unsigned long bytes) const;

    /// Lets the next exchange answer with these, and reports an empty sample of `operation`, so
    /// that the connector takes them over.
    void tell(long readers, long writers, long wait_seconds);

    /// What arrived at the service since the last call, which must be one exchange.
    static exchange only_exchange();

    conf_dir files;
    virtual_clock clock{local_time(2024, 3, 4, 10)}; // a Monday
    sts_session_def_v7_t session = host_session("a:b");
    throttling_config_s config; ///< 1000 bytes per second, reported every 30 seconds
    ServiceConnector connector;
};

/// The log of one call: each text as a debug message of `who`; a text that begins with a digit
/// stands as it is.
std::vector<std::string> log_of(const std::string& who, const std::vector<std::string>& texts);

/// The log of one check_bandwidth of a sample that isn't idle: how it begins, with the rate and
/// what is measured, and then `rest` as in log_of.
std::vector<std::string> pacing_log(unsigned long rate, long sharing, long gap_seconds, long bytes,
                                    const std::vector<std::string>& rest);
