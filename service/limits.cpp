#include "service/limits.h"

#include "service/flow_key.h"
#include "service/in_quotes.h"

#include "config/settings.h"

#include <fmt/format.h>
#include <limits>
#include <utility>

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

/// Reads the rows into `read`, except those of storages that no key can name. The names that were
/// left out.
std::vector<std::string> read_rows(std::string text, throttling_config_s& read) {
    read_buf_to_var(nullptr, text.data(), &read);
    std::vector<std::string> no_names;
    for (auto each = read.connections.begin(); each != read.connections.end();) {
        if (is_storage_name(each->first)) {
            ++each;
        } else {
            no_names.push_back(in_quotes(each->first));
            each = read.connections.erase(each);
        }
    }
    return no_names;
}

/// The parser passes over what it can't read without saying so. A record that no row can lead to
/// tells: it has changed if any was read.
bool has_readable_row(const std::string& text) {
    throttling_config_s read = unread_settings();
    read_rows(text, read);
    return !are_equal(read, unread_settings());
}

void add_change(std::string& text, const char* what, uint64_t old, uint64_t now) {
    if (old != now) {
        text += fmt::format("{}{} {} -> {}", text.empty() ? "" : ", ", what, old, now);
    }
}

} // namespace

settings_text read_settings(const std::string& text, const settings_ptr& base) {
    if (!has_readable_row(text)) {
        return {};
    }
    auto read = std::make_shared<throttling_config_s>();
    if (base != nullptr && text.size() == cut_text_size) {
        *read = *base;
        read->connections.clear();
    }
    std::vector<std::string> no_names = read_rows(text, *read);
    return {std::move(read), std::move(no_names)};
}

settings_ptr with_changes(const throttling_config_s& current, const throttling_config_s& earlier,
                          const throttling_config_s& now) {
    auto changed = std::make_shared<throttling_config_s>(current);
    for (const setting& each : settings) {
        if (each.kind == setting_kind::number && earlier.*each.value != now.*each.value) {
            (*changed).*each.value = now.*each.value;
        }
    }
    if (earlier.avail_bandwidth != now.avail_bandwidth) {
        changed->avail_bandwidth = now.avail_bandwidth;
    }
    for (const auto& [name, limit] : now.connections) {
        const auto before = earlier.connections.find(name);
        if (before == earlier.connections.end() || before->second != limit) {
            changed->connections[name] = limit;
        }
    }
    check_time(nullptr, changed.get());
    return changed;
}

std::string rows_of(const throttling_config_s& config) {
    std::string text;
    for (const setting& each : settings) {
        if (each.kind == setting_kind::bandwidth) {
            text += fmt::format("name={},value={},", each.key, config.avail_bandwidth);
        } else if (each.kind == setting_kind::number && each.description != nullptr) {
            text += fmt::format("name={},value={},", each.key, config.*each.value);
        }
    }
    return text;
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
