#include "tests/support/virtual_clock.h"

#include "tests/support/next_function.h"

#include <unistd.h>
#include <utility>

namespace {

virtual_clock* current = nullptr;

} // namespace

virtual_clock::virtual_clock(time_t now) : now_(now) { current = this; }

virtual_clock::~virtual_clock() { current = nullptr; }

std::vector<unsigned> virtual_clock::take_sleeps() { return std::exchange(sleeps_, {}); }

unsigned virtual_clock::sleep(unsigned seconds) {
    sleeps_.push_back(seconds);
    if (on_sleep) {
        on_sleep(seconds);
    }
    if (interrupt_sleep_after >= 0 && static_cast<unsigned>(interrupt_sleep_after) < seconds) {
        now_ += interrupt_sleep_after;
        return seconds - static_cast<unsigned>(interrupt_sleep_after);
    }
    now_ += seconds;
    return 0;
}

time_t local_time(int year, int month, int day, int hour, int minute, int second) {
    tm when = {};
    when.tm_year = year - 1900;
    when.tm_mon = month - 1;
    when.tm_mday = day;
    when.tm_hour = hour;
    when.tm_min = minute;
    when.tm_sec = second;
    when.tm_isdst = -1;
    return mktime(&when);
}

extern "C" {

__attribute__((visibility("default"))) time_t time(time_t* out) noexcept {
    if (current == nullptr) {
        return next_function<time_t(time_t*)>("time")(out);
    }
    ++current->reads;
    if (out != nullptr) {
        *out = current->now();
    }
    return current->now();
}

__attribute__((visibility("default"))) unsigned sleep(unsigned seconds) {
    return current != nullptr ? current->sleep(seconds)
                              : next_function<unsigned(unsigned)>("sleep")(seconds);
}

} // extern "C"
