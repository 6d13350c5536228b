// What the service shows of a storage: who shares it, by its page of the status.
#pragma once

#include "config/allowed_rate.h"

#include <cstdint>
#include <optional>
#include <string>

constexpr uint16_t usual_http_port = 5639; ///< of the service's page

/// Of one storage and direction, as the service sees it now.
struct service_sharing {
    uint64_t flows = 0;       ///< that read, or write, and share the bandwidth
    uint64_t connections = 0; ///< of both directions, idle ones too
    uint64_t limit = 0;       ///< of connections
    uint64_t allowed = 0; ///< bytes per second, to all of them together; limits set meanwhile count
    uint64_t measured = 0; ///< bytes per second
};

struct service_status {
    std::string url;
    std::string trouble;                    ///< why nothing is known; empty: something is
    std::optional<service_sharing> sharing; ///< none: the service doesn't know the storage yet
};

/// Asks 127.0.0.1 at that port; waits for two seconds and takes 16 MiB at most.
service_status service_status_of(const std::string& storage, operation_type_t direction,
                                 uint16_t port);
