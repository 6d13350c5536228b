// The throttling settings: the record, its file, its text form, and where the service is.
//
// Settings live in two line-oriented files of one directory. `libstspithrottling.conf` is ours:
// created with its defaults at first start, rewritten whole when a new storage shows up or a
// configuration is set. `cloudstore.conf` belongs to the service: only its port and security flag
// are read here.
//
// Sessions may be null throughout; they only say whose log a message goes to.
#pragma once

#include "plugin/stsapi.h"

#include <cstdint>
#include <map>
#include <string>

/// The type of a server that owns the shared settings; no data is meant to go through it.
constexpr const char* global_server_type = "global";

/// Every setting of throttling. A new record holds the defaults.
struct throttling_config_s {
    int32_t read_bandwidth_percent = 100;  ///< of avail_bandwidth
    int32_t write_bandwidth_percent = 100; ///< of avail_bandwidth
    int32_t default_max_connections = 10;  ///< limit of a storage that has no entry of its own yet
    std::map<std::string, uint32_t> connections; ///< connection limit of each storage, by its name
    uint64_t avail_bandwidth = 104857600;        ///< bytes per second
    int32_t work_time_start = 8;                 ///< hour of local time, inclusive
    int32_t work_time_end = 18; ///< hour, exclusive; before the start: past midnight
    int32_t work_time_bandwidth_percent = 100;
    int32_t off_time_start = 18;
    int32_t off_time_end = 8;
    int32_t off_time_bandwidth_percent = 100;
    int32_t weekend_start = 6; ///< as tm_wday, inclusive; 7 is never reached and Sunday is 0
    int32_t weekend_end = 7;   ///< inclusive
    int32_t weekend_bandwidth_percent = 100;
    int32_t sample_interval = 0; ///< seconds between reports; 0 turns throttling off
    int32_t log_level = 0;       ///< threshold of log_init
    int32_t cssc_port_number = 5637;
    char cssc_host_name[STS_NAME_SIZE] = "localhost"; ///< always terminated
};

/// What our file said when it was read, so that a rewrite that stems from it can tell whether it
/// still says so.
struct settings_seen {
    enum { missing, readable, unreadable } state = unreadable;
    uint64_t length = 0; ///< bytes
    uint64_t hash = 0;   ///< of the bytes; means something within this process only

    bool operator==(const settings_seen& other) const {
        return state == other.state && length == other.length && hash == other.hash;
    }
};

/// Answers of a rewrite that has changed nothing on the disk. They go to no caller of the library.
constexpr int settings_overtaken = -1; ///< by another process's: what was read is to be read again
constexpr int settings_left = -2;      ///< since what the record stems from couldn't be read

/// Runs `rewrite`, which reads the settings, changes and writes them, until nobody has overtaken
/// it. Its status; STS_ERR_FILE when the file never comes to rest.
template <typename Rewrite>
int until_not_overtaken(Rewrite rewrite) {
    for (int tries = 0; tries < 200; ++tries) {
        const int status = rewrite();
        if (status != settings_overtaken) {
            return status;
        }
    }
    return STS_ERR_FILE;
}

/// Whether all settings are the same.
bool operator==(const throttling_config_s& one, const throttling_config_s& other);

// --- the file ----------------------------------------------------------------------------------

/// Sets the paths of both files from the platform's configuration directory; logs an error and
/// leaves them as they are when there is none. The argument isn't read.
void config_set_path(const char* ignored);

/// Start-up step: reads the files into `config`, or creates ours from it when there is none (a
/// failure of that is passed over). STS_ERR_INVALID: `config` is null; STS_ERR_FILE: the file is
/// there and can't be opened.
int config_init(throttling_config_s* config);

/// Reads one file over what `config` holds and mends its windows. Bad lines and values are warned
/// of and passed over. STS_ERR_END_OF_LIST: the file can't be opened, `config` is as it was.
int read_config_file_to_var(const sts_session_def_v7_t* session, throttling_config_s* config,
                            const char* path);

/// Reads our file over what `config` holds, and the port from the service's. Always 0.
int read_config_file_to_var(const sts_session_def_v7_t* session, throttling_config_s* config);

/// The same, and says in `seen` what was read of our file.
int read_config_file_to_var(const sts_session_def_v7_t* session, throttling_config_s* config,
                            settings_seen& seen);

/// Rewrites our file whole, mode 0644, at most 10239 bytes, so that everybody sees the old text or
/// the new one. STS_ERR_END_OF_LIST: it can't be opened; STS_ERR_FILE: it can't be written, given
/// to the service user or have its mode set.
int write_config_file_from_var(const sts_session_def_v7_t* session,
                               const throttling_config_s* config);

/// The same for a record that stems from what was `seen`. Also settings_overtaken, and
/// settings_left with a message.
int write_config_file_from_var(const sts_session_def_v7_t* session,
                               const throttling_config_s* config, const settings_seen& seen);

/// Mends windows that are empty or overlap, with a warning each. Always 0.
int check_time(const sts_session_def_v7_t* session, throttling_config_s* config);

/// 1 if the two hour windows overlap, else 0.
int is_overlap(int start1, int end1, int start2, int end2);

/// Copies the directory part of `path` into `out` of `size` bytes, terminated, and returns `out`. A
/// null `path` gives an empty text; a null `out` or a `size` below 1 does nothing.
char* get_plugin_dir(const char* path, char* out, int size);

// --- the text form -----------------------------------------------------------------------------

/// Forms the row text of the settings as the files hold them. `buffer` has STS_CONFIG_SIZE bytes; a
/// text that is longer is cut. `server_type` and `server_name` decide which rows are marked as the
/// server's own to change. Always 0.
int read_config_file_to_buf(const sts_session_def_v7_t* session, char* buffer, char* server_type,
                            char* server_name);

/// Applies the rows of `text` to `config` and mends its windows. `text` is written to for a moment,
/// so it can't be a literal. Always 0.
int read_buf_to_var(const sts_session_def_v7_t* session, const char* text,
                    throttling_config_s* config);

/// Applies a row text to our file: a global server sets what is shared, any other its own
/// connection limit alone. The statuses are those of write_config_file_from_var.
int write_config_file_from_buf(const sts_session_def_v7_t* session, const char* text,
                               char* server_type, char* server_name);

// --- where the service is ----------------------------------------------------------------------

/// CSSC_IS_SECURE of the service's file: 0 plain, above 0 secure. 1 if it isn't said or is
/// negative.
int get_cssc_security(const sts_session_def_v7_t* session);

/// Base64 of a text that isn't empty, with a line break after every 64 characters and none at the
/// end. The caller frees it; null when memory can't be had.
__attribute__((visibility("default"))) char* encodeBase64(const char* text);
