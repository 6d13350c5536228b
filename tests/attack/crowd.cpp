#include "tests/attack/crowd.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace {

using std::chrono::steady_clock;

/// So that ours don't run out before the service's.
void raise_descriptor_limit() {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

int connected(int port, const char* address, bool is_slow) {
    const bool is_v6 = std::string(address).find(':') != std::string::npos;
    const int result = socket(is_v6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (is_slow) {
        const int window = 2048;
        const int segment = 536;
        setsockopt(result, SOL_SOCKET, SO_RCVBUF, &window, sizeof window);
        setsockopt(result, IPPROTO_TCP, TCP_MAXSEG, &segment, sizeof segment);
    }
    sockaddr_in v4 = {};
    v4.sin_family = AF_INET;
    v4.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, address, &v4.sin_addr);
    sockaddr_in6 v6 = {};
    v6.sin6_family = AF_INET6;
    v6.sin6_port = v4.sin_port;
    inet_pton(AF_INET6, address, &v6.sin6_addr);
    const auto* const where =
        is_v6 ? reinterpret_cast<const sockaddr*>(&v6) : reinterpret_cast<const sockaddr*>(&v4);
    if (connect(result, where, is_v6 ? sizeof v6 : sizeof v4) != 0) {
        const int error = errno;
        close(result);
        throw std::system_error(error, std::generic_category(), address);
    }
    return result;
}

/// Nothing is read for that.
bool is_closed(int socket) {
    pollfd state = {socket, POLLRDHUP, 0};
    return poll(&state, 1, 0) == 1;
}

} // namespace

crowd::crowd(int port, size_t count, const char* address, bool is_slow) {
    raise_descriptor_limit();
    while (sockets_.size() < count) {
        sockets_.push_back(connected(port, address, is_slow));
    }
}

crowd::~crowd() { reset(); }

void crowd::send(const giop::octets& bytes) const {
    for (const int each : sockets_) {
        ::send(each, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
}

void crowd::keep_sending(const giop::octets& bytes, std::chrono::milliseconds longest) const {
    std::vector<size_t> next(sockets_.size());
    const auto start = steady_clock::now();
    while (steady_clock::now() - start < longest) {
        for (size_t each = 0; each < sockets_.size(); ++each) {
            const size_t left = bytes.size() - next[each];
            const ssize_t count =
                ::send(sockets_[each], &bytes[next[each]], left, MSG_DONTWAIT | MSG_NOSIGNAL);
            next[each] =
                (next[each] + static_cast<size_t>(std::max(count, ssize_t{0}))) % bytes.size();
        }
    }
}

bool crowd::await_answers() const {
    return std::all_of(sockets_.begin(), sockets_.end(), [](int each) {
        pollfd state = {each, POLLIN, 0};
        return poll(&state, 1, 20000) == 1;
    });
}

std::string crowd::ask(const giop::octets& bytes) const {
    char answer[4096] = "";
    ::send(sockets_.at(0), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    const ssize_t count = recv(sockets_.at(0), answer, sizeof answer, 0);
    return {answer, static_cast<size_t>(std::max(count, ssize_t{0}))};
}

size_t crowd::closed() const {
    return static_cast<size_t>(std::count_if(sockets_.begin(), sockets_.end(), is_closed));
}

size_t crowd::await_closed(size_t enough, std::chrono::seconds longest) const {
    const auto start = steady_clock::now();
    size_t so_far = closed();
    while (so_far < enough && steady_clock::now() - start < longest) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        so_far = closed();
    }
    return so_far;
}

void crowd::reset() {
    for (const int each : sockets_) {
        const linger at_once = {1, 0};
        setsockopt(each, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        close(each);
    }
    sockets_.clear();
}

giop::octets question(uint32_t id) {
    return giop::make_request(id, "HSFactory", "getInactivityTimeout", {});
}

bool is_answered(giop::connection& client, uint32_t id) {
    const std::optional<giop::message> message = client.receive();
    return message && message->type() == giop::message_type::reply &&
           giop::parse_reply(*message).id == id;
}

bool is_refused(giop::connection& client) {
    const std::optional<giop::message> message = client.receive();
    return message && message->type() == giop::message_type::message_error && !client.receive();
}

namespace {

/// Of five new clients, each on a connection of its own: in order.
std::vector<double> answer_times(int port) {
    std::vector<double> taken;
    for (int each = 0; each < 5; ++each) {
        const auto start = steady_clock::now();
        giop::connection client = giop::connection::to(static_cast<uint16_t>(port));
        client.send(question());
        EXPECT_TRUE(is_answered(client, 1));
        taken.push_back(std::chrono::duration<double>(steady_clock::now() - start).count());
    }
    std::sort(taken.begin(), taken.end());
    return taken;
}

} // namespace

double answer_time(int port) { return answer_times(port)[2]; }

double longest_answer_time(int port) { return answer_times(port).back(); }
