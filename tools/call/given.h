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
