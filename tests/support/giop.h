// GIOP 1.2 by hand, for tests that hold what is on the wire: CDR values, messages, and both ends of
// a connection on loopback, with no ORB in between.
//
// A peer of an ORB's client, with every request answered by a `long` 7:
//
//     giop::listener peer(giop::answering([](const giop::request& request) {
//         giop::cdr_writer result;
//         result.number<int32_t>(7);
//         return giop::make_reply(request.id, giop::reply_status::no_exception, result.bytes());
//     }));
//     CORBA::Object_var object = orb->string_to_object(giop::corbaloc(peer.port(), "key").c_str());
//
// A script other than `answering` does what it likes with the connection: sends any octets, sends
// nothing, closes. Layouts are those of CORBA 3.0.3, chapter 15.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace giop {

using octets = std::vector<unsigned char>;

/// What is read isn't what it should be, or the peer didn't say it in time.
struct malformed : std::runtime_error {
    using runtime_error::runtime_error;
};

enum class message_type : unsigned char {
    request,
    reply,
    cancel_request,
    locate_request,
    locate_reply,
    close_connection,
    message_error,
    fragment
};
enum class reply_status : uint32_t {
    no_exception,
    user_exception,
    system_exception,
    location_forward
};

constexpr std::size_t HEADER_SIZE = 12; // octets
constexpr int LITTLE_ENDIAN_FLAG = 1;   // bits of a header's flags
constexpr int MORE_FRAGMENTS_FLAG = 2;
constexpr uint32_t TAG_INTERNET_IOP = 0; // a profile's tag
constexpr uint32_t VALUE_TAG_WITH_ID = 0x7fffff02;
constexpr uint32_t INDIRECTION_TAG = 0xffffffff;

// --- CDR ---------------------------------------------------------------------------------------

/// Writes CDR, aligned from its own start: a message's header, or a body that starts at a multiple
/// of 8, as the bodies of requests and replies do.
class cdr_writer {
  public:
    explicit cdr_writer(bool little_endian = true) : little_endian_(little_endian) {}
    /// The start of an encapsulation: its byte order is its first octet.
    static cdr_writer encapsulation(bool little_endian = true);

    const octets& bytes() const { return bytes_; }
    std::size_t size() const { return bytes_.size(); }
    bool little_endian() const { return little_endian_; }

    /// Whether these are the octets written, whatever is in the gaps that align them: ORBs leave
    /// there what lay in memory.
    bool matches(const octets& received) const;

    void align(std::size_t boundary);
    void octet(unsigned value) { bytes_.push_back(static_cast<unsigned char>(value)); }
    void raw(const octets& value) { bytes_.insert(bytes_.end(), value.begin(), value.end()); }
    /// An integer or IEEE number, aligned to its size.
    template <typename Number>
    void number(Number value);
    /// A string: length with the terminating zero, characters, zero.
    void text(const std::string& value);
    /// A wstring in UTF-16: length in octets, byte order mark, code units in the writer's order, no
    /// zero; the length alone for an empty one.
    void wide_text(const std::u16string& value);
    /// A sequence of octets, an encapsulation among them: length, octets.
    void counted(const octets& value);

  private:
    octets bytes_;
    std::vector<std::size_t> gaps_; // offsets of octets that only align
    bool little_endian_;
};

/// Reads what cdr_writer writes, and UTF-16 without a byte order mark, most significant octet
/// first. Throws malformed at the end of the octets.
class cdr_reader {
  public:
    explicit cdr_reader(octets bytes, bool little_endian = true, std::size_t position = 0)
        : bytes_(std::move(bytes)), little_endian_(little_endian), position_(position) {}

    std::size_t position() const { return position_; }
    std::size_t left() const { return bytes_.size() - position_; }

    void align(std::size_t boundary);
    unsigned char octet() { return *take(1); }
    octets raw(std::size_t count);
    template <typename Number>
    Number number();
    std::string text();
    std::u16string wide_text();
    octets counted() { return raw(number<uint32_t>()); }

  private:
    const unsigned char* take(std::size_t count);

    octets bytes_;
    bool little_endian_;
    std::size_t position_;
};

// --- messages ----------------------------------------------------------------------------------

/// One message as it came, its fragments joined into one.
struct message {
    octets bytes; // the header of the first, then all bodies

    unsigned major_version() const { return bytes[4]; }
    unsigned minor_version() const { return bytes[5]; }
    bool little_endian() const { return (bytes[6] & LITTLE_ENDIAN_FLAG) != 0; }
    message_type type() const { return static_cast<message_type>(bytes[7]); }
    /// A reader that stands after the header.
    cdr_reader body() const { return cdr_reader(bytes, little_endian(), HEADER_SIZE); }
};

using service_contexts = std::map<uint32_t, octets>;

struct request {
    uint32_t id = 0;
    unsigned char response_flags = 0;
    std::string object_key;
    std::string operation;
    service_contexts contexts;
    bool little_endian = true;
    octets arguments;
};

struct reply {
    uint32_t id = 0;
    reply_status status = reply_status::no_exception;
    service_contexts contexts;
    bool little_endian = true;
    octets body;
};

request parse_request(const message& message);
reply parse_reply(const message& message);

/// A whole message around a body that was written from offset 0 as 12 octets of header would be.
octets make_message(message_type type, const octets& body, bool little_endian = true,
                    unsigned minor_version = 2);
octets make_request(uint32_t id, const std::string& object_key, const std::string& operation,
                    const octets& arguments, const service_contexts& contexts = {});
octets make_reply(uint32_t id, reply_status status, const octets& body, bool little_endian = true);
/// A reply with a system exception, such as "IDL:omg.org/CORBA/NO_IMPLEMENT:1.0".
octets make_system_exception(uint32_t id, const std::string& repository_id, uint32_t minor_code = 0,
                             uint32_t completed = 1);
/// The message with one octet of it replaced.
octets with_octet(octets message, std::size_t at, unsigned char value);
/// The message, little-endian, with another length in its header.
octets with_length(octets message, uint32_t length);
/// A request or reply cut into fragments of so many octets, a multiple of 8, headers included.
std::vector<octets> fragments(const octets& message, std::size_t size);
/// The answer that the object is here, to a LocateRequest.
octets make_locate_reply(const message& locate_request);

// --- references --------------------------------------------------------------------------------

/// An object on loopback, as an IOR says it. Without a type it is nil.
struct reference {
    std::string type_id;
    uint16_t port = 0;
    std::string object_key;
};

void put_reference(cdr_writer& out, const reference& object);
/// "IOR:" and the hexadecimal digits.
std::string stringified(const reference& object);
/// The type, port and key of what `stringified` or an ORB wrote, by its first profile.
reference parse_reference(const std::string& ior);
/// "corbaloc:iiop:1.2@127.0.0.1:PORT/KEY".
std::string corbaloc(uint16_t port, const std::string& object_key);

/// "49 4f 50 ...", with a new line every 16 octets, for messages of tests.
std::string hex(const octets& bytes);

// --- connections -------------------------------------------------------------------------------

/// One TCP connection. Waits for its peer are bounded by 20 seconds.
class connection {
  public:
    explicit connection(int socket) : socket_(socket) {}
    /// Connects to a port of 127.0.0.1; throws std::system_error.
    static connection to(uint16_t port);
    connection(connection&& other) noexcept : socket_(other.socket_.exchange(-1)) {}
    connection& operator=(connection&&) = delete;
    ~connection();

    /// False when the peer has gone.
    bool send(const octets& bytes);
    /// The next message; none when the peer has closed. Throws malformed for what is no GIOP.
    std::optional<message> receive();
    /// What is sent and received from here on fails, in every thread.
    void shut_down();
    /// Ends what is sent (FIN) and goes on receiving.
    void end_sending();
    /// Ends it at once (RST); nothing may be asked of it any more. Only in the connection's thread.
    void reset();

  private:
    bool receive_exactly(unsigned char* to, std::size_t count);
    std::optional<message> receive_one();

    std::atomic<int> socket_;
};

/// What a listener does with each message. It runs in a thread of the connection, so several may
/// run at once.
using script = std::function<void(connection&, const message&)>;

/// Answers each request with what `answer` makes of it (nothing for no octets), and says of every
/// object that is asked for that it is here.
script answering(std::function<octets(const request&)> answer);

/// Answers nothing, ever.
inline void saying_nothing(connection&, const message&) {}

/// Accepts connections on a free port of 127.0.0.1 and runs a script. Its end ends them all.
class listener {
  public:
    explicit listener(script for_each_message);
    ~listener();
    listener(const listener&) = delete;
    listener& operator=(const listener&) = delete;

    uint16_t port() const { return port_; }
    /// All that came so far, in order of arrival.
    std::vector<message> messages() const;
    std::vector<request> requests() const;
    int connections() const { return accepted_; }

  private:
    /// A connection that was accepted, and the thread that serves it.
    struct served {
        explicit served(int socket) : peer(socket) {}
        connection peer;
        std::atomic<bool> ended{false};
        std::thread thread;
    };

    void accept_all();
    void serve(served& one);
    void reap();

    script script_;
    int socket_;
    uint16_t port_;
    std::atomic<int> accepted_{0};
    mutable std::mutex mutex_; // guards the messages
    std::vector<message> messages_;
    std::list<served> served_; // the acceptor's, while it runs
    std::thread acceptor_;     // last: it uses all the others
};

// --- templates ---------------------------------------------------------------------------------

/// The octets of a number in the order asked for.
template <typename Number>
void ordered_octets(const Number& value, unsigned char* to, bool little_endian) {
    const bool host_is_little = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
    unsigned char native[sizeof value];
    std::memcpy(native, &value, sizeof value);
    for (std::size_t i = 0; i < sizeof value; ++i) {
        to[i] = native[host_is_little == little_endian ? i : sizeof value - 1 - i];
    }
}

template <typename Number>
void cdr_writer::number(Number value) {
    align(sizeof value);
    unsigned char ordered[sizeof value];
    ordered_octets(value, ordered, little_endian_);
    bytes_.insert(bytes_.end(), ordered, ordered + sizeof value);
}

template <typename Number>
Number cdr_reader::number() {
    align(sizeof(Number));
    Number wire;
    std::memcpy(&wire, take(sizeof wire), sizeof wire);
    Number value;
    unsigned char native[sizeof wire];
    ordered_octets(wire, native, little_endian_);
    std::memcpy(&value, native, sizeof value);
    return value;
}

} // namespace giop
