// A host's session whose callback keeps every message.
#pragma once

#include "plugin/stsapi.h"

#include <string>
#include <vector>

struct logged {
    int severity;
    std::string text;    ///< as the callback got it: "[FUNCTION]MESSAGE"
    std::string session; ///< "(null)" for none
};

/// Takes every message of the sessions made by host_session. One at a time; start of a test: clear.
std::vector<logged>& host_log();

/// The messages since the last call, each as "SEVERITY [FUNCTION]MESSAGE", as in "3
/// [stspi_init]leave.".
std::vector<std::string> take_log();

/// The error messages among them; the others are gone, too.
std::vector<std::string> take_errors();

/// Whether a message of that severity stands in the log, function name and all.
bool has_logged(int severity, const std::string& text);

/// A session with that identifier and mask; `id` null is a session without one.
sts_session_def_v7_t host_session(const char* id = "s", uint16_t mask = 0xffff);
