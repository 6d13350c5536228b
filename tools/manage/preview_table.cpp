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

std::string cell(const throttling_config_s& config, operation_type_t direction, int day, int hour) {
    tm when = {};
    when.tm_wday = day;
    when.tm_hour = hour;
    return rate_text(static_cast<double>(allowed_rate(config, direction, when)));
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
