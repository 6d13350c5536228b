#include "tools/manage/preview_time.h"

#include "tools/terminal/sizes.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

namespace {

constexpr time_t hour = 3600;
constexpr time_t day = 24 * hour;

/// `text` as strptime reads it, whole, over `known`.
std::optional<tm> parsed(const std::string& text, const char* format, tm known) {
    const char* const end = strptime(text.c_str(), format, &known);
    return end != nullptr && *end == '\0' ? std::optional(known) : std::nullopt;
}

/// None for a day that no month has.
std::optional<time_t> time_of(tm local) {
    const tm asked = local;
    local.tm_isdst = -1;
    const time_t when = mktime(&local);
    return when != -1 && local.tm_mday == asked.tm_mday && local.tm_mon == asked.tm_mon
               ? std::optional(when)
               : std::nullopt;
}

std::optional<time_t> time_from_now(const std::string& text, time_t now) {
    char unit = '\0';
    char rest = '\0';
    unsigned count = 0;
    if (sscanf(text.c_str(), "+%5u%c%c", &count, &unit, &rest) != 2 || text[1] < '0' ||
        text[1] > '9') {
        return {};
    }
    switch (unit) {
    case 'm':
        return now + static_cast<time_t>(count) * 60;
    case 'h':
        return now + static_cast<time_t>(count) * hour;
    case 'd':
        return now + static_cast<time_t>(count) * day;
    default:
        return {};
    }
}

} // namespace

std::optional<time_t> time_named(const std::string& text, time_t now) {
    if (text == "now") {
        return now;
    }
    if (!text.empty() && text[0] == '+') {
        return time_from_now(text, now);
    }
    for (const char* const format : {"%Y-%m-%d %H:%M", "%Y-%m-%d %H:%M:%S"}) {
        if (const auto local = parsed(text, format, tm{})) {
            return time_of(*local);
        }
    }
    tm today = local_time(now);
    today.tm_sec = 0;
    if (auto local = parsed(text, "%a %H:%M", today)) {
        const int ahead = (local->tm_wday - local_time(now).tm_wday + 7) % 7;
        for (const int days : {ahead, ahead + 7}) {
            tm then = today;
            then.tm_hour = local->tm_hour;
            then.tm_min = local->tm_min;
            then.tm_mday += days;
            then.tm_isdst = -1;
            const time_t when = mktime(&then);
            if (when >= now) {
                return when;
            }
        }
    }
    return {};
}

std::string no_time_text(const std::string& option, const std::string& text) {
    return fmt::format("{}: \"{}\" names no time; these do: now, +2h, \"Sat 03:00\", "
                       "\"2026-11-28 03:00\"",
                       option, text);
}

std::optional<time_t> next_change(const throttling_config_s& config,
                                  const std::vector<operation_type_t>& directions, time_t start) {
    const tm first = local_time(start);
    for (time_t when = start; when <= start + 7 * day;) {
        const tm local = local_time(when);
        when += hour - local.tm_min * 60 - local.tm_sec;
        const tm then = local_time(when);
        if (std::any_of(directions.begin(), directions.end(), [&](operation_type_t direction) {
                return allowed_rate(config, direction, first) !=
                       allowed_rate(config, direction, then);
            })) {
            return when;
        }
    }
    return {};
}

std::string day_and_time(time_t when) {
    const tm local = local_time(when);
    char text[64];
    strftime(text, sizeof text, "%A %Y-%m-%d %H:%M", &local);
    return text;
}
