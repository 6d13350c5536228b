#include "tools/manage/preview_table.h"

#include "tools/terminal/sizes.h"

#include <array>
#include <ctime>
#include <fmt/format.h>

namespace {

constexpr int hours_of_a_day = 24;
constexpr std::array<const char*, 7> day_names = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                  "Thursday", "Friday", "Saturday"};
constexpr std::array<int, 7> from_monday = {1, 2, 3, 4, 5, 6, 0};

tm hour_of(int day, int hour) {
    tm when = {};
    when.tm_wday = day;
    when.tm_hour = hour;
    return when;
}

std::string cell(const throttling_config_s& config, operation_type_t direction, int day, int hour) {
    return rate_text(static_cast<double>(allowed_rate(config, direction, hour_of(day, hour))));
}

/// The first hour behind `hour` of that day that differs from it.
int end_of_equal(const throttling_config_s& config, int day, int hour) {
    const auto are_equal = [&](const tm& one, const tm& other) {
        return window_at(config, one) == window_at(config, other) &&
               allowed_rate(config, OPERATION_READ, one) ==
                   allowed_rate(config, OPERATION_READ, other) &&
               allowed_rate(config, OPERATION_WRITE, one) ==
                   allowed_rate(config, OPERATION_WRITE, other);
    };
    int end = hour + 1;
    while (end < hours_of_a_day && are_equal(hour_of(day, hour), hour_of(day, end))) {
        ++end;
    }
    return end;
}

std::string day_table(const throttling_config_s& config, operation_type_t direction,
                      const tm& now) {
    std::string text = fmt::format("{:<7} {}\n", direction == OPERATION_READ ? "reads" : "writes",
                                   day_names.at(static_cast<size_t>(now.tm_wday)));
    for (int hour = 0; hour < hours_of_a_day;) {
        const int end = end_of_equal(config, now.tm_wday, hour);
        text += fmt::format("{:02}:00-{:02}:00  {:>13}{}  {}\n", hour, end,
                            cell(config, direction, now.tm_wday, hour),
                            hour <= now.tm_hour && now.tm_hour < end ? "*" : " ",
                            window_name(window_at(config, hour_of(now.tm_wday, hour))));
        hour = end;
    }
    return text;
}

} // namespace

std::string preview_table(const throttling_config_s& config, operation_type_t direction,
                          const tm& now, bool week) {
    if (!week) {
        return day_table(config, direction, now);
    }
    constexpr int width = 13;
    std::string text = fmt::format("{:<7}", direction == OPERATION_READ ? "reads" : "writes");
    for (const int day : from_monday) {
        text += fmt::format("{:>{}} ", day_names.at(static_cast<size_t>(day)), width);
    }
    text += "\n";
    for (int hour = 0; hour < hours_of_a_day; ++hour) {
        text += fmt::format("{:02}:00  ", hour);
        for (const int day : from_monday) {
            const bool is_now = day == now.tm_wday && hour == now.tm_hour;
            text += fmt::format("{:>{}}{}", cell(config, direction, day, hour), width,
                                is_now ? "*" : " ");
        }
        text += "\n";
    }
    return text;
}

ordered_json preview_json(const throttling_config_s& config, const tm& now, bool week) {
    ordered_json all = ordered_json::array();
    for (const int day : from_monday) {
        for (int hour = 0; (week || day == now.tm_wday) && hour < hours_of_a_day;) {
            const tm when = hour_of(day, hour);
            const int end = end_of_equal(config, day, hour);
            all.push_back({{"day", day_names.at(static_cast<size_t>(day))},
                           {"from", hour},
                           {"to", end},
                           {"window", window_name(window_at(config, when))},
                           {"read", allowed_rate(config, OPERATION_READ, when)},
                           {"write", allowed_rate(config, OPERATION_WRITE, when)}});
            hour = end;
        }
    }
    return all;
}

const char* window_name(pacing_window window) {
    switch (window) {
    case pacing_window::work_time:
        return "work time";
    case pacing_window::off_time:
        return "off time";
    case pacing_window::weekend:
        return "weekend";
    case pacing_window::none:
        break;
    }
    return "no window";
}

bool allows_nothing_somewhen(const throttling_config_s& config, operation_type_t direction) {
    for (const int day : from_monday) {
        for (int hour = 0; hour < hours_of_a_day; ++hour) {
            if (allowed_rate(config, direction, hour_of(day, hour)) == 0) {
                return true;
            }
        }
    }
    return false;
}
