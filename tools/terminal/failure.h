// How an operation of the tool ends early.
#pragma once

#include <stdexcept>

/// What the tool ends with.
enum exit_code : int {
    EXIT_DONE = 0,
    EXIT_FAILED = 1, ///< an operation failed, or a comparison found differences
    EXIT_USAGE = 2,
    EXIT_INTERRUPTED = 130,
};

/// The operation can't be done; the text names what, on which object and why.
struct failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The arguments are wrong in a way that only shows when they are looked at together or against a
/// server.
struct usage_failure : failure {
    using failure::failure;
};

/// Somebody asked for the end, or another stream has failed: not this stream's fault.
struct abandoned : std::exception {
    const char* what() const noexcept override { return "abandoned"; }
};
