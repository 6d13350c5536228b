// A management service made of octets. Session, manager and facets are as they should be, and so is
// each answer but the one that a test replaces.
#pragma once

#include "tests/support/giop.h"

#include <functional>
#include <mutex>
#include <string>
#include <vector>

class raw_service {
  public:
    /// What is sent instead of an answer, and what becomes of the connection.
    using reaction = std::function<void(giop::connection&, const giop::request&)>;

    /// Clients of this process find it: VLSL_PORT is set from now on.
    raw_service();

    uint16_t port() const { return listener_.port(); }

    /// The next requests for `operation` get `odd` for an answer, those after them the good one
    /// again. What was set before ends.
    void react(const std::string& operation, reaction odd, int times = 1);

    /// The names of the operations that were asked for since the last call, in order, but for the
    /// questions for an object's type and whether it is there.
    std::vector<std::string> take();

    /// The octets of the good answer; `text` is the out text, where there is one.
    giop::octets good_answer(const giop::request& request, const std::string& text = "") const;

  private:
    void serve(giop::connection& peer, const giop::message& message);

    std::mutex mutex_; // guards what follows
    std::string odd_operation_;
    reaction odd_;
    int times_ = 0;
    std::vector<std::string> asked_;
    giop::listener listener_; // last: its threads use all the others
};
