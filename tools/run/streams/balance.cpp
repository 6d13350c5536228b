#include "tools/run/streams/balance.h"

#include <algorithm>
#include <numeric>

stream_loads::stream_loads(size_t streams) {
    for (size_t stream = 0; stream < streams; ++stream) {
        lightest_.emplace(0, stream);
    }
}

size_t stream_loads::place(uint64_t weight) {
    const auto [carried, stream] = lightest_.top();
    lightest_.pop();
    lightest_.emplace(carried + weight, stream);
    return stream;
}

std::vector<size_t> balance(const std::vector<uint64_t>& weights, stream_loads& loads) {
    std::vector<size_t> heaviest_first(weights.size());
    std::iota(heaviest_first.begin(), heaviest_first.end(), size_t{0});
    std::stable_sort(heaviest_first.begin(), heaviest_first.end(),
                     [&](size_t left, size_t right) { return weights[left] > weights[right]; });
    std::vector<size_t> stream_of(weights.size());
    for (const size_t index : heaviest_first) {
        stream_of[index] = loads.place(weights[index]);
    }
    return stream_of;
}
