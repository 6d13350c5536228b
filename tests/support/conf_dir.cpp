#include "tests/support/conf_dir.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

conf_dir::conf_dir() {
    std::string name = (std::filesystem::temp_directory_path() / "throttling-XXXXXX").string();
    path_ = mkdtemp(name.data());
    setenv("VL_CONF_DIR", path_.c_str(), 1);
}

conf_dir::~conf_dir() {
    unsetenv("VL_CONF_DIR");
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void conf_dir::write(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::string conf_dir::read(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

std::string default_file(const std::string& connections) {
    return "THR:READ_BANDWIDTH_PERCENT=100\n"
           "THR:WRITE_BANDWIDTH_PERCENT=100\n"
           "THR:DEFAULT_MAX_CONNECTIONS=10\n" +
           connections +
           "THR:AVAIL_BANDWIDTH=104857600\n"
           "THR:WORK_TIME_START=8\n"
           "THR:WORK_TIME_END=18\n"
           "THR:WORK_TIME_BANDWIDTH_PERCENT=100\n"
           "THR:OFF_TIME_START=18\n"
           "THR:OFF_TIME_END=8\n"
           "THR:OFF_TIME_BANDWIDTH_PERCENT=100\n"
           "THR:WEEKEND_START=6\n"
           "THR:WEEKEND_END=7\n"
           "THR:WEEKEND_BANDWIDTH_PERCENT=100\n"
           "THR:SAMPLE_INTERVAL=0\n"
           "THR:LOG_LEVEL=0\n"
           "THR:CSSC_HOST_NAME=localhost\n";
}
