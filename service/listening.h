// Where the service may listen.
#pragma once

#include <string>

/// The port asked for, else that of the environment's VLSL_PORT, else that of the service vlsl/tcp,
/// else 5638. `asked` is below 0 when none was. Throws std::runtime_error when VLSL_PORT is no
/// port.
int choose_port(int asked);

/// A port that nobody else is given until its owner listens on it, which this doesn't hinder.
class port_reservation {
  public:
    /// Port 0: one that is free. Throws std::runtime_error, which names the port, when it can't be
    /// had.
    port_reservation(const std::string& address, int port);
    ~port_reservation();
    port_reservation(const port_reservation&) = delete;
    port_reservation& operator=(const port_reservation&) = delete;

    int port() const { return port_; }
    int descriptor() const { return descriptor_; } ///< of the socket that has the port; still ours

  private:
    int descriptor_ = -1;
    int port_;
};
