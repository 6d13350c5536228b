// Limits that an operator sets while data flows, beside those of the settings: what they come to for
// who uses a storage. Arithmetic alone: no clock and no lock in here.
//
// Two things in a reply steer a client: the count by which it divides its own rate until its next
// report, and the wait. A wait that is shorter than the sample interval counts as time of the
// running sample, so the client has caught up with it by its next report; one of a whole interval is
// a pause. So a rate is met by counts, and a rate of 0 by waits: a client whose rate were 0 would end.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>

/// A limit and when it ends.
template <typename Value>
struct timed {
    static constexpr int64_t never = std::numeric_limits<int64_t>::max();

    Value value;
    int64_t until = never; ///< uptime

    bool operator==(const timed& other) const {
        return value == other.value && until == other.until;
    }
};
using rate_limit = std::optional<timed<uint64_t>>;      ///< bytes per second; 0: a pause
using connection_limit = std::optional<timed<int64_t>>; ///< connections; 0: nobody new

/// Those of a storage, or of all storages of the host together, which have rates alone.
struct live_limits {
    rate_limit rates[2]; ///< by operation: reading, writing
    connection_limit connections;

    bool is_empty() const { return !rates[0] && !rates[1] && !connections; }
};

/// The limit that holds at `now`; none: there is none, or it has run out.
template <typename Value>
std::optional<Value> in_force(const std::optional<timed<Value>>& limit, int64_t now) {
    return limit && now < limit->until ? std::optional<Value>(limit->value) : std::nullopt;
}

/// What is allowed where the settings allow `by_settings`, bytes per second: a limit can't raise it.
inline uint64_t limited(uint64_t by_settings, std::optional<uint64_t> limit) {
    return limit && *limit < by_settings ? *limit : by_settings;
}

/// Seconds that a client which reports every `interval` seconds has to wait so that nothing flows
/// until its next report.
constexpr int64_t pause_of(int64_t interval) { return interval > 0 ? interval : 0; }
