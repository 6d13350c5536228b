#include "service/limits.h"

#include "config/settings.h"

#include <fmt/format.h>
#include <limits>

namespace {

/// Values that no row can set. The hours make windows that need no mending, which the parser does
/// at the end.
throttling_config_s unread_settings() {
    throttling_config_s unread;
    for (const setting& each : settings) {
        if (each.kind == setting_kind::number) {
            unread.*each.value = std::numeric_limits<int32_t>::min();
        }
    }
    unread.work_time_start = 100;
    unread.work_time_end = 200;
    unread.off_time_start = 300;
    unread.off_time_end = 400;
    unread.avail_bandwidth = 0;
    return unread;
}

bool are_equal(const throttling_config_s& one, const throttling_config_s& other) {
    for (const setting& each : settings) {
        if (each.kind == setting_kind::number && one.*each.value != other.*each.value) {
            return false;
        }
    }
    return one.avail_bandwidth == other.avail_bandwidth && one.connections == other.connections;
}

/// The parser passes over what it can't read without saying so. A record that no row can lead to
/// tells: it has changed if any was read.
bool has_readable_row(std::string text) {
    throttling_config_s read = unread_settings();
    read_buf_to_var(nullptr, text.data(), &read);
    return !are_equal(read, unread_settings());
}

void add_change(std::string& text, const char* what, uint64_t old, uint64_t now) {
    if (old != now) {
        text += fmt::format("{}{} {} -> {}", text.empty() ? "" : ", ", what, old, now);
    }
}

} // namespace

settings_ptr read_settings(const std::string& text) {
    if (!has_readable_row(text)) {
        return nullptr;
    }
    auto read = std::make_shared<throttling_config_s>();
    std::string writable = text;
    read_buf_to_var(nullptr, writable.data(), read.get());
    return read;
}

int64_t limit_of(const throttling_config_s& config, const std::string& storage) {
    const auto own = config.connections.find(storage);
    return own != config.connections.end() ? own->second : config.default_max_connections;
}

std::string changes(const throttling_config_s& old, const throttling_config_s& now,
                    const std::string& storage) {
    std::string text;
    add_change(text, "limit", static_cast<uint64_t>(limit_of(old, storage)),
               static_cast<uint64_t>(limit_of(now, storage)));
    add_change(text, "THR:AVAIL_BANDWIDTH", old.avail_bandwidth, now.avail_bandwidth);
    for (const setting& each : settings) {
        if (each.kind == setting_kind::number && each.description != nullptr &&
            each.value != &throttling_config_s::default_max_connections) {
            add_change(text, each.key, static_cast<uint64_t>(old.*each.value),
                       static_cast<uint64_t>(now.*each.value));
        }
    }
    return text;
}
