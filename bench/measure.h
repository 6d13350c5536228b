// How a loop is measured: its time by Google Benchmark, its allocations by a counter beside it.
#pragma once

#include "bench/allocations.h"

#include <benchmark/benchmark.h>

constexpr const char* allocations_counter = "allocations"; ///< for each iteration

/// Measures `body`, which has been called once before so that what happens only at first is done.
template <typename Body>
void measure(benchmark::State& state, Body body) {
    body();
    const long before = allocations();
    for ([[maybe_unused]] auto iteration : state) {
        body();
    }
    state.counters[allocations_counter] = benchmark::Counter(
        static_cast<double>(allocations() - before), benchmark::Counter::kAvgIterations);
}
