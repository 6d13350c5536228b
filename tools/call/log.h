// The messages that the host receives during one call. Those of other calls go where the operator
// wants them.
#pragma once

#include "tools/host/engine_watch.h"

#include <string>
#include <vector>

struct call_message {
    std::string severity;
    std::string text;
};

/// As watching_session, for one stage at a time.
sts_session_def_v7_t recording_session(const char* id, log_choice shown);

/// While one lives, the session's messages go into `messages` and nowhere else.
class recording {
  public:
    explicit recording(std::vector<call_message>& messages);
    ~recording();
    recording(const recording&) = delete;
    recording& operator=(const recording&) = delete;
};
