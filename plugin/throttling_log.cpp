// The log file is shared by every process that loads the plugin on the same day: each line is
// written in one piece under a record lock on the whole file, and flushed so that a crash loses
// nothing.

#include "plugin/throttling_log.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
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

std::atomic<long> g_process{0}; ///< this process's id, 0: to be asked for

/// Has the id forgotten in each process that is forked from now on. False if that can't be.
bool follow_forks() {
    return pthread_atfork(nullptr, nullptr, [] { g_process = 0; }) == 0;
}
bool g_is_told_of_forks = false;

long process_id() {
    const long known = g_process.load(std::memory_order_relaxed);
    if (known != 0) {
        return known;
    }
    const long asked = getpid();
    g_process.store(g_is_told_of_forks ? asked : 0, std::memory_order_relaxed);
    return asked;
}

/// The second whose time of day was last worked out, above that time in three fields of six bits.
/// localtime_r takes a lock of the whole process, and a second has many lines.
std::atomic<uint64_t> g_last_clock{0};
constexpr unsigned clock_bits = 18;

uint64_t clock_at(time_t second) {
    const uint64_t wanted = static_cast<uint64_t>(second) << clock_bits;
    const uint64_t kept = g_last_clock.load(std::memory_order_relaxed);
    if (kept != 0 && kept >> clock_bits == wanted >> clock_bits) {
        return kept;
    }
    tm local = {};
    localtime_r(&second, &local);
    const auto field = [](int value) { return static_cast<uint64_t>(value); };
    const uint64_t clock =
        wanted | field(local.tm_hour) << 12U | field(local.tm_min) << 6U | field(local.tm_sec);
    g_last_clock.store(clock, std::memory_order_relaxed);
    return clock;
}

/// A line of the file: its tag, and behind that what may be cut.
class file_line {
  public:
    explicit file_line(const char* tag) {
        add(tag);
        add(" ");
        end_ = size_ + line_size - 1;
    }
    void add(const char* text) { add(text, strlen(text)); }
    void add(long number) {
        char digits[20];
        const auto written = std::to_chars(digits, digits + sizeof digits, number);
        add(digits, static_cast<size_t>(written.ptr - digits));
    }
    void add_two_digits(uint64_t number) {
        const char digits[] = {static_cast<char>('0' + number / 10),
                               static_cast<char>('0' + number % 10)};
        add(digits, sizeof digits);
    }
    void write_to(FILE* stream) {
        text_[size_++] = '\n';
        fwrite_unlocked(text_, 1, size_, stream);
        fflush(stream);
    }

  private:
    void add(const char* text, size_t size) {
        const size_t taken = std::min(size, end_ - size_);
        memcpy(text_ + size_, text, taken);
        size_ += taken;
    }

    char text_[line_size + 16]; // with the tag, a blank and the newline
    size_t size_ = 0;
    size_t end_ = line_size;
};

int write_to_file(const sts_session_def_v7_t* session, const char* who, int severity,
                  const char* message) {
    const char* label =
        session != nullptr && session->session_id != nullptr ? session->session_id : "no session";
    timeval now = {};
    gettimeofday(&now, nullptr);
    const uint64_t clock = clock_at(now.tv_sec);
    file_line line(tag_of(severity));
    line.add("[");
    line.add(process_id());
    line.add("]");
    line.add_two_digits(clock >> 12U & 63U);
    line.add(":");
    line.add_two_digits(clock >> 6U & 63U);
    line.add(":");
    line.add_two_digits(clock & 63U);
    line.add(".");
    line.add(static_cast<long>(now.tv_usec / 1000));
    line.add("[");
    line.add(label);
    line.add("][");
    line.add(name_of(who));
    line.add("]");
    line.add(message);

    // A record lock doesn't keep out threads of this process, and is dropped for all of them at the
    // first unlock: the stream's own lock spans the whole of it.
    flockfile(g_flog);
    const bool locked = set_lock(F_WRLCK);
    if (locked) {
        line.write_to(g_flog);
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
        g_is_told_of_forks = g_is_told_of_forks || follow_forks();
    }
    g_last_clock = 0; // the time zone may be another one
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
