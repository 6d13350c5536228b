#include "service/corba_server.h"

#include "service/asking_peer.h"
#include "service/listening.h"
#include "service/servants.h"
#include "service/transport/orb_transport.h"

#include "interfaces/orb_threads.h"

#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <vector>

OMNI_USING_NAMESPACE(omni) // where newer releases of the ORB have sslContext

namespace {

constexpr size_t longest_message = 4 * longest_text;

/// What is to be spoken on which port, and by whom.
struct listener {
    std::shared_ptr<const transport::tls_identity> identity; ///< null: no TLS
    int port;
};

std::vector<listener> listeners_of(const corba_options& options) {
    if (options.tls_key.empty()) {
        return {{nullptr, options.port}};
    }
    const auto identity =
        std::make_shared<const transport::tls_identity>(options.tls_ca, options.tls_key);
    if (options.tls_port < 0) {
        return {{identity, options.port}};
    }
    return {{nullptr, options.port}, {identity, options.tls_port}};
}

/// How long a connection may be idle, in seconds: as long as a session may be between reports.
int64_t idle_time(int64_t lease) { return std::max(lease, int64_t{300}); }

/// Starts the ORB. Each value says why it isn't the ORB's own.
CORBA::ORB_ptr start_orb(int64_t lease) {
    const std::pair<std::string, std::string> settings[] = {
        {"endPoint", transport::endpoint_name},
        // A thread is had for a request, not for a connection.
        {"threadPerConnectionPolicy", "0"},
        {"maxServerThreadPoolSize",
         std::to_string(transport::most_lingering + transport::most_answered + 64)},
        {"maxServerThreadPerConnection", "4"},
        {"giopMaxMsgSize", std::to_string(longest_message)},
        {"inConScanPeriod", std::to_string(idle_time(lease))},
        // Narrow text is taken byte for byte.
        {"nativeCharCodeSet", "ISO-8859-1"},
        // It would tell of each client that breaks off, and anybody could make it.
        {"traceLevel", "0"},
    };
    std::vector<std::string> arguments = {"vlsld"};
    for (const auto& [name, value] : settings) {
        arguments.push_back("-ORB" + name);
        arguments.push_back(value);
    }
    std::vector<char*> pointers(arguments.size());
    std::transform(arguments.begin(), arguments.end(), pointers.begin(),
                   [](std::string& each) { return each.data(); });
    auto count = static_cast<int>(pointers.size());
    return CORBA::ORB_init(count, pointers.data());
}

ledger::log_sink orb_messages; ///< the ORB takes a plain function

void take_orb_messages(const ledger::log_sink& log) {
    orb_messages = log;
    omniORB::setLogFunction([](const char* message) {
        const std::string_view text = message;
        orb_messages({std::string(text.substr(0, text.find_last_not_of('\n') + 1)), log_kind::orb});
    });
}

} // namespace

corba_server::corba_server(const corba_options& options, ledger& book, const object_keys& keys,
                           const ledger::log_sink& log)
    : addresses_(addresses_to_listen_on(options.address)) {
    take_orb_messages(log);
    std::vector<transport::reception::entrance> entrances;
    std::vector<transport::published_address> published;
    std::vector<std::string> places;
    const bool is_all = addresses_[0] == "::" || addresses_[0] == "0.0.0.0";
    for (const listener& each : listeners_of(options)) {
        listening_sockets sockets(addresses_, each.port);
        const bool has_tls = each.identity != nullptr;
        (has_tls ? tls_port_ : port_) = sockets.port();
        published.push_back({has_tls, is_all ? "" : addresses_[0], sockets.port()});
        places.push_back(fmt::format("giop:{}:{}", has_tls ? "ssl" : "tcp",
                                     address_and_port(addresses_[0], sockets.port())));
        entrances.push_back({std::move(sockets), each.identity});
    }
    transport::set_reception(
        std::make_shared<transport::reception>(std::move(entrances), longest_message,
                                               std::chrono::seconds(idle_time(book.lease()))),
        std::move(published));
    try {
        own_.orb = start_orb(book.lease());
        watch_orb_threads();
        watch_who_asks();
        publish(own_.orb, book, keys);
    } catch (const CORBA::Exception& error) {
        throw std::runtime_error(fmt::format("can't listen on {}: the ORB says CORBA::{}",
                                             fmt::join(places, ", "), error._name()));
    }
}

corba_server::ending_orb::~ending_orb() {
    if (!CORBA::is_nil(orb)) {
        try {
            orb->shutdown(true);
            orb->destroy();
        } catch (const CORBA::Exception&) {
            // It is down already.
        }
        await_orb_threads();
    }
    omniORB::setLogFunction(nullptr); // and nothing is said to the log, which may end now
    orb_messages = nullptr;
}
