// Where the plugin looks for the service: the port and the addresses, as its ORB finds them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// The port: VLSL_PORT, else the service entry vlsl/tcp, else 5638. 0: VLSL_PORT is no port, and
/// nothing is ever reached.
uint16_t service_port();

/// A place where the service may be.
struct service_place {
    std::string address; ///< "127.0.0.1:5638", "[::1]:5638"
    bool is_open;        ///< somebody takes connections there
    bool answers;        ///< and has there what the plugin asks for
};

/// Every address of "localhost", in the resolver's order; tries each for a second at most.
std::vector<service_place> service_places();

/// The first that answers; null: none does.
const service_place* answering(const std::vector<service_place>& places);

/// That nobody answers there, or not as a service does, and where that was looked for.
std::string no_service_text(const std::vector<service_place>& places);
