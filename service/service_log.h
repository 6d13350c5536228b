// The service's log: a line with its time for each change of state.
//
//   2026-03-01T12:00:00+0100 session 0123abcd "host_1": connects to "s3", 1 of 10
//
// Nobody waits for it. Lines go into a queue, which one thread writes; what doesn't fit, since
// nobody reads standard error or the disk is full, is left out, and its number is told as soon as
// something can be written again. How much of each kind is written at all is in log_budget.h.
#pragma once

#include "service/log_budget.h"
#include "service/moment.h"

#include <condition_variable>
#include <cstddef>
#include <ctime>
#include <mutex>
#include <string>
#include <thread>

constexpr size_t longest_line = 1024;         ///< bytes; what is beyond isn't written
constexpr size_t longest_log_queue = 1 << 20; ///< bytes
constexpr int patience_with_log_ms = 1000;    ///< how long the end waits for it to be written

class service_log {
  public:
    /// Appends to the file at `path`, which is 0640 when it is new, or writes to standard error
    /// when `path` is empty. Throws std::system_error when it can't be opened.
    explicit service_log(std::string path);
    /// Writes what it can in a second.
    ~service_log();
    service_log(const service_log&) = delete;
    service_log& operator=(const service_log&) = delete;

    /// From any thread. Never waits for the log to be written.
    void line(const log_line& line);
    /// Tells what was left out, each minute. To be called about once a second.
    void tick();
    /// Goes on in the file that is at the path by then, as whoever rotates logs asks; in the old
    /// one when there can be none.
    void reopen();

  private:
    void put(const std::string& text);
    std::string with_time(const std::string& text);
    void run();
    std::string take_up_new_file();
    size_t write_out(const std::string& lines);
    bool await_room();

    const std::string path_;
    int descriptor_;          ///< the writing thread's, once that runs
    bool is_midline_ = false; ///< the writing thread's: the last line was cut short

    std::mutex lock_; ///< of what is below
    std::condition_variable news_;
    log_budget budget_{this_moment().uptime};
    std::string queue_;   ///< whole lines
    size_t left_out_ = 0; ///< lines that didn't fit, or couldn't be written
    bool is_to_reopen_ = false;
    bool is_ending_ = false;
    int64_t ends_ = 0;   ///< milliseconds of the clock that is never set; when ending
    time_t second_ = -1; ///< of the text below
    std::string time_text_;
    std::thread thread_;
};
