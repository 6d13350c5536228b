// The host's logging callback: hears what the engine announces, and prints what the operator asked
// to see. A host isn't told of a wait in any other way: the wait is inside the call.
#pragma once

#include "plugin/stsapi.h"

#include <atomic>
#include <cstdint>
#include <string>

enum class log_choice {
    nothing,    ///< but the storage library's own warnings and errors, which are always shown
    problems,   ///< warnings and errors
    everything, ///< debug messages too
};

/// "error", "warning", ...
const char* severity_word(sts_severity_v7_t severity);

/// The session that the tool opens servers with. `id` must live as long as the server; the callback
/// is one for the whole process, as is `shown`.
sts_session_def_v7_t watching_session(const char* id, log_choice shown);

/// While one lives, the seconds that the engine sleeps in calls made by this thread are added to
/// `slept`.
class slept_seconds {
  public:
    explicit slept_seconds(std::atomic<uint64_t>& slept);
    ~slept_seconds();
    slept_seconds(const slept_seconds&) = delete;
    slept_seconds& operator=(const slept_seconds&) = delete;

  private:
    std::atomic<uint64_t>* const outer_;
};

/// Whether the engine has said that an exchange with the service failed; a refusal is none.
bool has_service_failed();

/// How many connections share the bandwidth, as the engine last said; 1 until it says so.
uint64_t sharing_connections();
