// The one logging call. A message has two sinks with a filter each: the host's callback under the
// session's mask, and this plugin's daily file under the configured level.
//
//   file line:  [ERROR] [PID]HH:MM:SS.MS[SESSION][FUNCTION]MESSAGE
//
// The file passes severities numerically *below* its level, so level 5 is the one that shows
// errors:
//   0 no file   1 nothing   2 info   3 + warnings   4 + debug   5 + errors
#pragma once

#include "plugin/stsapi.h"

/// Opens the daily file for appending unless `level` is 0, and sets the level. The directory must
/// exist. STS_ERR_FILE: no name could be made; STS_ERR_OPEN: the file can't be opened, the level is
/// as it was.
int log_init(int32_t level);

/// Logs one message, at most 4094 characters of it. `session` null: the file alone; `who` null:
/// "no-func"; `third` isn't read. STS_ERR_INVALID when the file can't be locked, else 0.
int log_msg(const sts_session_def_v7_t* session, const char* who, int32_t third,
            sts_severity_v7_t severity, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

/// Closes the file, if one is open. STS_ERR_FILE when closing fails. The level stays.
int log_shutdown();
