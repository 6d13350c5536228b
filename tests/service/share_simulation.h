// Hosts that share a storage, on virtual time: the engine as the plugin has it on one side, the
// service's book on the other, and nothing between them but the calls. Each host is a fiber: it
// sleeps where the engine does, and the clock goes on to whoever wakes first.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

/// From `since` on, seconds after the start, the host delivers `speed`, a part of what is allowed.
struct demand {
    double since;
    double speed;
};

constexpr double as_much_as_it_may = 8; ///< so fast is a host that isn't held by its own source

struct simulated_host {
    enum conduct { honest, falls_silent, claims_nothing, claims_much };

    std::vector<demand> demands; ///< in order; before the first one it isn't there
    double leaves = std::numeric_limits<double>::infinity(); ///< seconds after the start
    conduct is = honest;
    bool catches_up = false; ///< its source goes on while it is paced; else it stands still then
};

/// What an operator does while data flows.
struct simulated_limit {
    double when;                ///< seconds after the start
    std::optional<double> part; ///< of what is allowed; 0: a pause; none: limits are taken back
    bool is_of_host = false;    ///< for all storages together
};

struct simulated_mix {
    uint64_t allowed = 20'000'000; ///< bytes per second
    int32_t interval = 30;         ///< seconds
    double lasts = 40;             ///< intervals
    int blocks = 300;              ///< that make an interval's worth of the whole
    std::vector<simulated_host> hosts;
    std::vector<simulated_limit> limits = {};
    size_t storages = 1; ///< that the hosts use in turn
    /// Tells each host how many there are, and lets it wait for what it was early of its even part.
    bool evenly = false;
};

/// What came of it, in parts of what is allowed.
class simulated_course {
  public:
    static constexpr int steps = 8; ///< of an interval

    simulated_course(size_t hosts, double intervals);

    /// Of the hosts together, or of one, between two times in intervals.
    double use(double from, double to) const;
    double use_of(size_t host, double from, double to) const;
    /// The most that was used in any `intervals` that lie between the two times.
    double most(double intervals, double from, double to) const;
    double least(double intervals, double from, double to) const;

    struct reply {
        double when; ///< in intervals
        size_t host;
        long count;
        long wait; ///< seconds
    };
    std::vector<reply> replies;

    void add(size_t host, double from, double to, double amount);
    std::vector<size_t> blocks; ///< that were moved, by host
    std::string text() const;   ///< a line for each interval

  private:
    std::vector<std::vector<double>> moved_; ///< by host and step, a part of a whole step's worth
    double extreme(double intervals, double from, double to, bool is_most) const;
};

simulated_course simulate(const simulated_mix& mix);
