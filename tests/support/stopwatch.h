// How long a step takes, for the tests that wait for real time.
#pragma once

#include <chrono>

/// Seconds that `step` takes.
template <typename Step>
double seconds_of(Step step) {
    const auto start = std::chrono::steady_clock::now();
    step();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
