// Statuses in words.
#pragma once

#include "tools/terminal/failure.h"

#include <string>

/// "STS_ERR_BUSY (2060005): a server was closed with images or lists still open".
std::string status_text(int status);

/// A failure that the plugin or a layer below has told by a status, and may have logged more of.
struct status_failure : failure {
    explicit status_failure(const std::string& text, int its_status = 0)
        : failure(text), status(its_status) {}
    int status; ///< 0 where there is more to it than one
};

/// The failure of `operation` on `object` with `status`.
status_failure failed(const std::string& operation, const std::string& object, int status);

/// The same, with the server that the object is of.
status_failure failed(const std::string& operation, const std::string& object,
                      const std::string& server, int status);

/// Throws what `failed` gives unless the status is STS_OK.
void require_ok(int status, const std::string& operation, const std::string& object);
void require_ok(int status, const std::string& operation, const std::string& object,
                const std::string& server);
