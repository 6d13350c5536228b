#include "tools/manage/explanation.h"

#include "tools/host/sharing_notice.h"
#include "tools/manage/preview_table.h"
#include "tools/manage/preview_time.h"
#include "tools/terminal/printable.h"
#include "tools/terminal/sizes.h"

#include <algorithm>
#include <fmt/format.h>

namespace {

std::string rate_in_words(uint64_t rate) { return rate_text(static_cast<double>(rate)); }

/// What the plugin goes by for that server: the file's settings, or the defaults.
throttling_config_s effective(const pacing_facts& facts) {
    return is_paced_by_defaults(facts.server) ? throttling_config_s() : facts.config;
}

const char* plural_of(operation_type_t direction) {
    return direction == OPERATION_READ ? "reads" : "writes";
}

/// What the settings allow at a time.
struct allowed_then {
    allowed_then(const pacing_facts& facts, time_t when)
        : window(window_at(effective(facts), local_time(when))),
          percent(percent_of_window(effective(facts), window)),
          rate(allowed_rate(effective(facts), facts.direction, local_time(when))) {}
    pacing_window window;
    int32_t percent;
    uint64_t rate;
};

std::string file_text(const pacing_facts& facts) {
    const std::string file = printable(facts.file);
    if (facts.config.sample_interval == 0) {
        return fmt::format("{}: throttling is off (THR:SAMPLE_INTERVAL is 0)", file);
    }
    return fmt::format("{}: throttling is on, a sample lasts {} s", file,
                       facts.config.sample_interval);
}

/// The hours of a window, as the plugin has mended them.
std::string hours_text(const throttling_config_s& config, pacing_window window) {
    switch (window) {
    case pacing_window::work_time:
        return fmt::format(", {:02}:00 to {:02}:00", config.work_time_start, config.work_time_end);
    case pacing_window::off_time:
        return fmt::format(", {:02}:00 to {:02}:00", config.off_time_start, config.off_time_end);
    default:
        return "";
    }
}

const char* window_key(pacing_window window) {
    switch (window) {
    case pacing_window::work_time:
        return "THR:WORK_TIME_BANDWIDTH_PERCENT";
    case pacing_window::off_time:
        return "THR:OFF_TIME_BANDWIDTH_PERCENT";
    case pacing_window::weekend:
        return "THR:WEEKEND_BANDWIDTH_PERCENT";
    case pacing_window::none:
        break;
    }
    return "no key";
}

std::string next_text(const pacing_facts& facts) {
    const std::optional<time_t> change =
        next_change(effective(facts), {facts.direction}, facts.when);
    if (!change) {
        return "nothing else within a week";
    }
    const allowed_then then(facts, *change);
    return fmt::format("{}: {}, {}", day_and_time(*change), window_name(then.window),
                       rate_in_words(then.rate));
}

// --- the service -------------------------------------------------------------------------------

bool is_asked(const pacing_facts& facts) {
    return facts.places.has_value() && !is_paced_by_defaults(facts.server);
}

const service_sharing* sharing_of(const pacing_facts& facts) {
    return facts.status && facts.status->sharing ? &*facts.status->sharing : nullptr;
}

std::string service_text(const pacing_facts& facts) {
    if (is_paced_by_defaults(facts.server)) {
        return "none is asked: a server of the type \"global\" or without a name is paced by each "
               "process alone";
    }
    if (const service_place* const found = answering(*facts.places)) {
        return "answers on " + found->address;
    }
    return no_service_text(*facts.places) + ": each process is paced alone";
}

std::string sharing_text(const pacing_facts& facts) {
    if (!facts.status->trouble.empty()) {
        return fmt::format("not known: {}: {}", facts.status->url, facts.status->trouble);
    }
    const service_sharing* const sharing = sharing_of(facts);
    if (sharing == nullptr) {
        return "nobody: the service doesn't know the storage yet";
    }
    return fmt::format("{} {} now, which move {}; {} of {} connections are taken", sharing->flows,
                       sharing->flows == 1 ? "flow" : "flows", rate_in_words(sharing->measured),
                       sharing->connections, sharing->limit);
}

/// What the service allows where that is less than the settings do; none: it isn't.
std::optional<uint64_t> limit_of(const pacing_facts& facts) {
    const service_sharing* const sharing = sharing_of(facts);
    const bool is_less =
        sharing != nullptr && sharing->allowed < allowed_then(facts, facts.when).rate;
    return is_less ? std::optional(sharing->allowed) : std::nullopt;
}

std::string limit_text(uint64_t limit) {
    constexpr const char* where = "throttlectl service status tells of limits";
    return limit == 0
               ? fmt::format("nothing for now, data waits: {}", where)
               : fmt::format("{} to all together by the service: {}", rate_in_words(limit), where);
}

/// The least that one more flow is allowed: an even part.
uint64_t level_of(const pacing_facts& facts) {
    const service_sharing* const sharing = sharing_of(facts);
    const uint64_t others = sharing != nullptr ? sharing->flows : 0;
    return limit_of(facts).value_or(allowed_then(facts, facts.when).rate) / (others + 1);
}

} // namespace

std::string storage_of(const std::string& server) {
    const size_t colon = server.rfind(':');
    return colon == std::string::npos ? server : server.substr(colon + 1);
}

std::vector<pacing_link> explanation(const pacing_facts& facts) {
    const throttling_config_s config = effective(facts);
    const allowed_then now(facts, facts.when);
    std::vector<pacing_link> chain = {
        {"server", fmt::format("{}: the storage \"{}\", {}", printable(facts.server),
                               printable(storage_of(facts.server)), plural_of(facts.direction))},
        {"at", day_and_time(facts.when)},
        {"file", file_text(facts)}};
    if (facts.config.sample_interval == 0) {
        chain.push_back({"allowed", "as much as it can"});
        return chain;
    }
    if (is_paced_by_defaults(facts.server)) {
        chain.push_back({"settings", "the defaults: the file's aren't for this server"});
    }
    chain.push_back({"bandwidth", fmt::format("{} (THR:AVAIL_BANDWIDTH)",
                                              rate_in_words(config.avail_bandwidth))});
    chain.push_back(
        {"direction", fmt::format("{} % (THR:{}_BANDWIDTH_PERCENT)",
                                  percent_of_direction(config, facts.direction),
                                  facts.direction == OPERATION_READ ? "READ" : "WRITE")});
    chain.push_back({"window", fmt::format("{}{}: {} % ({})", window_name(now.window),
                                           hours_text(config, now.window), now.percent,
                                           window_key(now.window))});
    chain.push_back(
        {"allowed", now.rate == 0
                        ? "nothing: the plugin ends the process that transfers"
                        : fmt::format("{} to all connections together", rate_in_words(now.rate))});
    if (facts.places) {
        chain.push_back({"service", service_text(facts)});
        if (facts.status) {
            chain.push_back({"sharing", sharing_text(facts)});
        }
        if (const std::optional<uint64_t> limit = limit_of(facts)) {
            chain.push_back({"limit", limit_text(*limit)});
        }
        chain.push_back({"level", fmt::format("{} at least to one more that wants all",
                                              rate_in_words(level_of(facts)))});
    }
    chain.push_back({"next", next_text(facts)});
    return chain;
}

ordered_json explanation_json(const pacing_facts& facts) {
    const throttling_config_s config = effective(facts);
    const allowed_then now(facts, facts.when);
    const bool is_on = facts.config.sample_interval != 0;
    ordered_json all = {{"server", facts.server},
                        {"storage", storage_of(facts.server)},
                        {"direction", facts.direction == OPERATION_READ ? "read" : "write"},
                        {"at", facts.when},
                        {"file", facts.file},
                        {"sample_interval", facts.config.sample_interval},
                        {"by_defaults", is_paced_by_defaults(facts.server)},
                        {"bandwidth", config.avail_bandwidth},
                        {"direction_percent", percent_of_direction(config, facts.direction)},
                        {"window", window_name(now.window)},
                        {"window_percent", now.percent},
                        {"allowed", is_on ? ordered_json(now.rate) : ordered_json()},
                        {"service", ordered_json()},
                        {"sharing", ordered_json()},
                        {"level", ordered_json()},
                        {"next", ordered_json()}};
    if (is_on && is_asked(facts)) {
        ordered_json looked_on = ordered_json::array();
        for (const service_place& each : *facts.places) {
            looked_on.push_back(each.address);
        }
        const service_place* const found = answering(*facts.places);
        all["service"] = {{"answers_on", found ? ordered_json(found->address) : ordered_json()},
                          {"looked_on", looked_on}};
    }
    if (const service_sharing* const sharing = sharing_of(facts); is_on && sharing != nullptr) {
        all["sharing"] = {{"flows", sharing->flows},
                          {"connections", sharing->connections},
                          {"limit", sharing->limit},
                          {"allowed", sharing->allowed},
                          {"measured", sharing->measured}};
    }
    if (is_on && facts.places) {
        all["level"] = level_of(facts);
    }
    const std::optional<time_t> change =
        is_on ? next_change(config, {facts.direction}, facts.when) : std::nullopt;
    if (change) {
        const allowed_then then(facts, *change);
        all["next"] = {
            {"at", *change}, {"window", window_name(then.window)}, {"allowed", then.rate}};
    }
    return all;
}
