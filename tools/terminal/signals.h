// The signals that ask for an end.
#pragma once

#include <chrono>
#include <csignal>

/// While one lives, SIGINT and SIGTERM are only taken by `next`. Threads made meanwhile don't see
/// them either.
class signals {
  public:
    signals();
    ~signals();
    signals(const signals&) = delete;
    signals& operator=(const signals&) = delete;

    /// Waits for `moment` at most. True when a signal came.
    bool next(std::chrono::milliseconds moment) const;

  private:
    sigset_t waited_for_ = {};
    sigset_t before_ = {};
};
