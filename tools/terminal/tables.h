// What there is to show, as tables and lines for people and as JSON for programs.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

using nlohmann::ordered_json;

/// As text on one line; `indent` at least 0: on several. Names are bytes: what is no UTF-8 in them
/// is replaced.
std::string dumped(const ordered_json& value, int indent = -1);

/// A table with a line of headings; the columns stand as wide as they have to.
std::string columns_text(const std::vector<std::string>& headings,
                         const std::vector<std::vector<std::string>>& lines);

/// An object as lines, its names in one column and its values behind them.
std::string field_lines(const ordered_json& object);
