#include "tools/manage/settings.h"

#include "config/settings.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <map>
#include <optional>

namespace {

constexpr const char* name_field = "name=";
constexpr const char* description_field = ",description=";
constexpr const char* type_field = ",type=";
constexpr const char* value_field = ",value=";
constexpr const char* fixed_field = ",fixed=";
constexpr const char* row_boundary = ";name="; // a name may hold a ";", as any path

/// What stands in a row from behind `start` up to `end`; both have been found in it in this order.
/// Nothing when they aren't there.
std::optional<std::string> between(const std::string& row, size_t& at, const std::string& start,
                                   const std::string& end) {
    const size_t from = row.find(start, at);
    const size_t to = from == std::string::npos ? from : row.find(end, from + start.size());
    if (to == std::string::npos) {
        return {};
    }
    at = to;
    return row.substr(from + start.size(), to - from - start.size());
}

/// One row without its semicolon, which began at `place` of the text.
std::optional<setting_row> row_of(const std::string& text, size_t place) {
    if (text.compare(0, std::string(name_field).size(), name_field) != 0) {
        return {};
    }
    size_t at = 0;
    const auto name = between(text, at, name_field, description_field);
    const auto description = between(text, at, description_field, type_field);
    const auto type = between(text, at, type_field, value_field);
    const size_t value_at = at + std::string(value_field).size();
    const auto value = between(text, at, value_field, fixed_field);
    if (!name || !description || !type || !value) {
        return {};
    }
    const std::string fixed = text.substr(at + std::string(fixed_field).size());
    return setting_row{*name, *description, *type, *value, fixed != "n", place + value_at};
}

std::optional<int64_t> number_in(const std::string& text) {
    int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

/// What a key of the plugin's stands for in its record.
std::optional<std::string> plugin_value(const throttling_config_s& config, const std::string& key) {
    for (const setting& each : settings) {
        if (each.key == nullptr || key != each.key) {
            continue;
        }
        switch (each.kind) {
        case setting_kind::number:
            return std::to_string(config.*each.value);
        case setting_kind::bandwidth:
            return std::to_string(config.avail_bandwidth);
        default:
            return {};
        }
    }
    const auto found = key.compare(0, storage_prefix_length, storage_prefix) == 0
                           ? config.connections.find(key.substr(storage_prefix_length))
                           : config.connections.end();
    return found != config.connections.end() ? std::optional(std::to_string(found->second))
                                             : std::nullopt;
}

const setting_row& require_row(const server_settings& current, const std::string& key,
                               const std::string& value, const std::string& server) {
    const setting_row* const row = current.find(key);
    if (row == nullptr) {
        std::vector<std::string> keys;
        for (const setting_row& each : current.rows()) {
            keys.push_back(each.name);
        }
        throw failure(fmt::format("\"{}\" can't be set to \"{}\": the server \"{}\" has no such "
                                  "key; it has {}",
                                  key, value, server, fmt::join(keys, ", ")));
    }
    if (row->fixed) {
        throw failure(fmt::format(
            "\"{}\" can't be set to \"{}\" through the server \"{}\": that is fixed there. What "
            "all "
            "storages share is set through a server of the type \"global\", and the limit of a "
            "storage through that storage's own server",
            key, value, server));
    }
    return *row;
}

void require_value(const setting_row& row, const std::string& value) {
    if (row.type == "int" && !number_in(value)) {
        throw failure(
            fmt::format("\"{}\" can't be set to \"{}\": not a whole number, or too long a one",
                        row.name, value));
    }
    if (value.find_first_of(",;\n") != std::string::npos) {
        throw failure(fmt::format("\"{}\" can't be set to \"{}\": a value holds no comma, "
                                  "semicolon or line break",
                                  row.name, printable(value)));
    }
}

} // namespace

server_settings::server_settings(std::string text, const std::string& server)
    : text_(std::move(text)) {
    if (!text_.empty() && text_.back() != ';') {
        throw failure(fmt::format("the configuration text of the server \"{}\" is cut short behind "
                                  "{} bytes",
                                  server, text_.size()));
    }
    for (size_t start = 0; start < text_.size();) {
        const size_t end = std::min(text_.find(row_boundary, start), text_.size() - 1);
        const std::optional<setting_row> row = row_of(text_.substr(start, end - start), start);
        if (!row) {
            throw failure(fmt::format("the configuration text of the server \"{}\" holds \"{}\", "
                                      "which is no row",
                                      server, printable(text_.substr(start, end - start))));
        }
        rows_.push_back(*row);
        start = end + 1;
    }
}

const setting_row* server_settings::find(const std::string& name) const {
    const setting_row* found = nullptr;
    for (const setting_row& row : rows_) {
        if (row.name == name && (found == nullptr || (found->fixed && !row.fixed))) {
            found = &row;
        }
    }
    return found;
}

std::pair<std::string, std::string> assignment_of(const std::string& argument) {
    const size_t sign = argument.rfind('=');
    if (sign == std::string::npos || sign == 0 || sign + 1 == argument.size()) {
        throw usage_failure(fmt::format("\"{}\" isn't KEY=VALUE", argument));
    }
    return {argument.substr(0, sign), argument.substr(sign + 1)};
}

std::string changed_text(const server_settings& current, const assignments& wanted,
                         const std::string& server) {
    std::map<std::string, std::string> values;
    for (const auto& [key, value] : wanted) {
        require_value(require_row(current, key, value, server), value);
        if (!values.emplace(key, value).second) {
            throw usage_failure(fmt::format("\"{}\" is set twice", key));
        }
    }
    // Every layer reads the whole text, and takes the last row of a name. From behind: places stay
    // right.
    std::string text = current.text();
    for (auto row = current.rows().rbegin(); row != current.rows().rend(); ++row) {
        if (const auto found = values.find(row->name); found != values.end()) {
            text.replace(row->value_at, row->value.size(), found->second);
        }
    }
    return text;
}

std::string refusal(const std::string& key, const std::string& value, const std::string& instead) {
    return fmt::format("\"{}\" doesn't take \"{}\" (it would be {}); ", key, value, instead);
}

std::string refused_by_plugin(const std::string& text, const assignments& wanted) {
    throttling_config_s config;
    std::string copy = text; // its reader writes to it for a moment
    read_buf_to_var(nullptr, copy.data(), &config);
    std::string refused;
    for (const auto& [key, value] : wanted) {
        const std::optional<std::string> instead = plugin_value(config, key);
        if (instead && !is_same_value(*instead, value)) {
            refused += refusal(key, value, *instead);
        }
    }
    return refused;
}

bool is_same_value(const std::string& left, const std::string& right) {
    const std::optional<int64_t> number = number_in(left);
    return left == right || (number && number == number_in(right));
}
