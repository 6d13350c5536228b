// The service to people and monitors: /status, /metrics and a live page at /. It only tells;
// nothing can be changed here.
#pragma once

#include "service/ledger.h"

#include <atomic>
#include <memory>
#include <string>
#include <thread>

namespace httplib {
class Server;
}

class web_server {
  public:
    /// Listens and answers. Throws std::runtime_error when it can't. `port` 0: any that is free.
    /// `book` is borrowed.
    web_server(const std::string& address, int port, ledger& book);
    ~web_server();
    web_server(const web_server&) = delete;
    web_server& operator=(const web_server&) = delete;

    int port() const { return port_; }

  private:
    std::unique_ptr<httplib::Server> server_;
    int port_ = 0;
    std::atomic<bool> has_ended_ = false;
    std::thread thread_;
};

/// Whether a request that was addressed to `host` (with its port, as in the Host header) may be
/// answered: to an address, or to a name of this machine. Any other name may be one that a foreign
/// page has had pointed here.
bool is_own_host(const std::string& host);
