// The service's own transport of its ORB: the ORB is given connections that have a whole message,
// and writes without waiting, so that none of its threads depends on what a peer does. Up to a
// number of connections each has a thread of the ORB, which waits for its next message and for
// nothing else (it takes no turn through the reception then); beyond that the reception watches.
#pragma once

#include "service/transport/reception.h"

namespace transport {

/// The type of its only endpoint, for the ORB's option endPoint.
constexpr const char* endpoint_name = "giop:vlsld:reception";

/// What references name. An empty host: the first address of this host's that isn't the loopback's,
/// if there is one.
struct published_address {
    bool has_tls;
    std::string host;
    int port;
};

/// What the next endpoint of the ORB is.
void set_reception(std::shared_ptr<reception> from, std::vector<published_address> published);

} // namespace transport
