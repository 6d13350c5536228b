// The courses that docs/pacing.md tells of: 20 MB/s are allowed, and the device does ten times that.
#pragma once

#include "tests/engine/pacing_course.h"

constexpr uint64_t allowed_bandwidth = 20'000'000; ///< bytes per second
constexpr double device = 10;                      ///< times that

/// A stream that has all of the bandwidth, at noon of a weekday.
paced_stream stream_at(int32_t interval);

/// What passes at once behind a pause of its source, at the worst length and moment of it: seconds'
/// worth.
double most_after_idling(int32_t interval);

/// A stream for which the share goes from 25 to 100 percent (`opens`) or from 100 to 25, `boundary`
/// seconds after it began.
paced_stream stream_over_boundary(int32_t interval, double boundary, bool opens);

/// What comes of that at the moment of a sample at which it is most.
struct boundary_figures {
    double ahead;          ///< seconds' worth of the new rate that pass at once
    double busiest_second; ///< beside the new rate
    double silence;        ///< seconds
};
boundary_figures worst_at_boundary(int32_t interval, bool opens);
