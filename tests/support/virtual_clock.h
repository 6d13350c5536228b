// A clock of the test's own in place of the C library's: a week of pacing runs in a millisecond.
// Linking this in replaces time and sleep for the whole program while a clock is there; without one
// they are the real calls. What tells its time-outs by another clock, as the ORB does, isn't
// touched.
#pragma once

#include <atomic>
#include <ctime>
#include <functional>
#include <vector>

class virtual_clock {
  public:
    /// Takes over at `now`, seconds since the epoch. One clock at a time.
    explicit virtual_clock(time_t now = 0);
    ~virtual_clock();
    virtual_clock(const virtual_clock&) = delete;
    virtual_clock& operator=(const virtual_clock&) = delete;

    time_t now() const { return now_; }
    void set(time_t now) { now_ = now; }
    void advance(time_t seconds) { now_ += seconds; }

    /// Every sleep since the start or the last call, in seconds; each has moved the clock on.
    std::vector<unsigned> take_sleeps();
    unsigned sleep(unsigned seconds);

    /// How often the time was read, by any thread.
    std::atomic<int> reads{0};
    /// Makes sleep return early, as a signal does: the clock moves by this many seconds only.
    int interrupt_sleep_after = -1;
    /// Called as each sleep begins, before the clock moves; may be empty.
    std::function<void(unsigned seconds)> on_sleep;

  private:
    time_t now_;
    std::vector<unsigned> sleeps_;
};

/// Seconds since the epoch of a local time. Tests run with TZ=UTC.
time_t local_time(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);
