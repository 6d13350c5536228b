// What the settings allow, hour by hour, before anything is moved.
#pragma once

#include "config/allowed_rate.h"
#include "tools/terminal/tables.h"

#include <ctime>
#include <string>

/// A column for each day from Monday on, and a row for each hour; or the day of `now` alone, equal
/// hours in one row. The hour of `now` is marked.
std::string preview_table(const throttling_config_s& config, operation_type_t direction,
                          const tm& now, bool week);

/// The same for a program, both directions: objects with day, from and to (hours), window, and
/// read and write (bytes per second).
ordered_json preview_json(const throttling_config_s& config, const tm& now, bool week);

/// "work time", "off time", "weekend", or "no window".
const char* window_name(pacing_window window);

/// At a rate of 0 the plugin ends the process, which nobody should have to find out.
bool allows_nothing_somewhen(const throttling_config_s& config, operation_type_t direction);
