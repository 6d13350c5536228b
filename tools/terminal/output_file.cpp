#include "tools/terminal/output_file.h"

#include "tools/terminal/failure.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr mode_t usual_mode = 0666; // less what the umask takes

/// What standard output was; standard error stands in its place from now on. -1: it can't be had.
int kept_output() {
    fflush(stdout);
    const int kept = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    return kept >= 0 && dup2(STDERR_FILENO, STDOUT_FILENO) >= 0 ? kept : -1;
}

bool is_regular(int descriptor) {
    struct stat found = {};
    return fstat(descriptor, &found) == 0 && S_ISREG(found.st_mode);
}

} // namespace

output_file::output_file(std::string path) : path_(std::move(path)) {
    if (path_.empty()) {
        return;
    }
    file_ = descriptor(path_ == standard_output
                           ? kept_output()
                           : open(path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, usual_mode));
    if (!file_.is_open()) {
        fail();
    }
}

void output_file::write(const std::string& text) {
    if (path_.empty()) {
        return;
    }
    // Standard output may be a file that others have written to before.
    if (path_ != standard_output && is_regular(file_.get()) && ftruncate(file_.get(), 0) != 0) {
        fail();
    }
    for (size_t written = 0; written < text.size();) {
        const ssize_t count = ::write(file_.get(), text.data() + written, text.size() - written);
        if (count < 0 && errno != EINTR) {
            fail();
        }
        written += count > 0 ? static_cast<size_t>(count) : 0;
    }
    if (!file_.close()) {
        fail();
    }
}

void output_file::fail() const {
    const char* const what = path_ == standard_output ? "standard output" : path_.c_str();
    throw failure(fmt::format("{} can't be written: {}", what, strerror(errno)));
}

bool is_same_file(const std::string& left, const std::string& right) {
    std::error_code error;
    return std::filesystem::weakly_canonical(left, error) ==
           std::filesystem::weakly_canonical(right, error);
}

void write_file(const std::string& path, const std::string& text) { output_file(path).write(text); }
