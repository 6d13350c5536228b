#include "service/listening.h"

#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

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

/// A bound socket, or -1 with errno.
int bound_socket(const std::string& address, int port) {
    const addresses found = look_up(address, port);
    const int descriptor =
        socket(found->ai_family, found->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0) {
        return -1;
    }
    // Sockets that are both marked so may share a port, until one of them listens.
    const int on = 1;
    const int v6_alone = address != "::";
    if (setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
        (found->ai_family != AF_INET6 ||
         setsockopt(descriptor, IPPROTO_IPV6, IPV6_V6ONLY, &v6_alone, sizeof v6_alone) == 0) &&
        bind(descriptor, found->ai_addr, found->ai_addrlen) == 0) {
        return descriptor;
    }
    const int error = errno;
    close(descriptor);
    errno = error;
    return -1;
}

bool is_there(const std::string& address) {
    const int descriptor = bound_socket(address, 0);
    if (descriptor >= 0) {
        close(descriptor);
    }
    return descriptor >= 0;
}

int port_of(int descriptor) {
    sockaddr_storage bound = {};
    socklen_t size = sizeof bound;
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&bound), &size);
    // Both families have the port in the same place.
    return ntohs(reinterpret_cast<const sockaddr_in&>(bound).sin_port);
}

void close_all(const std::vector<int>& descriptors) {
    for (const int each : descriptors) {
        close(each);
    }
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

std::vector<std::string> addresses_to_listen_on(const std::string& address) {
    if (address.empty()) {
        return is_there("::1") ? std::vector<std::string>{"127.0.0.1", "::1"}
                               : std::vector<std::string>{"127.0.0.1"};
    }
    const bool is_all = address == "0.0.0.0" || address == "::";
    // One socket takes both kinds, where the host has both.
    return {is_all ? (is_there("::") ? "::" : "0.0.0.0") : address};
}

std::string address_and_port(const std::string& address, int port) {
    const bool is_v6 = address.find(':') != std::string::npos;
    return fmt::format(is_v6 ? "[{}]:{}" : "{}:{}", address, port);
}

listening_sockets::listening_sockets(const std::vector<std::string>& addresses, int port)
    : port_(port) {
    constexpr int most_attempts = 100; // to find a port that is free on all
    for (int attempt = 1; descriptors_.size() < addresses.size(); ++attempt) {
        for (const std::string& each : addresses) {
            const int descriptor = bound_socket(each, port_);
            if (descriptor >= 0 && listen(descriptor, SOMAXCONN) == 0) {
                descriptors_.push_back(descriptor);
                port_ = port_of(descriptor);
                continue;
            }
            const int error = errno;
            if (descriptor >= 0) {
                close(descriptor);
            }
            close_all(descriptors_);
            if (port != 0 || error != EADDRINUSE || attempt == most_attempts) {
                fail(each, port_, strerror(error));
            }
            descriptors_.clear();
            port_ = 0;
            break;
        }
    }
}

listening_sockets::listening_sockets(listening_sockets&& other) noexcept
    : descriptors_(std::move(other.descriptors_)), port_(other.port_) {
    other.descriptors_.clear();
}

listening_sockets::~listening_sockets() { close_all(descriptors_); }
