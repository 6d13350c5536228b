// The time of day that lines are stamped with: one of the test's own in place of the C library's.
// Linking this in replaces gettimeofday for the whole program while one is there, and counts the calls
// of two others.
#pragma once

#include <ctime>

class line_time {
  public:
    /// Stands still at `seconds` since the epoch. One at a time.
    explicit line_time(time_t seconds, long microseconds = 0);
    ~line_time();
    line_time(const line_time&) = delete;
    line_time& operator=(const line_time&) = delete;

    void set_seconds(time_t seconds) { seconds_ = seconds; }
    void set_microseconds(long microseconds) { microseconds_ = microseconds; }

    time_t seconds() const { return seconds_; }
    long microseconds() const { return microseconds_; }

  private:
    time_t seconds_;
    long microseconds_;
};

/// How often the calendar and the process id were asked for, by localtime_r and getpid.
struct line_questions {
    long calendar;
    long process;
};
line_questions asked_for_lines();
