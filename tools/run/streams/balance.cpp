#include "tools/run/streams/balance.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <queue>
#include <utility>

std::vector<size_t> balance(const std::vector<uint64_t>& weights, size_t streams) {
    std::vector<size_t> heaviest_first(weights.size());
    std::iota(heaviest_first.begin(), heaviest_first.end(), size_t{0});
    std::stable_sort(heaviest_first.begin(), heaviest_first.end(),
                     [&](size_t left, size_t right) { return weights[left] > weights[right]; });

    using load = std::pair<uint64_t, size_t>; // what a stream carries, and which it is
    std::priority_queue<load, std::vector<load>, std::greater<>> lightest;
    for (size_t stream = 0; stream < streams; ++stream) {
        lightest.emplace(0, stream);
    }
    std::vector<size_t> stream_of(weights.size());
    for (const size_t index : heaviest_first) {
        const auto [carried, stream] = lightest.top();
        lightest.pop();
        stream_of[index] = stream;
        lightest.emplace(carried + weights[index], stream);
    }
    return stream_of;
}
