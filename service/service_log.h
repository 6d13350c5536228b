// The service's log: a line with its time for each change of state.
//
//   2026-03-01T12:00:00+0100 session 0123456789abcdef "host_1": connects to "s3", 1 of 10
//
// Whoever sends rubbish without end doesn't fill the disk: within one second only so many lines are
// written, and the next one says how many were left out.
#pragma once

#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>

constexpr int most_lines_a_second = 10000;

class service_log {
  public:
    /// Appends to the file at `path`, or writes to standard error when it is empty. Throws
    /// std::system_error when it can't be opened.
    explicit service_log(const std::string& path);
    ~service_log();
    service_log(const service_log&) = delete;
    service_log& operator=(const service_log&) = delete;

    /// From any thread.
    void line(const std::string& text);

  private:
    void write(time_t now, const std::string& text);

    FILE* const stream_;
    std::mutex lock_;
    time_t second_ = 0;
    int lines_ = 0; ///< in that second
};
