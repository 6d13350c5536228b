#include "tests/engine/pacing_cases.h"

#include "tests/support/virtual_clock.h"

#include <algorithm>

namespace {

constexpr uint64_t small_block = 1'000'000; ///< 20 of them are a second's worth

/// The seconds of a sample that are tried: its last ones, each of which may be the last before a
/// report, and some before.
std::vector<int> moments_of(int32_t interval) {
    std::vector<int> moments;
    for (int moment = interval - 1; moment >= 0;
         moment -= moment > interval - 5 ? 1 : std::max(1, interval / 12)) {
        moments.push_back(moment);
    }
    return moments;
}

} // namespace

paced_stream stream_at(int32_t interval) {
    paced_stream stream;
    stream.config.avail_bandwidth = allowed_bandwidth;
    stream.config.sample_interval = interval;
    stream.speed = static_cast<uint64_t>(device * static_cast<double>(allowed_bandwidth));
    stream.begins = local_time(2024, 3, 4, 12); // a Monday
    return stream;
}

double most_after_idling(int32_t interval) {
    paced_stream stream = stream_at(interval);
    stream.block = small_block;
    stream.lasts = 3 * interval;
    const std::vector<double> reports = pace(stream).reports;
    double most = 0;
    for (const double after : {0.0, 1.0, interval / 2.0}) { // a sample has begun
        stream.idles_at = reports[2] + after;
        for (const int lasts : moments_of(interval)) {
            stream.idles_for = lasts;
            const double over = stream.idles_at + lasts;
            stream.lasts = over + interval;
            most = std::max(most, pace(stream).most_ahead(over, stream.lasts));
        }
    }
    return most;
}

paced_stream stream_over_boundary(int32_t interval, double boundary, bool opens) {
    paced_stream stream = stream_at(interval);
    stream.config.work_time_bandwidth_percent = 25; // from 8 to 18
    stream.begins = local_time(2024, 3, 4, opens ? 18 : 8) - static_cast<time_t>(boundary);
    return stream;
}

boundary_figures worst_at_boundary(int32_t interval, bool opens) {
    boundary_figures worst = {};
    for (const int moment : moments_of(interval)) {
        const double boundary = 2 * interval + moment;
        paced_stream stream = stream_over_boundary(interval, boundary, opens);
        stream.block = small_block;
        stream.lasts = boundary + 2 * interval;
        const paced_course course = pace(stream);
        worst.ahead = std::max(worst.ahead, course.most_ahead(boundary, stream.lasts));
        worst.busiest_second =
            std::max(worst.busiest_second, course.busiest_second(boundary, stream.lasts));
        worst.silence = std::max(worst.silence, course.longest_pause(boundary, stream.lasts));
    }
    return worst;
}
