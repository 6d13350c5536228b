#include "service/line_queue.h"

#include <string>

void line_queue::put(log_line line) {
    const std::lock_guard<std::mutex> guard(lock_);
    if (waiting_.size() < most_waiting_lines) {
        waiting_.push_back(std::move(line));
    } else {
        ++left_out_;
    }
}

void line_queue::hand_over() {
    std::unique_lock<std::mutex> guard(lock_);
    if (is_handing_over_) {
        return;
    }
    is_handing_over_ = true;
    while (!waiting_.empty()) {
        const std::deque<log_line> lines = std::exchange(waiting_, {});
        const size_t left_out = std::exchange(left_out_, 0);
        guard.unlock();
        for (const log_line& each : lines) {
            sink_(each);
        }
        if (left_out > 0) {
            sink_(std::to_string(left_out) + " lines left out, the log is slow");
        }
        guard.lock();
    }
    is_handing_over_ = false;
}
