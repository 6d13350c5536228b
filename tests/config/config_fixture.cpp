#include "tests/config/config_fixture.h"

ConfigTest::ConfigTest() {
    fault::clear();
    config_set_path(nullptr);
    take_log();
}

ConfigTest::~ConfigTest() { fault::clear(); }

std::vector<std::string> ConfigTest::missing_file_log(const std::string& path) const {
    return {"3 [read_config_file_to_var]enter.",
            "2 [read_config_file_to_var]file " + path + " not found, use default config setting."};
}

std::string ignored(const std::string& line) {
    const std::string message = ("Ignore item:" + line + ".").substr(0, 4094);
    return "2 " + ("[read_config_file_to_var]" + message).substr(0, 4095);
}

field_list fields(const throttling_config_s& c) {
    field_list all = {
        {"read_bandwidth_percent", std::to_string(c.read_bandwidth_percent)},
        {"write_bandwidth_percent", std::to_string(c.write_bandwidth_percent)},
        {"default_max_connections", std::to_string(c.default_max_connections)},
        {"avail_bandwidth", std::to_string(c.avail_bandwidth)},
        {"work_time_start", std::to_string(c.work_time_start)},
        {"work_time_end", std::to_string(c.work_time_end)},
        {"work_time_bandwidth_percent", std::to_string(c.work_time_bandwidth_percent)},
        {"off_time_start", std::to_string(c.off_time_start)},
        {"off_time_end", std::to_string(c.off_time_end)},
        {"off_time_bandwidth_percent", std::to_string(c.off_time_bandwidth_percent)},
        {"weekend_start", std::to_string(c.weekend_start)},
        {"weekend_end", std::to_string(c.weekend_end)},
        {"weekend_bandwidth_percent", std::to_string(c.weekend_bandwidth_percent)},
        {"sample_interval", std::to_string(c.sample_interval)},
        {"log_level", std::to_string(c.log_level)},
        {"cssc_port_number", std::to_string(c.cssc_port_number)},
        {"cssc_host_name", c.cssc_host_name},
    };
    for (const auto& [name, limit] : c.connections) {
        all.emplace_back("connections[" + name + "]", std::to_string(limit));
    }
    return all;
}
