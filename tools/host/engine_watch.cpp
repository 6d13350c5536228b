#include "tools/host/engine_watch.h"

#include "tools/terminal/console.h"
#include "tools/terminal/printable.h"

#include <cstdlib>
#include <cstring>

namespace {

std::atomic<log_choice> shown_messages{log_choice::nothing};
std::atomic<uint64_t> connections{1};
std::atomic<bool> service_failed{false};
thread_local std::atomic<uint64_t>* slept_here = nullptr;

constexpr const char* storage_mark = "[libsts]"; // what messages of the storage library begin with

bool begins_with(const char* text, const char* start) {
    return strncmp(text, start, strlen(start)) == 0;
}

/// The number behind the last `mark` of `text`; 0 when there is none.
uint64_t number_behind(const char* text, const char* mark) {
    const char* const found = strstr(text, mark);
    const long number = found != nullptr ? strtol(found + strlen(mark), nullptr, 10) : 0;
    return number > 0 ? static_cast<uint64_t>(number) : 0;
}

/// Takes "[check_bandwidth]sleep locally=3." and its like. This runs several times in every
/// transfer, so it looks at as little as it can.
void hear(const char* message) {
    if (!begins_with(message, "[check_")) {
        return;
    }
    const char* const text = strchr(message, ']');
    if (text == nullptr) {
        return;
    }
    if (begins_with(text, "]sleep ")) {
        if (slept_here != nullptr) {
            *slept_here += number_behind(text, "=");
        }
    } else if (begins_with(text, "]bandwidth_per_second=")) {
        connections = number_behind(text, "conne#=");
    }
}

/// "[throttling_write_image_v7]fail to check bandwidth from service." and its like.
bool tells_of_a_failed_exchange(const char* message) {
    const char* const text = strstr(message, "]fail to check ");
    return text != nullptr && strstr(text, " from service.") != nullptr;
}

bool is_shown(sts_severity_v7_t severity, bool is_storage) {
    const bool is_problem = severity == STS_SEV_WARN || severity == STS_SEV_ERROR;
    switch (shown_messages) {
    case log_choice::nothing:
        return is_storage && is_problem;
    case log_choice::problems:
        return is_problem;
    default:
        return true;
    }
}

void take_message(const char* /*session_id*/, const char* message, sts_severity_v7_t severity) {
    if (severity == STS_SEV_DEBUG) {
        hear(message);
    }
    const bool is_storage = begins_with(message, storage_mark);
    if (severity == STS_SEV_ERROR && !is_storage && tells_of_a_failed_exchange(message)) {
        service_failed = true;
    }
    if (is_shown(severity, is_storage)) {
        std::string text(message + (is_storage ? strlen(storage_mark) : 0));
        while (!text.empty() && text.back() == '\n') {
            text.pop_back();
        }
        console::get().problem(std::string(is_storage ? "storage " : "plugin ") +
                               severity_word(severity) + ": " + printable(text));
    }
}

} // namespace

const char* severity_word(sts_severity_v7_t severity) {
    switch (severity) {
    case STS_SEV_INFO:
        return "info";
    case STS_SEV_WARN:
        return "warning";
    case STS_SEV_DEBUG:
        return "debug";
    case STS_SEV_ERROR:
        return "error";
    default:
        return "host";
    }
}

sts_session_def_v7_t watching_session(const char* id, log_choice shown) {
    shown_messages = shown;
    sts_session_def_v7_t session = {};
    session.session_id = id;
    session.log = take_message;
    // In any case debug messages, for the sleeps, and what the storage has to say.
    session.log_mask = STS_LOG_DEBUG | STS_LOG_WARN | STS_LOG_ERROR;
    if (shown != log_choice::nothing) {
        session.log_mask |= STS_LOG_INFO | STS_LOG_HOST;
    }
    return session;
}

slept_seconds::slept_seconds(std::atomic<uint64_t>& slept) : outer_(slept_here) {
    slept_here = &slept;
}

slept_seconds::~slept_seconds() { slept_here = outer_; }

bool has_service_failed() { return service_failed; }

uint64_t sharing_connections() {
    const uint64_t count = connections;
    return count == 0 ? 1 : count;
}
