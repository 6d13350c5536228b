// One stream through the engine on virtual time: it moves blocks as fast as its device and its pacing
// let it, and what it moved and when is what comes of it. docs/pacing.md is made of such courses.
#pragma once

#include "config/throttling_util.h"

#include <cstdint>
#include <ctime>
#include <vector>

struct paced_stream {
    throttling_config_s config;
    uint64_t block = 256 * 1024; ///< bytes of a transfer
    uint64_t speed = 0;          ///< bytes per second of the device
    time_t begins = 0;           ///< seconds since the epoch
    double lasts = 60;           ///< seconds
    double idles_at = 0;  ///< seconds after the beginning, from when on it has nothing to move
    double idles_for = 0; ///< seconds
};

/// Times are seconds after the beginning.
class paced_course {
  public:
    struct transfer {
        double begins; ///< when the engine has let it go
        double ends;
        uint64_t bytes;
    };

    explicit paced_course(const paced_stream& stream) : stream_(stream) {}

    std::vector<transfer> transfers; ///< in order
    std::vector<double> reports;     ///< with each, a sample ends and the next begins

    /// Bytes moved up to a time.
    double moved_until(double time) const;
    double moved(double from, double to) const { return moved_until(to) - moved_until(from); }
    /// Bytes per second that are allowed.
    uint64_t allowed_at(double time) const;
    /// What was moved beside what was allowed.
    double ratio(double from, double to) const;
    /// The most that was moved in any stretch within the two times beyond what is allowed in it, in
    /// seconds at the rate that is allowed at its beginning. The rate must not change.
    double most_ahead(double from, double to) const;
    /// The most that was moved in any second within the two times beside the rate of its beginning.
    double busiest_second(double from, double to) const;
    /// The longest pause that begins at or ends behind `from`, and begins before `to`.
    double longest_pause(double from, double to) const;

  private:
    paced_stream stream_;
};

paced_course pace(const paced_stream& stream);
