#include "service/corba_server.h"

#include "service/listening.h"
#include "service/servants.h"

#include <algorithm>
#include <fmt/format.h>
#include <list>
#include <omniORB4/sslContext.h>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace {

constexpr const char* plain = "tcp";
constexpr const char* tls = "ssl";

struct listener {
    const char* transport;
    int port;
};

/// What is to be spoken on which port.
std::vector<listener> listeners_of(const corba_options& options) {
    if (options.tls_key.empty()) {
        return {{plain, options.port}};
    }
    if (options.tls_port < 0) {
        return {{tls, options.port}};
    }
    return {{plain, options.port}, {tls, options.tls_port}};
}

/// Where all addresses are listened on, the ORB is left to choose the one that references have.
std::string endpoint(const std::string& address, const char* transport, int port) {
    const bool is_any = address == "0.0.0.0" || address == "::";
    const bool is_v6 = !is_any && address.find(':') != std::string::npos;
    return fmt::format(is_v6 ? "giop:{}:[{}]:{}" : "giop:{}:{}:{}", transport,
                       is_any ? "" : address, port);
}

/// Starts the ORB. Each value says why it isn't the ORB's own.
CORBA::ORB_ptr start_orb(const std::vector<std::string>& endpoints, int64_t lease, bool has_tls) {
    std::vector<std::pair<std::string, std::string>> settings = {
        // A connection has a thread as long as there are few. Beyond that a pool serves them all,
        // so neither thousands of clients nor one that floods can use up the threads.
        {"threadPerConnectionUpperLimit", "256"},
        {"threadPerConnectionLowerLimit", "200"},
        {"maxServerThreadPoolSize", "64"},
        {"maxServerThreadPerConnection", "4"},
        // A request has to arrive within 5 s of its first byte, and its answer to be taken in that.
        {"serverCallTimeOutPeriod", "5000"},
        {"giopMaxMsgSize", std::to_string(4 * longest_text)},
        // A connection is idle between reports for as long as a session may be.
        {"inConScanPeriod", std::to_string(std::max(lease, int64_t{300}))},
        // Narrow text is taken byte for byte.
        {"nativeCharCodeSet", "ISO-8859-1"},
        // Without TLS it would warn that there is none.
        {"traceLevel", has_tls ? "1" : "0"},
    };
    for (const std::string& each : endpoints) {
        settings.emplace_back("endPoint", each);
    }
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

void set_tls_files(const corba_options& options) {
    // Kept by the ORB, which only has the pointers.
    static std::string ca;
    static std::string key;
    ca = options.tls_ca;
    key = options.tls_key;
    sslContext::certificate_authority_file = ca.c_str();
    sslContext::key_file = key.c_str();
    sslContext::key_file_password = ""; // nobody is there to be asked for one
}

} // namespace

corba_server::corba_server(const corba_options& options, ledger& book,
                           const ledger::log_sink& log) {
    take_orb_messages(log);
    std::vector<std::string> endpoints;
    std::list<port_reservation> reserved; // until the ORB listens
    for (const listener& each : listeners_of(options)) {
        const int port = reserved.emplace_back(options.address, each.port).port();
        endpoints.push_back(endpoint(options.address, each.transport, port));
        (each.transport == plain ? port_ : tls_port_) = port;
    }
    if (!options.tls_key.empty()) {
        set_tls_files(options);
    }
    try {
        own_.orb = start_orb(endpoints, book.lease(), !options.tls_key.empty());
        publish(own_.orb, book);
    } catch (const CORBA::Exception& error) {
        throw std::runtime_error(fmt::format("can't listen on {}: the ORB says CORBA::{}",
                                             fmt::join(endpoints, ", "), error._name()));
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
    }
    omniORB::setLogFunction(nullptr); // and nothing is said to the log, which may end now
    orb_messages = nullptr;
}
