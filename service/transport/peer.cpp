#include "service/transport/peer.h"

#include "service/listening.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace transport {

namespace {

constexpr size_t chunk = 16384;
constexpr int most_chunks = 16; ///< of one peer, before it is the next one's turn

std::string address_of(int descriptor, decltype(getsockname)* which) {
    sockaddr_storage address = {};
    socklen_t size = sizeof address;
    char text[INET6_ADDRSTRLEN] = "255.255.255.255"; // of one that has gone already
    int port = 65535;
    if (which(descriptor, reinterpret_cast<sockaddr*>(&address), &size) == 0) {
        if (address.ss_family == AF_INET6) {
            const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address);
            inet_ntop(AF_INET6, &v6.sin6_addr, text, sizeof text);
            port = ntohs(v6.sin6_port);
        } else {
            const auto& v4 = reinterpret_cast<const sockaddr_in&>(address);
            inet_ntop(AF_INET, &v4.sin_addr, text, sizeof text);
            port = ntohs(v4.sin_port);
        }
    }
    return address_and_port(text, port);
}

bool is_to_wait(int error) { return error == EAGAIN || error == EWOULDBLOCK || error == EINTR; }

} // namespace

peer::peer(int descriptor, const tls_identity* identity, size_t longest_message)
    : descriptor_(descriptor), has_tls_(identity != nullptr), requests_(longest_message) {
    const int on = 1;
    setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const timeval moment = {std::chrono::seconds(lingering).count(), 0};
    setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &moment, sizeof moment);
    own_address_ = address_of(descriptor, getsockname);
    peer_address_ = address_of(descriptor, getpeername);
    if (identity != nullptr) {
        tls_.emplace(*identity);
    }
}

peer::~peer() { close(); }

peer::condition peer::advance() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return advance_locked();
}

peer::condition peer::advance_locked() {
    for (int chunks = 0; flush() && now_locked() == condition::waiting; ++chunks) {
        if (chunks == most_chunks || !read_some()) {
            break;
        }
    }
    const std::optional<clock::time_point> last = deadline_locked();
    if (last && *last <= clock::now()) {
        end_locked();
    }
    return now_locked();
}

peer::condition peer::now() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return now_locked();
}

peer::condition peer::now_locked() {
    if (!is_over_ && !output_.empty()) {
        return condition::flushing;
    }
    switch (is_over_ ? request_assembly::state::closed : requests_.look(clock::now())) {
    case request_assembly::state::whole:
        return condition::whole;
    case request_assembly::state::incomplete:
        return condition::waiting;
    case request_assembly::state::refused:
        send_locked(message_error, sizeof message_error);
        break;
    case request_assembly::state::closed:
        break;
    }
    end_locked();
    return condition::over;
}

/// False: there is nothing to read now.
bool peer::read_some() {
    char bytes[chunk];
    const ssize_t count = recv(descriptor_, bytes, sizeof bytes, MSG_DONTWAIT);
    if (count < 0 && is_to_wait(errno)) {
        return false;
    }
    if (count <= 0 || !accept_bytes(bytes, static_cast<size_t>(count))) {
        end_locked();
        return false;
    }
    return true;
}

bool peer::accept_bytes(const char* bytes, size_t count) {
    if (!tls_) {
        requests_.append(bytes, count);
        return true;
    }
    std::string plain;
    const bool goes_on = tls_->receive(bytes, count, plain, output_);
    requests_.append(plain.data(), plain.size());
    if (!goes_on) {
        flush(); // it says why
    }
    return goes_on || !plain.empty();
}

peer::condition peer::linger() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (now_locked() != condition::waiting || deadline_locked()) {
            return advance_locked();
        }
    }
    char bytes[chunk];
    const ssize_t count = recv(descriptor_, bytes, sizeof bytes, 0);
    const int error = errno;
    const std::lock_guard<std::mutex> lock(mutex_);
    if (count < 0 && is_to_wait(error)) {
        return now_locked();
    }
    if (count <= 0 || is_over_ || !accept_bytes(bytes, static_cast<size_t>(count))) {
        end_locked();
    }
    return now_locked();
}

size_t peer::take(void* to, size_t size) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return is_over_ ? 0 : requests_.take(to, size);
}

bool peer::send(const void* bytes, size_t count) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return send_locked(bytes, count);
}

bool peer::send_locked(const void* bytes, size_t count) {
    if (is_over_) {
        return false;
    }
    if (output_.size() + count > longest_output) {
        end_locked();
        return false;
    }
    const auto* first = static_cast<const char*>(bytes);
    if (tls_) {
        if (!tls_->send(bytes, count, output_)) {
            end_locked();
        }
    } else if (output_.empty()) {
        const ssize_t sent = ::send(descriptor_, bytes, count, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0 && !is_to_wait(errno)) {
            end_locked();
            return false;
        }
        const size_t taken = sent < 0 ? 0 : static_cast<size_t>(sent);
        if (taken == count) {
            return true;
        }
        output_.assign(first + taken, count - taken);
    } else {
        output_.append(first, count);
    }
    flush();
    return !is_over_;
}

/// Whether all that waited is sent.
bool peer::flush() {
    size_t sent = 0;
    while (sent < output_.size() && !is_over_) {
        const ssize_t count = ::send(descriptor_, output_.data() + sent, output_.size() - sent,
                                     MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0 && !is_to_wait(errno)) {
            end_locked();
        } else if (count < 0) {
            break;
        } else {
            sent += static_cast<size_t>(count);
        }
    }
    output_.erase(0, sent);
    if (output_.empty()) {
        output_since_.reset();
        output_.shrink_to_fit();
    } else if (!output_since_) {
        output_since_ = clock::now();
    }
    return output_.empty();
}

void peer::end() {
    const std::lock_guard<std::mutex> lock(mutex_);
    end_locked();
}

void peer::end_locked() {
    if (is_over_) {
        return;
    }
    if (tls_) {
        tls_->finish(output_);
        if (!output_.empty()) {
            ::send(descriptor_, output_.data(), output_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        }
    }
    is_over_ = true;
    shutdown(descriptor_, SHUT_RDWR);
}

void peer::close() {
    const std::lock_guard<std::mutex> lock(mutex_);
    end_locked();
    if (!is_closed_) {
        is_closed_ = true;
        ::close(descriptor_);
        requests_ = request_assembly(0);
        output_ = std::string();
    }
}

std::optional<clock::time_point> peer::deadline() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return deadline_locked();
}

std::optional<clock::time_point> peer::deadline_locked() const {
    std::optional<clock::time_point> since = requests_.begun();
    const auto or_since = [&](clock::time_point other) {
        since = std::min(since.value_or(other), other);
    };
    if (is_greeting()) {
        or_since(accepted_);
    }
    if (output_since_) {
        or_since(*output_since_);
    }
    if (!since) {
        return std::nullopt;
    }
    return *since + patience;
}

std::optional<clock::time_point> peer::handshake_deadline() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return is_greeting() ? std::optional(accepted_ + patience) : std::nullopt;
}

bool peer::is_greeting() const { return tls_ && !tls_->is_agreed(); }

size_t peer::held() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return requests_.held() + output_.size();
}

} // namespace transport
