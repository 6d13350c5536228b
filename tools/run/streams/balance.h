// How work is spread over streams so that they end together.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <queue>
#include <utility>
#include <vector>

/// What streams carry.
class stream_loads {
  public:
    explicit stream_loads(size_t streams);
    /// Gives a piece of work to the stream that carries least, the lowest of equals, and returns
    /// that.
    size_t place(uint64_t weight);

  private:
    using load = std::pair<uint64_t, size_t>; // what a stream carries, and which it is
    std::priority_queue<load, std::vector<load>, std::greater<>> lightest_;
};

/// Which stream does which piece of work: the heaviest goes first, each to the stream that carries
/// least by then.
std::vector<size_t> balance(const std::vector<uint64_t>& weights, stream_loads& loads);
