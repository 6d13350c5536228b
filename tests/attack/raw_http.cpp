#include "tests/attack/raw_http.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

sockaddr_in place(const char* address, int port) {
    sockaddr_in result = {};
    result.sin_family = AF_INET;
    result.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, address, &result.sin_addr);
    return result;
}

} // namespace

raw_http::raw_http(int port, const char* own_address, int buffer)
    : descriptor_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    if (buffer > 0) {
        setsockopt(descriptor_, SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
    }
    const sockaddr_in own = place(own_address, 0);
    const sockaddr_in other = place("127.0.0.1", port);
    EXPECT_EQ(bind(descriptor_, reinterpret_cast<const sockaddr*>(&own), sizeof own), 0);
    EXPECT_EQ(connect(descriptor_, reinterpret_cast<const sockaddr*>(&other), sizeof other), 0);
}

raw_http::raw_http(raw_http&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

raw_http::~raw_http() {
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
}

void raw_http::send(const std::string& bytes) const {
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count =
            ::send(descriptor_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            return;
        }
        sent += static_cast<size_t>(count);
    }
}

std::string raw_http::take(size_t most, int seconds) const {
    pollfd arrived = {descriptor_, POLLIN, 0};
    if (poll(&arrived, 1, seconds * 1000) <= 0) {
        return "";
    }
    std::string bytes(most, '\0');
    const ssize_t count = recv(descriptor_, bytes.data(), most, 0);
    bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return bytes;
}

std::string raw_http::take_all() const {
    std::string all;
    for (std::string more = take(); !more.empty(); more = take()) {
        all += more;
    }
    return all;
}

bool raw_http::is_over() const {
    pollfd ended = {descriptor_, POLLRDHUP, 0};
    return poll(&ended, 1, 0) > 0;
}

std::string ask(int port, const std::string& request) {
    const raw_http connection(port);
    connection.send(request);
    return connection.take_all();
}

std::string request_for(const std::string& path, const std::string& headers,
                        const std::string& method) {
    return method + " " + path + " HTTP/1.1\r\nHost: localhost\r\n" + headers + "\r\n";
}
