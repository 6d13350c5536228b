// A transfer before it is made: what the plugin would let through, and when it would be finished.
//
// Between two hours the rate is constant, and there the plugin's samples repeat: each lets through
// its rate times its seconds. Where the rate changes, the sample that runs by then is measured by
// the new rate as a whole: it catches up with a higher one at once, and waits until it is no longer
// ahead of a lower one. A device that keeps up is taken for granted, and blocks that are small: the
// plugin lets one or two more of them through at the end of each sample.
#pragma once

#include "config/allowed_rate.h"

#include <cstdint>
#include <ctime>
#include <optional>
#include <vector>

struct simulated_transfer {
    throttling_config_s config;
    operation_type_t direction = OPERATION_WRITE;
    uint64_t bytes = 0;
    time_t begins = 0;  ///< seconds since the epoch
    uint64_t share = 1; ///< connections that share the bandwidth, this one among them; not 0
};

/// A stretch of time in which one window holds, and one rate.
struct simulated_stretch {
    time_t from;
    time_t to; ///< behind the last second
    pacing_window window;
    uint64_t rate;  ///< bytes per second, this connection's share
    uint64_t bytes; ///< moved in it
};

struct simulated_course {
    std::vector<simulated_stretch> stretches; ///< in order, without gaps
    std::optional<time_t> finished;           ///< none: see below
    /// When the plugin would end the process, since nothing is allowed; none where `finished` is
    /// not, either: it lasts longer than ten years.
    std::optional<time_t> faulted;

    uint64_t bytes() const;
};

simulated_course simulate(const simulated_transfer& transfer);
