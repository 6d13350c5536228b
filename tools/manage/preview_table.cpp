#include "tools/manage/preview_table.h"

#include "config/settings.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/sizes.h"

#include <array>
#include <cstring>
#include <ctime>
#include <fmt/format.h>

namespace {

constexpr int hours_of_a_day = 24;
constexpr std::array<const char*, 7> day_names = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                  "Thursday", "Friday", "Saturday"};
constexpr std::array<int, 7> from_monday = {1, 2, 3, 4, 5, 6, 0};

/// The readers' warnings name the setting; the file is the one that is previewed.
void print_warning(const char* /*session_id*/, const char* message,
                   sts_severity_v7_t /*severity*/) {
    const char* const behind_name = strchr(message, ']');
    std::string text = behind_name != nullptr ? behind_name + 1 : message;
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    fmt::print(stderr, "{}: {}\n", plugin_config_path, text);
}

throttling_config_s read_settings() {
    sts_session_def_v7_t session = {};
    session.log = print_warning;
    session.log_mask = STS_LOG_WARN;
    throttling_config_s config;
    config_set_path(nullptr);
    read_config_file_to_var(&session, &config, plugin_config_path);
    return config;
}

std::string cell(const throttling_config_s& config, operation_type_t direction, int day, int hour) {
    tm when = {};
    when.tm_wday = day;
    when.tm_hour = hour;
    return rate_text(static_cast<double>(allowed_rate(config, direction, when)));
}

/// At a rate of 0 the plugin ends the process, which nobody should have to find out.
bool allows_nothing_somewhen(const throttling_config_s& config, operation_type_t direction) {
    for (const int day : from_monday) {
        for (int hour = 0; hour < hours_of_a_day; ++hour) {
            tm when = {};
            when.tm_wday = day;
            when.tm_hour = hour;
            if (allowed_rate(config, direction, when) == 0) {
                return true;
            }
        }
    }
    return false;
}

} // namespace

std::string preview_table(const throttling_config_s& config, operation_type_t direction,
                          const tm& now, bool week) {
    constexpr int width = 13;
    std::string text = fmt::format("{:<7}", direction == OPERATION_READ ? "reads" : "writes");
    const auto is_shown = [&](int day) { return week || day == now.tm_wday; };
    for (const int day : from_monday) {
        if (is_shown(day)) {
            text += fmt::format("{:>{}} ", day_names.at(static_cast<size_t>(day)), width);
        }
    }
    text += "\n";
    for (int hour = 0; hour < hours_of_a_day; ++hour) {
        text += fmt::format("{:02}:00  ", hour);
        for (const int day : from_monday) {
            if (is_shown(day)) {
                const bool is_now = day == now.tm_wday && hour == now.tm_hour;
                text += fmt::format("{:>{}}{}", cell(config, direction, day, hour), width,
                                    is_now ? "*" : " ");
            }
        }
        text += "\n";
    }
    return text;
}

int run_preview(const preview_options& options) {
    const throttling_config_s config = read_settings();
    const time_t seconds = time(nullptr);
    tm now = {};
    localtime_r(&seconds, &now);
    fmt::print("Settings: {}\n", plugin_config_path);
    if (config.sample_interval == 0) {
        fmt::print("Throttling is off (THR:SAMPLE_INTERVAL is 0): all moves as fast as it can. "
                   "Turned on, it would allow:\n");
    } else {
        fmt::print("Throttling is on; the service is told every {} s. Allowed to all connections "
                   "of a storage together, * is now:\n",
                   config.sample_interval);
    }
    for (const operation_type_t direction : {OPERATION_READ, OPERATION_WRITE}) {
        if (options.direction && *options.direction != direction) {
            continue;
        }
        fmt::print("\n{}", preview_table(config, direction, now, options.week));
        if (allows_nothing_somewhen(config, direction)) {
            fmt::print("At 0 B/s the plugin ends the process that transfers.\n");
        }
    }
    return EXIT_DONE;
}
