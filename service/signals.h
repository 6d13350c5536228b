// The signals that the service listens to, and how they end it.
#pragma once

#include <csignal>

/// SIGTERM, SIGINT and SIGHUP, which all threads that are started from now on leave to whoever
/// waits for them. SIGPIPE is ignored.
sigset_t take_signals();

/// From now on another SIGTERM or SIGINT ends the process at once; and after so many milliseconds
/// it ends with 1 and says so on standard error, whoever holds it up. `signals` are those that were
/// taken.
void bound_the_end(const sigset_t& signals, int milliseconds);
