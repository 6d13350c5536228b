// What "config" says of settings: of a file as it is, and of what is about to be set.
#pragma once

#include "tools/manage/settings.h"

#include <string>

/// Prints what is wrong with the file; empty: the plugin's own. Returns what the program ends with.
int run_check(const std::string& file, bool as_json);

/// `wanted`, with the plugin's form in place of every size that somebody wrote as "100M", where
/// `current` says that bytes are asked for.
assignments with_plain_sizes(const server_settings& current, assignments wanted);

/// Errors that the plugin's settings would have with `wanted` and don't have as they are, a line
/// each; empty when there are none.
std::string new_errors(const server_settings& current, const assignments& wanted);
