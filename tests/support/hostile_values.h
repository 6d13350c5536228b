// Values as no sender of good will makes them, and such as are legal though nobody makes them: for
// whoever reads values, on either side of the wire.
#pragma once

#include "tests/support/giop.h"

#include <functional>
#include <string>
#include <vector>

namespace giop {

constexpr uint32_t VALUE_TAG = 0x7fffff00; // with no id
constexpr uint32_t WITH_CODE_BASE = 1;     // what is added to it
constexpr uint32_t WITH_ID = 2;
constexpr uint32_t WITH_IDS = 6;
constexpr uint32_t CHUNKED = 8;

/// A value, written where one is expected.
struct odd_value {
    const char* name;
    std::function<void(cdr_writer&)> put;
};

/// A type of value that has a state of four octets or more, all numbers.
struct value_type {
    std::string id;
    std::function<void(cdr_writer&)> put_state;
};

/// What is to be refused of such a type.
std::vector<odd_value> hostile_values(const value_type& type);
/// What is to be taken, and is the same as its plain form.
std::vector<odd_value> legal_values(const value_type& type);

/// A value in whose state other values of the type stand, `depth` of them in each other, all
/// chunked, with nothing behind.
void put_nested_chunks(cdr_writer& out, const value_type& type, int depth);
/// A value that is followed by another one within its chunks, as a type that is truncated has it.
void put_with_remainder(cdr_writer& out, const value_type& type);

} // namespace giop
