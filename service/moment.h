// A point in time, on the two clocks that the service goes by. Whoever asks brings it along, so
// that nothing below reads a clock.
#pragma once

#include <cstdint>
#include <ctime>

struct moment {
    int64_t uptime; ///< seconds on a clock that is never set; what runs out is measured by it
    time_t wall;    ///< seconds since the epoch; what the time of day decides
};

/// Milliseconds on the clock that is never set.
inline int64_t uptime_ms() {
    timespec up = {};
    clock_gettime(CLOCK_MONOTONIC, &up);
    return int64_t{up.tv_sec} * 1000 + up.tv_nsec / 1000000;
}

/// Now, on both clocks.
inline moment this_moment() {
    timespec up = {};
    clock_gettime(CLOCK_MONOTONIC, &up);
    return {up.tv_sec, time(nullptr)};
}
