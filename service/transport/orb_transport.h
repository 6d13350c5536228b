// The service's own transport of its ORB: the ORB is given connections that have a whole message,
// and writes without waiting, so that none of its threads depends on what a peer does. A thread
// that has answered stays with the connection for a moment, if few do; then the reception watches.
#pragma once

#include "service/transport/reception.h"

namespace omni {
class giopConnection;
}

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

/// The name of the peer (service/peer.h) of one of its connections, which live as long as that.
const std::string& peer_name(const omni::giopConnection& connection);

} // namespace transport
