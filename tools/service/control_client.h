// The service's control socket as a client has it: JSON over HTTP on a Unix socket.
#pragma once

#include "tools/terminal/tables.h"

#include <string>

class control_client {
  public:
    /// Asks at `path`, an empty one standing for the usual place. Nothing is done yet.
    explicit control_client(const std::string& path);

    /// What is at `page`. Throws failure, which names the socket: nobody answers, the user may not
    /// ask, or the service says why not.
    ordered_json get(const std::string& page) const;
    /// What a change comes to. Throws failure likewise, where nothing has changed, or it isn't
    /// known whether it has.
    ordered_json post(const std::string& page, const ordered_json& asked) const;

  private:
    ordered_json ask(const std::string& page, const std::string* body) const;

    const std::string path_;
};
