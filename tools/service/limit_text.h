// Limits of the service as operators write and read them.
#pragma once

#include "tools/terminal/tables.h"

#include <cstdint>
#include <string>

/// Bytes per second that "50M", "1.5GB/s" or "0" stand for. Throws usage_failure, which names
/// `option`.
uint64_t rate_in(const std::string& option, const std::string& text);

/// Seconds that "90", "30m", "2h" or "1d" stand for. Throws usage_failure, which names `option`.
int64_t duration_in(const std::string& option, const std::string& text);

/// "3 d 2 h", "2 h 5 min", "5 min 3 s".
std::string duration_text(int64_t seconds);

/// What the service answered to a limit, in lines: the limits that hold now, and what is to be known
/// of those that were `asked` for. Throws failure where it isn't what a service answers.
std::string limit_text(const ordered_json& answer, const ordered_json& asked);

/// A table of the limits that hold; empty without any.
std::string limits_table(const ordered_json& limits);
