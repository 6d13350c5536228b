// Where the service may listen.
#pragma once

#include <string>
#include <vector>

/// The port asked for, else that of the environment's VLSL_PORT, else that of the service vlsl/tcp,
/// else 5638. `asked` is below 0 when none was. Throws std::runtime_error when VLSL_PORT is no
/// port.
int choose_port(int asked);

/// What to listen on when `address` was asked for: that one alone, or, when it is empty, the
/// loopback addresses that the host has: 127.0.0.1 and, mostly, ::1.
std::vector<std::string> addresses_to_listen_on(const std::string& address);

/// "127.0.0.1:80", "[::1]:80".
std::string address_and_port(const std::string& address, int port);

/// Sockets that listen, one for each address, all on one port: a port is had on all of them or on
/// none, so that nobody else can take what is left of it. They close on exec, and accept without
/// waiting. 0.0.0.0 and :: are all addresses of the host, of either kind.
class listening_sockets {
  public:
    /// Port 0: one that is free on all. Throws std::runtime_error, which names the address and the
    /// port that can't be had.
    listening_sockets(const std::vector<std::string>& addresses, int port);
    ~listening_sockets();
    listening_sockets(listening_sockets&& other) noexcept;
    listening_sockets& operator=(listening_sockets&&) = delete;

    int port() const { return port_; }
    const std::vector<int>& descriptors() const { return descriptors_; } ///< still owned here

  private:
    std::vector<int> descriptors_;
    int port_;
};
