#include "tools/run/streams/balance.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<size_t> spread(const std::vector<uint64_t>& weights, size_t streams) {
    stream_loads none(streams);
    return balance(weights, none);
}

std::vector<uint64_t> loads(const std::vector<uint64_t>& weights, size_t streams) {
    std::vector<uint64_t> carried(streams);
    const std::vector<size_t> stream_of = spread(weights, streams);
    for (size_t index = 0; index < weights.size(); ++index) {
        carried[stream_of[index]] += weights[index];
    }
    return carried;
}

TEST(Balance, NothingToSpread) { EXPECT_THAT(spread({}, 3), IsEmpty()); }

TEST(Balance, OneStreamTakesAll) { EXPECT_THAT(spread({5, 1, 7}, 1), ElementsAre(0, 0, 0)); }

TEST(Balance, HeaviestGoFirstAndEqualsToTheLowestStream) {
    EXPECT_THAT(spread({1, 5, 5, 9}, 3), ElementsAre(1, 1, 2, 0));
}

TEST(Balance, OneLargeFileDoesNotDrawSmallOnes) {
    EXPECT_THAT(loads({1000, 1, 1, 1, 1, 1, 1}, 3), ElementsAre(1000, 3, 3));
}

TEST(Balance, MoreStreamsThanWork) { EXPECT_THAT(loads({4, 2}, 4), ElementsAre(4, 2, 0, 0)); }

TEST(Balance, StreamsDifferByNoMoreThanTheLightestCouldMend) {
    std::vector<uint64_t> weights(997);
    uint64_t number = 1;
    for (uint64_t& weight : weights) {
        number = number * 6364136223846793005U + 1442695040888963407U;
        weight = 1 + (number >> 40);
    }
    const std::vector<uint64_t> carried = loads(weights, 7);
    const auto [least, most] = std::minmax_element(carried.begin(), carried.end());
    EXPECT_LE(*most - *least, *std::max_element(weights.begin(), weights.end()));
    EXPECT_EQ(std::accumulate(carried.begin(), carried.end(), uint64_t{0}),
              std::accumulate(weights.begin(), weights.end(), uint64_t{0}));
}

TEST(Balance, GoesOnFromWhatIsCarried) {
    stream_loads loads(3);
    EXPECT_THAT(balance({9, 5, 4}, loads), ElementsAre(0, 1, 2));
    EXPECT_EQ(loads.place(2), 2U);
    EXPECT_EQ(loads.place(1), 1U);
    EXPECT_EQ(loads.place(1), 1U);
}

} // namespace
