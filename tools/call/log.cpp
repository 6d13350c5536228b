#include "tools/call/log.h"

#include <mutex>

namespace {

using log_callback = void (*)(const char*, const char*, sts_severity_v7_t);

std::mutex guard; // of what follows
std::vector<call_message>* recorded = nullptr;
log_callback pass_on = nullptr;

void take(const char* id, const char* message, sts_severity_v7_t severity) {
    const std::lock_guard<std::mutex> lock(guard);
    if (recorded != nullptr) {
        recorded->push_back({severity_word(severity), message});
    } else {
        pass_on(id, message, severity);
    }
}

} // namespace

sts_session_def_v7_t recording_session(const char* id, log_choice shown) {
    sts_session_def_v7_t session = watching_session(id, shown);
    pass_on = session.log;
    session.log = take;
    session.log_mask = 0xffff;
    return session;
}

recording::recording(std::vector<call_message>& messages) {
    const std::lock_guard<std::mutex> lock(guard);
    recorded = &messages;
}

recording::~recording() {
    const std::lock_guard<std::mutex> lock(guard);
    recorded = nullptr;
}
