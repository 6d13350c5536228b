// What applies at some time, and until when.
#pragma once

#include "config/allowed_rate.h"

#include <ctime>
#include <optional>
#include <string>
#include <vector>

/// The time that `text` names, as seen from `now`: "now", "+2h" (also m, d), "Sat 03:00" (the next
/// one), "2026-11-28 03:00", all local. None: it names no time.
std::optional<time_t> time_named(const std::string& text, time_t now);

/// Says that `text`, given for `option`, names none.
std::string no_time_text(const std::string& option, const std::string& text);

/// What a help says of such times.
constexpr const char* when_help = "WHEN is local: now, +2h (or m, d), \"Sat 03:00\" (the next),\n"
                                  "\"2026-11-28 03:00\". ";

/// When, from `start` on, another rate applies to one of `directions`. None: not within a week.
std::optional<time_t> next_change(const throttling_config_s& config,
                                  const std::vector<operation_type_t>& directions, time_t start);

/// "Saturday 2026-11-28 03:00".
std::string day_and_time(time_t when);
