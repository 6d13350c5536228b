// One connection: its socket, what came of a message, and what couldn't be sent yet. Nothing here
// waits for the peer, but for `linger`, for a moment.
#pragma once

#include "service/transport/request_assembly.h"
#include "service/transport/tls.h"

#include <mutex>
#include <optional>
#include <string>

namespace transport {

/// How long a peer may take for a message, for the handshake of TLS, and to take an answer.
constexpr std::chrono::seconds patience{5};
constexpr std::chrono::seconds lingering{1};
constexpr size_t longest_output = 1 << 20; ///< bytes that wait for the peer to take them

/// Thread-safe. Whoever asks for messages is one thread at a time.
class peer {
  public:
    /// Takes over `descriptor`, a connected socket. `identity` is null for one without TLS, else
    /// borrowed. `longest_message` in bytes.
    peer(int descriptor, const tls_identity* identity, size_t longest_message);
    ~peer();
    peer(const peer&) = delete;
    peer& operator=(const peer&) = delete;

    enum class condition {
        waiting,  ///< for bytes of the peer
        flushing, ///< for the peer to take what was sent; it isn't read from until then
        whole,    ///< a message is there
        over      ///< nothing more will come of it
    };
    /// Sends what waits, and reads until a message is whole or there is nothing more to read.
    condition advance();
    /// The same without reading or sending.
    condition now();
    /// Like advance, but for a peer that has begun nothing it waits for its next bytes, `lingering`
    /// at most.
    condition linger();
    /// Copies of the message that is whole; see request_assembly.
    size_t take(void* to, size_t size);

    /// Takes all of `bytes`, to be sent as the peer takes them. False: it is over.
    bool send(const void* bytes, size_t count);
    /// Nothing more is read or sent; a thread that lingers is woken.
    void end();
    /// Closes the socket too, and holds nothing any more.
    void close();

    /// When it is over, unless the peer goes on: since it has begun something. None: it is idle.
    std::optional<clock::time_point> deadline() const;
    /// The same for its handshake. None: that is done, or there is none.
    std::optional<clock::time_point> handshake_deadline() const;
    size_t held() const; ///< bytes in memory, of what was read and what isn't sent

    int descriptor() const { return descriptor_; } ///< to be watched; valid until close
    bool has_tls() const { return has_tls_; }
    /// "127.0.0.1:12345", "[::1]:12345".
    const std::string& own_address() const { return own_address_; }
    const std::string& peer_address() const { return peer_address_; }

  private:
    // What follows is for whoever holds the mutex.
    condition advance_locked();
    condition now_locked();
    bool read_some();
    bool send_locked(const void* bytes, size_t count);
    bool accept_bytes(const char* bytes, size_t count);
    bool flush();
    void end_locked();
    std::optional<clock::time_point> deadline_locked() const;
    bool is_greeting() const;

    const int descriptor_;
    const bool has_tls_;
    const clock::time_point accepted_ = clock::now();
    std::string own_address_;
    std::string peer_address_;

    mutable std::mutex mutex_;
    bool is_closed_ = false;
    bool is_over_ = false;
    std::optional<tls_session> tls_;
    request_assembly requests_;
    std::string output_;
    std::optional<clock::time_point> output_since_;
};

} // namespace transport
