#include "tools/host/service_place.h"

#include "common/descriptor.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <memory>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

namespace {

constexpr const char* host = "localhost"; // never the configured name
constexpr uint16_t fallback_port = 5638;
constexpr size_t most_addresses = 16;
constexpr int patience = 500; // milliseconds

using address_list = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

address_list addresses_of(uint16_t port) {
    addrinfo hints = {};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    if (getaddrinfo(host, std::to_string(port).c_str(), &hints, &list) != 0) {
        list = nullptr;
    }
    return {list, freeaddrinfo};
}

std::string text_of(const addrinfo& where) {
    char address[NI_MAXHOST];
    char port[NI_MAXSERV];
    if (getnameinfo(where.ai_addr, where.ai_addrlen, address, sizeof address, port, sizeof port,
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
        return "?";
    }
    return fmt::format(where.ai_family == AF_INET6 ? "[{}]:{}" : "{}:{}", address, port);
}

bool takes_connections(const addrinfo& where) {
    const descriptor tried(socket(where.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!tried.is_open()) {
        return false;
    }
    if (connect(tried.get(), where.ai_addr, where.ai_addrlen) == 0) {
        return true;
    }
    pollfd waited = {tried.get(), POLLOUT, 0};
    int error = 0;
    socklen_t size = sizeof error;
    return errno == EINPROGRESS && poll(&waited, 1, patience) == 1 &&
           getsockopt(tried.get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

} // namespace

uint16_t service_port() {
    if (const char* const port = getenv("VLSL_PORT"); port != nullptr && *port != '\0') {
        uint16_t number = 0;
        const char* const end = port + strlen(port);
        const auto read = std::from_chars(port, end, number);
        return read.ec == std::errc() && read.ptr == end ? number : 0;
    }
    servent entry = {};
    servent* found = nullptr;
    char texts[1024];
    if (getservbyname_r("vlsl", "tcp", &entry, texts, sizeof texts, &found) == 0 &&
        found != nullptr) {
        return ntohs(static_cast<uint16_t>(found->s_port));
    }
    return fallback_port;
}

std::vector<service_place> service_places() {
    std::vector<service_place> all;
    const uint16_t port = service_port();
    if (port == 0) {
        return all;
    }
    const address_list list = addresses_of(port);
    for (const addrinfo* each = list.get(); each != nullptr && all.size() < most_addresses;
         each = each->ai_next) {
        const std::string address = text_of(*each);
        if (std::none_of(all.begin(), all.end(),
                         [&](const service_place& known) { return known.address == address; })) {
            all.push_back({address, takes_connections(*each)});
        }
    }
    return all;
}

std::string no_service_text(const std::vector<service_place>& places) {
    if (places.empty()) {
        return service_port() == 0
                   ? "no service is looked for, since VLSL_PORT is no port (1 to 65535)"
                   : "no service is found, since localhost has no address";
    }
    std::string closed;
    for (const service_place& each : places) {
        if (each.is_open) {
            return fmt::format("what takes connections on {} doesn't answer as the service does",
                               each.address);
        }
        closed += (closed.empty() ? "" : " and ") + each.address;
    }
    return "no service answers on " + closed;
}
