// What the settings allow, hour by hour, before anything is moved.
#pragma once

#include "config/allowed_rate.h"

#include <optional>
#include <string>

struct preview_options {
    std::optional<operation_type_t> direction; ///< none: both
    bool week = false;                         ///< all seven days; else today
};

/// Reads the settings file, names what is wrong with it on standard error, and prints the rates.
/// Returns what the program ends with.
int run_preview(const preview_options& options);

/// A column for each day from Monday on, or for the day of `now` alone, and a row for each hour.
/// The hour of `now` is marked.
std::string preview_table(const throttling_config_s& config, operation_type_t direction,
                          const tm& now, bool week);
