#include "tests/support/giop.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace giop {

namespace {

constexpr char MAGIC[] = "GIOP";
constexpr char16_t BYTE_ORDER_MARK = 0xfeff;
constexpr std::size_t FRAGMENT_HEADER_SIZE = 4; // the request's id, before a fragment's data
constexpr std::size_t MAX_MESSAGE_SIZE = 256u << 20;
constexpr int PATIENCE_SECONDS = 20;
constexpr unsigned char RESPONSE_EXPECTED = 3;
constexpr uint32_t OBJECT_HERE = 1;

void put_contexts(cdr_writer& out, const service_contexts& contexts) {
    out.number(static_cast<uint32_t>(contexts.size()));
    for (const auto& [id, data] : contexts) {
        out.number(id);
        out.counted(data);
    }
}

service_contexts take_contexts(cdr_reader& in) {
    service_contexts contexts;
    for (uint32_t count = in.number<uint32_t>(); count != 0; --count) {
        const auto id = in.number<uint32_t>();
        contexts[id] = in.counted();
    }
    return contexts;
}

octets as_octets(const std::string& text) { return octets(text.begin(), text.end()); }

/// The body that follows a message's own header, which starts at a multiple of 8 if there is one.
octets take_body(cdr_reader& in) {
    if (in.left() == 0) {
        return {};
    }
    in.align(8);
    return in.raw(in.left());
}

void put_body(cdr_writer& out, const octets& body) {
    if (!body.empty()) {
        out.align(8);
        out.raw(body);
    }
}

/// A writer whose alignment is that of a message's body: its first octets stand for the header.
cdr_writer after_header(bool little_endian = true) {
    cdr_writer out(little_endian);
    out.raw(octets(HEADER_SIZE));
    return out;
}

octets with_header(message_type type, octets message, bool little_endian, unsigned minor_version) {
    std::copy_n(MAGIC, 4, message.begin());
    message[4] = 1;
    message[5] = static_cast<unsigned char>(minor_version);
    message[6] = little_endian ? LITTLE_ENDIAN_FLAG : 0;
    message[7] = static_cast<unsigned char>(type);
    const auto size = static_cast<uint32_t>(message.size() - HEADER_SIZE);
    ordered_octets(size, &message[8], little_endian);
    return message;
}

octets with_header(message_type type, const cdr_writer& message) {
    return with_header(type, message.bytes(), message.little_endian(), 2);
}

sockaddr_in loopback(uint16_t port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

int tcp_socket() {
    const int result = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (result < 0) {
        fail("socket");
    }
    return result;
}

void set_up(int socket) {
    const int on = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const timeval patience = {PATIENCE_SECONDS, 0};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
}

} // namespace

// --- CDR ---------------------------------------------------------------------------------------

cdr_writer cdr_writer::encapsulation(bool little_endian) {
    cdr_writer out(little_endian);
    out.octet(little_endian);
    return out;
}

void cdr_writer::align(std::size_t boundary) {
    while (bytes_.size() % boundary != 0) {
        gaps_.push_back(bytes_.size());
        bytes_.push_back(0);
    }
}

bool cdr_writer::matches(const octets& received) const {
    octets same_gaps = received;
    for (const std::size_t gap : gaps_) {
        if (gap < same_gaps.size()) {
            same_gaps[gap] = 0;
        }
    }
    return same_gaps == bytes_;
}

void cdr_writer::text(const std::string& value) {
    number(static_cast<uint32_t>(value.size() + 1));
    raw(as_octets(value));
    octet(0);
}

void cdr_writer::wide_text(const std::u16string& value) {
    const std::size_t units = value.empty() ? 0 : 1 + value.size();
    number(static_cast<uint32_t>(2 * units));
    if (units != 0) {
        number(static_cast<uint16_t>(BYTE_ORDER_MARK));
    }
    for (const char16_t unit : value) {
        number(static_cast<uint16_t>(unit));
    }
}

void cdr_writer::counted(const octets& value) {
    number(static_cast<uint32_t>(value.size()));
    raw(value);
}

void cdr_reader::align(std::size_t boundary) {
    const std::size_t aligned = (position_ + boundary - 1) / boundary * boundary;
    take(aligned - position_);
}

const unsigned char* cdr_reader::take(std::size_t count) {
    if (count > left()) {
        throw malformed("CDR ends too early");
    }
    const unsigned char* at = bytes_.data() + position_;
    position_ += count;
    return at;
}

octets cdr_reader::raw(std::size_t count) {
    const unsigned char* at = take(count);
    return octets(at, at + count);
}

std::string cdr_reader::text() {
    const octets value = counted();
    if (value.empty() || value.back() != 0) {
        throw malformed("a string without its terminating zero");
    }
    return std::string(value.begin(), value.end() - 1);
}

std::u16string cdr_reader::wide_text() {
    const octets value = counted();
    if (value.size() % 2 != 0) {
        throw malformed("half a UTF-16 code unit");
    }
    const auto unit = [&value](std::size_t at, bool little) {
        return static_cast<char16_t>(value[at + little] << 8 | value[at + !little]);
    };
    const bool marked =
        !value.empty() && (unit(0, false) == BYTE_ORDER_MARK || unit(0, true) == BYTE_ORDER_MARK);
    const bool little = marked && unit(0, true) == BYTE_ORDER_MARK;
    std::u16string text;
    for (std::size_t i = marked ? 2 : 0; i < value.size(); i += 2) {
        text.push_back(unit(i, little));
    }
    return text;
}

// --- messages ----------------------------------------------------------------------------------

request parse_request(const message& message) {
    if (message.type() != message_type::request) {
        throw malformed("no Request");
    }
    cdr_reader in = message.body();
    request result;
    result.little_endian = message.little_endian();
    result.id = in.number<uint32_t>();
    result.response_flags = in.octet();
    in.raw(3); // reserved
    if (in.number<uint16_t>() != 0) {
        throw malformed("a target that isn't an object key");
    }
    const octets key = in.counted();
    result.object_key.assign(key.begin(), key.end());
    result.operation = in.text();
    result.contexts = take_contexts(in);
    result.arguments = take_body(in);
    return result;
}

reply parse_reply(const message& message) {
    if (message.type() != message_type::reply) {
        throw malformed("no Reply");
    }
    cdr_reader in = message.body();
    reply result;
    result.little_endian = message.little_endian();
    result.id = in.number<uint32_t>();
    result.status = static_cast<reply_status>(in.number<uint32_t>());
    result.contexts = take_contexts(in);
    result.body = take_body(in);
    return result;
}

octets make_message(message_type type, const octets& body, bool little_endian,
                    unsigned minor_version) {
    octets message(HEADER_SIZE);
    message.insert(message.end(), body.begin(), body.end());
    return with_header(type, std::move(message), little_endian, minor_version);
}

octets make_request(uint32_t id, const std::string& object_key, const std::string& operation,
                    const octets& arguments, const service_contexts& contexts) {
    cdr_writer out = after_header();
    out.number(id);
    out.octet(RESPONSE_EXPECTED);
    out.raw(octets(3));
    out.number<uint16_t>(0); // the target is an object key
    out.counted(as_octets(object_key));
    out.text(operation);
    put_contexts(out, contexts);
    put_body(out, arguments);
    return with_header(message_type::request, out);
}

octets make_reply(uint32_t id, reply_status status, const octets& body, bool little_endian) {
    cdr_writer out = after_header(little_endian);
    out.number(id);
    out.number(static_cast<uint32_t>(status));
    put_contexts(out, {});
    put_body(out, body);
    return with_header(message_type::reply, out);
}

octets make_system_exception(uint32_t id, const std::string& repository_id, uint32_t minor_code,
                             uint32_t completed) {
    cdr_writer body;
    body.text(repository_id);
    body.number(minor_code);
    body.number(completed);
    return make_reply(id, reply_status::system_exception, body.bytes());
}

octets with_octet(octets message, std::size_t at, unsigned char value) {
    message.at(at) = value;
    return message;
}

octets with_length(octets message, uint32_t length) {
    ordered_octets(length, &message.at(8), true);
    return message;
}

std::vector<octets> fragments(const octets& message, std::size_t size) {
    const bool little_endian = (message[6] & LITTLE_ENDIAN_FLAG) != 0;
    const octets id(message.begin() + HEADER_SIZE,
                    message.begin() + HEADER_SIZE + FRAGMENT_HEADER_SIZE);
    std::vector<octets> parts;
    std::size_t at = HEADER_SIZE;
    while (at < message.size()) {
        octets part(HEADER_SIZE);
        if (!parts.empty()) {
            part.insert(part.end(), id.begin(), id.end());
        }
        const std::size_t count = std::min(size - part.size(), message.size() - at);
        const auto from = message.begin() + static_cast<std::ptrdiff_t>(at);
        part.insert(part.end(), from, from + static_cast<std::ptrdiff_t>(count));
        at += count;
        const auto type =
            parts.empty() ? static_cast<message_type>(message[7]) : message_type::fragment;
        parts.push_back(with_header(type, std::move(part), little_endian, message[5]));
        if (at < message.size()) {
            parts.back()[6] |= MORE_FRAGMENTS_FLAG;
        }
    }
    return parts;
}

octets make_locate_reply(const message& locate_request) {
    cdr_writer out = after_header();
    out.number(locate_request.body().number<uint32_t>());
    out.number(OBJECT_HERE);
    return with_header(message_type::locate_reply, out);
}

// --- references --------------------------------------------------------------------------------

void put_reference(cdr_writer& out, const reference& object) {
    out.text(object.type_id);
    if (object.type_id.empty()) {
        out.number<uint32_t>(0);
        return;
    }
    cdr_writer profile = cdr_writer::encapsulation();
    profile.octet(1);
    profile.octet(2);
    profile.text("127.0.0.1");
    profile.number(object.port);
    profile.counted(as_octets(object.object_key));
    profile.number<uint32_t>(0); // components
    out.number<uint32_t>(1);
    out.number(TAG_INTERNET_IOP);
    out.counted(profile.bytes());
}

std::string stringified(const reference& object) {
    cdr_writer ior = cdr_writer::encapsulation();
    put_reference(ior, object);
    std::string text = "IOR:";
    for (const unsigned char octet : ior.bytes()) {
        text += "0123456789abcdef"[octet >> 4];
        text += "0123456789abcdef"[octet & 15];
    }
    return text;
}

reference parse_reference(const std::string& ior) {
    octets bytes;
    for (std::size_t i = 4; i + 1 < ior.size(); i += 2) {
        bytes.push_back(static_cast<unsigned char>(std::stoul(ior.substr(i, 2), nullptr, 16)));
    }
    cdr_reader in(bytes, !bytes.empty() && bytes[0] != 0, 1);
    reference object;
    object.type_id = in.text();
    if (in.number<uint32_t>() == 0) {
        return object;
    }
    if (in.number<uint32_t>() != TAG_INTERNET_IOP) {
        throw malformed("a first profile that isn't IIOP's");
    }
    const octets data = in.counted();
    cdr_reader profile(data, data.at(0) != 0, 1);
    profile.raw(2); // version
    profile.text();
    object.port = profile.number<uint16_t>();
    const octets key = profile.counted();
    object.object_key.assign(key.begin(), key.end());
    return object;
}

std::string corbaloc(uint16_t port, const std::string& object_key) {
    return "corbaloc:iiop:1.2@127.0.0.1:" + std::to_string(port) + "/" + object_key;
}

std::string hex(const octets& bytes) {
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        text += "0123456789abcdef"[bytes[i] >> 4];
        text += "0123456789abcdef"[bytes[i] & 15];
        text += i % 16 == 15 ? '\n' : ' ';
    }
    return text;
}

// --- connections -------------------------------------------------------------------------------

connection connection::to(uint16_t port) {
    connection result(tcp_socket());
    set_up(result.socket_);
    const sockaddr_in address = loopback(port);
    if (connect(result.socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        fail("connect");
    }
    return result;
}

connection::~connection() {
    const int socket = socket_.exchange(-1);
    if (socket >= 0) {
        close(socket);
    }
}

bool connection::send(const octets& bytes) {
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t count =
            ::send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

bool connection::receive_exactly(unsigned char* to, std::size_t count) {
    while (count != 0) {
        const ssize_t received = recv(socket_, to, count, 0);
        if (received < 0 && errno == EINTR) {
            continue;
        }
        if (received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            throw malformed("the peer says nothing");
        }
        if (received <= 0) {
            return false;
        }
        to += received;
        count -= static_cast<std::size_t>(received);
    }
    return true;
}

std::optional<message> connection::receive_one() {
    message result;
    result.bytes.resize(HEADER_SIZE);
    if (!receive_exactly(result.bytes.data(), HEADER_SIZE)) {
        return std::nullopt;
    }
    if (std::memcmp(result.bytes.data(), MAGIC, 4) != 0) {
        throw malformed("no GIOP message");
    }
    cdr_reader size(octets(result.bytes.begin() + 8, result.bytes.end()), result.little_endian());
    const std::size_t body = size.number<uint32_t>();
    if (body > MAX_MESSAGE_SIZE) {
        throw malformed("a message that is too large");
    }
    result.bytes.resize(HEADER_SIZE + body);
    if (!receive_exactly(result.bytes.data() + HEADER_SIZE, body)) {
        return std::nullopt;
    }
    return result;
}

std::optional<message> connection::receive() {
    std::optional<message> whole = receive_one();
    bool more = whole && (whole->bytes[6] & MORE_FRAGMENTS_FLAG) != 0;
    while (more) {
        const std::optional<message> next = receive_one();
        if (!next) {
            return std::nullopt;
        }
        if (next->type() != message_type::fragment) {
            throw malformed("a message within another's fragments");
        }
        more = (next->bytes[6] & MORE_FRAGMENTS_FLAG) != 0;
        whole->bytes.insert(whole->bytes.end(),
                            next->bytes.begin() + HEADER_SIZE + FRAGMENT_HEADER_SIZE,
                            next->bytes.end());
    }
    return whole;
}

void connection::shut_down() { shutdown(socket_, SHUT_RDWR); }

void connection::end_sending() { shutdown(socket_, SHUT_WR); }

void connection::reset() {
    const int socket = socket_.exchange(-1);
    const linger at_once = {1, 0};
    setsockopt(socket, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    close(socket);
}

script answering(std::function<octets(const request&)> answer) {
    return [answer = std::move(answer)](connection& peer, const message& message) {
        if (message.type() == message_type::locate_request) {
            peer.send(make_locate_reply(message));
        } else if (message.type() == message_type::request) {
            peer.send(answer(parse_request(message)));
        }
    };
}

listener::listener(script for_each_message)
    : script_(std::move(for_each_message)), socket_(tcp_socket()) {
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(socket_, generic, size) != 0 || listen(socket_, SOMAXCONN) != 0 ||
        getsockname(socket_, generic, &size) != 0) {
        fail("listen");
    }
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] { accept_all(); });
}

listener::~listener() {
    shutdown(socket_, SHUT_RDWR);
    acceptor_.join();
    close(socket_);
    for (served& one : served_) {
        one.peer.shut_down();
    }
    for (served& one : served_) {
        one.thread.join();
    }
}

void listener::reap() {
    for (auto one = served_.begin(); one != served_.end();) {
        if (one->ended) {
            one->thread.join();
            one = served_.erase(one);
        } else {
            ++one;
        }
    }
}

void listener::accept_all() {
    for (;;) {
        const int accepted = accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
        if (accepted < 0 && (errno == EINTR || errno == ECONNABORTED)) {
            continue;
        }
        if (accepted < 0) {
            return;
        }
        const int on = 1;
        setsockopt(accepted, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        ++accepted_;
        reap();
        served& one = served_.emplace_back(accepted);
        one.thread = std::thread([this, &one] { serve(one); });
    }
}

void listener::serve(served& one) {
    connection& peer = one.peer;
    try {
        while (std::optional<message> message = peer.receive()) {
            {
                std::lock_guard lock(mutex_);
                messages_.push_back(*message);
            }
            script_(peer, *message);
        }
    } catch (const malformed&) {
        peer.shut_down(); // as an ORB does with a peer that doesn't speak GIOP
    }
    one.ended = true;
}

std::vector<message> listener::messages() const {
    std::lock_guard lock(mutex_);
    return messages_;
}

std::vector<request> listener::requests() const {
    std::vector<request> result;
    for (const message& message : messages()) {
        if (message.type() == message_type::request) {
            result.push_back(parse_request(message));
        }
    }
    return result;
}

} // namespace giop
