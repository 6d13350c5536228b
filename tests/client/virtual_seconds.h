// A clock of the test's own in place of the C library's time and sleep, for the thread that makes
// it. Unlike virtual_clock it leaves gettimeofday alone: the ORB tells its time-outs by that.
#pragma once

#include <ctime>
#include <vector>

class virtual_seconds {
  public:
    /// Takes over at `start`, seconds since the epoch. One clock at a time.
    explicit virtual_seconds(time_t start);
    ~virtual_seconds();
    virtual_seconds(const virtual_seconds&) = delete;
    virtual_seconds& operator=(const virtual_seconds&) = delete;

    time_t now() const { return now_; }
    void advance(time_t seconds) { now_ += seconds; }
    /// Every sleep since the start or the last call; each has moved the clock on.
    std::vector<unsigned> take_sleeps();
    unsigned sleep(unsigned seconds);

  private:
    time_t now_;
    std::vector<unsigned> sleeps_;
};
