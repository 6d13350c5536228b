// Watches a run from outside: progress, samples, and the signals that end it.
#pragma once

#include "tools/figures/progress.h"
#include "tools/run/streams/transfer.h"

#include <exception>
#include <functional>

/// Runs `job` in a thread of its own until it is done and returns what it has thrown, or null.
/// SIGINT or SIGTERM stops the run's streams, and the sleeps they are in; a second one ends the
/// process at once. `look` is called now and then meanwhile, and once behind it.
std::exception_ptr supervise(transfer& run, progress_view& view, const std::function<void()>& job,
                             const std::function<void()>& look);
