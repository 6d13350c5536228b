// A client of the management service that answers as the test says and remembers what it was sent.
// It is the same class as the real one: link this in its place.
#pragma once

#include "client/CloudVLSLClient.h"
#include "tests/support/reply_text.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

/// One exchange as the service would see it.
struct exchange {
    std::string call; ///< "set_config_params", "check_connections" or "check_bandwidth"
    std::string key;  ///< or the configuration text
    std::string session_text;
    int delta = 0;
    uint32_t operation_type = 0;
    uint32_t start_time = 0;
    uint32_t end_time = 0;
    uint64_t data_length = 0;
};

struct scripted_reply {
    int status = 0;
    std::string out;     ///< what the service answers
    bool filled = true;  ///< false: `out` is left as it was, as after a failed call
    bool throws = false; ///< the exchange runs out of memory
};

/// The service behind every client of the process.
struct scripted_service {
    std::vector<exchange> exchanges; ///< what arrived, in order
    std::deque<scripted_reply>
        replies; ///< what comes next, for check_*; then `usual` again and again
    scripted_reply usual;
    scripted_reply params_reply; ///< of set_config_params
    /// Called as each exchange arrives, before its reply is chosen; may be empty.
    std::function<void(const exchange&)> on_exchange;
    /// Called with true where the client does something for the test alone, with false where that
    /// ends: for a test that counts the caller's memory; may be empty.
    std::function<void(bool)> on_aside;
    int clients_made = 0;
    int clients_alive = 0;
    std::string host;
    bool force_oxss_iop = true;
    unsigned long value = 1;
    int timeout_seconds = 0;
    const sts_session_def_v7_t* session = nullptr;

    /// What arrived since the last call.
    std::vector<exchange> take();
};

/// The one service; a test starts with `service() = {}`.
scripted_service& service();
