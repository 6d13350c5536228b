// A store's settings: the table of them, their text form, their file.

#include "platform/sts/store/settings.h"

#include "platform/sts/caller/failure.h"

#include <algorithm>
#include <charconv>

namespace disk {

namespace {

struct setting {
    std::string_view key;
    std::string_view description;
    int64_t settings::*value;
    int64_t low;
    int64_t high;
};

constexpr setting all_settings[] = {
    {"STS:EVENTS_KEPT", "Events that are kept until they are deleted", &settings::events_kept, 0,
     1000000},
    {"STS:SYNC_AT_CLOSE", "Whether closing an image waits until it is on the disk",
     &settings::sync_at_close, 0, 1},
};

constexpr const char* settings_name = "settings";
constexpr uint64_t longest_file = 1U << 20U; // of settings
constexpr std::string_view name_field = "name=";
constexpr std::string_view own_start = "name=STS:";
constexpr std::string_view value_field = ",value=";

const setting* find_setting(std::string_view key) {
    for (const setting& each : all_settings) {
        if (each.key == key) {
            return &each;
        }
    }
    return nullptr;
}

/// Cuts the text up to `end` off its front; all of it where there is no `end`.
std::string_view take_until(std::string_view& text, char end) {
    const std::string_view taken = text.substr(0, text.find(end));
    text.remove_prefix(std::min(text.size(), taken.size() + 1));
    return taken;
}

bool store_number(const setting& which, std::string_view value, settings& changed) {
    int64_t number = 0;
    const auto [end, error] = std::from_chars(value.begin(), value.end(), number);
    if (error != std::errc() || end != value.end() || number < which.low || number > which.high) {
        return false;
    }
    changed.*which.value = number;
    return true;
}

/// What came of the rows of a text.
struct outcome {
    int own_rows = 0;
    std::string first_reason; ///< why one can't be applied; empty when all is well
};

/// Applies a row of ours from its key on. The reason why it can't be.
std::string apply_own_row(std::string_view row, settings& changed) {
    const std::string key(row.substr(0, row.find(',')));
    const setting* const which = find_setting(key);
    if (which == nullptr) {
        return key + " is not a setting of this server";
    }
    const size_t field = row.find(value_field);
    if (field == std::string_view::npos) {
        return key + " has no value";
    }
    row.remove_prefix(field + value_field.size());
    const std::string value(row.substr(0, row.find(',')));
    if (!store_number(*which, value, changed)) {
        return key + ": \"" + value + "\" is not a number from " + std::to_string(which->low) +
               " to " + std::to_string(which->high);
    }
    return {};
}

/// Applies our rows of a text and passes over those of other layers.
outcome apply_rows(std::string_view text, settings& changed) {
    outcome result;
    while (!text.empty()) {
        std::string_view row = take_until(text, ';');
        row.remove_prefix(std::min(row.find_first_not_of(" \t\r\n"), row.size()));
        if (row.substr(0, own_start.size()) != own_start) {
            continue;
        }
        row.remove_prefix(name_field.size());
        ++result.own_rows;
        const std::string reason = apply_own_row(row, changed);
        if (result.first_reason.empty()) {
            result.first_reason = reason;
        }
    }
    return result;
}

} // namespace

settings read_settings(const store& files) {
    settings current;
    const unique_fd control = find_control_directory(files);
    if (control) {
        (void)apply_rows(read_file(control.get(), settings_name, longest_file).value_or(""),
                         current);
    }
    return current;
}

std::string settings_text(const settings& current) {
    std::string text;
    for (const setting& each : all_settings) {
        text.append("name=").append(each.key);
        text.append(",description=").append(each.description);
        text.append(",type=int,value=").append(std::to_string(current.*each.value));
        text.append(",fixed=n;");
    }
    return text;
}

int write_settings(const store& files, std::string_view text, std::string* error) {
    settings unused;
    const outcome rows = apply_rows(text, unused);
    *error = rows.first_reason;
    if (!error->empty()) {
        return STS_ERR_INVALID;
    }
    if (rows.own_rows == 0) {
        return STS_OK; // not even a directory is made for the rows of others
    }
    const unique_fd control = make_control_directory(files);
    const directory_lock lock(control.get(), directory_lock::kind::exclusive, files.waiter);
    settings changed = read_settings(files);
    (void)apply_rows(text, changed);
    replace_file(control.get(), settings_name, settings_text(changed), durability::synced);
    return STS_OK;
}

durability image_durability(const store& files) noexcept {
    settings current;
    (void)status_of([&] { current = read_settings(files); });
    return current.sync_at_close != 0 ? durability::synced : durability::none;
}

} // namespace disk
