#include "config/settings_check.h"

#include "config/allowed_rate.h"
#include "config/settings.h"
#include "config/settings_file.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <optional>
#include <string_view>

namespace {

constexpr off_t most_bytes = off_t{1024} * 1024;
constexpr size_t most_findings = 1000;
constexpr size_t longest_quote = 60;
constexpr size_t most_written = STS_CONFIG_SIZE - 1; ///< bytes of the file when it is rewritten
constexpr size_t near_most_written = most_written * 8 / 10;
constexpr int32_t long_interval = 60; ///< seconds
constexpr int last_day = 6;           ///< Saturday, as tm_wday
constexpr const char* blanks = " \t\v\f";

std::string in_short(std::string_view text) {
    return text.size() <= longest_quote ? std::string(text)
                                        : std::string(text.substr(0, longest_quote)) + "...";
}

std::string quoted(std::string_view text) { return fmt::format("\"{}\"", in_short(text)); }

std::string_view without_blanks(std::string_view text) {
    const size_t first = std::min(text.find_first_not_of(blanks), text.size());
    text.remove_prefix(first);
    text.remove_suffix(text.size() - (text.find_last_not_of(blanks) + 1));
    return text;
}

bool is_whole_number(std::string_view text) {
    if (!text.empty() && (text[0] == '-' || text[0] == '+')) {
        text.remove_prefix(1);
    }
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

/// None beyond 64 bits.
std::optional<int64_t> number_in(std::string_view text) {
    if (!text.empty() && text[0] == '+') {
        text.remove_prefix(1);
    }
    int64_t number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() ? std::optional(number) : std::nullopt;
}

// --- keys that are near one --------------------------------------------------------------------

/// Letters to be put in, left out, replaced, or exchanged with their neighbour until one text is
/// the other; upper and lower case are the same.
size_t edit_distance(std::string_view one, std::string_view other) {
    const auto same = [](char a, char b) {
        return toupper(static_cast<unsigned char>(a)) == toupper(static_cast<unsigned char>(b));
    };
    std::vector<std::vector<size_t>> distance(one.size() + 1,
                                              std::vector<size_t>(other.size() + 1));
    for (size_t i = 0; i <= one.size(); ++i) {
        for (size_t j = 0; j <= other.size(); ++j) {
            size_t& here = distance[i][j];
            if (i == 0 || j == 0) {
                here = i + j;
                continue;
            }
            here = std::min({distance[i - 1][j] + 1, distance[i][j - 1] + 1,
                             distance[i - 1][j - 1] + (same(one[i - 1], other[j - 1]) ? 0 : 1)});
            if (i > 1 && j > 1 && same(one[i - 1], other[j - 2]) &&
                same(one[i - 2], other[j - 1])) {
                here = std::min(here, distance[i - 2][j - 2] + 1);
            }
        }
    }
    return distance[one.size()][other.size()];
}

/// The setting that somebody may have meant by `key`; null when none is near.
const setting* nearest(std::string_view key) {
    const auto bare = [](std::string_view name) {
        return name.substr(name.rfind(storage_prefix, 0) == 0 ? storage_prefix_length : 0);
    };
    const setting* found = nullptr;
    size_t least = 0;
    for (const setting& each : settings) {
        if (each.key == nullptr) {
            continue;
        }
        const std::string_view name = bare(each.key);
        const size_t most = std::max<size_t>(name.size() / 4, 1);
        if (bare(key).size() > name.size() + most + storage_prefix_length) {
            continue; // and isn't worth the time
        }
        const size_t distance =
            std::min(edit_distance(key, each.key), edit_distance(bare(key), name));
        if (distance <= most && (found == nullptr || distance < least)) {
            found = &each;
            least = distance;
        }
    }
    return found;
}

// --- the hours of a week -----------------------------------------------------------------------

/// Calls `visit` with each hour of a week from Monday on.
template <typename Visit>
void each_hour(Visit visit) {
    for (const int day : {1, 2, 3, 4, 5, 6, 0}) {
        for (int hour = 0; hour < 24; ++hour) {
            tm when = {};
            when.tm_wday = day;
            when.tm_hour = hour;
            visit(when);
        }
    }
}

const char* day_name(int day) {
    constexpr const char* names[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                     "Thursday", "Friday", "Saturday"};
    return names[day];
}

constexpr operation_type_t directions[] = {OPERATION_READ, OPERATION_WRITE};

/// The setting to blame for a rate of 0.
const char* zero_key(const throttling_config_s& config, operation_type_t direction,
                     pacing_window window) {
    if (percent_of_direction(config, direction) == 0) {
        return direction == OPERATION_READ ? "THR:READ_BANDWIDTH_PERCENT"
                                           : "THR:WRITE_BANDWIDTH_PERCENT";
    }
    if (percent_of_window(config, window) != 0) {
        return "THR:AVAIL_BANDWIDTH";
    }
    return window == pacing_window::work_time  ? "THR:WORK_TIME_BANDWIDTH_PERCENT"
           : window == pacing_window::off_time ? "THR:OFF_TIME_BANDWIDTH_PERCENT"
                                               : "THR:WEEKEND_BANDWIDTH_PERCENT";
}

// --- the check ---------------------------------------------------------------------------------

class checker {
  public:
    checker(FILE* file, checked_settings& found) : file_(file), found_(found) {}

    void run() {
        read_lines(nullptr, &found_.config, file_,
                   [this](const settings_piece& piece, const throttling_config_s& config) {
                       return hear(piece, config);
                   });
        if (ferror(file_) != 0) {
            error(0, "", fmt::format("can't be read: {}", strerror(errno)),
                  "the plugin takes what it has read before that, and writes nothing to it");
            found_.state = checked_settings::unreadable;
        }
        unmended_ = found_.config;
        repairs_ = mend_windows(found_.config);
        look_at_switch();
        look_at_windows();
        look_at_weekend();
        look_at_zero();
        look_at_overflow();
        look_at_size();
        put_in_order();
    }

  private:
    // --- what is found ---

    void add(finding_severity severity, int64_t line, std::string_view key, std::string wrong,
             std::string effect) {
        if (found_.findings.size() < most_findings - 1) {
            found_.findings.push_back(
                {severity, line, in_short(key), std::move(wrong), std::move(effect)});
            return;
        }
        ++left_out_;
        errors_left_out_ += severity == finding_severity::error ? 1 : 0;
    }
    void error(int64_t line, std::string_view key, std::string wrong, std::string effect) {
        add(finding_severity::error, line, key, std::move(wrong), std::move(effect));
    }
    void warning(int64_t line, std::string_view key, std::string wrong, std::string effect) {
        add(finding_severity::warning, line, key, std::move(wrong), std::move(effect));
    }

    void put_in_order() {
        const auto place = [](const settings_finding& each) {
            return each.line != 0 ? each.line : INT64_MAX;
        };
        std::stable_sort(found_.findings.begin(), found_.findings.end(),
                         [&](const settings_finding& one, const settings_finding& other) {
                             return place(one) < place(other);
                         });
        if (left_out_ != 0) {
            found_.findings.push_back(
                {errors_left_out_ != 0 ? finding_severity::error : finding_severity::warning, 0, "",
                 fmt::format("{} more like these, {} of them errors", left_out_, errors_left_out_),
                 "see to these first"});
        }
    }

    int64_t line_of(const std::string& key) const {
        const auto found = stored_at_.find(key);
        return found != stored_at_.end() ? found->second : 0;
    }

    // --- line by line ---

    bool hear(const settings_piece& piece, const throttling_config_s& config) {
        const off_t end = ftello(file_);
        const auto length = static_cast<size_t>(end - end_);
        end_ = end;
        const bool is_rest = is_within_line_;
        const bool is_ended = piece.value != nullptr || piece.text[length - 1] == '\n';
        is_within_line_ = !is_ended && !is_at_end();
        line_ += is_rest ? 0 : 1;
        if (is_within_line_ && !is_rest) {
            tell_too_long(piece);
        } else if (piece.value != nullptr) {
            tell_setting(piece.text, piece.value, piece.result, config);
        } else if (!is_within_line_ && !is_rest) {
            tell_no_setting(piece.text, length);
        }
        if (end < most_bytes || is_at_end()) {
            return true;
        }
        error(0, "",
              fmt::format("longer than {} bytes, {} of which the next rewrite keeps", most_bytes,
                          most_written),
              fmt::format("what stands behind line {} isn't looked at here", line_));
        return false;
    }

    bool is_at_end() {
        const int next = getc(file_);
        if (next != EOF) {
            ungetc(next, file_);
        }
        return next == EOF;
    }

    void tell_too_long(const settings_piece& piece) {
        const bool is_comment = piece.text[0] == '#';
        const std::string_view text = piece.text;
        const size_t sign = text.find('=');
        error(line_,
              is_comment || sign == std::string_view::npos ? std::string_view()
                                                           : text.substr(0, sign),
              fmt::format("longer than {} bytes", config_line_size - 1),
              is_comment ? "the plugin reads what stands behind them as lines of their own"
                         : "the plugin ignores those, and reads what stands behind them as lines "
                           "of their own");
    }

    void tell_no_setting(const std::string_view text, size_t length) {
        constexpr const char* effect = "the plugin ignores the line";
        if (text[0] == '#' || text.find_first_not_of(" \t\v\f\r\n") == std::string_view::npos) {
            if (text.size() == length) {
                return;
            }
        }
        if (text.empty() || text[0] != '#') {
            const size_t sign = text.find('=');
            const std::string_view key =
                sign != std::string_view::npos ? text.substr(0, sign) : std::string_view();
            if (text.size() != length) {
                error(line_, key, "holds a zero byte, which ends the line for the plugin", effect);
            } else if (sign == std::string_view::npos) {
                error(line_, "", fmt::format("no \"=\" in {}", quoted(text.substr(0, length - 1))),
                      effect);
            } else {
                error(line_, key, "no newline at the end", effect);
            }
        }
    }

    void tell_setting(const std::string_view key, std::string_view value, line_result result,
                      const throttling_config_s& config) {
        const setting* const known = find_key(std::string(key).c_str());
        const std::string effect = effect_of(key, known, result, config);
        if (!value.empty() && value.back() == '\r') {
            error(line_, key, "the line ends in CR LF", effect);
            value.remove_suffix(1);
        }
        if (without_blanks(key) != key) {
            error(line_, key, "blanks around the key", effect);
            return;
        }
        if (without_blanks(value) != value) {
            error(line_, key, "blanks around the value", effect);
            value = without_blanks(value);
        }
        if (known == nullptr) {
            tell_key(key, effect);
        }
        if (result == line_result::ignored) {
            return;
        }
        if (known != nullptr && known->kind == setting_kind::host) {
            tell_host(key, value, effect);
        } else {
            tell_number(key, value, known, effect);
        }
        if (known != nullptr && &throttling_config_s::cssc_port_number == known->value) {
            warning(line_, key, "belongs into cloudstore.conf", "the plugin doesn't heed it here");
        }
        tell_again(std::string(key), result);
    }

    static std::string effect_of(std::string_view key, const setting* known, line_result result,
                                 const throttling_config_s& config) {
        const auto value = [&] {
            switch (known->kind) {
            case setting_kind::number:
                return std::to_string(config.*known->value);
            case setting_kind::bandwidth:
                return std::to_string(config.avail_bandwidth);
            default:
                return quoted(config.cssc_host_name);
            }
        };
        switch (result) {
        case line_result::stored:
            return fmt::format("the plugin takes {}", value());
        case line_result::refused:
            return fmt::format("the plugin refuses it and goes on with {}", value());
        case line_result::ignored:
            return "the plugin ignores the line";
        default:
            break;
        }
        const std::string name(key.substr(storage_prefix_length));
        return fmt::format("the plugin takes it for a storage named {} with a limit of {}{}",
                           quoted(name), config.connections.at(name),
                           result == line_result::storage ? "" : ", the default");
    }

    /// Of a key that is no setting.
    void tell_key(std::string_view key, const std::string& effect) {
        if (key == "CSSC_IS_SECURE") {
            warning(line_, key, "belongs into cloudstore.conf", effect);
        } else if (const setting* const meant = nearest(key)) {
            warning(line_, key, fmt::format("no setting; did you mean {}?", meant->key), effect);
        } else if (key == storage_prefix) {
            warning(line_, key, "names no storage", effect);
        } else if (key.rfind(storage_prefix, 0) != 0) {
            warning(line_, key, "no setting", effect);
        }
    }

    void tell_host(std::string_view key, std::string_view value, const std::string& effect) {
        if (value.empty()) {
            error(line_, key, "no value", effect);
        } else if (value.size() >= STS_NAME_SIZE) {
            error(line_, key, fmt::format("longer than {} bytes", STS_NAME_SIZE - 1), effect);
        }
    }

    /// `known` is null for a storage's limit.
    void tell_number(std::string_view key, std::string_view value, const setting* known,
                     const std::string& effect) {
        const bool is_bandwidth = known != nullptr && known->kind == setting_kind::bandwidth;
        if (!is_whole_number(value)) {
            const uint64_t meant = is_bandwidth ? size_in(std::string(value)) : 0;
            error(line_, key,
                  value.empty()
                      ? "no value"
                      : fmt::format("{} isn't a whole number{}", quoted(value),
                                    meant != 0 ? fmt::format(" ({} would be)", meant) : ""),
                  effect);
            return;
        }
        const int64_t low = is_bandwidth || known == nullptr ? 1 : known->low;
        const int64_t high = is_bandwidth ? INT64_MAX : known != nullptr ? known->high : no_limit;
        const std::optional<int64_t> number = number_in(value);
        if (!number || *number < low || *number > high) {
            error(line_, key, fmt::format("{} isn't from {} to {}", in_short(value), low, high),
                  effect);
        }
    }

    void tell_again(const std::string& key, line_result result) {
        const bool is_refused = result == line_result::refused;
        const auto [said, is_first] = said_at_.emplace(key, line_);
        if (!is_first) {
            warning(line_, key, fmt::format("said before in line {}", said->second),
                    is_refused ? "what the plugin took before stays"
                               : "the plugin takes the last one");
            said->second = line_;
        }
        if (!is_refused) {
            stored_at_[key] = line_;
        }
    }

    // --- as a whole ---

    bool is_off() const { return found_.config.sample_interval == 0; }

    void look_at_switch() {
        constexpr const char* key = "THR:SAMPLE_INTERVAL";
        const int32_t interval = found_.config.sample_interval;
        if (is_off()) {
            warning(line_of(key), key, "throttling is off: the interval is 0",
                    "everything moves as fast as it can");
        } else if (interval > long_interval) {
            warning(line_of(key), key,
                    fmt::format("{} seconds are long; 2 to 10 are recommended", interval),
                    fmt::format("after idling up to {} seconds' worth pass at once, and where a "
                                "window closes nothing passes for several times as long",
                                interval));
        }
    }

    static std::string hours(int32_t start, int32_t end) {
        return fmt::format("{} to {}", start, end);
    }

    void look_at_windows() {
        const throttling_config_s& mended = found_.config;
        const auto last_of = [&](const char* one, const char* other) {
            const bool is_one = line_of(one) > line_of(other);
            return std::string(is_one ? one : other);
        };
        if (repairs_.work_was_empty) {
            const std::string key = last_of("THR:WORK_TIME_START", "THR:WORK_TIME_END");
            warning(line_of(key), key,
                    fmt::format("the work window {} is empty",
                                hours(unmended_.work_time_start, unmended_.work_time_end)),
                    fmt::format("the plugin makes it {}",
                                hours(mended.work_time_start, mended.work_time_end)));
        }
        const std::string key = last_of("THR:OFF_TIME_START", "THR:OFF_TIME_END");
        const std::string off = hours(unmended_.off_time_start, unmended_.off_time_end);
        const std::string effect = fmt::format("the plugin makes it {}",
                                               hours(mended.off_time_start, mended.off_time_end));
        if (repairs_.off_was_empty) {
            warning(line_of(key), key, fmt::format("the off window {} is empty", off), effect);
        }
        if (repairs_.overlapped) {
            const std::string work_key = last_of("THR:WORK_TIME_START", "THR:WORK_TIME_END");
            const std::string& last = line_of(key) != 0 ? key : work_key;
            warning(line_of(last), last,
                    fmt::format("the off window {} overlaps with the work window {}", off,
                                hours(mended.work_time_start, mended.work_time_end)),
                    fmt::format("the off window becomes what the work window leaves, {}",
                                hours(mended.off_time_start, mended.off_time_end)));
        }
    }

    /// Whether a Sunday that counted as weekend would be another than it is.
    bool would_sunday_differ() const {
        bool differs = false;
        each_hour([&](tm when) {
            if (when.tm_wday == 0) {
                tm weekend = when;
                weekend.tm_wday = last_day;
                for (const operation_type_t direction : directions) {
                    differs = differs || allowed_rate(found_.config, direction, when) !=
                                             allowed_rate(found_.config, direction, weekend);
                }
            }
        });
        return differs;
    }

    void look_at_weekend() {
        const throttling_config_s& config = found_.config;
        constexpr const char* start = "THR:WEEKEND_START";
        constexpr const char* end = "THR:WEEKEND_END";
        constexpr const char* no_day =
            "day 7 never comes: Monday is 1, Saturday 6, and Sunday 0, which can't be said";
        if (config.weekend_start > last_day) {
            warning(line_of(start), start, no_day, "no day is a weekend's");
        } else if (config.weekend_start > config.weekend_end) {
            const char* const key = line_of(end) >= line_of(start) ? end : start;
            warning(line_of(key), key,
                    fmt::format("a weekend from day {} to {} never holds: it doesn't go on into "
                                "the next week",
                                config.weekend_start, config.weekend_end),
                    "no day is a weekend's");
        } else if (config.weekend_end > last_day && line_of(end) != 0 && would_sunday_differ()) {
            warning(line_of(end), end, no_day,
                    "the weekend ends with Saturday, and Sunday goes by the hours");
        }
    }

    struct zero_hours {
        tm first;
        std::vector<const char*> directions;
        size_t hours = 0; ///< of the week, in any of them
    };

    void look_at_zero() {
        std::map<std::string, zero_hours> zeros;
        for (const operation_type_t direction : directions) {
            each_hour([&](const tm& when) {
                if (allowed_rate(found_.config, direction, when) != 0) {
                    return;
                }
                const char* const name = direction == OPERATION_READ ? "reads" : "writes";
                const pacing_window window = window_at(found_.config, when);
                zero_hours& zero =
                    zeros.emplace(zero_key(found_.config, direction, window), zero_hours{when, {}})
                        .first->second;
                if (zero.directions.empty() || zero.directions.back() != name) {
                    zero.directions.push_back(name);
                    zero.hours = 0;
                }
                ++zero.hours;
            });
        }
        for (const auto& [key, zero] : zeros) {
            error(line_of(key), key,
                  fmt::format("the rate of {} comes to 0 in {} hours of the week, the first {} "
                              "{:02}:00",
                              fmt::join(zero.directions, " and "), zero.hours,
                              day_name(zero.first.tm_wday), zero.first.tm_hour),
                  is_off() ? "throttling is off; once it is on, a transfer then ends the process"
                           : "a transfer then ends the process");
        }
    }

    /// Products with a percent wrap.
    void look_at_overflow() {
        constexpr const char* key = "THR:AVAIL_BANDWIDTH";
        const uint64_t whole = found_.config.avail_bandwidth;
        const auto percent = static_cast<uint64_t>(
            std::max(found_.config.read_bandwidth_percent, found_.config.write_bandwidth_percent));
        uint64_t product = 0;
        if (__builtin_mul_overflow(whole, percent, &product)) {
            warning(line_of(key), key,
                    fmt::format("{} times {} percent is more than 64 bits hold", whole, percent),
                    fmt::format("the plugin reckons with {} bytes a second", product / 100));
        }
    }

    /// Whether all that is read still has its place when the file is rewritten.
    void look_at_size() {
        // An entry is written with ten digits and a newline at most, and read from two bytes more
        // than its name at least.
        std::vector<char> written(STS_CONFIG_SIZE + 4 * static_cast<size_t>(end_));
        config_text text(written.data(), written.size());
        form_file(found_.config, text);
        const std::string_view whole = written.data();
        if (whole.size() > most_written) {
            std::vector<std::string> lost;
            for (size_t at = 0; at < whole.size();) {
                const size_t end = whole.find('\n', at);
                if (end >= most_written) {
                    lost.push_back(in_short(whole.substr(at, whole.find('=', at) - at)));
                }
                at = end + 1;
            }
            const size_t count = lost.size();
            lost.erase(lost.begin(),
                       lost.end() - static_cast<ptrdiff_t>(std::min<size_t>(count, 15)));
            error(0, "",
                  fmt::format("{} bytes long, {} when it is rewritten, of which {} are kept", end_,
                              whole.size(), most_written),
                  fmt::format("the next rewrite cuts off {} settings, {}{}", count,
                              lost.size() < count ? "among them " : "", fmt::join(lost, ", ")));
        } else if (static_cast<size_t>(end_) > most_written) {
            warning(
                0, "",
                fmt::format("{} bytes long, of which {} are kept when it is rewritten", end_,
                            most_written),
                fmt::format("its settings take {}; the next rewrite drops all else", whole.size()));
        } else if (const size_t most = std::max(whole.size(), static_cast<size_t>(end_));
                   most > near_most_written) {
            warning(0, "",
                    fmt::format("{} of {} bytes are used ({} %)", most, most_written,
                                most * 100 / most_written),
                    "what is beyond them when it is rewritten is cut off");
        }
    }

    FILE* const file_;
    checked_settings& found_;
    off_t end_ = 0;               ///< of what has been read
    int64_t line_ = 0;            ///< the last piece's
    bool is_within_line_ = false; ///< the next piece goes on with the last one's line
    std::map<std::string, int64_t> said_at_;
    std::map<std::string, int64_t> stored_at_;
    throttling_config_s unmended_;
    window_repairs repairs_;
    size_t left_out_ = 0;
    size_t errors_left_out_ = 0;
};

} // namespace

size_t checked_settings::count(finding_severity severity) const {
    return static_cast<size_t>(
        std::count_if(findings.begin(), findings.end(),
                      [&](const settings_finding& each) { return each.severity == severity; }));
}

checked_settings check_settings(const char* path) {
    checked_settings found;
    const file_ptr file = open_settings(path);
    if (file != nullptr) {
        checker(file.get(), found).run();
        return found;
    }
    found.state = errno == ENOENT ? checked_settings::missing : checked_settings::unreadable;
    found.findings.push_back(
        {finding_severity::error, 0, "",
         errno == EINVAL ? "no regular file" : fmt::format("can't be read: {}", strerror(errno)),
         errno == ENOENT ? "the plugin makes one with its defaults when it starts"
                         : "the plugin doesn't start"});
    return found;
}

checked_settings check_settings_text(const std::string& text) {
    checked_settings found;
    std::string copy = text;
    const file_ptr file(text.empty() ? fopen("/dev/null", "r")
                                     : fmemopen(copy.data(), copy.size(), "r"));
    if (file != nullptr) {
        checker(file.get(), found).run();
    }
    return found;
}

std::string finding_text(const std::string& file, const settings_finding& finding) {
    return fmt::format("{}{}: {}: {}{}{}; {}", file,
                       finding.line != 0 ? fmt::format(":{}", finding.line) : "",
                       finding.severity == finding_severity::error ? "error" : "warning",
                       finding.key, finding.key.empty() ? "" : ": ", finding.wrong, finding.effect);
}

uint64_t size_in(const std::string& text) {
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    if (error != std::errc()) {
        return 0;
    }
    std::string unit;
    for (const char letter : std::string(stop, end)) {
        unit += static_cast<char>(toupper(static_cast<unsigned char>(letter)));
    }
    const auto drop = [&](std::string_view ending) {
        if (unit.size() >= ending.size() &&
            unit.compare(unit.size() - ending.size(), ending.size(), ending) == 0) {
            unit.resize(unit.size() - ending.size());
            return true;
        }
        return false;
    };
    drop("/S");
    if (unit.empty()) {
        uint64_t whole = 0;
        const auto [last, overflow] = std::from_chars(text.data(), end, whole);
        return overflow == std::errc() && last == stop && whole <= INT64_MAX ? whole : 0;
    }
    const bool is_binary = drop("IB");
    const bool is_bytes = !is_binary && drop("B");
    constexpr std::string_view factors = "KMGTPE";
    const size_t power = unit.size() == 1 ? factors.find(unit) : std::string_view::npos;
    if (power == std::string_view::npos && !(is_bytes && unit.empty())) {
        return 0;
    }
    const double bytes =
        unit.empty() ? number : std::ldexp(number, static_cast<int>(10 * (power + 1)));
    const double largest = std::ldexp(1.0, 63);
    return bytes >= 1 && bytes < largest ? static_cast<uint64_t>(std::llround(bytes)) : 0;
}
