// A run as it goes on: on a terminal a bar for each stream, redrawn in place; elsewhere a line
// every two seconds.
#pragma once

#include "tools/figures/course.h"

#include <string>

class progress_view {
  public:
    explicit progress_view(const run_course& run) : run_(run) {}

    /// Shows where the run is, if it is time to.
    void show();
    /// Takes the bars away.
    void clear();

  private:
    using clock = std::chrono::steady_clock;
    std::string total_line() const;

    const run_course& run_;
    clock::time_point shown_ = clock::now();
};

/// "[####......]" with `width` places.
std::string bar_text(double fraction, size_t width);

/// Bytes per second over the last few seconds: of one stream, or of all.
double recent_rate(const run_course& run, size_t index);
double recent_rate(const run_course& run);
