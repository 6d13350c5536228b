// The settings file: where it is, how a line becomes a field, and how a record becomes a file
// again. Bad input never fails a caller here: it is reported, and the field keeps what it had.

#include "config/settings.h"
#include "config/settings_file.h"

#include "common/cloud_error_catalogue.h"
#include "common/onet_proxy_hint.h"
#include "platform/common/vlcommon.h"
#include "plugin/throttling_log.h"
#include "plugin/version_mark.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <libgen.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace {

constexpr const char* plugin_config_name = "libstspithrottling.conf";
constexpr const char* cloudstore_config_name = "cloudstore.conf";

int is_between(int start, int end, int point) {
    if (start == end) {
        return point == start;
    }
    return start < end ? start <= point && point < end : point >= start || point < end;
}

/// The low 32 bits of the number, as they are stored.
int32_t number_of(const char* value) { return static_cast<int32_t>(strtol(value, nullptr, 10)); }

/// Stores `value` in the setting's field. False when it isn't acceptable.
bool store(const setting& which, throttling_config_s* config, const char* value) {
    switch (which.kind) {
    case setting_kind::number: {
        const int32_t number = number_of(value);
        if (number < which.low || number > which.high) {
            return false;
        }
        config->*which.value = number;
        return true;
    }
    case setting_kind::bandwidth: {
        const uint64_t number = strtoull(value, nullptr, 10);
        if (static_cast<int64_t>(number) <= 0) {
            return false;
        }
        config->avail_bandwidth = number;
        return true;
    }
    case setting_kind::host:
        if (value[0] == '\0') {
            return false;
        }
        strncpy(config->cssc_host_name, value, sizeof config->cssc_host_name - 1);
        config->cssc_host_name[sizeof config->cssc_host_name - 1] = '\0';
        return true;
    case setting_kind::storages:
        break;
    }
    return false;
}

} // namespace

char plugin_config_path[4096];
char cloudstore_config_path[4096];

const setting* find_key(const char* key) {
    for (const setting& each : settings) {
        if (each.key != nullptr && strcmp(key, each.key) == 0) {
            return &each;
        }
    }
    return nullptr;
}

config_text::config_text(char* buffer, size_t size) : buffer_(buffer), size_(size) {
    memset(buffer_, 0, size_);
}

void config_text::add(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(buffer_ + used_, size_ - used_, format, arguments);
    va_end(arguments);
    used_ += strlen(buffer_ + used_);
}

void form_file(const throttling_config_s& config, config_text& text) {
    for (const setting& each : settings) {
        if (!each.in_file) {
            continue;
        }
        switch (each.kind) {
        case setting_kind::number:
            text.add("%s=%d\n", each.key, config.*each.value);
            break;
        case setting_kind::bandwidth:
            text.add("%s=%lu\n", each.key, config.avail_bandwidth);
            break;
        case setting_kind::host:
            text.add("%s=%s\n", each.key, config.cssc_host_name);
            break;
        case setting_kind::storages:
            for (const auto& [name, limit] : config.connections) {
                text.add("%s%s=%d\n", storage_prefix, name.c_str(), static_cast<int>(limit));
            }
            break;
        }
    }
}

bool operator==(const throttling_config_s& one, const throttling_config_s& other) {
    const auto same = [&](const setting& each) {
        return each.value == nullptr || one.*each.value == other.*each.value;
    };
    return std::all_of(std::begin(settings), std::end(settings), same) &&
           one.avail_bandwidth == other.avail_bandwidth && one.connections == other.connections &&
           strcmp(one.cssc_host_name, other.cssc_host_name) == 0;
}

void config_set_path(const char* /*ignored*/) {
    char directory[sizeof plugin_config_path] = "";
    if (GetConfDir(directory, sizeof directory) != 0 || directory[0] == '\0') {
        log_msg(nullptr, __func__, 1, STS_SEV_ERROR,
                "Unable to find path for file %s and config file %s", cloudstore_config_name,
                plugin_config_name);
        return;
    }
    snprintf(plugin_config_path, sizeof plugin_config_path, "%s/%s", directory, plugin_config_name);
    snprintf(cloudstore_config_path, sizeof cloudstore_config_path, "%s/%s", directory,
             cloudstore_config_name);
}

int config_init(throttling_config_s* config) {
    if (config == nullptr) {
        return STS_ERR_INVALID;
    }
    if (file_ptr file = open_settings(plugin_config_path)) {
        file.reset();
        read_config_file_to_var(nullptr, config);
        return STS_OK;
    }
    if (errno != ENOENT) {
        return STS_ERR_FILE;
    }
    settings_seen none;
    none.state = settings_seen::missing;
    if (write_config_file_from_var(nullptr, config, none) == settings_overtaken) {
        read_config_file_to_var(nullptr, config); // another process has started meanwhile
    }
    return STS_OK;
}

int is_overlap(int start1, int end1, int start2, int end2) {
    return is_between(start1, end1, start2) || is_between(start1, end1, end2 - 1) ||
           is_between(start2, end2, start1) || is_between(start2, end2, end1 - 1);
}

window_repairs mend_windows(throttling_config_s& config) {
    window_repairs done;
    if (config.work_time_start == config.work_time_end) {
        done.work_was_empty = true;
        config.work_time_end = (config.work_time_start + 1) % 24;
    }
    if (config.off_time_start == config.off_time_end) {
        done.off_was_empty = true;
        config.off_time_end = (config.off_time_start + 1) % 24;
    }
    if (is_overlap(config.work_time_start, config.work_time_end, config.off_time_start,
                   config.off_time_end)) {
        done.overlapped = true;
        config.off_time_end = config.work_time_start;
        config.off_time_start = config.work_time_end;
    }
    return done;
}

int check_time(const sts_session_def_v7_t* session, throttling_config_s* config) {
    const window_repairs done = mend_windows(*config);
    if (done.work_was_empty) {
        log_msg(session, __func__, 1, STS_SEV_WARN,
                "work_time_start cannot equal to work_time_end, set work_time_end = "
                "work_time_start + 1.");
    }
    if (done.off_was_empty) {
        log_msg(session, __func__, 1, STS_SEV_WARN,
                "off_time_start cannot equal to off_time_end, set off_time_end = "
                "off_time_start + 1.");
    }
    if (done.overlapped) {
        log_msg(session, __func__, 1, STS_SEV_WARN,
                "work time overlaps with off time, set off_time_end as work_time_start, set "
                "off_time_start as work_time_end.");
    }
    return STS_OK;
}

line_result parse_oneline_to_var(const sts_session_def_v7_t* session, throttling_config_s* config,
                                 const char* key, const char* value) {
    if (const setting* known = find_key(key)) {
        if (!store(*known, config, value)) {
            log_msg(session, __func__, 1, STS_SEV_WARN, "invalid %s, set to default.",
                    known->field);
            return line_result::refused;
        }
        return line_result::stored;
    }
    if (strncmp(key, storage_prefix, storage_prefix_length) != 0) {
        log_msg(session, __func__, 1, STS_SEV_WARN, "Ignore item:%s.", key);
        return line_result::ignored;
    }
    line_result result = line_result::storage;
    int32_t limit = number_of(value);
    if (limit <= 0) {
        result = line_result::storage_by_default;
        log_msg(session, __func__, 1, STS_SEV_WARN, "invalid connections count, set to default.");
        limit = config->default_max_connections;
    }
    config->connections[key + storage_prefix_length] = static_cast<uint32_t>(limit);
    return result;
}

bool find_setting(const sts_session_def_v7_t* session, const char* who, char* line,
                  config_line& parts) {
    if (line[0] == '#') {
        log_msg(session, who, 1, STS_SEV_DEBUG, "Comment:%s", line);
        return false;
    }
    parts.key = line;
    parts.equals = strchr(line, '=');
    parts.newline = parts.equals != nullptr ? strchr(parts.equals, '\n') : nullptr;
    if (parts.newline == nullptr) {
        log_msg(session, who, 1, STS_SEV_WARN, "Ignore item:%s.", line);
        return false;
    }
    return true;
}

namespace {

constexpr const char* reader = "read_config_file_to_var";

/// Has the whole of our file in `buffer` before the lock is given back: the host's callback may run
/// while it is parsed.
settings_seen fill_buffer(FILE* file, char (&buffer)[config_line_size]) {
    setvbuf(file, buffer, _IOFBF, sizeof buffer);
    const directory_lock lock(plugin_config_path, LOCK_SH);
    const settings_seen seen = look_at(fileno(file));
    ungetc(getc(file), file);
    return seen;
}

} // namespace

void read_lines(const sts_session_def_v7_t* session, throttling_config_s* config, FILE* file,
                const settings_listener& listener) {
    char line[config_line_size];
    config_line parts;
    while (fgets(line, sizeof line, file) != nullptr) {
        settings_piece piece = {line, nullptr, line_result::ignored};
        if (find_setting(session, reader, line, parts)) {
            log_msg(session, reader, 1, STS_SEV_DEBUG, "%s", line);
            parts.cut();
            piece.value = parts.value();
            piece.result = parse_oneline_to_var(session, config, parts.key, piece.value);
        }
        if (listener && !listener(piece, *config)) {
            return;
        }
    }
}

namespace {

/// Reads one file. `seen` may be null; otherwise the file is our own.
int read_file(const sts_session_def_v7_t* session, throttling_config_s* config, const char* path,
              settings_seen* seen) {
    log_msg(session, reader, 1, STS_SEV_DEBUG, "enter.");
    char buffer[config_line_size];
    file_ptr file = open_settings(path);
    if (file == nullptr) {
        if (seen != nullptr) {
            seen->state = errno == ENOENT ? settings_seen::missing : settings_seen::unreadable;
        }
        log_msg(session, reader, 1, STS_SEV_WARN, "file %s not found, use default config setting.",
                path);
        return STS_ERR_END_OF_LIST;
    }
    if (seen != nullptr) {
        *seen = fill_buffer(file.get(), buffer);
    }
    read_lines(session, config, file.get(), {});
    if (seen != nullptr && !feof(file.get())) {
        seen->state = settings_seen::unreadable; // only its beginning was
    }
    check_time(session, config);
    file.reset();
    log_msg(session, reader, 1, STS_SEV_DEBUG, "leave.");
    return STS_OK;
}

/// Rewrites our file; `seen` may be null.
int rewrite_file(const sts_session_def_v7_t* session, const throttling_config_s& config,
                 const settings_seen* seen) {
    constexpr const char* who = "write_config_file_from_var";
    log_msg(session, who, 1, STS_SEV_DEBUG, "enter.");
    char text[STS_CONFIG_SIZE];
    config_text whole(text);
    form_file(config, whole);
    if (const int status = replace_settings(plugin_config_path, text, seen)) {
        if (status == settings_left) {
            log_msg(session, who, 1, STS_SEV_ERROR,
                    "file %s can't be read, so it is left as it is.", plugin_config_path);
        }
        return status;
    }
    struct stat file = {};
    const bool is_device = stat(plugin_config_path, &file) == 0 && S_ISCHR(file.st_mode);
    if (!is_device && (onet_chown_service_user_if_root(plugin_config_path, 0) != 0 ||
                       chmod(plugin_config_path, 0644) < 0)) { // a device is the system's
        return STS_ERR_FILE;
    }
    log_msg(session, who, 1, STS_SEV_DEBUG, "leave.");
    return STS_OK;
}

} // namespace

int read_config_file_to_var(const sts_session_def_v7_t* session, throttling_config_s* config,
                            const char* path) {
    return read_file(session, config, path, nullptr);
}

int read_config_file_to_var(const sts_session_def_v7_t* session, throttling_config_s* config,
                            settings_seen& seen) {
    throttling_config_s service;
    read_file(session, &service, cloudstore_config_path, nullptr);
    read_file(session, config, plugin_config_path, &seen);
    config->cssc_port_number = service.cssc_port_number;
    return STS_OK;
}

int read_config_file_to_var(const sts_session_def_v7_t* session, throttling_config_s* config) {
    settings_seen seen;
    return read_config_file_to_var(session, config, seen);
}

int write_config_file_from_var(const sts_session_def_v7_t* session,
                               const throttling_config_s* config) {
    return rewrite_file(session, *config, nullptr);
}

int write_config_file_from_var(const sts_session_def_v7_t* session,
                               const throttling_config_s* config, const settings_seen& seen) {
    return rewrite_file(session, *config, &seen);
}

char* get_plugin_dir(const char* path, char* out, int size) {
    if (out == nullptr || size < 1) {
        return out;
    }
    out[0] = '\0';
    if (path == nullptr) {
        return out;
    }
    char copy[4096];
    strncpy(copy, path, sizeof copy - 1);
    copy[sizeof copy - 1] = '\0';
    strncpy(out, dirname(copy), static_cast<size_t>(size) - 1);
    out[size - 1] = '\0';
    return out;
}
