#include "tools/call/given.h"

#include "tools/terminal/failure.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <limits>

namespace {

using kind = argument_kind;

constexpr uint64_t usual_bytes = 4096;
constexpr uint64_t usual_peers = 16;
constexpr uint64_t most_bytes = uint64_t{16} * 1024 * 1024;
constexpr uint64_t most_peers = 4096;

/// The range of a number's C++ type.
struct range {
    int64_t low;
    uint64_t high;
};

range range_of(const std::string& type) {
    if (type == "int32_t") {
        return {std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()};
    }
    if (type == "uint32_t") {
        return {0, std::numeric_limits<uint32_t>::max()};
    }
    return {0, std::numeric_limits<uint64_t>::max()};
}

std::vector<std::string> names_of(const std::vector<argument>& arguments) {
    std::vector<std::string> names;
    for (const argument& each : arguments) {
        if (takes_value(each.kind)) {
            names.push_back(each.name);
        }
        for (const std::string& field : fields_of(each.kind)) {
            names.push_back(each.name + "." + field);
        }
    }
    return names;
}

} // namespace

void check_given(const entry& which, const entry_description& description,
                 const given_values& given) {
    const std::vector<std::string> names = names_of(description.arguments);
    for (const auto& [name, value] : given) {
        if (std::find(names.begin(), names.end(), name) == names.end()) {
            throw usage_failure(
                names.empty()
                    ? fmt::format("\"{}\" can't be given: {} takes no arguments", name, which.name)
                    : fmt::format("\"{}\" can't be given: {} takes {}", name, which.name,
                                  fmt::join(names, ", ")));
        }
    }
}

uint64_t number_for(const std::string& name, const std::string& type, const std::string& text) {
    const range allowed = range_of(type);
    const bool is_negative = !text.empty() && text[0] == '-';
    const char* const digits = text.c_str() + (is_negative ? 1 : 0);
    char* end = nullptr;
    errno = 0;
    const uint64_t size = strtoull(digits, &end, strncmp(digits, "0x", 2) == 0 ? 16 : 10);
    const uint64_t most = is_negative ? 0 - static_cast<uint64_t>(allowed.low) : allowed.high;
    if (*digits < '0' || *digits > '9' || *end != '\0' || errno != 0 || size > most) {
        throw usage_failure(fmt::format("{}=\"{}\" is not a whole number from {} to {}", name, text,
                                        allowed.low, allowed.high));
    }
    return is_negative ? 0 - size : size;
}

std::pair<std::string, std::string> image_path(const std::string& name, const std::string& text) {
    const size_t slash = text.find('/');
    if (slash == std::string::npos || slash == 0 || slash + 1 == text.size()) {
        throw usage_failure(fmt::format("{}=\"{}\" isn't LSU/IMAGE", name, text));
    }
    return {text.substr(0, slash), text.substr(slash + 1)};
}

const std::string* given_arguments::find(const std::string& name) const {
    const auto found = values_.find(name);
    return found != values_.end() ? &found->second : nullptr;
}

std::string given_arguments::value_of(const argument& which) const {
    if (const std::string* const value = find(which.name)) {
        return *value;
    }
    throw usage_failure(
        fmt::format("{} is missing, as in {}=VALUE: {}", which.name, which.name, which.text));
}

std::string given_arguments::field_of(const argument& which, const char* field) const {
    const std::string* const value = find(which.name + "." + field);
    return value != nullptr ? *value : "";
}

uint64_t given_arguments::number_field_of(const argument& which, const char* field) const {
    const std::string text = field_of(which, field);
    return text.empty() ? 0 : number_for(which.name + "." + field, "uint64_t", text);
}

uint64_t given_arguments::number_of(const argument& which) const {
    const std::string* const value = find(which.name);
    return value != nullptr ? number_for(which.name, which.type, *value) : default_number(which);
}

uint64_t given_arguments::default_number(const argument& which) const {
    for (const argument& each : description_.arguments) {
        if (each.size_argument != which.name) {
            continue;
        }
        switch (each.kind) {
        case kind::in_buffer:
            return value_of(each).size();
        case kind::out_text:
            return STS_CONFIG_SIZE;
        case kind::peers:
            return usual_peers;
        default:
            return usual_bytes;
        }
    }
    return 0;
}

uint64_t given_arguments::size_for(const argument& buffer) const {
    const auto which =
        std::find_if(description_.arguments.begin(), description_.arguments.end(),
                     [&](const argument& each) { return each.name == buffer.size_argument; });
    const uint64_t size = number_of(*which);
    const uint64_t most = buffer.kind == kind::in_buffer ? value_of(buffer).size()
                          : buffer.kind == kind::peers   ? most_peers
                                                         : most_bytes;
    if (size > most) {
        throw usage_failure(fmt::format("{}={} is more than {} can hold: {}", which->name, size,
                                        buffer.name, most));
    }
    return size;
}
