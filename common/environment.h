// What the environment says.
#pragma once

#include <cstdlib>
#include <string>

/// The absolute path that an environment variable holds; empty: it holds none.
inline std::string absolute_path_in(const char* variable) {
    const char* const set = getenv(variable);
    return set != nullptr && set[0] == '/' ? set : "";
}
