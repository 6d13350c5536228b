// What the settings allow, hour by hour, before anything is moved.
#pragma once

#include "config/allowed_rate.h"

#include <ctime>
#include <string>

/// A column for each day from Monday on, or for the day of `now` alone, and a row for each hour.
/// The hour of `now` is marked.
std::string preview_table(const throttling_config_s& config, operation_type_t direction,
                          const tm& now, bool week);

/// At a rate of 0 the plugin ends the process, which nobody should have to find out.
bool allows_nothing_somewhen(const throttling_config_s& config, operation_type_t direction);
