// Several runs in one picture, each as one curve: how processes share a bandwidth shows only side
// by side.
#pragma once

#include "tools/figures/plot.h"

#include <optional>
#include <string>
#include <vector>

/// A run as its figures tell of it.
struct recorded_run {
    /// At a moment of the run: what all its streams have moved since it began.
    struct moment {
        double time = 0; ///< seconds since the run began
        uint64_t bytes = 0;
        std::optional<uint64_t> allowed; ///< bytes per second from then on; none: not throttled
    };

    std::string name;
    double began = 0; ///< seconds since the epoch
    std::vector<moment> moments;

    /// Bytes moved at `time` seconds since the epoch: none before the run, all after it.
    uint64_t bytes_at(double time) const;
    /// Runs at `time`, which is no later than its last moment.
    bool is_running_at(double time) const;
    std::optional<uint64_t> allowed_at(double time) const;
};

/// Reads the figures of one run, the text of a file of --json. Throws a failure that names `file`
/// and what is wrong with it.
recorded_run read_run(const std::string& file, const std::string& text);

/// One curve for each run; the allowed rate is what the runs at work are allowed together. Time
/// begins with the first of them.
plot_data joined(const std::string& title, const std::vector<recorded_run>& runs);
