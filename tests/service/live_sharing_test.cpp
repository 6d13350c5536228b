// What live limits come to, with the plugin's engine on virtual time: random mixes of hosts under
// limits that come and go. A failure prints the seed of its mix; SHARE_MIXES sets how many there are
// of each kind, and SHARE_SEED which is the first.

#include "tests/service/share_simulation.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>

namespace {

unsigned set_in_environment(const char* name, unsigned usual) {
    const char* const text = getenv(name);
    return text != nullptr ? static_cast<unsigned>(strtoul(text, nullptr, 10)) : usual;
}

template <typename Body>
void for_each_seed(unsigned usual, Body body) {
    const unsigned first = set_in_environment("SHARE_SEED", 0);
    for (unsigned seed = first; seed < first + set_in_environment("SHARE_MIXES", usual); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        body(random);
    }
}

double part_of_one(std::mt19937& random) { return std::uniform_real_distribution<>(0, 1)(random); }

/// Hosts that want all, on one storage or more.
simulated_mix greedy_mix(std::mt19937& random) {
    constexpr int32_t intervals[] = {5, 10, 30, 60, 300};
    simulated_mix mix;
    mix.interval = intervals[random() % std::size(intervals)];
    mix.lasts = 60;
    mix.hosts.resize(1 + random() % 8);
    for (simulated_host& each : mix.hosts) {
        each.demands = {{0, as_much_as_it_may}};
        each.catches_up = true;
    }
    return mix;
}

/// Whole seconds are what the plugin counts, and a second's worth may pass at once.
double seconds_slack(const simulated_mix& mix) { return 0.3 / mix.interval; }

constexpr double change = 20; // intervals after the start
constexpr double heard = 22;  // by then all have reported, if they aren't slow

TEST(LiveSharing, ALimitHoldsFromTheNextReportOn) {
    for_each_seed(60, [](std::mt19937& random) {
        simulated_mix mix = greedy_mix(random);
        const double part = 0.05 + 0.9 * part_of_one(random);
        const bool is_of_host = part_of_one(random) < 0.5;
        mix.storages = is_of_host ? 1 + random() % 3 : 1;
        mix.limits = {{change * mix.interval, part, is_of_host}};
        const simulated_course course = simulate(mix);
        const double from = heard + 4; // what passed before the last had heard is paid back
        EXPECT_LE(course.use(from, mix.lasts), part * 1.03 + seconds_slack(mix))
            << part << " for " << mix.hosts.size() << "\n"
            << course.text();
        EXPECT_GE(course.use(from, mix.lasts), part * 0.95 - seconds_slack(mix))
            << part << " for " << mix.hosts.size() << "\n"
            << course.text();
        EXPECT_LE(course.most(5, from, mix.lasts), part * 1.05 + 0.01 + seconds_slack(mix))
            << part << " for " << mix.hosts.size() << "\n"
            << course.text();
        for (const simulated_course::reply& each : course.replies) {
            ASSERT_GE(each.count, 1);
            ASSERT_LE(static_cast<uint64_t>(each.count), mix.allowed);
        }
    });
}

TEST(LiveSharing, WhatIsTakenBackIsUsedAgainAsBefore) {
    for_each_seed(30, [](std::mt19937& random) {
        simulated_mix mix = greedy_mix(random);
        const double part = part_of_one(random) < 0.3 ? 0 : 0.05 + 0.5 * part_of_one(random);
        const bool is_of_host = part_of_one(random) < 0.5;
        mix.limits = {{change * mix.interval, part, is_of_host},
                      {(change + 10) * mix.interval, std::nullopt, is_of_host}};
        const simulated_course course = simulate(mix);
        EXPECT_GE(course.use(change + 16, mix.lasts), 0.95 - seconds_slack(mix)) << course.text();
        EXPECT_LE(course.most(5, change + 16, mix.lasts), 1.05 + seconds_slack(mix))
            << course.text();
    });
}

TEST(LiveSharing, APauseLetsABlockThroughOnEachSideOfAReport) {
    for_each_seed(30, [](std::mt19937& random) {
        simulated_mix mix = greedy_mix(random);
        mix.interval = std::min(mix.interval, 60); // a longer wait is taken in parts
        mix.limits = {{change * mix.interval, 0, part_of_one(random) < 0.5}};
        const simulated_course course = simulate(mix);
        std::vector<size_t> reports(mix.hosts.size());
        for (const simulated_course::reply& each : course.replies) {
            if (each.when > change) {
                EXPECT_GE(each.wait, mix.interval);
                EXPECT_GE(each.count, 1);
                ++reports[each.host];
            }
        }
        const double hosts = static_cast<double>(mix.hosts.size());
        const double block = std::max(1.0 / mix.blocks / std::max(1.0, hosts / 8), 1e-9);
        for (size_t host = 0; host < mix.hosts.size(); ++host) {
            EXPECT_GE(reports[host], (mix.lasts - change) * 0.8) << "it is heard all the time";
            EXPECT_LE(course.use_of(host, heard + 2, mix.lasts), 2.1 * block) << course.text();
        }
    });
}

/// Of hosts that use several storages in turn, under a cap of the host and a limit of each storage.
TEST(LiveSharing, ACapOfTheHostIsSharedMaxMinOverAllFlowsAndEachStorageKeepsItsOwnLimit) {
    for_each_seed(60, [](std::mt19937& random) {
        simulated_mix mix = greedy_mix(random);
        mix.lasts = 80;
        mix.storages = 2;
        mix.hosts.resize(4);
        for (simulated_host& each : mix.hosts) {
            each.demands = {{0, as_much_as_it_may}};
            each.catches_up = true;
        }
        const double slow = 0.05 + 0.1 * part_of_one(random);
        mix.hosts[3].demands = {{0, slow}};
        const double cap = 0.5 + 0.4 * part_of_one(random);
        const double own = 0.1 + 0.8 * part_of_one(random);
        mix.limits = {{change * mix.interval, own, false}, {change * mix.interval, cap, true}};
        const simulated_course course = simulate(mix);
        // By storage: hosts 0 and 2 want all of the first, 1 wants all of the second beside 3.
        const auto sum_at = [&](double level) {
            const double first = std::min(2 * level, own);
            const double second = std::min(std::min(slow, level) + level, own);
            return first + second;
        };
        double low = 0;
        double high = 1;
        for (int step = 0; step < 40; ++step) {
            const double middle = (low + high) / 2;
            (sum_at(middle) > cap ? high : low) = middle;
        }
        const double from = 40;
        const double all = sum_at(low);
        EXPECT_LE(course.use(from, mix.lasts), cap * 1.03 + seconds_slack(mix)) << course.text();
        EXPECT_GE(course.use(from, mix.lasts), all * 0.93 - seconds_slack(mix)) << course.text();
        for (const size_t first : {size_t{0}, size_t{1}}) {
            const double used =
                course.use_of(first, from, mix.lasts) + course.use_of(first + 2, from, mix.lasts);
            EXPECT_LE(used, own * 1.03 + seconds_slack(mix)) << course.text();
        }
        const double even = std::min(low, own / 2);
        for (const size_t host : {size_t{0}, size_t{2}}) {
            EXPECT_GE(course.use_of(host, from, mix.lasts), even * 0.9 - seconds_slack(mix))
                << host << " of " << even << "\n"
                << course.text();
        }
    });
}

} // namespace
