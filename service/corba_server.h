// The ORB of the service: where it listens, how many threads it gives to whom, and its end. All
// that only one ORB has is in here.
#pragma once

#include "service/ledger.h"
#include "service/object_key.h"

#include <cstddef>
#include <omniORB4/CORBA.h>
#include <string>
#include <vector>

struct corba_options {
    std::string address; ///< to listen on, an IPv4 or IPv6 address; empty: those of the loopback
    int port;            ///< 0: any that is free
    std::string tls_ca;  ///< PEM files; both or neither. With them the port speaks TLS
    std::string tls_key; ///< the key, and its certificate
    int tls_port;        ///< with TLS: a port of its own for it; -1: it takes the first one
};

/// A running server. One at a time.
class corba_server {
  public:
    /// Listens and answers. Throws std::runtime_error when it can't, which says why. `book` and
    /// `keys` are borrowed. `log` takes what the ORB says until it has ended, here or in the
    /// destructor.
    corba_server(const corba_options& options, ledger& book, const object_keys& keys,
                 const ledger::log_sink& log);
    corba_server(const corba_server&) = delete;
    corba_server& operator=(const corba_server&) = delete;

    /// Where it listens, on the same ports of each.
    const std::vector<std::string>& addresses() const { return addresses_; }
    int port() const { return port_; }         ///< 0: TLS alone is spoken
    int tls_port() const { return tls_port_; } ///< 0: no TLS is spoken

  private:
    /// Ends the ORB, also when it couldn't be made a whole server. Lets requests that are being
    /// answered finish.
    struct ending_orb {
        CORBA::ORB_var orb; ///< nil: not started
        ~ending_orb();
    };

    std::vector<std::string> addresses_;
    ending_orb own_;
    int port_ = 0;
    int tls_port_ = 0;
};
