// Who is at the other end of a connection: the user, where the kernel knows it, else the address.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

struct peer {
    std::string address;       ///< without the port; as the transport names it where it has none
    std::optional<uid_t> user; ///< who made the socket at the other end, on this host

    /// By which peers are told apart: "user 1000", else the address. Of an IPv6 address that isn't
    /// this host's only the network, since whoever has one address there has them all.
    std::string name() const;
};

/// The peer of a connection between two addresses such as "127.0.0.1:4711" and "[::1]:4711". Asks
/// the kernel, which takes some microseconds.
peer find_peer(const std::string& peer_address, const std::string& own_address);

/// The user of the same connection by one of the kernel's tables, /proc/net/tcp or tcp6, which is
/// how find_peer asks a kernel that answers no single questions.
std::optional<uid_t> user_in_table(const char* table, const std::string& peer_address,
                                   const std::string& own_address);
