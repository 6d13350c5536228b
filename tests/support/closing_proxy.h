// Stands between clients of this process and their service, and closes their connections in every
// way that services, firewalls and their failures do.
#pragma once

#include "tests/support/giop.h"

#include <atomic>
#include <cstdint>

/// What becomes of a request and its connection.
enum class closing {
    none,                    ///< it is answered, and the connection stays
    message,                 ///< answered, then CloseConnection; what comes then is dropped
    message_and_end,         ///< answered, then CloseConnection and the end of the connection
    message_and_end_at_once, ///< the same in one piece with the answer
    end,                     ///< answered, then a FIN, as of a service that has gone
    half,                    ///< answered, then a FIN, but what comes is still taken
    reset,                   ///< answered, then a RST
    message_for_an_answer,   ///< CloseConnection and a FIN; the service doesn't get it
    end_for_an_answer,       ///< the service gets it, and there is a FIN instead of its answer
    reset_for_an_answer,     ///< the same with a RST
};

class closing_proxy {
  public:
    /// For the service at that port of this host. Clients of this process go through it from now
    /// on: VLSL_PORT is set.
    explicit closing_proxy(int service_port);

    /// What becomes of the next requests: at once, or so many milliseconds after their answer or
    /// instead of it. Of those that get CloseConnection for an answer every second one is served,
    /// if `every_second`.
    void close(closing way, int delay = 0, bool every_second = false);

    /// The same, but each connection stays until wait_for_closings.
    void close_when_told(closing way);

    /// Has as many connections closed, in all since close_when_told, and waits until the client can
    /// see it.
    void wait_for_closings(int count);

    /// Requests that came since the last `close`, whatever became of them.
    int requests() const { return requests_; }

  private:
    void serve(giop::connection& client, const giop::message& message);
    giop::octets answer_of_service(const giop::message& request) const;

    const uint16_t service_port_;
    std::atomic<closing> way_{closing::none};
    std::atomic<int> delay_{0};
    std::atomic<bool> every_second_{false};
    std::atomic<int> requests_{0};
    std::atomic<int> closings_{0};
    std::atomic<int> told_{0}; ///< closings
    giop::listener listener_;  // last: its threads use all the others
};
