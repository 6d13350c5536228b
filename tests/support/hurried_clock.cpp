// A library that is loaded before the C library of a program that waits by sigtimedwait: time runs
// ahead for it. When the file that HURRIED_CLOCK names is there, HURRIED_SECONDS pass, on the clocks
// of the thread that waits, in as many waits as they would take, none of which takes any time. Then
// the file is removed.

#include "tests/support/next_function.h"

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <unistd.h>

namespace {

thread_local time_t ahead = 0;
thread_local long to_pass = 0;

} // namespace

extern "C" {

int clock_gettime(clockid_t which, timespec* now) noexcept {
    static auto* const real = next_function<int(clockid_t, timespec*)>("clock_gettime");
    const int result = real(which, now);
    now->tv_sec += ahead;
    return result;
}

time_t time(time_t* result) noexcept {
    static auto* const real = next_function<time_t(time_t*)>("time");
    const time_t now = real(nullptr) + ahead;
    if (result != nullptr) {
        *result = now;
    }
    return now;
}

int sigtimedwait(const sigset_t* signals, siginfo_t* what, const timespec* longest) {
    static auto* const real =
        next_function<int(const sigset_t*, siginfo_t*, const timespec*)>("sigtimedwait");
    const char* const file = getenv("HURRIED_CLOCK");
    if (to_pass == 0 && file != nullptr && access(file, F_OK) == 0) {
        to_pass = atol(getenv("HURRIED_SECONDS"));
    }
    if (to_pass <= 0) {
        return real(signals, what, longest);
    }
    ahead += longest->tv_sec;
    to_pass -= longest->tv_sec;
    if (to_pass <= 0) {
        to_pass = 0;
        unlink(file);
    }
    const timespec no_time = {};
    return real(signals, what, &no_time);
}

} // extern "C"
