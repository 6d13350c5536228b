#include "config/allowed_rate.h"

#include <algorithm>

namespace {

uint64_t percent_of(uint64_t rate, int percent) {
    return rate * static_cast<uint64_t>(percent) / 100;
}

/// Start inclusive, end exclusive, wrapping past midnight. A window that starts where it ends is
/// empty.
bool in_window(int hour, int start, int end) {
    return start <= end ? start <= hour && hour < end : hour >= start || hour < end;
}

uint64_t rate_of_direction(const throttling_config_s& config, operation_type_t operation) {
    return percent_of(config.avail_bandwidth, percent_of_direction(config, operation));
}

} // namespace

pacing_window window_at(const throttling_config_s& config, const tm& when) {
    if (when.tm_wday >= config.weekend_start && when.tm_wday <= config.weekend_end) {
        return pacing_window::weekend;
    }
    if (in_window(when.tm_hour, config.off_time_start, config.off_time_end)) {
        return pacing_window::off_time;
    }
    if (in_window(when.tm_hour, config.work_time_start, config.work_time_end)) {
        return pacing_window::work_time;
    }
    return pacing_window::none;
}

int32_t percent_of_direction(const throttling_config_s& config, operation_type_t operation) {
    return operation == OPERATION_READ ? config.read_bandwidth_percent
                                       : config.write_bandwidth_percent;
}

int32_t percent_of_window(const throttling_config_s& config, pacing_window window) {
    switch (window) {
    case pacing_window::weekend:
        return config.weekend_bandwidth_percent;
    case pacing_window::off_time:
        return config.off_time_bandwidth_percent;
    case pacing_window::work_time:
        return config.work_time_bandwidth_percent;
    case pacing_window::none:
        break;
    }
    return 100;
}

uint64_t allowed_rate(const throttling_config_s& config, operation_type_t operation,
                      const tm& when) {
    const uint64_t rate = rate_of_direction(config, operation);
    const pacing_window window = window_at(config, when);
    return window == pacing_window::none ? rate
                                         : percent_of(rate, percent_of_window(config, window));
}

uint64_t least_allowed_rate(const throttling_config_s& config, operation_type_t operation) {
    const uint64_t rate = rate_of_direction(config, operation);
    uint64_t least = rate;
    for (const int percent : {config.weekend_bandwidth_percent, config.off_time_bandwidth_percent,
                              config.work_time_bandwidth_percent}) {
        const uint64_t then = percent_of(rate, percent);
        least = then != 0 ? std::min(least, then) : least;
    }
    return least;
}
