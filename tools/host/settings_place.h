// Where the plugin keeps its settings, and whether it can.
#pragma once

#include <string>

/// What keeps the plugin from keeping its settings there, and the remedy; empty: nothing does.
std::string settings_place_trouble();

/// Fails with that, where there is any, when `status` of the plugin says that its file can't be
/// written.
void require_settings_place(int status);
