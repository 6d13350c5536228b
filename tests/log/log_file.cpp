#include "tests/log/log_file.h"

#include "plugin/throttling_log.h"
#include "tests/support/fault.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>

namespace fs = std::filesystem;

log_file::log_file() {
    fault::clear();
    std::string name = (fs::temp_directory_path() / "throttling-log-XXXXXX").string();
    path_ = mkdtemp(name.data());
    fs::create_directory(directory());
    fault::redirect(THROTTLING_LOG_ROOT, path_);
}

log_file::~log_file() {
    fault::clear();
    log_shutdown();
    log_init(0);
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::vector<std::string> log_file::names() const {
    std::vector<std::string> all;
    for (const fs::directory_entry& each : fs::directory_iterator(directory())) {
        all.push_back(each.path().filename().string());
    }
    std::sort(all.begin(), all.end());
    return all;
}

std::vector<std::string> log_file::lines() const {
    std::vector<std::string> all;
    for (const std::string& name : names()) {
        std::ifstream file(directory() + "/" + name, std::ios::binary);
        for (std::string line; std::getline(file, line);) {
            all.push_back(file.eof() ? line + "(unfinished)" : line);
        }
    }
    return all;
}

std::vector<std::string> log_file::entries() const {
    static const std::regex head(R"(\[\d+\]\d\d:\d\d:\d\d\.\d{1,3})");
    std::vector<std::string> all;
    for (const std::string& line : lines()) {
        all.push_back(std::regex_replace(line, head, "", std::regex_constants::format_first_only));
    }
    return all;
}
