// Locks on directories: the wait for them.

#include "platform/sts/store/locks.h"

#include "platform/sts/caller/failure.h"
#include "platform/sts/caller/session_log.h"

#include <algorithm>
#include <chrono>
#include <sys/file.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace disk {

namespace {

using clock = std::chrono::steady_clock;

constexpr auto told_after = std::chrono::seconds(2);
constexpr auto longest_wait = std::chrono::seconds(30);
constexpr auto first_pause = std::chrono::microseconds(250);
constexpr auto longest_pause = std::chrono::milliseconds(16);

/// Pauses that grow. They are reads of a timer, since a read tells those signals that are to
/// interrupt a call from those that aren't, as no sleep does.
class pauses {
  public:
    void next() {
        if (!timer_) {
            timer_ = unique_fd(checked(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC)));
        }
        itimerspec wanted = {};
        wanted.it_value.tv_nsec = std::chrono::nanoseconds(length_).count();
        checked(timerfd_settime(timer_.get(), 0, &wanted, nullptr));
        uint64_t expirations = 0;
        checked(read(timer_.get(), &expirations, sizeof expirations));
        length_ = std::min(length_ * 2, std::chrono::microseconds(longest_pause));
    }

  private:
    unique_fd timer_;
    std::chrono::microseconds length_ = first_pause;
};

/// One wait for a lock, as it goes on.
class waited_lock {
  public:
    waited_lock(int directory, const lock_waiter& waiter)
        : directory_(directory), waiter_(waiter) {}

    /// Waits for a moment. Fails when the wait is over.
    void go_on() {
        if (waiter_.is_cancelled && waiter_.is_cancelled()) {
            fail_errno(ECANCELED);
        }
        const auto waited = clock::now() - begin_;
        if (waited >= longest_wait) {
            tell(waiter_.session, STS_SEV_ERROR,
                 "given up: another process has held the lock of " + path_of(directory_) +
                     " for 30 seconds");
            fail_errno(EBUSY);
        }
        if (waited >= told_after && !is_told_) {
            is_told_ = true;
            tell(waiter_.session, STS_SEV_WARN,
                 "waiting for another process, which holds the lock of " + path_of(directory_));
        }
        pauses_.next();
    }

  private:
    const int directory_;
    const lock_waiter& waiter_;
    const clock::time_point begin_ = clock::now();
    bool is_told_ = false;
    pauses pauses_;
};

bool try_lock(int opened, int operation) {
    if (flock(opened, operation | LOCK_NB) == 0) {
        return true;
    }
    if (errno != EWOULDBLOCK) {
        fail_errno(errno);
    }
    return false;
}

} // namespace

directory_lock::directory_lock(int directory, kind wanted, const lock_waiter& waiter)
    : opened_(open_directory(directory, ".")) {
    const int operation = wanted == kind::shared ? LOCK_SH : LOCK_EX;
    if (try_lock(opened_.get(), operation)) {
        return;
    }
    waited_lock wait(directory, waiter);
    do {
        wait.go_on();
    } while (!try_lock(opened_.get(), operation));
}

std::optional<directory_lock> directory_lock::try_exclusive(int directory) {
    unique_fd opened = open_directory(directory, ".");
    if (flock(opened.get(), LOCK_EX | LOCK_NB) != 0) {
        return std::nullopt;
    }
    return directory_lock(std::move(opened));
}

} // namespace disk
