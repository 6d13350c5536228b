// What the service says of itself, for people.
#pragma once

#include "tools/terminal/tables.h"

#include <string>

/// A line about the service, and a table of its storages. Throws failure where `status` isn't what
/// a service says.
std::string status_text(const ordered_json& status);
