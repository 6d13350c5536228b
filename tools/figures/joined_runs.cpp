#include "tools/figures/joined_runs.h"

#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

using nlohmann::json;

// --- one run -----------------------------------------------------------------------------------

uint64_t recorded_run::bytes_at(double time) const {
    const double since = time - began;
    const auto behind = std::find_if(moments.begin(), moments.end(),
                                     [&](const moment& m) { return m.time > since; });
    if (behind == moments.begin()) {
        return 0;
    }
    if (behind == moments.end()) {
        return moments.back().bytes;
    }
    const moment& before = *std::prev(behind);
    const double part = (since - before.time) / (behind->time - before.time);
    return before.bytes +
           static_cast<uint64_t>(part * static_cast<double>(behind->bytes - before.bytes));
}

bool recorded_run::is_running_at(double time) const {
    return time >= began && time < began + moments.back().time;
}

std::optional<uint64_t> recorded_run::allowed_at(double time) const {
    const double since = time - began;
    const auto behind = std::find_if(std::next(moments.begin()), moments.end(),
                                     [&](const moment& m) { return m.time > since; });
    return std::prev(behind)->allowed;
}

namespace {

/// A whole number of bytes, which isn't below 0.
uint64_t bytes_of(const char* key, const json& value) {
    if (!value.is_number_unsigned()) {
        throw failure(fmt::format("its \"{}\" {} isn't a whole number from 0", key, value.dump()));
    }
    return value.get<uint64_t>();
}

/// A sample tells of the second before it, and of the rate that is allowed from then on.
recorded_run run_of(const json& figures) {
    recorded_run run;
    run.name = figures.at("backup").get<std::string>();
    run.began = figures.at("began").get<double>();
    run.moments.push_back({});
    for (const json& sample : figures.at("samples")) {
        recorded_run::moment moment;
        moment.time = sample.at("time").get<double>();
        moment.bytes = run.moments.back().bytes;
        for (const json& stream : sample.at("bytes").get_ref<const json::array_t&>()) {
            moment.bytes += bytes_of("bytes", stream);
        }
        if (const json& rate = sample.at("allowed_rate"); !rate.is_null()) {
            moment.allowed = bytes_of("allowed_rate", rate);
        }
        if (!std::isfinite(run.began + moment.time)) {
            throw failure(fmt::format("its \"time\" {} is beyond any time", moment.time));
        }
        if (moment.time <= run.moments.back().time) {
            throw failure(fmt::format("the sample of second {} isn't in order", moment.time));
        }
        run.moments.push_back(moment);
    }
    if (run.moments.size() == 1) {
        throw failure("it has no samples");
    }
    run.moments.front().allowed = run.moments[1].allowed;
    return run;
}

} // namespace

recorded_run read_run(const std::string& file, const std::string& text) {
    try {
        return run_of(json::parse(text));
    } catch (const json::exception& error) {
        const std::string reason = error.what();
        const size_t code_end = reason.find("] "); // "[json.exception.NAME.101] ..."
        throw failure(fmt::format(
            "{} doesn't hold the figures of a run: {}", file,
            printable(reason.substr(code_end != std::string::npos ? code_end + 2 : 0))));
    } catch (const failure& error) {
        throw failure(fmt::format("{} doesn't hold the figures of a run: {}", file, error.what()));
    }
}

// --- all of them -------------------------------------------------------------------------------

plot_data joined(const std::string& title, const std::vector<recorded_run>& runs) {
    plot_data data;
    data.title = title;
    std::vector<double> times;
    for (const recorded_run& run : runs) {
        data.streams.push_back(run.name);
        for (const recorded_run::moment& each : run.moments) {
            times.push_back(run.began + each.time);
        }
    }
    std::sort(times.begin(), times.end());
    times.erase(std::unique(times.begin(), times.end()), times.end());
    for (const double time : times) {
        sample at;
        at.time = time - times.front();
        bool is_limited = true;
        uint64_t allowed = 0;
        for (const recorded_run& run : runs) {
            at.bytes.push_back(run.bytes_at(time));
            if (run.is_running_at(time)) {
                is_limited = is_limited && run.allowed_at(time).has_value();
                allowed += run.allowed_at(time).value_or(0);
            }
        }
        if (is_limited && allowed > 0) {
            at.allowed = allowed;
        }
        data.samples.push_back(at);
    }
    if (data.samples.size() > 1) { // the end has no time of its own
        data.samples.back().allowed = data.samples[data.samples.size() - 2].allowed;
    }
    return data;
}
