// What was given on the command line for the arguments of an entry.
#pragma once

#include "tools/call/table.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>

/// NAME or NAME.FIELD, and its value.
using given_values = std::map<std::string, std::string>;

/// Fails as a usage failure, naming what is wrong, unless every name is one of the entry's and has
/// a value that may be given.
void check_given(const entry& which, const entry_description& description,
                 const given_values& given);

/// The number in `text`, decimal or with 0x. Fails as a usage failure unless it fits the C++ type.
uint64_t number_for(const std::string& name, const std::string& type, const std::string& text);

/// "LSU/IMAGE" taken apart. Fails as a usage failure.
std::pair<std::string, std::string> image_path(const std::string& name, const std::string& text);

/// What was given, as an entry takes it. What fails fails as a usage failure.
class given_arguments {
  public:
    /// The description outlives it.
    given_arguments(const entry_description& description, given_values values)
        : description_(description), values_(std::move(values)) {}

    const given_values& values() const { return values_; }
    /// Null when it isn't given.
    const std::string* find(const std::string& name) const;
    /// Fails when it isn't given.
    std::string value_of(const argument& which) const;
    /// Empty, or 0, when it isn't given.
    std::string field_of(const argument& which, const char* field) const;
    uint64_t number_field_of(const argument& which, const char* field) const;
    /// A number that isn't given is 0, or what fits the buffer that it is the size of.
    uint64_t number_of(const argument& which) const;
    /// The size of a buffer or an array. Fails when it is more than that can hold.
    uint64_t size_for(const argument& buffer) const;

  private:
    uint64_t default_number(const argument& which) const;

    const entry_description& description_;
    const given_values values_;
};
