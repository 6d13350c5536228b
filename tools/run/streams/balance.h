// How work is spread over streams.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

/// The stream of each weight, so that all streams carry about the same: the heaviest goes first,
/// each to the stream that carries least, the lowest of equals. `streams` is at least 1.
std::vector<size_t> balance(const std::vector<uint64_t>& weights, size_t streams);
