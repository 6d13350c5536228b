#include "tools/terminal/tables.h"

#include "tools/terminal/printable.h"

#include <algorithm>
#include <fmt/format.h>

std::string dumped(const ordered_json& value, int indent) {
    return value.dump(indent, ' ', false, ordered_json::error_handler_t::replace);
}

std::string columns_text(const std::vector<std::string>& headings,
                         const std::vector<std::vector<std::string>>& lines) {
    std::vector<size_t> widths;
    for (size_t column = 0; column < headings.size(); ++column) {
        size_t width = headings[column].size();
        for (const auto& line : lines) {
            width = std::max(width, line[column].size());
        }
        widths.push_back(width);
    }
    std::string text;
    const auto add_line = [&](const std::vector<std::string>& cells) {
        std::string line;
        for (size_t column = 0; column < cells.size(); ++column) {
            line += fmt::format("{:<{}}  ", cells[column], widths[column]);
        }
        line.resize(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    };
    add_line(headings);
    for (const auto& line : lines) {
        add_line(line);
    }
    return text;
}

std::string field_lines(const ordered_json& object) {
    size_t width = 0;
    for (const auto& [name, value] : object.items()) {
        width = std::max(width, name.size());
    }
    std::string text;
    for (const auto& [name, value] : object.items()) {
        text +=
            fmt::format("{:<{}}  {}\n", name, width,
                        value.is_string() ? printable(value.get<std::string>()) : dumped(value));
    }
    return text;
}
