#include "tests/log/line_time.h"

#include "tests/support/next_function.h"

#include <sys/time.h>

namespace {

const line_time* current = nullptr;

} // namespace

line_time::line_time(time_t seconds, long microseconds)
    : seconds_(seconds), microseconds_(microseconds) {
    current = this;
}

line_time::~line_time() { current = nullptr; }

extern "C" __attribute__((visibility("default"))) int gettimeofday(timeval* out,
                                                                   void* zone) noexcept {
    if (current == nullptr) {
        return next_function<int(timeval*, void*)>("gettimeofday")(out, zone);
    }
    *out = {current->seconds(), current->microseconds()};
    return 0;
}
