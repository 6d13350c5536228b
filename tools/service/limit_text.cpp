#include "tools/service/limit_text.h"

#include "common/whole_number.h"
#include "config/settings_check.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"
#include "tools/terminal/sizes.h"

#include <charconv>
#include <fmt/format.h>
#include <vector>

namespace {

struct duration_unit {
    const char* name;
    char letter;
    int64_t seconds;
};
constexpr duration_unit duration_units[] = {
    {"d", 'd', 86400}, {"h", 'h', 3600}, {"min", 'm', 60}, {"s", 's', 1}};
constexpr int64_t longest_days = 3660;

std::string whom(const ordered_json& limited) {
    return limited.contains("storage")
               ? fmt::format("storage \"{}\"", printable(limited["storage"].get<std::string>()))
               : "all storages of the host";
}

std::string value_text(const std::string& name, uint64_t value) {
    if (name == "connections") {
        return std::to_string(value);
    }
    return value == 0 ? "paused" : rate_text(static_cast<double>(value));
}

/// "5.0 MiB/s for 2 h 0 min"; "-" where there is none.
std::string limit_in_short(const std::string& name, const ordered_json& limit) {
    if (limit.is_null()) {
        return "-";
    }
    const ordered_json& left = limit.at("seconds_left");
    return value_text(name, whole_number<uint64_t>(limit.at("value"))) +
           (left.is_null() ? "" : " for " + duration_text(whole_number<int64_t>(left)));
}

/// What the settings of the clients make of a rate that was asked for; empty: it is met.
std::string note_on(const std::string& name, const ordered_json& answer,
                    const ordered_json& asked) {
    const ordered_json& allowed = answer.at("settings_allow");
    if (!asked.contains(name) || !allowed.contains(name) ||
        whole_number<uint64_t>(asked[name]) < whole_number<uint64_t>(allowed[name])) {
        return "";
    }
    return fmt::format("{}: the settings allow {} now: nothing changes while they do\n", name,
                       rate_text(allowed[name].get<double>()));
}

[[noreturn]] void fail(const std::exception& error) {
    throw failure(std::string("what the service answered isn't understood: ") + error.what());
}

} // namespace

uint64_t rate_in(const std::string& option, const std::string& text) {
    const uint64_t rate = size_in(text);
    if (rate == 0 && text != "0") {
        throw usage_failure(fmt::format("{}: \"{}\" is no rate; these are: 50M, 1.5G/s, 104857600 "
                                        "(bytes a second), and 0, which pauses",
                                        option, printable(text)));
    }
    return rate;
}

int64_t duration_in(const std::string& option, const std::string& text) {
    int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [behind, error] = std::from_chars(text.data(), end, number);
    const std::string letter(behind, end);
    for (const duration_unit& unit : duration_units) {
        const bool is_it =
            letter.empty() ? unit.seconds == 1 : letter == std::string(1, unit.letter);
        if (error == std::errc() && is_it && number > 0 &&
            number <= longest_days * 86400 / unit.seconds) {
            return number * unit.seconds;
        }
    }
    throw usage_failure(fmt::format("{}: \"{}\" is no duration from 1 s to {} days; these are: 90, "
                                    "30m, 2h, 1d",
                                    option, printable(text), longest_days));
}

std::string duration_text(int64_t seconds) {
    for (size_t each = 0; each + 1 < std::size(duration_units); ++each) {
        const duration_unit& unit = duration_units[each];
        const duration_unit& next = duration_units[each + 1];
        if (seconds >= unit.seconds) {
            return fmt::format("{} {} {} {}", seconds / unit.seconds, unit.name,
                               seconds % unit.seconds / next.seconds, next.name);
        }
    }
    return fmt::format("{} s", seconds);
}

std::string limit_text(const ordered_json& answer, const ordered_json& asked) {
    try {
        std::string text = whom(answer) + ":";
        const char* separator = " ";
        for (const char* name : {"read", "write", "connections"}) {
            if (!answer.at(name).is_null()) {
                text +=
                    fmt::format("{}{} {}", separator, name, limit_in_short(name, answer.at(name)));
                separator = ", ";
            }
        }
        text += "\n" + note_on("read", answer, asked) + note_on("write", answer, asked);
        if (!answer.at("is_known").get<bool>()) {
            text += "No client has named this storage yet; the limit holds when one does\n";
        } else if (answer.at("sample_interval") == 0) {
            text += "Its settings have throttling off (THR:SAMPLE_INTERVAL is 0): rates change "
                    "nothing until it is on\n";
        }
        return text;
    } catch (const std::exception& error) {
        fail(error);
    }
}

std::string limits_table(const ordered_json& limits) {
    try {
        std::vector<std::vector<std::string>> lines;
        for (const ordered_json& each : limits.at("limits")) {
            std::vector<std::string> line = {whom(each)};
            for (const char* name : {"read", "write", "connections"}) {
                line.push_back(limit_in_short(name, each.at(name)));
            }
            lines.push_back(line);
        }
        return lines.empty() ? ""
                             : columns_text({"limited", "read", "write", "connections"}, lines);
    } catch (const std::exception& error) {
        fail(error);
    }
}
