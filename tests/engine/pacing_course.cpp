#include "tests/engine/pacing_course.h"

#include "engine/service_connector.h"

#include "config/allowed_rate.h"

#include "tests/support/host_session.h"
#include "tests/support/scripted_client.h"
#include "tests/support/virtual_clock.h"

#include <algorithm>
#include <cmath>

namespace {

/// The time of the stream, in microseconds, which the clock shows in whole seconds.
class stream_time {
  public:
    explicit stream_time(time_t begins) : begins_(begins), clock_(begins) {
        clock_.interrupt_sleep_after = 0; // the clock is moved here
        clock_.on_sleep = [this](unsigned seconds) {
            clock_.take_sleeps();
            pass(seconds);
        };
    }
    void pass(double seconds) {
        microseconds_ += std::llround(seconds * 1e6);
        clock_.set(begins_ + static_cast<time_t>(microseconds_ / 1'000'000));
    }
    double now() const { return static_cast<double>(microseconds_) / 1e6; }

  private:
    time_t begins_;
    virtual_clock clock_;
    int64_t microseconds_ = 0;
};

} // namespace

paced_course pace(const paced_stream& stream) {
    service() = {};
    service().usual = {STS_OK, reply_text(1, 1)};
    stream_time time(stream.begins);
    paced_course course(stream);
    service().on_exchange = [&](const exchange& arrived) {
        if (arrived.call == "check_bandwidth") {
            course.reports.push_back(time.now());
        }
        service().exchanges.clear();
    };
    sts_session_def_v7_t session = host_session("s", 0);
    char type[] = "cloud";
    char name[] = "s3";
    ServiceConnector connector;
    connector.set_throttling_enabled(1);
    connector.connect_service(&session, type, name);
    connector.set_config_params(&stream.config, 0);

    bandwidth_s current = {OPERATION_WRITE, stream.begins, stream.begins, 0};
    int force = 1;
    bool has_idled = stream.idles_for <= 0;
    while (time.now() < stream.lasts) {
        if (!has_idled && time.now() >= stream.idles_at) {
            time.pass(stream.idles_for);
            has_idled = true;
        }
        connector.check_bandwidth(&current, 0, force);
        force = 0;
        const double begins = time.now();
        time.pass(static_cast<double>(stream.block) / static_cast<double>(stream.speed));
        current.data_length += stream.block;
        course.transfers.push_back({begins, time.now(), stream.block});
    }
    connector.disconnect_service();
    service() = {};
    return course;
}

double paced_course::moved_until(double time) const {
    const auto behind = std::partition_point(transfers.begin(), transfers.end(),
                                             [&](const transfer& t) { return t.ends <= time; });
    const auto whole = behind - transfers.begin();
    const auto block = static_cast<double>(stream_.block);
    const double part = behind == transfers.end() || behind->begins >= time
                            ? 0
                            : (time - behind->begins) / (behind->ends - behind->begins);
    return (static_cast<double>(whole) + part) * block;
}

uint64_t paced_course::allowed_at(double time) const {
    const time_t when = stream_.begins + static_cast<time_t>(std::floor(time));
    tm local = {};
    localtime_r(&when, &local);
    return allowed_rate(stream_.config, OPERATION_WRITE, local);
}

double paced_course::ratio(double from, double to) const {
    double allowed = 0;
    for (double at = from; at < to; ++at) {
        allowed += static_cast<double>(allowed_at(at)) * std::min(1.0, to - at);
    }
    return moved(from, to) / allowed;
}

double paced_course::most_ahead(double from, double to) const {
    const auto rate = static_cast<double>(allowed_at(from));
    double most = 0;
    double least_lead = moved_until(from) / rate - from; // so far
    for (const transfer& each : transfers) {
        if (each.begins >= from && each.ends <= to) {
            least_lead = std::min(least_lead, moved_until(each.begins) / rate - each.begins);
            most = std::max(most, moved_until(each.ends) / rate - each.ends - least_lead);
        }
    }
    return most;
}

double paced_course::busiest_second(double from, double to) const {
    double most = 0;
    for (const transfer& each : transfers) {
        if (each.begins >= from && each.begins + 1 <= to) {
            most = std::max(most, moved(each.begins, each.begins + 1) /
                                      static_cast<double>(allowed_at(each.begins)));
        }
    }
    return most;
}

double paced_course::longest_pause(double from, double to) const {
    double longest = 0;
    for (size_t next = 1; next < transfers.size(); ++next) {
        const double begins = transfers[next - 1].ends;
        const double ends = transfers[next].begins;
        if (ends > from && begins < to) {
            longest = std::max(longest, ends - begins);
        }
    }
    return longest;
}
