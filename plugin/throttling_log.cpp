// The log file is shared by every process that loads the plugin on the same day: each line is
// written in one piece under a record lock on the whole file, and flushed so that a crash loses
// nothing.

#include "plugin/throttling_log.h"

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#ifndef THROTTLING_LOG_ROOT
#error "THROTTLING_LOG_ROOT names the directory above the log's own"
#endif

namespace {

constexpr size_t message_size = 4095; // with the terminator, as are the sizes below
constexpr size_t line_size = 4096;
constexpr size_t path_size = 1024;

FILE* g_flog = nullptr;
int32_t g_log_level = 0;

const char* const sev[] = {"", "[INFO]", "[WARN]", "[DEBUG]", "[ERROR]"};
constexpr int sev_count = sizeof(sev) / sizeof(sev[0]);

/// By severity: the bit of a host's mask that says whether it takes such messages.
constexpr uint16_t mask_bits[] = {
    0, STS_LOG_INFO, STS_LOG_WARN, STS_LOG_DEBUG, STS_LOG_ERROR, STS_LOG_HOST};

const char* tag_of(int severity) {
    return severity >= 0 && severity < sev_count ? sev[severity] : "";
}

const char* name_of(const char* who) { return who != nullptr ? who : "no-func"; }

bool host_takes(const sts_session_def_v7_t* session, int severity) {
    if (session == nullptr || session->log == nullptr) {
        return false;
    }
    const bool is_known = severity >= STS_SEV_INFO && severity <= STS_SEV_HOST;
    return !is_known || (session->log_mask & mask_bits[severity]) != 0;
}

bool file_takes(int severity) { return severity < g_log_level && g_flog != nullptr; }

void write_to_host(const sts_session_def_v7_t* session, const char* who, sts_severity_v7_t severity,
                   const char* message) {
    char text[line_size];
    if (severity == STS_SEV_HOST) {
        snprintf(text, sizeof text, "%s", message);
    } else {
        snprintf(text, sizeof text, "[%s]%s", name_of(who), message);
    }
    session->log(session->session_id, text, severity);
}

/// Locks (F_WRLCK) or unlocks (F_UNLCK) the whole log file against other processes.
bool set_lock(short type) {
    struct flock whole_file = {};
    whole_file.l_type = type;
    whole_file.l_whence = SEEK_SET;
    return fcntl(fileno(g_flog), F_SETLKW, &whole_file) == 0;
}

int write_to_file(const sts_session_def_v7_t* session, const char* who, int severity,
                  const char* message) {
    const char* label =
        session != nullptr && session->session_id != nullptr ? session->session_id : "no session";
    timeval now = {};
    gettimeofday(&now, nullptr);
    tm local = {};
    localtime_r(&now.tv_sec, &local);
    char clock[29];
    strftime(clock, sizeof clock, "%T", &local);
    char line[line_size];
    snprintf(line, sizeof line, "[%ld]%s.%ld[%s][%s]%s", static_cast<long>(getpid()), clock,
             static_cast<long>(now.tv_usec / 1000), label, name_of(who), message);

    // A record lock doesn't keep out threads of this process, and is dropped for all of them at the
    // first unlock: the stream's own lock spans the whole of it.
    flockfile(g_flog);
    const bool locked = set_lock(F_WRLCK);
    if (locked) {
        fprintf(g_flog, "%s %s\n", tag_of(severity), line);
        fflush(g_flog);
        set_lock(F_UNLCK);
    }
    funlockfile(g_flog);
    return locked ? STS_OK : STS_ERR_INVALID;
}

/// Not inlined: room for its buffers would cost each call whose message nobody takes.
__attribute__((noinline)) int write_to_sinks(const sts_session_def_v7_t* session, const char* who,
                                             sts_severity_v7_t severity, const char* format,
                                             va_list arguments) {
    char message[message_size];
    vsnprintf(message, sizeof message, format, arguments);
    if (host_takes(session, severity)) {
        write_to_host(session, who, severity, message);
    }
    return file_takes(severity) ? write_to_file(session, who, severity, message) : STS_OK;
}

} // namespace

int log_init(int32_t level) {
    if (level != 0) {
        const time_t now = time(nullptr);
        tm local = {};
        localtime_r(&now, &local);
        const int month = local.tm_mon + 1;
        char date[10];
        snprintf(date, sizeof date, "%d%s%d%s%d", local.tm_year + 1900, month < 10 ? "0" : "",
                 month, local.tm_mday < 10 ? "0" : "", local.tm_mday);
        char path[path_size];
        snprintf(path, sizeof path, "%s%c%s%c%s%s", THROTTLING_LOG_ROOT, '/', "vlcssc", '/',
                 "throttlinglog_", date);
        if (path[0] == '\0') {
            return STS_ERR_FILE;
        }
        FILE* stream = fopen(path, "a+");
        if (stream == nullptr) {
            return STS_ERR_OPEN;
        }
        g_flog = stream;
    }
    g_log_level = level;
    return STS_OK;
}

int log_msg(const sts_session_def_v7_t* session, const char* who, int32_t /*third*/,
            sts_severity_v7_t severity, const char* format, ...) {
    if (!host_takes(session, severity) && !file_takes(severity)) {
        return STS_OK; // nobody would see the text
    }
    va_list arguments;
    va_start(arguments, format);
    const int status = write_to_sinks(session, who, severity, format, arguments);
    va_end(arguments);
    return status;
}

int log_shutdown() {
    if (g_flog == nullptr) {
        return STS_OK;
    }
    FILE* stream = g_flog;
    g_flog = nullptr; // the line behind a failed start finds no file rather than a closed one
    return fclose(stream) == 0 ? STS_OK : STS_ERR_FILE;
}
