// Lines on their way to the log. They are put in with the book locked, in the order of what they
// tell, and handed over without it: nobody waits for the log but whoever hands lines over.
#pragma once

#include "service/log_line.h"

#include <deque>
#include <functional>
#include <mutex>
#include <utility>

constexpr size_t most_waiting_lines = 10000;

class line_queue {
  public:
    using sink = std::function<void(const log_line& line)>;

    explicit line_queue(sink to) : sink_(std::move(to)) {}
    line_queue(const line_queue&) = delete;
    line_queue& operator=(const line_queue&) = delete;

    /// Never waits long. Lines beyond those that may wait are left out; how many is told.
    void put(log_line line);
    /// Gives the sink all lines that wait, in order, and those that are put in meanwhile. Returns
    /// at once where another thread is at it, which takes ours along.
    void hand_over();

  private:
    const sink sink_; ///< called by one thread at a time, with nothing locked
    std::mutex lock_;
    std::deque<log_line> waiting_;
    size_t left_out_ = 0;
    bool is_handing_over_ = false;
};
