#include "service/service_log.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace {

constexpr mode_t for_owner_and_group = 0640;

/// -1: errno says why. Neither this nor writing waits, whatever the file is.
int open_log(const std::string& path) {
    return open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK,
                for_owner_and_group);
}

} // namespace

service_log::service_log(std::string path)
    : path_(std::move(path)), descriptor_(path_.empty() ? STDERR_FILENO : open_log(path_)) {
    if (descriptor_ < 0) {
        throw std::system_error(errno, std::generic_category(), "--log-file " + path_);
    }
    thread_ = std::thread([this] { run(); });
}

service_log::~service_log() {
    {
        const std::lock_guard<std::mutex> guard(lock_);
        for (const std::string& each : budget_.all_untold()) {
            put(each);
        }
        is_ending_ = true;
        ends_ = uptime_ms() + patience_with_log_ms;
    }
    news_.notify_one();
    thread_.join();
    if (descriptor_ != STDERR_FILENO) {
        close(descriptor_);
    }
}

void service_log::line(const log_line& line) {
    {
        const std::lock_guard<std::mutex> guard(lock_);
        if (!budget_.admits(line, this_moment().uptime)) {
            return;
        }
        put(line.text);
    }
    news_.notify_one();
}

void service_log::tick() {
    {
        const std::lock_guard<std::mutex> guard(lock_);
        for (const std::string& each : budget_.untold(this_moment().uptime)) {
            put(each);
        }
    }
    news_.notify_one();
}

void service_log::reopen() {
    {
        const std::lock_guard<std::mutex> guard(lock_);
        if (path_.empty()) {
            put("SIGHUP: the log goes to standard error, which can't be opened anew");
        } else {
            is_to_reopen_ = true;
        }
    }
    news_.notify_one();
}

/// Queues a line, if there is room. With the lock held.
void service_log::put(const std::string& text) {
    const std::string line = with_time(text);
    if (queue_.size() + line.size() <= longest_log_queue) {
        queue_ += line;
    } else {
        ++left_out_;
    }
}

/// With the lock held.
std::string service_log::with_time(const std::string& text) {
    const time_t now = time(nullptr);
    if (now != second_) {
        tm local = {};
        localtime_r(&now, &local);
        char when[32];
        strftime(when, sizeof when, "%Y-%m-%dT%H:%M:%S%z ", &local);
        second_ = now;
        time_text_ = when;
    }
    std::string line = time_text_ + text.substr(0, longest_line);
    std::replace(line.begin(), line.end(), '\n', ' '); // nobody makes two lines of one
    return line + '\n';
}

// --- the thread that writes ----------------------------------------------------------------------

void service_log::run() {
    std::unique_lock<std::mutex> guard(lock_);
    for (;;) {
        news_.wait(guard, [this] { return is_ending_ || is_to_reopen_ || !queue_.empty(); });
        if (std::exchange(is_to_reopen_, false)) {
            guard.unlock(); // nobody's line waits for a slow disk
            const std::string told = take_up_new_file();
            guard.lock();
            put(told);
        }
        if (queue_.empty()) {
            if (is_ending_) {
                return;
            }
            continue;
        }
        const std::string lines = std::exchange(queue_, "");
        const size_t untold = left_out_; // all of which were behind these lines
        const std::string told =
            with_time(fmt::format("{} lines were left out, the log couldn't be written", untold));
        guard.unlock();
        const size_t lost = write_out(lines);
        const bool is_told = lost == 0 && untold > 0 && write_out(told) == 0;
        guard.lock();
        left_out_ += lost;
        left_out_ -= is_told ? untold : 0;
    }
}

/// What there is to tell of it.
std::string service_log::take_up_new_file() {
    const int fresh = open_log(path_);
    if (fresh < 0) {
        return fmt::format("SIGHUP: {} can't be opened anew, the old log goes on: {}", path_,
                           strerror(errno));
    }
    close(std::exchange(descriptor_, fresh));
    is_midline_ = false;
    return "SIGHUP: the log was opened anew";
}

/// How many of the lines couldn't be written.
size_t service_log::write_out(const std::string& lines) {
    const std::string all = is_midline_ ? "\n" + lines : lines;
    size_t written = 0;
    while (written < all.size() && await_room()) {
        // A pipe that has room takes so much without waiting.
        const size_t part = std::min<size_t>(all.size() - written, PIPE_BUF);
        const ssize_t count = write(descriptor_, all.data() + written, part);
        if (count > 0) {
            written += static_cast<size_t>(count);
        } else if (errno != EINTR && errno != EAGAIN) {
            break;
        }
    }
    if (written == 0) {
        return static_cast<size_t>(std::count(lines.begin(), lines.end(), '\n'));
    }
    is_midline_ = all[written - 1] != '\n';
    const auto behind = all.begin() + static_cast<std::ptrdiff_t>(written);
    return static_cast<size_t>(std::count(behind, all.end(), '\n'));
}

/// Waits until something can be written. False when there will be another log, or none.
bool service_log::await_room() {
    for (;;) {
        constexpr int moment_ms = 100;
        pollfd log = {descriptor_, POLLOUT, 0};
        if (poll(&log, 1, moment_ms) > 0) {
            return true;
        }
        const std::lock_guard<std::mutex> guard(lock_);
        if (is_to_reopen_ || (is_ending_ && uptime_ms() >= ends_)) {
            return false;
        }
    }
}
