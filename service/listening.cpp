#include "service/listening.h"

#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <memory>
#include <netdb.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int default_port = 5638;

struct free_addresses {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using addresses = std::unique_ptr<addrinfo, free_addresses>;

[[noreturn]] void fail(const std::string& address, int port, const char* why) {
    throw std::runtime_error(fmt::format("can't listen on {} port {}: {}", address, port, why));
}

addresses look_up(const std::string& address, int port) {
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (error != 0) {
        fail(address, port, gai_strerror(error));
    }
    return addresses(found);
}

} // namespace

int choose_port(int asked) {
    if (asked >= 0) {
        return asked;
    }
    const char* const set = getenv("VLSL_PORT");
    if (set != nullptr && set[0] != '\0') {
        int port = 0;
        const char* const end = set + strlen(set);
        const auto [behind, error] = std::from_chars(set, end, port);
        if (error != std::errc() || behind != end || port < 0 || port > 65535) {
            throw std::runtime_error(
                fmt::format("VLSL_PORT is \"{}\", which is no port (0 to 65535)", set));
        }
        return port;
    }
    const servent* const entry = getservbyname("vlsl", "tcp");
    return entry != nullptr ? ntohs(static_cast<uint16_t>(entry->s_port)) : default_port;
}

port_reservation::port_reservation(const std::string& address, int port) : port_(port) {
    const addresses found = look_up(address, port);
    descriptor_ = socket(found->ai_family, found->ai_socktype | SOCK_CLOEXEC, 0);
    // Sockets that are both marked so may share a port, until one of them listens.
    const int on = 1;
    sockaddr_storage bound = {};
    socklen_t size = sizeof bound;
    if (descriptor_ < 0 || setsockopt(descriptor_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(descriptor_, found->ai_addr, found->ai_addrlen) != 0 ||
        getsockname(descriptor_, reinterpret_cast<sockaddr*>(&bound), &size) != 0) {
        const int error = errno;
        close(descriptor_);
        fail(address, port, strerror(error));
    }
    // Both families have the port in the same place.
    port_ = ntohs(reinterpret_cast<const sockaddr_in&>(bound).sin_port);
}

port_reservation::~port_reservation() { close(descriptor_); }
