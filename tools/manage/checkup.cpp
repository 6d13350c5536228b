#include "tools/manage/checkup.h"

#include "config/settings.h"
#include "config/settings_check.h"
#include "tools/host/service_place.h"
#include "tools/host/settings_place.h"
#include "tools/terminal/printable.h"
#include "tools/terminal/sizes.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fmt/format.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/timex.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

using lines = std::vector<health_line>;

constexpr const char* log_directory = THROTTLING_LOG_ROOT "/vlcssc";
constexpr int32_t lowest_written_level = 2;   ///< below it the log's file receives nothing
constexpr time_t earliest_clock = 1767225600; ///< 2026-01-01: this program is younger

std::string owner_of(uid_t user) {
    passwd entry = {};
    passwd* found = nullptr;
    char texts[4096];
    const bool is_known =
        getpwuid_r(user, &entry, texts, sizeof texts, &found) == 0 && found != nullptr;
    return is_known ? found->pw_name : std::to_string(user);
}

/// "mode 0755, of root", and whether others than its owner may write it.
std::string rights_text(const struct stat& found) {
    return fmt::format("mode {:04o}, of {}", found.st_mode & 07777U, owner_of(found.st_uid));
}

void check_rights(const char* what, const std::string& path, lines& all) {
    struct stat found = {};
    if (stat(path.c_str(), &found) != 0) {
        all.push_back(
            {health_line::bad, what, fmt::format("{}: {}", printable(path), strerror(errno))});
        return;
    }
    const std::string text = fmt::format("{}: {}", printable(path), rights_text(found));
    const bool is_open_to_all = (found.st_mode & S_IWOTH) != 0 && (found.st_mode & S_ISVTX) == 0;
    if (is_open_to_all) {
        all.push_back({health_line::bad, what,
                       text + ": anybody may change it; take that right away with chmod o-w"});
    } else {
        all.push_back({health_line::good, what, text});
    }
}

/// The settings that hold, once they are told.
throttling_config_s check_files(lines& all) {
    if (const std::string trouble = settings_place_trouble(); !trouble.empty()) {
        all.push_back({health_line::bad, "directory", trouble});
    }
    const fs::path file = plugin_config_path;
    std::error_code error;
    if (!fs::is_directory(file.parent_path(), error)) {
        return {};
    }
    check_rights("directory", file.parent_path().string(), all);
    const checked_settings found = check_settings(plugin_config_path);
    if (found.state == checked_settings::missing) {
        all.push_back({health_line::bad, "settings",
                       fmt::format("{0}: there is no such file; make it with: echo "
                                   "THR:SAMPLE_INTERVAL=5 > {0}",
                                   printable(file.string()))});
        return found.config;
    }
    check_rights("settings", file.string(), all);
    const size_t errors = found.count(finding_severity::error);
    const size_t warnings = found.count(finding_severity::warning);
    all.push_back({errors != 0     ? health_line::bad
                   : warnings != 0 ? health_line::note
                                   : health_line::good,
                   "settings",
                   errors + warnings == 0
                       ? "nothing is wrong in them"
                       : fmt::format("{} errors and {} warnings: see \"throttlectl config check\"",
                                     errors, warnings)});
    all.push_back(
        found.config.sample_interval == 0
            ? health_line{health_line::note, "throttling", "off: THR:SAMPLE_INTERVAL is 0"}
            : health_line{health_line::good, "throttling",
                          fmt::format("on: a sample lasts {} s", found.config.sample_interval)});
    const bool has_other = access(cloudstore_config_path, R_OK) == 0;
    all.push_back({has_other || errno == ENOENT ? health_line::good : health_line::bad, "service's",
                   fmt::format("{}: {}", printable(cloudstore_config_path),
                               has_other         ? "can be read"
                               : errno == ENOENT ? "not there, which is well: it has defaults"
                                                 : strerror(errno))});
    return found.config;
}

void check_log(const throttling_config_s& config, lines& all) {
    const int32_t level = config.log_level;
    const bool is_writable = access(log_directory, W_OK | X_OK) == 0;
    const std::string state = is_writable ? "can be written" : strerror(errno);
    if (level == 0) {
        all.push_back({health_line::good, "log",
                       fmt::format("{}: {}; nothing is written there at THR:LOG_LEVEL 0",
                                   log_directory, state)});
    } else if (is_writable) {
        all.push_back({health_line::good, "log",
                       fmt::format("{}: {}{}", log_directory, state,
                                   level < lowest_written_level
                                       ? "; nothing is written there at THR:LOG_LEVEL 1"
                                       : "")});
    } else {
        all.push_back({health_line::bad, "log",
                       fmt::format("{}: {}: the plugin won't start; make it, or set "
                                   "THR:LOG_LEVEL=0",
                                   log_directory, state)});
    }
}

void check_service(const throttling_config_s& config, lines& all) {
    const std::vector<service_place> places = service_places();
    if (const service_place* const found = answering(places)) {
        all.push_back({health_line::good, "service", "answers on " + found->address});
        return;
    }
    const bool is_needed = config.sample_interval != 0;
    all.push_back({is_needed ? health_line::bad : health_line::note, "service",
                   no_service_text(places) +
                       (is_needed ? ": each process is paced alone; start it with \"systemctl "
                                    "start vlsld\""
                                  : ", which nobody needs while throttling is off")});
}

void check_clock(lines& all) {
    const time_t now = time(nullptr);
    const std::string text = time_text(now, "%A %Y-%m-%d %H:%M %Z (%z)");
    timex clock = {};
    const bool is_steered = adjtimex(&clock) >= 0 && (clock.status & STA_UNSYNC) == 0;
    if (now < earliest_clock) {
        all.push_back({health_line::bad, "clock",
                       fmt::format("{}: that is long ago, and windows go by it; set it", text)});
    } else {
        all.push_back({is_steered ? health_line::good : health_line::note, "clock",
                       fmt::format("{}, by which the windows go; {}", text,
                                   is_steered ? "it is kept in time"
                                              : "the system isn't told that it is kept in time")});
    }
}

} // namespace

lines checkup() {
    config_set_path(nullptr);
    lines all;
    const throttling_config_s config = check_files(all);
    check_log(config, all);
    check_service(config, all);
    check_clock(all);
    return all;
}

bool may_start_plugin() {
    return settings_place_trouble().empty() && access(plugin_config_path, R_OK) == 0;
}
