// What the library tells a host: messages to the log of the session that it works for.
#pragma once

#include "plugin/stsapi.h"

#include <string>

namespace disk {

/// Gives a message to the session's log, if that takes its severity.
inline void tell(const sts_session_def_v7_t& session, sts_severity_v7_t severity,
                 const std::string& message) {
    const unsigned wanted = severity == STS_SEV_WARN ? STS_LOG_WARN : STS_LOG_ERROR;
    if (session.log != nullptr && (session.log_mask & wanted) != 0) {
        session.log(session.session_id, ("[libsts]" + message).c_str(), severity);
    }
}

} // namespace disk
