// How much of each kind of line is written: whoever sends rubbish without end doesn't fill the disk
// with its description. What is beyond that, or says the same again, is counted, and told once a
// minute:
//
//   12345 more refusals were left out, the last: session 0123abcd: refused, no key: "x"
//
// No clock in here.
#pragma once

#include "service/log_line.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

struct log_allowance {
    const char* what;      ///< the lines, as they are counted
    int64_t bytes_at_once; ///< after a time without any
    int64_t bytes_an_hour; ///< lastingly
};

/// By log_kind.
constexpr log_allowance log_allowances[] = {{"changes", 4 << 20, 16 << 20},
                                            {"refusals", 16 << 10, 64 << 10},
                                            {"messages of the ORB", 16 << 10, 64 << 10}};

constexpr size_t bytes_beside = 26; ///< a line's text, for its time and its end
constexpr int64_t told_every = 60;  ///< seconds

class log_budget {
  public:
    explicit log_budget(int64_t uptime);

    /// Whether the line may be written at `uptime`, in seconds. If not, it is counted.
    bool admits(const log_line& line, int64_t uptime);

    /// Lines about what was left out, and wasn't told for a minute.
    std::vector<std::string> untold(int64_t uptime);
    /// Lines about all that wasn't told.
    std::vector<std::string> all_untold();

  private:
    struct account {
        int64_t credit = 0;     ///< bytes times the seconds of an hour
        int64_t paid = 0;       ///< uptime up to which that is right
        std::string written;    ///< the last line that was admitted
        int64_t written_at = 0; ///< uptime
        int64_t left_out = 0;   ///< lines that weren't told yet
        int64_t since = 0;      ///< uptime of the first of them
        std::string last;       ///< of them
    };

    static bool pays(account& mine, const log_allowance& allowance, size_t bytes, int64_t uptime);
    static std::string tell(account& mine, const log_allowance& allowance);

    std::array<account, std::size(log_allowances)> accounts_; ///< by log_kind
};
