// The progress of a pipe, in one line: what has passed, in what time and how quickly, and where the
// size is known how much of it that is and what is left.
#pragma once

#include "tools/figures/progress.h"
#include "tools/run/operation.h"

class pipe_view : public progress_view {
  public:
    pipe_view(const run_course& run, const pipe_options& options)
        : progress_view(run), size_(options.size), is_quiet_(options.is_quiet) {}

    std::vector<std::string> lines() const override;
    /// The last line, which stays: with the mean rate.
    void show_end() const;

  private:
    const uint64_t size_; ///< bytes; 0: not known
    const bool is_quiet_;
};

/// "1.2 GiB 0:00:12 [102.0 MiB/s]", and with a size "[=====>     ] 42 % ETA 0:00:17" behind it, in
/// `width` columns.
std::string pipe_text(uint64_t bytes, double seconds, double rate, uint64_t size, size_t width);
