// A run as it goes on: on a terminal a bar for each stream, redrawn in place; elsewhere a line
// every two seconds.
#pragma once

#include "tools/figures/course.h"

#include <optional>
#include <string>
#include <vector>

struct progress_line;

class progress_view {
  public:
    explicit progress_view(const run_course& run) : run_(run) {}
    virtual ~progress_view() = default;
    progress_view(const progress_view&) = delete;
    progress_view& operator=(const progress_view&) = delete;

    /// Shows where the run is, if it is time to.
    void show();
    /// Takes the bars away.
    void clear();

  protected:
    /// What there is to show now: elsewhere than on a terminal only the last of it is.
    virtual std::vector<std::string> lines() const;
    const run_course& run() const { return run_; }

  private:
    using clock = std::chrono::steady_clock;
    progress_line total_line() const;

    const run_course& run_;
    clock::time_point shown_ = clock::now();
};

/// "[####......]" with `width` places.
std::string bar_text(double fraction, size_t width);

/// What a line of progress tells.
struct progress_line {
    std::string name;
    double done = 0;                 ///< 0 to 1
    double rate = 0;                 ///< bytes per second
    std::optional<double> left;      ///< seconds; none: nobody knows
    std::vector<std::string> behind; ///< told where there is room for it
};

/// It in `width` columns at most: percent, rate and what is left come first, then the name, cut or
/// filled to `name_width`, then what is behind, as much as fits, and a bar where there is room.
std::string line_text(const progress_line& line, size_t name_width, size_t width);

/// "0:01:23", "4d 03h", "-:--:--".
std::string left_text(std::optional<double> seconds);

/// Bytes per second over the last few seconds: of one stream, or of all.
double recent_rate(const run_course& run, size_t index);
double recent_rate(const run_course& run);
