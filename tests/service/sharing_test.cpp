// What hosts that share a storage get of it: random mixes of them, with the plugin's engine, on
// virtual time. A failure prints the seed of its mix; SHARE_MIXES sets how many there are of each
// kind, and SHARE_SEED which is the first.
//
// The plugin counts whole seconds, and a second's worth may pass at once: short intervals are given
// that. A sample ends a block late, which is given too.

#include "tests/service/share_simulation.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>

namespace {

unsigned from_environment(const char* name, unsigned usual) {
    const char* const text = getenv(name);
    return text != nullptr ? static_cast<unsigned>(strtoul(text, nullptr, 10)) : usual;
}

/// The seeds of the mixes to try.
class seeds {
  public:
    explicit seeds(unsigned usual)
        : first_(from_environment("SHARE_SEED", 0)),
          count_(from_environment("SHARE_MIXES", usual)) {}
    template <typename Body>
    void each(Body body) const {
        for (unsigned seed = first_; seed < first_ + count_; ++seed) {
            SCOPED_TRACE("seed " + std::to_string(seed));
            body(seed);
        }
    }

  private:
    const unsigned first_;
    const unsigned count_;
};

/// A mix of 1 to 12 hosts, now and then 64, all there from the first interval on.
class random_mix {
  public:
    explicit random_mix(unsigned seed) : random_(seed) {
        constexpr int32_t intervals[] = {1, 2, 5, 10, 30, 60, 300, 3600};
        mix.interval = intervals[random_() % std::size(intervals)];
        const size_t hosts = part() < 0.02 ? 64 : 1 + random_() % (part() < 0.5 ? 4 : 12);
        for (size_t each = 0; each < hosts; ++each) {
            double speed = part() < 0.5 ? as_much_as_it_may : 0.01 + part() * part() * 0.9;
            speed /= hosts == 64 && speed < 1 ? 10 : 1;
            simulated_host host;
            host.demands = {{part() < 0.5 ? 0 : at(part()), speed}};
            // One whose source waits for it can't make up for the seconds that it was paced.
            host.catches_up = part() < 0.5 || mix.interval < 30;
            mix.hosts.push_back(host);
        }
        mix.lasts = hosts == 64 ? 60 : 40;
    }
    double part() { return std::uniform_real_distribution<>(0, 1)(random_); }
    size_t any_host() { return random_() % mix.hosts.size(); }
    /// A time in intervals, in seconds.
    double at(double intervals) const { return intervals * mix.interval; }
    double of_a_second(double what) const { return what / mix.interval; }

    simulated_mix mix;

  private:
    std::mt19937 random_;
};

constexpr double a_block = 1.0 / 300; // of an interval's worth

double wanted_by(const simulated_host& host) { return host.demands.back().speed; }

/// What each should get, by bisection of the level.
std::vector<double> max_min(const std::vector<simulated_host>& hosts) {
    const auto sum_at = [&](double level) {
        double sum = 0;
        for (const simulated_host& each : hosts) {
            sum += std::min(wanted_by(each), level);
        }
        return sum;
    };
    double low = 0;
    double high = as_much_as_it_may;
    for (int step = 0; step < 60; ++step) {
        const double middle = (low + high) / 2;
        (sum_at(middle) > 1 ? high : low) = middle;
    }
    std::vector<double> shares;
    for (const simulated_host& each : hosts) {
        shares.push_back(std::min(wanted_by(each), low));
    }
    return shares;
}

/// By how much a host may have less than its share. Where one alone has more than a half, the
/// counts 1 and 2 leave up to a twentieth of the whole; of 64 each has little of a short interval.
double tolerance(double share, const simulated_mix& mix) {
    return share > 0.5 ? 0.05 : (mix.hosts.size() == 64 && mix.interval < 30 ? 0.1 : 0.05) * share;
}

void expect_no_rate_of_0(const simulated_mix& mix, const simulated_course& course) {
    for (const simulated_course::reply& each : course.replies) {
        ASSERT_GE(each.count, 1);
        ASSERT_LE(static_cast<uint64_t>(each.count), mix.allowed);
    }
}

TEST(Sharing, HostsThatStayUseWhatIsAllowedAndNoMoreEachItsShare) {
    seeds(150).each([](unsigned seed) {
        const random_mix made(seed);
        const simulated_mix& mix = made.mix;
        const simulated_course course = simulate(mix);
        const std::vector<double> shares = max_min(mix.hosts);
        double all = 0;
        for (const double each : shares) {
            all += each;
        }
        const double settled = mix.lasts - 25;
        EXPECT_GE(course.use(settled, mix.lasts), 0.95 * all - made.of_a_second(0.04));
        EXPECT_LE(course.most(5, 10, mix.lasts), 1.05 + a_block + made.of_a_second(0.2));
        for (size_t host = 0; host < shares.size(); ++host) {
            EXPECT_GE(course.use_of(host, settled, mix.lasts),
                      shares[host] - tolerance(shares[host], mix) -
                          made.of_a_second(0.04 * shares[host]))
                << "host " << host << " of " << shares.size() << ", share " << shares[host];
        }
        expect_no_rate_of_0(mix, course);
    });
}

TEST(Sharing, OneThatBeginsToWantMoreIsLetUpWithinThreeIntervals) {
    seeds(60).each([](unsigned seed) {
        random_mix made(seed);
        simulated_mix& mix = made.mix;
        simulated_host& one = mix.hosts[made.any_host()];
        one.demands.back().speed = 0.02 + made.part() * 0.4;
        const double then = 20 + made.part();
        one.demands.push_back({made.at(then), as_much_as_it_may});
        const simulated_course course = simulate(mix);
        const auto which = static_cast<size_t>(&one - mix.hosts.data());
        const double share = max_min(mix.hosts)[which];
        const double from = std::ceil(then + 3);
        EXPECT_GE(course.use_of(which, from, from + 5),
                  share - 2 * tolerance(share, mix) - made.of_a_second(0.1 * share));
        EXPECT_LE(course.most(5, 10, mix.lasts), 1.08 + a_block + made.of_a_second(0.2));
    });
}

TEST(Sharing, WhoComesAndGoesMakesNoTenIntervalsTooMuch) {
    seeds(60).each([](unsigned seed) {
        random_mix made(seed);
        simulated_mix& mix = made.mix;
        for (simulated_host& each : mix.hosts) {
            each.demands.front().since = made.part() < 0.3 ? 0 : made.at(35 * made.part());
            if (made.part() < 0.5) {
                each.leaves = each.demands.front().since + made.at(20 * made.part());
            }
            each.is = made.part() < 0.2 ? simulated_host::falls_silent : simulated_host::honest;
        }
        const simulated_course course = simulate(mix);
        EXPECT_LE(course.most(10, 0, mix.lasts), 1.10 + a_block + made.of_a_second(0.1));
        expect_no_rate_of_0(mix, course);
    });
}

TEST(Sharing, AsManyAs64ThatComeAtOnceArePaidForWithinTenIntervals) {
    for (const size_t hosts : {2, 3, 4, 8, 16, 32, 64}) {
        for (const double busy : {0.0, 20.05}) { // how long one has had the storage to itself
            simulated_mix mix;
            mix.hosts.resize(hosts);
            for (simulated_host& each : mix.hosts) {
                each.demands = {{busy * mix.interval, as_much_as_it_may}};
            }
            mix.hosts[0].demands[0].since = 0;
            const simulated_course course = simulate(mix);
            EXPECT_LE(course.most(10, 0, 40), 1.10) << hosts << " after " << busy;
            EXPECT_GE(course.use(30, 40), 0.95) << hosts << " after " << busy;
        }
    }
}

TEST(Sharing, AHostThatLiesTakesNothingOfTheOthersShares) {
    seeds(60).each([](unsigned seed) {
        random_mix made(seed);
        simulated_mix& mix = made.mix;
        const size_t liar = made.any_host();
        simulated_host& one = mix.hosts[liar];
        one.is = made.part() < 0.5 ? simulated_host::claims_much : simulated_host::claims_nothing;
        one.demands.back().speed = as_much_as_it_may; // as much as it could have
        const simulated_course course = simulate(mix);
        const std::vector<double> shares = max_min(mix.hosts);
        for (size_t host = 0; host < shares.size(); ++host) {
            if (host != liar) {
                EXPECT_GE(course.use_of(host, mix.lasts - 25, mix.lasts),
                          shares[host] * 0.9 - made.of_a_second(0.05 * shares[host]))
                    << "host " << host << " of " << shares.size();
            }
        }
        expect_no_rate_of_0(mix, course);
    });
}

TEST(Sharing, NoCountIsSoLargeThatARateWouldBe0) {
    for (const uint64_t allowed : {1, 10, 50, 1000}) {
        simulated_mix mix;
        mix.allowed = allowed;
        mix.interval = 60;
        mix.lasts = 10;
        mix.hosts.resize(64);
        for (simulated_host& each : mix.hosts) {
            each.demands = {{0, as_much_as_it_may}};
        }
        expect_no_rate_of_0(mix, simulate(mix)); // it would have ended the process
    }
}

} // namespace
