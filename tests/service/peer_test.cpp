// Who is at the other end of a connection.

#include "service/peer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr uid_t somebody_else = 65534;

/// A connection on loopback, with the client's end in a process of another user where we are root.
class local_connection {
  public:
    explicit local_connection(int family, uid_t user = geteuid()) {
        const int listening = socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_storage where = {};
        where.ss_family = static_cast<sa_family_t>(family);
        socklen_t size = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
        auto& v4 = reinterpret_cast<sockaddr_in&>(where);
        if (family == AF_INET) {
            v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        } else {
            reinterpret_cast<sockaddr_in6&>(where).sin6_addr = in6addr_loopback;
        }
        auto* const address = reinterpret_cast<sockaddr*>(&where);
        if (bind(listening, address, size) != 0 || listen(listening, 1) != 0) {
            close(listening);
            return; // no such family here
        }
        getsockname(listening, address, &size);
        int hold[2];
        EXPECT_EQ(pipe(hold), 0);
        client_ = fork();
        if (client_ == 0) {
            close(hold[1]);
            const bool is_changed = user == geteuid() || setuid(user) == 0;
            const int own = socket(family, SOCK_STREAM, 0);
            char end = 0;
            _exit(is_changed && connect(own, address, size) == 0 && read(hold[0], &end, 1) == 0
                      ? 0
                      : 1);
        }
        close(hold[0]);
        hold_ = hold[1];
        accepted_ = accept(listening, nullptr, nullptr);
        close(listening);
    }
    ~local_connection() {
        leave();
        close(accepted_);
    }
    local_connection(const local_connection&) = delete;
    local_connection& operator=(const local_connection&) = delete;

    bool is_there() const { return accepted_ >= 0; }
    std::string peer_address() const { return address_of(getpeername); }
    std::string own_address() const { return address_of(getsockname); }
    /// The client closes its end.
    void leave() {
        if (client_ > 0) {
            close(hold_);
            int status = -1;
            waitpid(client_, &status, 0);
            EXPECT_EQ(status, 0);
            client_ = -1;
        }
    }

  private:
    template <typename Which>
    std::string address_of(Which which) const {
        sockaddr_storage found = {};
        socklen_t size = sizeof found;
        EXPECT_EQ(which(accepted_, reinterpret_cast<sockaddr*>(&found), &size), 0);
        char host[INET6_ADDRSTRLEN] = "";
        if (found.ss_family == AF_INET) {
            const auto& v4 = reinterpret_cast<const sockaddr_in&>(found);
            inet_ntop(AF_INET, &v4.sin_addr, host, sizeof host);
            return std::string(host) + ":" + std::to_string(ntohs(v4.sin_port));
        }
        const auto& v6 = reinterpret_cast<const sockaddr_in6&>(found);
        inet_ntop(AF_INET6, &v6.sin6_addr, host, sizeof host);
        return std::string("[") + host + "]:" + std::to_string(ntohs(v6.sin6_port));
    }

    pid_t client_ = -1;
    int hold_ = -1;
    int accepted_ = -1;
};

TEST(Peer, OnThisHostIsKnownByItsUser) {
    const local_connection ours(AF_INET);
    const peer found = find_peer(ours.peer_address(), ours.own_address());
    EXPECT_EQ(found.address, "127.0.0.1");
    EXPECT_EQ(found.user, geteuid());
    EXPECT_EQ(found.name(), "user " + std::to_string(geteuid()));
}

TEST(Peer, IsKnownOverBothFamilies) {
    const local_connection v6(AF_INET6);
    if (!v6.is_there()) {
        GTEST_SKIP() << "no IPv6 on this host";
    }
    EXPECT_EQ(find_peer(v6.peer_address(), v6.own_address()).user, geteuid());
    EXPECT_EQ(user_in_table("/proc/net/tcp6", v6.peer_address(), v6.own_address()), geteuid());
}

TEST(Peer, AnotherUserIsTheirOwn) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can act as another user";
    }
    const local_connection theirs(AF_INET, somebody_else);
    EXPECT_EQ(find_peer(theirs.peer_address(), theirs.own_address()).user, somebody_else);
    EXPECT_EQ(user_in_table("/proc/net/tcp", theirs.peer_address(), theirs.own_address()),
              somebody_else);
}

TEST(Peer, ThatHasGoneIsNobodysAndNotRoots) {
    local_connection left(AF_INET);
    const std::string address = left.peer_address();
    left.leave();
    const peer found = find_peer(address, left.own_address());
    EXPECT_EQ(found.user, std::nullopt);
    EXPECT_EQ(found.name(), "127.0.0.1");
    EXPECT_EQ(user_in_table("/proc/net/tcp", address, left.own_address()), std::nullopt);
}

TEST(Peer, AListenerAtItsPortIsNotThePeer) {
    const int listening = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(listen(listening, 1), 0);
    sockaddr_in where = {};
    socklen_t size = sizeof where;
    getsockname(listening, reinterpret_cast<sockaddr*>(&where), &size);
    const std::string address = "127.0.0.1:" + std::to_string(ntohs(where.sin_port));
    EXPECT_EQ(find_peer(address, "127.0.0.1:9").user, std::nullopt);
    close(listening);
}

TEST(Peer, ElsewhereIsKnownByItsAddress) {
    EXPECT_EQ(find_peer("203.0.113.7:4711", "127.0.0.1:9").name(), "203.0.113.7");
    EXPECT_EQ(find_peer("[2001:db8:1:2:3::4]:4711", "[::1]:9").name(), "2001:db8:1:2::/64");
    EXPECT_EQ(find_peer("[::ffff:203.0.113.7]:4711", "[::ffff:127.0.0.1]:9").name(), "203.0.113.7");
}

TEST(Peer, WhatIsNoAddressIsTakenAsItStands) {
    for (const char* text : {"", "x", "/tmp/x", "1.2.3:4", "[::1:4", "1.2.3.4:x", "1.2.3.4:99999",
                             ":::", "giop:tcp:1.2.3.4:5"}) {
        const peer found = find_peer(text, "127.0.0.1:9");
        EXPECT_EQ(found.name(), text);
        EXPECT_EQ(user_in_table("/proc/net/tcp", text, text), std::nullopt);
    }
    EXPECT_EQ(user_in_table("/no/such/table", "1.2.3.4:5", "1.2.3.4:5"), std::nullopt);
}

} // namespace
