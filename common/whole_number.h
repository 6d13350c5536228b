// Numbers of JSON that comes from elsewhere, where anything may stand in a number's place.
#pragma once

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <type_traits>

/// The whole number that `value` is, of nlohmann's JSON, whose own conversion makes something of 1e99 and of -1,
/// too. Throws std::range_error where it is none, or none of Integer's range.
template <typename Integer, typename Json>
Integer whole_number(const Json& value) {
    using range = std::numeric_limits<Integer>;
    if (value.is_number_unsigned()) {
        const auto number = value.template get<uint64_t>();
        if (number <= static_cast<uint64_t>(range::max())) {
            return static_cast<Integer>(number);
        }
    } else if (value.is_number_integer() && std::is_signed_v<Integer>) {
        const auto number = value.template get<int64_t>(); // below 0
        if (number >= static_cast<int64_t>(range::min())) {
            return static_cast<Integer>(number);
        }
    }
    throw std::range_error("a number is none, or out of its range");
}
