#include "tools/terminal/output_file.h"

#include "tools/terminal/failure.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>

namespace {

[[noreturn]] void fail_to_write(const std::string& path) {
    throw failure(fmt::format("{} can't be written: {}", path, strerror(errno)));
}

} // namespace

void require_writable(const std::string& path) {
    if (!path.empty() && !std::ofstream(path, std::ios::app)) {
        fail_to_write(path);
    }
}

bool is_same_file(const std::string& left, const std::string& right) {
    std::error_code error;
    return std::filesystem::weakly_canonical(left, error) ==
           std::filesystem::weakly_canonical(right, error);
}

void write_file(const std::string& path, const std::string& text) {
    if (path.empty()) {
        return;
    }
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    if (!file) {
        fail_to_write(path);
    }
}
