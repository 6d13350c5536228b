// The settings as the row text that the host and the service see:
//
//   name=THR:KEY,description=...,type=int,value=N,fixed=y;name=...
//
// "fixed=n" marks what this server may change: a global server owns what is shared, any other
// server its own connection limit.

#include "config/settings.h"

#include "plugin/throttling_log.h"
#include "plugin/version_mark.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr const char* name_field = "name=";
constexpr const char* value_field = "value=";

const char* mark(bool may_change) { return may_change ? "n" : "y"; }

/// Ends a text at a place while it lives, whatever happens meanwhile.
class cut_at {
  public:
    explicit cut_at(char* place) : place_(place), cut_(*place) { *place_ = '\0'; }
    ~cut_at() { *place_ = cut_; }
    cut_at(const cut_at&) = delete;
    cut_at& operator=(const cut_at&) = delete;

  private:
    char* const place_;
    const char cut_;
};

/// One row with its key and value between `%s` and the number's own format.
#define ROW_FORMAT(key, number) "name=" key ",description=%s,type=int,value=" number ",fixed=%s;"

void form_rows(const throttling_config_s& config, bool global, const char* server_name,
               config_text& text) {
    for (const setting& each : settings) {
        if (each.description == nullptr) {
            continue;
        }
        switch (each.kind) {
        case setting_kind::number:
            text.add(ROW_FORMAT("%s", "%d"), each.key, each.description, config.*each.value,
                     mark(global));
            break;
        case setting_kind::bandwidth:
            text.add(ROW_FORMAT("%s", "%lu"), each.key, each.description, config.avail_bandwidth,
                     mark(global));
            break;
        case setting_kind::storages:
            for (const auto& [name, limit] : config.connections) {
                text.add(ROW_FORMAT("THR:%s", "%d"), name.c_str(), each.description,
                         static_cast<int>(limit), mark(strcmp(name.c_str(), server_name) == 0));
            }
            break;
        case setting_kind::host:
            break;
        }
    }
}

#undef ROW_FORMAT

/// A server's own limit; 0 where the text names none.
void set_own_limit(throttling_config_s& current, throttling_config_s& incoming,
                   const char* server_name) {
    current.connections[server_name] = incoming.connections[server_name];
}

} // namespace

int read_config_file_to_buf(const sts_session_def_v7_t* session, char* buffer, char* server_type,
                            char* server_name) {
    log_msg(session, __func__, 1, STS_SEV_DEBUG, "enter.");
    config_text text(buffer);
    throttling_config_s config;
    read_config_file_to_var(session, &config);
    form_rows(config, strcmp(server_type, global_server_type) == 0, server_name, text);
    log_msg(session, __func__, 1, STS_SEV_DEBUG, "leave.");
    return STS_OK;
}

int read_buf_to_var(const sts_session_def_v7_t* session, const char* text,
                    throttling_config_s* config) {
    log_msg(session, __func__, 1, STS_SEV_DEBUG, "enter.");
    // The caller's text is cut in place for the length of one parse.
    char* position = const_cast<char*>(text);
    while ((position = strstr(position, name_field)) != nullptr) {
        position += strlen(name_field);
        char* const key_end = strchr(position, ',');
        if (key_end == nullptr || strncmp(position, storage_prefix, storage_prefix_length) != 0) {
            continue;
        }
        char* value = strstr(key_end, value_field);
        char* const value_end = value != nullptr ? strchr(value, ',') : nullptr;
        if (value_end == nullptr) {
            continue;
        }
        value += strlen(value_field);
        {
            const cut_at key(key_end);
            const cut_at number(value_end);
            parse_oneline_to_var(session, config, position, value);
        }
        position = value_end + 1;
    }
    check_time(session, config);
    log_msg(session, __func__, 1, STS_SEV_DEBUG, "leave.");
    return STS_OK;
}

namespace {

/// Reads the files, applies the text and rewrites ours, as far as it is called for.
int apply_rows(const sts_session_def_v7_t* session, const char* text, bool global,
               const char* server_name) {
    settings_seen seen;
    throttling_config_s current;
    read_config_file_to_var(session, &current, seen);
    throttling_config_s incoming;
    read_buf_to_var(session, text, &incoming);
    if (!global) {
        set_own_limit(current, incoming, server_name);
        return write_config_file_from_var(session, &current, seen);
    }
    if (strstr(text, "name=THR") == nullptr) {
        return STS_OK;
    }
    incoming.connections = current.connections;
    incoming.log_level = current.log_level;
    return write_config_file_from_var(session, &incoming, seen);
}

} // namespace

int write_config_file_from_buf(const sts_session_def_v7_t* session, const char* text,
                               char* server_type, char* server_name) {
    log_msg(session, __func__, 1, STS_SEV_DEBUG, "enter.");
    const bool global = strcmp(server_type, global_server_type) == 0;
    const int status =
        until_not_overtaken([&] { return apply_rows(session, text, global, server_name); });
    log_msg(session, __func__, 1, STS_SEV_DEBUG, "leave.");
    return status == settings_left ? STS_ERR_FILE : status;
}
