#include "tests/plugin/log_file.h"

#include "tests/support/fault.h"

#include <filesystem>
#include <fstream>
#include <regex>

log_file::log_file(const std::string& directory) : directory_(directory + "/logs/vlcssc") {
    std::filesystem::create_directories(directory_);
    fault::redirect(THROTTLING_LOG_ROOT, directory + "/logs");
}

std::vector<std::string> log_file::lines() const {
    const std::regex form(R"((\[[A-Z]+\]) \[\d+\]\d\d:\d\d:\d\d\.\d+(\[.*))");
    std::vector<std::string> all;
    for (const auto& file : std::filesystem::directory_iterator(directory_)) {
        std::ifstream stream(file.path());
        for (std::string line; std::getline(stream, line);) {
            all.push_back(std::regex_replace(line, form, "$1$2"));
        }
    }
    return all;
}
