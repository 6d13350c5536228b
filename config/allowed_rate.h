// How much bandwidth is allowed: arithmetic alone, a function of the settings, the direction and
// the local time. What the plugin enforces, what a preview shows and what the service reckons with
// is this.
#pragma once

#include "config/throttling_util.h"

#include <ctime>

/// Direction of an operation; also the index of its sample and counts.
enum operation_type_t : unsigned {
    OPERATION_READ = 0,
    OPERATION_WRITE = 1,
    OPERATION_READ_WRITE = 2,
};

/// What decides the percent of an hour.
enum class pacing_window { none, work_time, off_time, weekend };

/// The window that holds at the local time `when`.
pacing_window window_at(const throttling_config_s& config, const tm& when);

/// The percent of the bandwidth that a direction may have.
int32_t percent_of_direction(const throttling_config_s& config, operation_type_t operation);

/// The percent that multiplies the direction's in that window; 100 in none.
int32_t percent_of_window(const throttling_config_s& config, pacing_window window);

/// Bytes per second that may be used for `operation` at the local time `when`, before it is shared
/// among connections. The direction's percent and that of the window that holds multiply; a weekend
/// day looks at no hour window, and where the off window and the work window both hold, off counts.
/// Each division truncates, so the result can be 0. Products beyond 64 bits wrap.
uint64_t allowed_rate(const throttling_config_s& config, operation_type_t operation,
                      const tm& when);

/// The least of what allowed_rate may be at any time, but for times at which nothing is allowed. 0
/// when nothing ever is.
uint64_t least_allowed_rate(const throttling_config_s& config, operation_type_t operation);
