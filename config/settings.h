// The settings as data: one row each, in the order in which the file and the row text spell them.
// The parser, the file's writer and the text's writer all walk this table.
#pragma once

#include "config/throttling_util.h"

#include <cstddef>
#include <cstdio>
#include <functional>

constexpr const char* storage_prefix = "THR:"; ///< begins every key of ours, also a storage's
constexpr size_t storage_prefix_length = 4;
constexpr size_t config_line_size = 10240; ///< bytes read as one line, terminator included

enum class setting_kind {
    number,    ///< a 32-bit field, accepted from `low` to `high`
    bandwidth, ///< avail_bandwidth
    host,      ///< cssc_host_name
    storages,  ///< stands for one line or row for each entry of `connections`
};

struct setting {
    setting_kind kind;
    const char* key;
    const char* field;                   ///< as messages name it
    int32_t throttling_config_s::*value; ///< of a number, else null
    int32_t low;
    int32_t high;
    const char* description; ///< in the row text; null: the host neither sees nor sets it there
    bool in_file;            ///< written to our file
};

constexpr int32_t no_limit = INT32_MAX;

// clang-format off
constexpr setting settings[] = {
    {setting_kind::number, "THR:READ_BANDWIDTH_PERCENT", "read_bandwidth_percent",
     &throttling_config_s::read_bandwidth_percent, 0, 100, "bandwidth percent for read[%]", true},
    {setting_kind::number, "THR:WRITE_BANDWIDTH_PERCENT", "write_bandwidth_percent",
     &throttling_config_s::write_bandwidth_percent, 0, 100, "bandwidth percent for write[%]", true},
    {setting_kind::number, "THR:DEFAULT_MAX_CONNECTIONS", "default_max_connections",
     &throttling_config_s::default_max_connections, 1, no_limit,
     "default maximum connections for each cloud storage", true},
    {setting_kind::storages, nullptr, nullptr,
     nullptr, 0, 0, "maximum connections for cloud storage", true},
    {setting_kind::bandwidth, "THR:AVAIL_BANDWIDTH", "avail_bandwidth",
     nullptr, 0, 0, "the whole bandwidth available[bytes/second]", true},
    {setting_kind::number, "THR:WORK_TIME_START", "work_time_start",
     &throttling_config_s::work_time_start, 0, 23, "work time start[hour]", true},
    {setting_kind::number, "THR:WORK_TIME_END", "work_time_end",
     &throttling_config_s::work_time_end, 0, 23, "work time end[hour]", true},
    {setting_kind::number, "THR:WORK_TIME_BANDWIDTH_PERCENT", "work_time_bandwidth_percent",
     &throttling_config_s::work_time_bandwidth_percent, 0, 100, "bandwidth percent in work time[%]", true},
    {setting_kind::number, "THR:OFF_TIME_START", "off_time_start",
     &throttling_config_s::off_time_start, 0, 23, "off timestart[hour]", true},
    {setting_kind::number, "THR:OFF_TIME_END", "off_time_end",
     &throttling_config_s::off_time_end, 0, 23, "off time end[hour]", true},
    {setting_kind::number, "THR:OFF_TIME_BANDWIDTH_PERCENT", "off_time_bandwidth_percent",
     &throttling_config_s::off_time_bandwidth_percent, 0, 100, "bandwidth percent in off time[%]", true},
    {setting_kind::number, "THR:WEEKEND_START", "weekend_start",
     &throttling_config_s::weekend_start, 1, 7, "weekend start[day of week]", true},
    {setting_kind::number, "THR:WEEKEND_END", "weekend_end",
     &throttling_config_s::weekend_end, 1, 7, "weekend end[day of week]", true},
    {setting_kind::number, "THR:WEEKEND_BANDWIDTH_PERCENT", "weekend_bandwidth_percent",
     &throttling_config_s::weekend_bandwidth_percent, 0, 100, "bandwidth percent in weekend[%]", true},
    {setting_kind::number, "THR:SAMPLE_INTERVAL", "sample_interval",
     &throttling_config_s::sample_interval, 0, no_limit, "the interval of sampling[seconds]", true},
    {setting_kind::number, "THR:LOG_LEVEL", "log_level",
     &throttling_config_s::log_level, 0, 5, nullptr, true},
    {setting_kind::number, "CSSC_PORT", "cssc_port_number",
     &throttling_config_s::cssc_port_number, 0, no_limit, nullptr, false},
    {setting_kind::host, "THR:CSSC_HOST_NAME", "cssc_host_name",
     nullptr, 0, 0, nullptr, true},
};
// clang-format on

/// The full paths of the two files, empty until config_set_path finds the directory.
extern char plugin_config_path[4096];
extern char cloudstore_config_path[4096];

/// What a key and its value have come to.
enum class line_result {
    stored,             ///< in the setting's field
    refused,            ///< with a warning; the field keeps what it had
    storage,            ///< stored as the limit of a storage
    storage_by_default, ///< the same, with a warning and default_max_connections as the limit
    ignored,            ///< with a warning
};

/// The setting of that key; null when there is none.
const setting* find_key(const char* key);

/// Applies one key and its value to `config`, or warns.
line_result parse_oneline_to_var(const sts_session_def_v7_t* session, throttling_config_s* config,
                                 const char* key, const char* value);

/// A line of a settings file: KEY=VALUE and a newline.
struct config_line {
    char* key;     ///< the line's start
    char* equals;  ///< its first "="
    char* newline; ///< the first newline behind that

    /// Cuts the line in two.
    void cut() const { *equals = *newline = '\0'; }
    const char* value() const { return equals + 1; }
};

/// Finds the parts of `line`. False for a comment or a line that isn't a setting, which are logged
/// in the name of `who`.
bool find_setting(const sts_session_def_v7_t* session, const char* who, char* line,
                  config_line& parts);

/// A piece of a settings file as it is read: a line, or as much of one as is read at once.
struct settings_piece {
    const char* text;   ///< the key of a setting, else all of the piece
    const char* value;  ///< null: a comment, or ignored as no setting
    line_result result; ///< of a setting
};

/// Hears of each piece of a file once it is read, and what the record holds then. False ends the
/// reading.
using settings_listener =
    std::function<bool(const settings_piece& piece, const throttling_config_s& config)>;

/// Reads all lines of an open file over what `config` holds, as read_config_file_to_var does, but
/// mends no windows. An empty `listener` hears nothing.
void read_lines(const sts_session_def_v7_t* session, throttling_config_s* config, FILE* file,
                const settings_listener& listener);

/// What was wrong with the windows of a record.
struct window_repairs {
    bool work_was_empty = false; ///< now it is an hour long
    bool off_was_empty = false;
    bool overlapped = false; ///< now the off window is what the work window leaves
};

/// Mends windows that are empty or overlap.
window_repairs mend_windows(throttling_config_s& config);

/// A text that is put together piece by piece. What doesn't fit is cut without a word.
class config_text {
  public:
    /// `buffer` has `size` bytes, terminator included; all of it is cleared.
    explicit config_text(char* buffer, size_t size = STS_CONFIG_SIZE);
    void add(const char* format, ...) __attribute__((format(printf, 2, 3)));

  private:
    char* const buffer_;
    const size_t size_;
    size_t used_ = 0;
};

/// The whole file as it is written for `config`.
void form_file(const throttling_config_s& config, config_text& text);
