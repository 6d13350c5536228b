// What a reply of the service says, read as its clients do.
#pragma once

#include <string>

/// What the reply says of `name`; -1 when it isn't there.
inline long value_of(const std::string& reply, const std::string& name) {
    const size_t found = reply.find("name=" + name + ",");
    const size_t value = reply.find("value=", found);
    const size_t end = reply.find(",fixed=", value);
    if (found == std::string::npos || value == std::string::npos || end == std::string::npos) {
        return -1;
    }
    return std::stol(reply.substr(value + 6, end - value - 6));
}
