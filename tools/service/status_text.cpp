#include "tools/service/status_text.h"

#include "common/whole_number.h"
#include "tools/service/limit_text.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"
#include "tools/terminal/sizes.h"

#include <fmt/format.h>
#include <vector>

namespace {

/// "2 at 3.0 MiB/s of 10.0 MiB/s", or "-" where nobody is at it.
std::string direction_text(const ordered_json& seen) {
    const auto flows = whole_number<int64_t>(seen.at("flows"));
    return flows == 0
               ? "-"
               : fmt::format("{} at {} of {}", flows, rate_text(seen.at("measured").get<double>()),
                             rate_text(seen.at("allowed").get<double>()));
}

std::string counted(int64_t count, const char* one, const char* more) {
    return fmt::format("{} {}", count, count == 1 ? one : more);
}

} // namespace

std::string status_text(const ordered_json& status) {
    try {
        std::string text = fmt::format(
            "Up for {}: {}, {} since the start; {} refused as malformed\n",
            duration_text(whole_number<int64_t>(status.at("uptime"))),
            counted(whole_number<int64_t>(status.at("sessions")), "session", "sessions"),
            counted(whole_number<int64_t>(status.at("reports")), "report", "reports"),
            counted(whole_number<int64_t>(status.at("malformed")), "question", "questions"));
        std::vector<std::vector<std::string>> lines;
        for (const ordered_json& each : status.at("storages")) {
            lines.push_back({printable(each.at("name").get<std::string>()),
                             fmt::format("{} of {}", whole_number<int64_t>(each.at("connections")),
                                         whole_number<int64_t>(each.at("limit"))),
                             std::to_string(whole_number<int64_t>(each.at("refused"))),
                             direction_text(each.at("read")), direction_text(each.at("write"))});
        }
        return text +
               (lines.empty()
                    ? "No storage is known yet.\n"
                    : columns_text({"storage", "connections", "refused", "reading", "writing"},
                                   lines));
    } catch (const std::exception& error) {
        throw failure(std::string("what the service answered isn't understood: ") + error.what());
    }
}
