#include "tools/manage/simulation.h"

#include "tools/terminal/sizes.h"

#include <algorithm>

namespace {

constexpr time_t seconds_an_hour = 3600;
constexpr time_t longest = 10 * 366 * 24 * seconds_an_hour;

/// The sample that runs: what it has moved since it began.
class running_sample {
  public:
    running_sample(time_t begins, int64_t interval)
        : begins_(begins), interval_(std::max<int64_t>(interval, 1)) {}

    /// Lets through what `rate` allows from `from` up to `to`, at most `wanted`. Returns how much,
    /// and in `ends` when the last of it had passed.
    uint64_t advance(uint64_t rate, time_t from, time_t to, uint64_t wanted, time_t& ends) {
        uint64_t passed = 0;
        time_t now = from;
        if (now < waits_until_) { // it sleeps through a change of the rate
            now = std::min(waits_until_, to);
            if (now == to) {
                return 0;
            }
        }
        if (now >= begins_ + interval_) {
            restart(now);
        }
        const uint64_t allowed = rate * static_cast<uint64_t>(now - begins_);
        if (moved_ < allowed) {
            passed = std::min(allowed - moved_, wanted); // it catches up
        } else if (const auto ahead = static_cast<time_t>(moved_ / rate) - (now - begins_);
                   ahead > 0) {
            waits_until_ = now + ahead;
            now = waits_until_;
            if (now >= to) {
                return 0;
            }
            if (now >= begins_ + interval_) {
                restart(now);
            }
        }
        moved_ += passed;
        const uint64_t room = rate * static_cast<uint64_t>(to - now);
        const uint64_t steady = std::min(room, wanted - passed);
        ends = now + static_cast<time_t>(steady / rate);
        move(rate, now, steady);
        return passed + steady;
    }

  private:
    void restart(time_t now) {
        begins_ = now;
        moved_ = 0;
    }

    /// Moves `bytes` at `rate` from `now` on, through as many samples as that takes.
    void move(uint64_t rate, time_t now, uint64_t bytes) {
        const time_t lasts = static_cast<time_t>(bytes / rate);
        const time_t of_this = begins_ + interval_ - now;
        if (lasts < of_this) {
            moved_ += bytes;
            return;
        }
        const time_t of_last = (lasts - of_this) % interval_;
        begins_ = now + lasts - of_last;
        moved_ = rate * static_cast<uint64_t>(of_last);
    }

    time_t begins_;
    const time_t interval_;
    uint64_t moved_ = 0;
    time_t waits_until_ = 0;
};

} // namespace

uint64_t simulated_course::bytes() const {
    uint64_t all = 0;
    for (const simulated_stretch& each : stretches) {
        all += each.bytes;
    }
    return all;
}

simulated_course simulate(const simulated_transfer& transfer) {
    simulated_course course;
    running_sample sample(transfer.begins, transfer.config.sample_interval);
    uint64_t left = transfer.bytes;
    for (time_t now = transfer.begins; now < transfer.begins + longest;) {
        const tm local = local_time(now);
        const time_t next = now + seconds_an_hour - local.tm_min * 60 - local.tm_sec;
        const pacing_window window = window_at(transfer.config, local);
        const uint64_t rate =
            allowed_rate(transfer.config, transfer.direction, local) / transfer.share;
        if (rate == 0) {
            course.faulted = now;
            return course;
        }
        time_t ends = next;
        const uint64_t moved = sample.advance(rate, now, next, left, ends);
        left -= moved;
        if (course.stretches.empty() || course.stretches.back().window != window ||
            course.stretches.back().rate != rate) {
            course.stretches.push_back({now, now, window, rate, 0});
        }
        course.stretches.back().bytes += moved;
        course.stretches.back().to = left == 0 ? ends : next;
        if (left == 0) {
            course.finished = ends;
            return course;
        }
        now = next;
    }
    return course;
}
