// What the tests of the settings share: two files of the test's own, a host that listens, and
// records as values that compare and print.
#pragma once

#include "config/settings.h"

#include "tests/support/conf_dir.h"
#include "tests/support/fault.h"
#include "tests/support/host_session.h"
#include "tests/support/process_state.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

class ConfigTest : public testing::Test {
  protected:
    ConfigTest();
    ~ConfigTest() override;

    /// What a read of that file logs when it is not there.
    std::vector<std::string> missing_file_log(const std::string& path) const;

    conf_dir files;
    sts_session_def_v7_t session = host_session();
    /// Of this session only warnings are heard.
    sts_session_def_v7_t warned = host_session("s", STS_LOG_WARN);
};

/// What a read says of a line that is no setting: a message is cut at 4094 characters, and at 4095
/// once its function stands in front of it.
std::string ignored(const std::string& line);

/// Every field by its name, for comparing and printing.
using field_list = std::vector<std::pair<std::string, std::string>>;
field_list fields(const throttling_config_s& config);
