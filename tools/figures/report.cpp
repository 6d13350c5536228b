#include "tools/figures/report.h"

#include "tools/terminal/sizes.h"
#include "tools/terminal/tables.h"

#include <algorithm>
#include <fmt/format.h>

namespace {

figures reckoned(std::string name, uint64_t bytes, double seconds, std::optional<double> allowed,
                 uint64_t slept) {
    figures all;
    all.name = std::move(name);
    all.bytes = bytes;
    all.seconds = seconds;
    all.rate = seconds > 0 ? static_cast<double>(bytes) / seconds : 0;
    all.allowed_rate = allowed;
    if (allowed && *allowed > 0) {
        all.ratio = all.rate / *allowed;
    }
    all.slept_seconds = slept;
    return all;
}

std::string row_text(size_t name_width, const figures& row) {
    return fmt::format("{:<{}} {:>12} {:>9.1f} {:>14} {:>14} {:>6} {:>7}\n", row.name, name_width,
                       size_text(static_cast<double>(row.bytes)), row.seconds, rate_text(row.rate),
                       rate_text(row.allowed_rate),
                       row.ratio ? fmt::format("{:.2f}", *row.ratio) : "-",
                       fmt::format("{} s", row.slept_seconds));
}

template <typename Number>
ordered_json optional_number(const std::optional<Number>& number) {
    return number ? ordered_json(*number) : ordered_json(nullptr);
}

ordered_json json_of(const figures& row, bool is_named) {
    ordered_json object = ordered_json::object();
    if (is_named) {
        object["name"] = row.name;
    }
    object["bytes"] = row.bytes;
    object["seconds"] = row.seconds;
    object["rate"] = row.rate;
    object["allowed_rate"] = optional_number(row.allowed_rate);
    object["ratio"] = optional_number(row.ratio);
    object["slept_seconds"] = row.slept_seconds;
    return object;
}

ordered_json json_of(const std::vector<sample>& samples) {
    ordered_json list = ordered_json::array();
    for (size_t index = 1; index < samples.size(); ++index) {
        ordered_json bytes = ordered_json::array();
        for (size_t stream = 0; stream < samples[index].bytes.size(); ++stream) {
            bytes.push_back(samples[index].bytes[stream] - samples[index - 1].bytes[stream]);
        }
        list.push_back({{"time", samples[index].time},
                        {"bytes", bytes},
                        {"allowed_rate", optional_number(samples[index].allowed)}});
    }
    return list;
}

} // namespace

std::optional<double> mean_allowed(const std::vector<sample>& samples) {
    if (samples.empty()) {
        return {};
    }
    double sum = 0;
    double weight = 0;
    for (size_t index = 0; index < samples.size(); ++index) {
        if (!samples[index].allowed) {
            return {};
        }
        // A rate holds from its sample to the next; the last one has no time of its own.
        const double seconds =
            index + 1 < samples.size() ? samples[index + 1].time - samples[index].time : 0;
        sum += static_cast<double>(*samples[index].allowed) * seconds;
        weight += seconds;
    }
    return weight > 0 ? sum / weight : static_cast<double>(*samples.front().allowed);
}

run_figures figures_of(const run_course& run) {
    const std::optional<double> allowed = mean_allowed(run.samples());
    run_figures all;
    uint64_t bytes = 0;
    uint64_t slept = 0;
    for (const auto& each : run.streams()) {
        std::optional<double> share;
        if (allowed) {
            share = *allowed / static_cast<double>(run.streams().size());
        }
        all.streams.push_back(reckoned(each->name, each->bytes, each->seconds, share, each->slept));
        bytes += each->bytes;
        slept += each->slept;
    }
    all.total = reckoned("total", bytes, run.seconds(), allowed, slept);
    return all;
}

std::string table_text(const run_figures& run) {
    size_t width = run.total.name.size();
    for (const figures& row : run.streams) {
        width = std::max(width, row.name.size());
    }
    std::string text = fmt::format("{:<{}} {:>12} {:>9} {:>14} {:>14} {:>6} {:>7}\n", "stream",
                                   width, "bytes", "seconds", "rate", "allowed", "ratio", "slept");
    for (const figures& row : run.streams) {
        text += row_text(width, row);
    }
    return text + row_text(width, run.total);
}

std::string json_text(const run_subject& asked, const run_course& run, const std::string& outcome) {
    const run_figures all = figures_of(run);
    ordered_json streams = ordered_json::array();
    for (const figures& row : all.streams) {
        streams.push_back(json_of(row, true));
    }
    const ordered_json whole = {{"operation", run.operation()},
                                {"server", asked.server},
                                {"lsu", asked.lsu},
                                {"backup", asked.backup},
                                {"outcome", outcome},
                                {"began", static_cast<int64_t>(run.began_at())},
                                {"block", asked.block},
                                {"streams", streams},
                                {"total", json_of(all.total, false)},
                                {"samples", json_of(run.samples())}};
    return dumped(whole, 2) + "\n";
}
