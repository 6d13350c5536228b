// What passes between the test and its service's process: one value after the other, in binary
// form, so that a text is free to hold any byte.
//
//   {"operation": NAME, "answers": [ANSWER...]}  ->  true
//   "take"                                       ->  [REQUEST...]
#pragma once

#include "tests/support/scripted_service.h"

#include <cstdio>
#include <nlohmann/json.hpp>

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(scripted_answer, status, text, repeat, object, raises, codes,
                                   delay, fate)

inline void send_value(std::FILE* to, const nlohmann::json& value) {
    const std::vector<uint8_t> bytes = nlohmann::json::to_cbor(value);
    std::fwrite(bytes.data(), 1, bytes.size(), to);
    std::fflush(to);
}

/// The next value; a discarded one at the end.
inline nlohmann::json receive_value(std::FILE* from) {
    return nlohmann::json::from_cbor(from, false, false);
}
