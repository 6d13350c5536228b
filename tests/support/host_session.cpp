#include "tests/support/host_session.h"

#include <algorithm>
#include <mutex>

namespace {

std::mutex guard;

void keep(const char* session_id, const char* message, sts_severity_v7_t severity) {
    const std::lock_guard<std::mutex> lock(guard);
    host_log().push_back({severity, message, session_id != nullptr ? session_id : "(null)"});
}

} // namespace

std::vector<logged>& host_log() {
    static std::vector<logged> messages;
    return messages;
}

std::vector<std::string> take_log() {
    const std::lock_guard<std::mutex> lock(guard);
    std::vector<std::string> lines;
    for (const logged& each : host_log()) {
        lines.push_back(std::to_string(each.severity) + " " + each.text);
    }
    host_log().clear();
    return lines;
}

std::vector<std::string> take_errors() {
    std::vector<std::string> lines = take_log();
    const auto is_no_error = [](const std::string& line) { return line[0] != '4'; };
    lines.erase(std::remove_if(lines.begin(), lines.end(), is_no_error), lines.end());
    return lines;
}

bool has_logged(int severity, const std::string& text) {
    return std::any_of(host_log().begin(), host_log().end(), [&](const logged& each) {
        return each.severity == severity && each.text == text;
    });
}

sts_session_def_v7_t host_session(const char* id, uint16_t mask) {
    sts_session_def_v7_t session = {};
    session.session_id = id;
    session.log = keep;
    session.log_mask = mask;
    return session;
}
