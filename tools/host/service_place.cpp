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
#include <utility>

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

bool becomes(const descriptor& socket, short event) {
    pollfd waited = {socket.get(), event, 0};
    return poll(&waited, 1, patience) == 1;
}

/// A connection; none where nobody takes one.
descriptor connected_to(const addrinfo& where) {
    descriptor tried(socket(where.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!tried.is_open() || connect(tried.get(), where.ai_addr, where.ai_addrlen) == 0) {
        return tried;
    }
    int error = 0;
    socklen_t size = sizeof error;
    const bool is_taken = errno == EINPROGRESS && becomes(tried, POLLOUT) &&
                          getsockopt(tried.get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 &&
                          error == 0;
    return is_taken ? std::move(tried) : descriptor();
}

/// Asks an ORB, in GIOP 1.0, whether it has the object that the plugin begins with.
bool has_the_service(const descriptor& socket) {
    constexpr char request[] = "GIOP\x01\x00\x01\x03" // little-endian, LocateRequest
                               "\x11\x00\x00\x00"     // bytes behind this
                               "\x01\x00\x00\x00"     // its number
                               "\x09\x00\x00\x00"
                               "HSFactory";
    constexpr size_t reply_size = 20; // a header, the number, and what came of it
    constexpr char locate_reply = 4;
    const auto length = static_cast<ssize_t>(sizeof request - 1);
    if (send(socket.get(), request, sizeof request - 1, MSG_NOSIGNAL) != length) {
        return false;
    }
    std::string got;
    while (got.size() < reply_size && becomes(socket, POLLIN)) {
        char bytes[reply_size];
        const ssize_t count = recv(socket.get(), bytes, reply_size - got.size(), 0);
        if (count <= 0) {
            return false;
        }
        got.append(bytes, static_cast<size_t>(count));
    }
    if (got.size() < reply_size || got.compare(0, 4, "GIOP") != 0 || got[7] != locate_reply) {
        return false;
    }
    const bool is_little = (static_cast<unsigned char>(got[6]) & 1U) != 0;
    return got[is_little ? 16 : 19] != 0; // 0: it knows no such object
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
            const descriptor there = connected_to(*each);
            all.push_back({address, there.is_open(), there.is_open() && has_the_service(there)});
        }
    }
    return all;
}

const service_place* answering(const std::vector<service_place>& places) {
    const auto found = std::find_if(places.begin(), places.end(),
                                    [](const service_place& each) { return each.answers; });
    return found != places.end() ? &*found : nullptr;
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
