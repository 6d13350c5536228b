// The arithmetic of sharing alone, with clients that keep exactly to what they are told.

#include "service/fair_share.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

constexpr double all = 1e9; // wants as much as it may
constexpr uint64_t no_limit = 1'000'000'000;

/// Flows that report every `interval` seconds, each at a time of its own.
class flows {
  public:
    explicit flows(int64_t interval) : interval_(interval) {}

    void join(double wants) {
        each_.push_back({wants, shares_.join(now_), now_, 1, 0, {}});
        tell(each_.back(), {0, 0});
    }
    void want(size_t which, double wants) { each_[which].wants = wants; }
    void leave(size_t which) {
        shares_.leave(each_[which].place);
        each_.erase(each_.begin() + static_cast<ptrdiff_t>(which));
    }
    void pass(int64_t seconds) {
        for (const int64_t end = now_ + seconds; now_ < end;) {
            ++now_;
            for (flow& each : each_) {
                if (now_ - each.since == interval_) {
                    const double used =
                        std::min(each.wants, 1.0 / each.count) * seconds_of(interval_);
                    each.used += used;
                    tell(each, {used, interval_});
                }
            }
        }
    }
    void pass_intervals(int64_t count) { pass(count * interval_); }
    void start_measuring() {
        for (flow& each : each_) {
            each.used = 0;
            each.told.clear();
        }
    }
    double used(size_t which) const { return each_[which].used / seconds_of(interval_); }
    double used() const {
        double sum = 0;
        for (size_t which = 0; which < each_.size(); ++which) {
            sum += used(which);
        }
        return sum;
    }
    size_t size() const { return each_.size(); }
    long count(size_t which) const { return static_cast<long>(each_[which].count); }
    const std::vector<double>& told(size_t which) const { return each_[which].told; }
    /// Asks again, at the same time, without having moved anything.
    long count_again(size_t which) {
        tell(each_[which], {0, 0});
        return count(which);
    }

  private:
    struct flow {
        double wants;
        fair_share::place place;
        int64_t since;
        double count;
        double used;
        std::vector<double> told;
    };
    static double seconds_of(int64_t time) { return static_cast<double>(time); }
    void tell(flow& whom, const moved_sample& sample) {
        shares_.report(whom.place, sample, interval_, now_);
        whom.count = static_cast<double>(shares_.count(whom.place, 1, no_limit, interval_, now_));
        whom.told.push_back(whom.count);
        whom.since = now_;
    }

    const int64_t interval_;
    int64_t now_ = 1000;
    fair_share shares_;
    std::vector<flow> each_;
};

TEST(FairShare, WhoIsAloneIsToldOne) {
    flows some(30);
    some.join(all);
    EXPECT_EQ(some.count(0), 1);
    some.pass_intervals(20);
    EXPECT_EQ(some.told(0), std::vector<double>(21, 1));
}

TEST(FairShare, NewcomersAreToldHowManyTheyAre) {
    flows some(30);
    for (long number = 1; number <= 200; ++number) {
        some.join(all);
        EXPECT_EQ(some.count(static_cast<size_t>(number - 1)), number);
    }
    for (size_t which = 0; which < 200; ++which) {
        EXPECT_EQ(some.count_again(which), 200);
    }
}

TEST(FairShare, EqualFlowsThatOweNothingAreToldExactlyTheirNumber) {
    for (size_t number = 1; number <= 64; ++number) {
        flows some(30);
        for (size_t each = 0; each < number; ++each) {
            some.join(all);
        }
        for (size_t each = 0; each < number; ++each) {
            some.count_again(each); // nobody has moved anything, so nobody will owe
        }
        some.start_measuring();
        some.pass_intervals(20);
        for (size_t each = 0; each < number; ++each) {
            EXPECT_EQ(some.told(each), std::vector<double>(20, static_cast<double>(number)));
        }
    }
}

TEST(FairShare, WhatASlowOneLeavesIsTheOthers) {
    flows some(30);
    some.join(all);
    some.join(0.1);
    some.pass_intervals(10);
    some.start_measuring();
    some.pass_intervals(50);
    EXPECT_NEAR(some.used(0) / 50, 0.9, 0.01);
    EXPECT_NEAR(some.used(1) / 50, 0.1, 0.001);
}

TEST(FairShare, ALevelBetweenTwoCountsIsMetByBothInTurn) {
    flows some(30);
    some.join(all);
    some.join(all);
    some.join(0.2);
    some.pass_intervals(10);
    some.start_measuring();
    some.pass_intervals(60);
    EXPECT_NEAR(some.used(0) / 60, 0.4, 0.005);
    EXPECT_NEAR(some.used(1) / 60, 0.4, 0.005);
    for (const double count : some.told(0)) {
        EXPECT_TRUE(count == 2 || count == 3) << count;
    }
}

TEST(FairShare, WhoHasMovedTooMuchPaysItBack) {
    flows some(30);
    some.join(all);
    some.pass_intervals(20);
    some.join(all);
    some.start_measuring();
    some.pass_intervals(20);
    EXPECT_NEAR(some.used(), 20, 0.5);
    EXPECT_NEAR(some.used(0), some.used(1), 0.7);
}

TEST(FairShare, WhatOneThatHasLeftMovedTooMuchIsPaidBackByTheOthers) {
    flows some(30);
    for (int each = 0; each < 8; ++each) {
        some.join(all);
    }
    some.start_measuring();
    some.pass_intervals(1);
    double used = some.used();
    EXPECT_NEAR(used, 2.72, 0.01); // 1 + 1/2 + 1/3 ...
    some.leave(0);
    some.start_measuring();
    some.pass_intervals(9);
    used += some.used();
    EXPECT_LE(used, 10.5);
}

TEST(FairShare, WhatNobodyUsesIsNotSavedUp) {
    flows some(30);
    some.join(0.2);
    some.join(0.2);
    some.pass_intervals(50);
    some.want(0, all);
    some.want(1, all);
    some.start_measuring();
    some.pass_intervals(5);
    EXPECT_LE(some.used(), 5.25);
}

TEST(FairShare, WhoWantsMoreGetsItWithinThreeIntervals) {
    for (const double before : {0.01, 0.1, 0.3}) {
        for (const int64_t at : {0, 1, 10, 29}) {
            flows some(30);
            some.join(all);
            some.join(before);
            some.pass_intervals(20);
            some.pass(at);
            some.want(1, all);
            some.pass_intervals(3);
            some.start_measuring();
            some.pass_intervals(4);
            EXPECT_GE(some.used(1), 4 * 0.5 * 0.95) << before << " at " << at;
        }
    }
}

TEST(FairShare, OneThatFallsSilentLeavesItsPartAfterTwoIntervals) {
    fair_share shares;
    const fair_share::place one = shares.join(0);
    const fair_share::place silent = shares.join(0);
    shares.report(silent, {0, 0}, 30, 0);
    shares.count(silent, 1, no_limit, 30, 0);
    std::vector<uint64_t> told;
    for (int64_t now = 0; now <= 150; now += 30) {
        const double used = now == 0 ? 0 : 30.0 / static_cast<double>(told.back());
        shares.report(one, {used, now == 0 ? 0 : 30}, 30, now);
        told.push_back(shares.count(one, 1, no_limit, 30, now));
    }
    EXPECT_EQ(told, (std::vector<uint64_t>{2, 2, 1, 1, 1, 1}));
}

TEST(FairShare, NoCountIsAboveTheLargestThatIsAllowed) {
    fair_share shares;
    std::vector<fair_share::place> each;
    for (int number = 0; number < 100; ++number) {
        each.push_back(shares.join(0));
    }
    for (int64_t now = 0; now < 300; now += 30) {
        for (const fair_share::place& which : each) {
            shares.report(which, {1e30, 30}, 30, now);
            const uint64_t count = shares.count(which, 1, 7, 30, now);
            EXPECT_GE(count, 1U);
            EXPECT_LE(count, 7U);
        }
    }
    EXPECT_EQ(shares.count(each[0], 0, 0, 30, 300), 1U);
}

TEST(FairShare, OfVeryManyEachHasAnEvenPartUntilTheyAreFewer) {
    constexpr size_t number = fair_share::most_weighed + 1;
    flows some(30);
    for (size_t each = 0; each < number; ++each) {
        some.join(all);
    }
    some.pass_intervals(2);
    EXPECT_EQ(some.count(0), static_cast<long>(number));
    EXPECT_EQ(some.count(number - 1), static_cast<long>(number));
    while (some.size() > 2) {
        some.leave(0);
    }
    some.pass_intervals(20);
    EXPECT_EQ(some.count(0), 2);
    EXPECT_EQ(some.count(1), 2);
}

TEST(FairShare, AClientOfAnotherRateIsToldWhatGivesItTheSame) {
    fair_share shares;
    const fair_share::place usual = shares.join(0);
    const fair_share::place twice = shares.join(0);
    EXPECT_EQ(shares.count(usual, 1, no_limit, 30, 0), 2U);
    EXPECT_EQ(shares.count(twice, 2, no_limit, 30, 0), 4U);
}

TEST(FairShare, TimesThatGoBackOrStandStillDoNoHarm) {
    fair_share shares;
    const fair_share::place one = shares.join(100);
    const fair_share::place other = shares.join(90);
    for (const int64_t now : {100, 50, 100, 130, 0, 131}) {
        shares.report(one, {5, -3}, 30, now);
        EXPECT_GE(shares.count(one, 1, 8, 30, now), 1U);
        shares.report(other, {0, 1'000'000}, 30, now);
        EXPECT_LE(shares.count(other, 1, 8, 30, now), 8U);
    }
}

// --- thousands of mixes ---

TEST(FairShare, InAnyMixAllIsUsedAndEachHasItsShare) {
    for (unsigned seed = 0; seed < 3000; ++seed) {
        std::mt19937 random(seed);
        const auto part = [&] { return std::uniform_real_distribution<>(0, 1)(random); };
        flows some(20);
        std::vector<double> wants(1 + random() % 12);
        for (double& each : wants) {
            each = part() < 0.5 ? all : 0.01 + part() * part() * 0.9;
            some.join(each);
            some.pass(static_cast<int64_t>(random() % 5));
        }
        some.pass_intervals(20);
        some.start_measuring();
        some.pass_intervals(50);
        double level = all; // by bisection, unlike the service's
        const auto sum_at = [&](double at) {
            double sum = 0;
            for (const double each : wants) {
                sum += std::min(each, at);
            }
            return sum;
        };
        if (sum_at(all) > 1) {
            double low = 0;
            double high = 1;
            for (int step = 0; step < 50; ++step) {
                (sum_at((low + high) / 2) > 1 ? high : low) = (low + high) / 2;
            }
            level = low;
        }
        const double wanted = std::min(sum_at(all), 1.0);
        EXPECT_GE(some.used() / 50, 0.95 * wanted) << "seed " << seed;
        EXPECT_LE(some.used() / 50, 1.01) << "seed " << seed;
        for (size_t which = 0; which < wants.size(); ++which) {
            const double share = std::min(wants[which], level);
            // Where one alone is above a half, the counts 1 and 2 leave up to 0.05 of the whole.
            EXPECT_GE(some.used(which) / 50, share - std::max(0.05 * share, share > 0.5 ? 0.05 : 0))
                << "seed " << seed << ", flow " << which << " of " << wants.size();
        }
    }
}

} // namespace
