// The figures of a run, at its end: a table for people, JSON for programs, a picture (plot.h).
//
// The JSON object holds
//   operation, server, lsu, backup    as asked for
//   outcome        "done", "failed" or "interrupted"
//   began          seconds since the epoch
//   block          bytes of a transfer
//   streams        one object for each: name, and the figures below
//   total          the figures below, of all streams together
//   samples        one object for about each second: time (at its end, seconds since the run
//                  began), bytes (moved in it, one number for each stream), allowed_rate
//
// and the figures of a stream or of all are
//   bytes          moved through the plugin
//   seconds        at work, from the first transfer to the end of the image
//   rate           bytes / seconds
//   allowed_rate   bytes per second, the mean over the run; of a stream: its equal share
//   ratio          rate / allowed_rate
//   slept_seconds  that the plugin held the stream back, as it announced them
//
// allowed_rate and ratio are null where nothing is throttled.
#pragma once

#include "tools/figures/course.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct figures {
    std::string name;
    uint64_t bytes = 0;
    double seconds = 0;
    double rate = 0;
    std::optional<double> allowed_rate;
    std::optional<double> ratio;
    uint64_t slept_seconds = 0;
};

struct run_figures {
    std::vector<figures> streams;
    figures total;
};

run_figures figures_of(const run_course& run);

/// The mean allowed rate over the samples; none when any of them is unlimited, or there are none.
std::optional<double> mean_allowed(const std::vector<sample>& samples);

std::string table_text(const run_figures& run);

/// What the run was asked for.
struct run_subject {
    std::string server;
    std::string lsu;
    std::string backup;
    uint64_t block = 0; ///< bytes of a transfer
};

std::string json_text(const run_subject& asked, const run_course& run, const std::string& outcome);
