// A peer that records the requests it gets and gives to all the same answer.
#pragma once

#include "tests/support/giop.h"
#include "tests/wire/calls.h"

#include <mutex>
#include <string>

namespace wire {

class recorder {
  public:
    recorder()
        : listener_(giop::answering([this](const giop::request& request) {
              std::lock_guard lock(mutex_);
              last_ = request;
              ++count_;
              return giop::make_reply(request.id, status_, body_, little_endian_);
          })) {}

    uint16_t port() const { return listener_.port(); }
    /// A reference that asks nothing when it is made. The caller releases it.
    CORBA::Object_ptr object(const std::string& key) const {
        return orb()->string_to_object(giop::corbaloc(port(), escaped(key)).c_str());
    }

    void answer_with(giop::reply_status status, const giop::cdr_writer& body) {
        std::lock_guard lock(mutex_);
        status_ = status;
        body_ = body.bytes();
        little_endian_ = body.little_endian();
    }

    giop::request last_request() const {
        std::lock_guard lock(mutex_);
        return last_;
    }
    std::size_t request_count() const {
        std::lock_guard lock(mutex_);
        return count_;
    }

  private:
    static std::string escaped(const std::string& key) {
        std::string text;
        for (const char c : key) {
            text += c == ' ' ? "%20" : std::string(1, c);
        }
        return text;
    }

    mutable std::mutex mutex_; // guards all but the listener
    giop::reply_status status_ = giop::reply_status::no_exception;
    giop::octets body_;
    bool little_endian_ = true;
    giop::request last_;
    std::size_t count_ = 0;
    giop::listener listener_; // last: its threads use the others
};

} // namespace wire
