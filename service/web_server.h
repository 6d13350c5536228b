// The service to people and monitors: /status, /metrics and a live page at /. It only tells;
// nothing can be changed here.
#pragma once

#include "service/http_server.h"
#include "service/ledger.h"

#include <string>
#include <vector>

class web_server {
  public:
    /// Listens and answers on the sockets `listening`, which are bound and stay the caller's.
    /// Throws std::runtime_error when it can't. `book` is borrowed.
    /// `name` is one more by which it may be asked; empty: none.
    web_server(const std::vector<int>& listening, ledger& book, const std::string& name);

  private:
    http_server server_;
};

/// What "/status" answers, here and on the control socket: the book, with the history behind the
/// query's "since". `book` is borrowed.
http_handler status_page(ledger& book);

/// Whether a request that was addressed to `host` (with its port, as in the Host header) may be
/// answered: to an address, or to a name of this machine. Any other name may be one that a foreign
/// page has had pointed here.
bool is_own_host(const std::string& host);
