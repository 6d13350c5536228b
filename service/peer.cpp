#include "service/peer.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sstream>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/// One end of a connection.
struct place {
    int family;       ///< AF_INET or AF_INET6
    in6_addr host;    ///< of an IPv4 address the first four bytes, and zeros
    uint16_t port;    ///< as on the wire
    std::string text; ///< of the host
};

/// A host is IPv4 also where it is written as an IPv6 address that stands for it.
void unmap(place& which) {
    if (which.family == AF_INET6 && IN6_IS_ADDR_V4MAPPED(&which.host)) {
        in6_addr host = {};
        memcpy(&host, which.host.s6_addr + 12, sizeof(in_addr));
        which.family = AF_INET;
        which.host = host;
        char text[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &host, text, sizeof text);
        which.text = text;
    }
}

/// None for what is no TCP address.
std::optional<place> parse(std::string_view address) {
    const size_t colon = address.rfind(':');
    if (colon == std::string_view::npos) {
        return std::nullopt;
    }
    place found = {};
    uint16_t port = 0;
    const char* const end = address.data() + address.size();
    const auto [behind, error] = std::from_chars(address.data() + colon + 1, end, port);
    std::string_view text = address.substr(0, colon);
    found.family = AF_INET;
    if (text.size() > 2 && text.front() == '[' && text.back() == ']') {
        text = text.substr(1, text.size() - 2);
        found.family = AF_INET6;
    }
    found.text = text;
    found.port = htons(port);
    if (error != std::errc() || behind != end ||
        inet_pton(found.family, found.text.c_str(), &found.host) != 1) {
        return std::nullopt;
    }
    unmap(found);
    return found;
}

/// Asks for the socket that is at `from` and connected to `to`.
struct question {
    nlmsghdr header;
    inet_diag_req_v2 about;
};

question ask_for(const place& from, const place& to) {
    question asked = {};
    asked.header.nlmsg_len = sizeof asked;
    asked.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    asked.header.nlmsg_flags = NLM_F_REQUEST;
    inet_diag_req_v2& about = asked.about;
    about.sdiag_family = static_cast<uint8_t>(from.family);
    about.sdiag_protocol = IPPROTO_TCP;
    about.idiag_states = ~0U;
    about.id.idiag_sport = from.port;
    about.id.idiag_dport = to.port;
    memcpy(about.id.idiag_src, &from.host, sizeof from.host);
    memcpy(about.id.idiag_dst, &to.host, sizeof to.host);
    about.id.idiag_cookie[0] = about.id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
    return asked;
}

/// What the kernel says of one socket. `is_answered` is whether it answers such questions at all.
struct diagnosis {
    bool is_answered = false;
    std::optional<uid_t> user;
};

diagnosis diagnose(const place& from, const place& to) {
    const int kernel = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
    if (kernel < 0) {
        return {};
    }
    const question asked = ask_for(from, to);
    alignas(nlmsghdr) std::array<char, 4096> answer;
    ssize_t size = -1;
    if (send(kernel, &asked, sizeof asked, 0) == sizeof asked) {
        size = recv(kernel, answer.data(), answer.size(), 0); // it is there already
    }
    close(kernel);
    nlmsghdr header = {};
    if (size < static_cast<ssize_t>(sizeof header)) {
        return {};
    }
    memcpy(&header, answer.data(), sizeof header);
    if (header.nlmsg_type == NLMSG_ERROR) {
        nlmsgerr problem = {};
        memcpy(&problem, answer.data() + NLMSG_HDRLEN, sizeof problem);
        return {problem.error == -ENOENT, std::nullopt}; // else it doesn't know such questions
    }
    inet_diag_msg found = {};
    if (header.nlmsg_type != SOCK_DIAG_BY_FAMILY ||
        size < static_cast<ssize_t>(NLMSG_HDRLEN + sizeof found)) {
        return {};
    }
    memcpy(&found, answer.data() + NLMSG_HDRLEN, sizeof found);
    // Where there is no such connection it may name a socket that listens, and one that its process
    // has closed is nobody's, which reads as root's.
    const bool is_it = found.id.idiag_dport == to.port && found.idiag_inode != 0;
    return {true, is_it ? std::optional<uid_t>(found.idiag_uid) : std::nullopt};
}

/// An end of a connection as the kernel's tables write it: words of the address in the byte order
/// of the host, the port.
std::string in_table(const place& which) {
    std::string text;
    for (int word = 0; word < (which.family == AF_INET ? 1 : 4); ++word) {
        uint32_t value = 0;
        memcpy(&value, which.host.s6_addr + 4 * word, sizeof value);
        text += fmt::format("{:08X}", value);
    }
    return text + fmt::format(":{:04X}", ntohs(which.port));
}

/// The same from the kernel's table of all connections, where it answers no questions.
std::optional<uid_t> look_through(const char* table, const place& from, const place& to) {
    const std::string ends = " " + in_table(from) + " " + in_table(to) + " ";
    std::ifstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        const size_t found = line.find(ends);
        if (found == std::string::npos) {
            continue;
        }
        std::istringstream rest(line.substr(found + ends.size()));
        std::string skipped;
        uid_t user = 0;
        uint64_t inode = 0;
        // state, queues, timer, retransmissions, user, time-out, inode
        rest >> skipped >> skipped >> skipped >> skipped >> user >> skipped >> inode;
        if (rest && inode != 0) {
            return user;
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<uid_t> user_in_table(const char* table, const std::string& peer_address,
                                   const std::string& own_address) {
    const auto from = parse(peer_address);
    const auto to = parse(own_address);
    return from && to ? look_through(table, *from, *to) : std::nullopt;
}

peer find_peer(const std::string& peer_address, const std::string& own_address) {
    const auto from = parse(peer_address);
    const auto to = parse(own_address);
    if (!from) {
        return {peer_address, std::nullopt};
    }
    if (!to || to->family != from->family) {
        return {from->text, std::nullopt};
    }
    const diagnosis seen = diagnose(*from, *to);
    if (seen.is_answered) {
        return {from->text, seen.user};
    }
    const char* const table = from->family == AF_INET ? "/proc/net/tcp" : "/proc/net/tcp6";
    return {from->text, look_through(table, *from, *to)};
}

std::string peer::name() const {
    if (user) {
        return fmt::format("user {}", *user);
    }
    in6_addr host = {};
    if (inet_pton(AF_INET6, address.c_str(), &host) != 1 || IN6_IS_ADDR_LOOPBACK(&host)) {
        return address;
    }
    memset(host.s6_addr + 8, 0, 8);
    char network[INET6_ADDRSTRLEN] = "";
    inet_ntop(AF_INET6, &host, network, sizeof network);
    return fmt::format("{}/64", network);
}
