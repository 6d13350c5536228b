// Many connections that misbehave, and a client beside them that doesn't.
#pragma once

#include "tests/support/giop.h"

#include <chrono>
#include <string>
#include <vector>

/// Connections to a port of loopback, with nothing sent.
class crowd {
  public:
    /// `address`: 127.0.0.1 or ::1. `is_slow`: their windows are small, so that little can be sent
    /// to them before they have read.
    crowd(int port, size_t count, const char* address = "127.0.0.1", bool is_slow = false);
    ~crowd();
    crowd(const crowd&) = delete;
    crowd& operator=(const crowd&) = delete;

    /// To each, as much as it takes without waiting.
    void send(const giop::octets& bytes) const;
    /// To each, again and again, as much as it takes without waiting.
    void keep_sending(const giop::octets& bytes, std::chrono::milliseconds longest) const;
    /// Waits until each was sent something; false when one isn't for 20 seconds.
    bool await_answers() const;
    /// What the first of them is answered, in one piece.
    std::string ask(const giop::octets& bytes) const;
    /// How many were closed by the service. It waits for none, and reads nothing.
    size_t closed() const;
    /// How many were when `enough` are, or after `longest`.
    size_t await_closed(size_t enough, std::chrono::seconds longest) const;
    /// Sends RST, so that the ports are free at once.
    void reset();

  private:
    std::vector<int> sockets_;
};

/// Of an object that every service has; the answer is one short message.
giop::octets question(uint32_t id = 1);

/// How long a new client waits for an answer to that, in seconds: the median of five, each on a
/// connection of its own. Fails the test for an answer that isn't one.
double answer_time(int port);
/// The longest of five.
double longest_answer_time(int port);

/// Whether the connection gets the answer to request `id` next.
bool is_answered(giop::connection& client, uint32_t id);

/// Whether the next that comes is a MessageError, and then the end.
bool is_refused(giop::connection& client);
