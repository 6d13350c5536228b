// Tells whoever started the service how it is, by the protocol of sd_notify(3): datagrams to the
// socket that the environment's NOTIFY_SOCKET names.
#pragma once

#include "common/descriptor.h"

#include <string>

class supervisor {
  public:
    /// By the environment; without a socket there, all that follows does nothing. Children don't
    /// inherit what it read.
    supervisor();

    void is_ready() const;
    void reloads() const; ///< until it is ready again
    void stops() const;
    /// That it lives. To be called about once a second; who waits for it is told often enough.
    void lives() const;

  private:
    void tell(const std::string& state) const;

    std::string address_; ///< empty: nobody is to be told
    bool is_watched_ = false;
    descriptor socket_;
};
