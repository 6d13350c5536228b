// Where the service's control socket is, unless somebody names another place.
#pragma once

#include "common/environment.h"

#include <string>
#include <unistd.h>

constexpr const char* control_path_of_root = "/run/vlsld/control";

/// Where a service makes it: in the environment's RUNTIME_DIRECTORY (of several, with colons
/// between, the first), for root in /run/vlsld, else in $XDG_RUNTIME_DIR/vlsld. Empty when the
/// environment names no directory.
inline std::string own_control_path() {
    const std::string given = absolute_path_in("RUNTIME_DIRECTORY");
    if (!given.empty()) {
        return given.substr(0, given.find(':')) + "/control";
    }
    if (geteuid() == 0) {
        return control_path_of_root;
    }
    const std::string of_user = absolute_path_in("XDG_RUNTIME_DIR");
    return of_user.empty() ? "" : of_user + "/vlsld/control";
}

/// Where a client looks for it: where a service of its own user makes it, if something is there,
/// else where the host's does.
inline std::string control_path_to_ask() {
    const std::string own = own_control_path();
    return !own.empty() && access(own.c_str(), F_OK) == 0 ? own : control_path_of_root;
}
