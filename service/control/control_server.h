// The service to those who steer it, on its control socket: JSON over HTTP. Whoever can connect may
// read; changes are for root and the service's own user. docs/service.md has the schema.
#pragma once

#include "service/control/control_socket.h"
#include "service/http_server.h"
#include "service/ledger.h"

#include <optional>
#include <string>
#include <sys/types.h>

class control_server {
  public:
    /// Makes the socket at `path` and answers there. Throws control_socket_error when it can't be
    /// had, and std::runtime_error when it can't be served. `book` is borrowed.
    control_server(const std::string& path, ledger& book);

  private:
    const control_socket socket_;
    http_server server_;
};

/// Whether `user`, as the kernel names who asks, may change anything in a service of `own` user.
bool may_change(std::optional<uid_t> user, uid_t own);
