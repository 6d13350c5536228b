// The settings that clients send as row text: what of them the service reads.
#pragma once

#include "config/throttling_util.h"

#include <memory>
#include <string>
#include <vector>

using settings_ptr = std::shared_ptr<const throttling_config_s>;
using connection_limits = decltype(throttling_config_s::connections);

/// What is read of a row text.
struct settings_text {
    settings_ptr settings; ///< what it doesn't name has its default; null: no row can be read
    std::vector<std::string> no_names; ///< in quotes, of rows left out: no key could have them
};

/// What it doesn't name is as in `base`, which may be null, where the text was cut.
settings_text read_settings(const std::string& text, const settings_ptr& base = nullptr);

/// Bytes of a text that was cut: the plugin has room for no more, and drops what is behind.
constexpr size_t cut_text_size = STS_CONFIG_SIZE - 1;

/// The settings `current` with what differs from `earlier` to `now`, which are of one client: it
/// changes nothing but what it has changed.
settings_ptr with_changes(const throttling_config_s& current, const throttling_config_s& earlier,
                          const throttling_config_s& now);

/// The rates of settings in rows, as read_settings reads them; no limits of storages.
std::string rows_of(const throttling_config_s& config);

/// Connections that `storage` may have at once.
int64_t limit_of(const throttling_config_s& config, const std::string& storage);

/// What differs for `storage` from `old` to `now`, as in "limit 10 -> 2, THR:SAMPLE_INTERVAL 0 ->
/// 30"; empty when nothing does.
std::string changes(const throttling_config_s& old, const throttling_config_s& now,
                    const std::string& storage);
