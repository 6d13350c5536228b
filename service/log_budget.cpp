#include "service/log_budget.h"

#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <utility>

namespace {

constexpr int64_t hour = 3600;

} // namespace

log_budget::log_budget(int64_t uptime) {
    for (size_t kind = 0; kind < accounts_.size(); ++kind) {
        accounts_[kind].credit = log_allowances[kind].bytes_at_once * hour;
        accounts_[kind].paid = uptime;
    }
}

bool log_budget::admits(const log_line& line, int64_t uptime) {
    const auto kind = static_cast<size_t>(line.kind);
    account& mine = accounts_[kind];
    const bool is_repeated = line.text == mine.written && uptime - mine.written_at < told_every;
    if (!is_repeated && pays(mine, log_allowances[kind], line.text.size() + bytes_beside, uptime)) {
        mine.written = line.text;
        mine.written_at = uptime;
        return true;
    }
    if (mine.left_out++ == 0) {
        mine.since = uptime;
    }
    mine.last = line.text;
    return false;
}

bool log_budget::pays(account& mine, const log_allowance& allowance, size_t bytes, int64_t uptime) {
    const int64_t most = allowance.bytes_at_once * hour;
    const int64_t until_full = (most - mine.credit) / allowance.bytes_an_hour + 1;
    const int64_t passed = std::clamp(uptime - mine.paid, int64_t{0}, until_full);
    mine.credit = std::min(mine.credit + passed * allowance.bytes_an_hour, most);
    mine.paid = uptime;
    const int64_t price = static_cast<int64_t>(bytes) * hour;
    if (mine.credit < price) {
        return false;
    }
    mine.credit -= price;
    return true;
}

std::vector<std::string> log_budget::untold(int64_t uptime) {
    std::vector<std::string> lines;
    for (size_t kind = 0; kind < accounts_.size(); ++kind) {
        account& each = accounts_[kind];
        if (each.left_out > 0 && uptime - each.since >= told_every) {
            lines.push_back(tell(each, log_allowances[kind]));
        }
    }
    return lines;
}

std::vector<std::string> log_budget::all_untold() {
    return untold(std::numeric_limits<int64_t>::max());
}

std::string log_budget::tell(account& mine, const log_allowance& allowance) {
    return fmt::format("{} more {} were left out, the last: {}", std::exchange(mine.left_out, 0),
                       allowance.what, mine.last);
}
