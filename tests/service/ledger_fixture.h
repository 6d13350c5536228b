// A ledger with a clock of the test's own, and short words for what clients ask.
#pragma once

#include "service/ledger.h"

#include "tests/service/reply_values.h"
#include "tests/support/virtual_clock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

inline long readers_in(const answer& from) {
    return value_of(from.text, "THR_R_CONNECTION_COUNTS");
}
inline long writers_in(const answer& from) {
    return value_of(from.text, "THR_W_CONNECTION_COUNTS");
}
inline long free_flow_in(const answer& from) { return value_of(from.text, "THR_FREE_FLOW"); }
inline long wait_in(const answer& from) { return value_of(from.text, "THR_WAIT_SECONDS"); }

/// One row of settings.
inline std::string row(const std::string& key, uint64_t value) {
    return "name=THR:" + key + ",description=d,type=int,value=" + std::to_string(value) +
           ",fixed=n;";
}

/// What the log calls a session.
inline std::string called(session_number number) { return "session " + short_name(number); }

class LedgerTest : public testing::Test {
  protected:
    static constexpr int64_t lease = 3600;

    moment now = {1000, local_time(2026, 3, 4, 12)}; // a Wednesday at noon
    std::vector<std::string> lines;
    ledger book{lease, now, [this](const std::string& line) { lines.push_back(line); }};

    void pass(int64_t seconds) {
        now.uptime += seconds;
        now.wall += seconds;
    }

    int configure(const std::string& text) { return book.configure(1, text, now); }

    answer connect(session_number who, const std::string& storage = "s3") {
        return book.check_connections(who, "a:" + storage, "host_1", 1, now);
    }
    answer disconnect(session_number who, const std::string& storage = "s3") {
        return book.check_connections(who, "a:" + storage, "host_1", -1, now);
    }
    answer end_flow(session_number who, const std::string& key) {
        return book.check_connections(who, key, "host_1", -1, now);
    }
    /// `bytes` moved in the `seconds` until now.
    answer report(session_number who, const std::string& key, uint64_t bytes = 0,
                  uint32_t seconds = 0) {
        const auto end = static_cast<uint32_t>(now.wall);
        return book.check_bandwidth(who, key, "host_1",
                                    {key[0] == 'r' ? 0U : 1U, end - seconds, end, bytes}, now);
    }

    storage_view seen(const std::string& storage = "s3") {
        for (const storage_view& each : book.view(now).storages) {
            if (each.name == storage) {
                return each;
            }
        }
        return {};
    }
    long connections(const std::string& storage = "s3") { return seen(storage).now.connections; }
};
