// The texts that a client sends with each question: a key, which is the kind of use and the storage
// ("a:", "r:" or "w:" and its name), and the text of its own session.
#pragma once

#include "config/allowed_rate.h"
#include "plugin/stsapi.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

struct flow_key {
    operation_type_t operation; ///< "r:", "w:", or OPERATION_READ_WRITE for "a:"
    std::string storage;
};

inline bool has_control_character(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char each) {
        const auto byte = static_cast<unsigned char>(each);
        return byte < ' ' || byte == 0x7f;
    });
}

/// Whether `text` can be a storage's: 1 to STS_NAME_SIZE - 1 bytes, none a control character.
inline bool is_storage_name(std::string_view text) {
    return !text.empty() && text.size() < STS_NAME_SIZE && !has_control_character(text);
}

/// None when `text` is no key.
inline std::optional<flow_key> parse_key(std::string_view text) {
    constexpr std::string_view prefixes = "rwa"; // in the order of operation_type_t
    constexpr size_t prefix_length = 2;
    if (text.size() < prefix_length || text[1] != ':') {
        return std::nullopt;
    }
    const size_t operation = prefixes.find(text[0]);
    const std::string_view storage = text.substr(prefix_length);
    if (operation == std::string_view::npos || !is_storage_name(storage)) {
        return std::nullopt;
    }
    return flow_key{static_cast<operation_type_t>(operation), std::string(storage)};
}

/// Whether `text` can be a session's: its ":" were replaced before it was sent.
inline bool is_session_text(std::string_view text) {
    return text.size() < STS_NAME_SIZE && text.find(':') == std::string_view::npos &&
           !has_control_character(text);
}
