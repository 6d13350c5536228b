#include "tests/log/line_time.h"

#include "tests/support/next_function.h"

#include <atomic>
#include <sys/time.h>
#include <unistd.h>

namespace {

const line_time* current = nullptr;
std::atomic<long> calendar_calls{0};
std::atomic<long> process_calls{0};

} // namespace

line_time::line_time(time_t seconds, long microseconds)
    : seconds_(seconds), microseconds_(microseconds) {
    current = this;
}

line_time::~line_time() { current = nullptr; }

line_questions asked_for_lines() { return {calendar_calls, process_calls}; }

extern "C" __attribute__((visibility("default"))) tm* localtime_r(const time_t* when,
                                                                  tm* out) noexcept {
    ++calendar_calls;
    return next_function<tm*(const time_t*, tm*)>("localtime_r")(when, out);
}

extern "C" __attribute__((visibility("default"))) pid_t getpid() noexcept {
    ++process_calls;
    return next_function<pid_t()>("getpid")();
}

extern "C" __attribute__((visibility("default"))) int gettimeofday(timeval* out,
                                                                   void* zone) noexcept {
    if (current == nullptr) {
        return next_function<int(timeval*, void*)>("gettimeofday")(out, zone);
    }
    *out = {current->seconds(), current->microseconds()};
    return 0;
}
