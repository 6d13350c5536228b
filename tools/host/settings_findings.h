// What is wrong with the settings, as every command that goes by them says it.
#pragma once

#include "config/settings_check.h"
#include "tools/terminal/tables.h"

#include <string>

/// The settings of that file, empty: of the plugin's own; what is wrong with them is said on
/// standard error, but not that the file is missing.
checked_settings told_settings(const std::string& file = {});

/// One of them, fit to be shown.
std::string shown_text(const std::string& file, const settings_finding& finding);

/// As a list of objects: line (null: none), severity, key (null: none), wrong, effect.
ordered_json findings_json(const std::vector<settings_finding>& findings);

/// That there is no such file, and how to make one.
std::string missing_settings_text(const std::string& file);
