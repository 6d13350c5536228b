#include "tools/host/service_status.h"

#include "common/latin1.h"
#include "common/whole_number.h"
#include "tools/host/http_exchange.h"
#include "tools/terminal/tables.h"

#include <ctime>
#include <fmt/format.h>

namespace {

service_sharing sharing_in(const nlohmann::json& storage, operation_type_t direction) {
    const nlohmann::json& flows = storage.at(direction == OPERATION_READ ? "read" : "write");
    service_sharing found;
    found.flows = whole_number<uint64_t>(flows.at("flows"));
    found.connections = whole_number<uint64_t>(storage.at("connections"));
    found.limit = whole_number<uint64_t>(storage.at("limit"));
    found.allowed = whole_number<uint64_t>(flows.at("allowed"));
    found.measured = whole_number<uint64_t>(flows.at("measured"));
    return found;
}

} // namespace

service_status service_status_of(const std::string& storage, operation_type_t direction,
                                 uint16_t port) {
    service_status status;
    // With the history from now on, which is none.
    status.url = fmt::format("http://127.0.0.1:{}/status", port);
    http_call asked;
    asked.url = fmt::format("{}?since={}", status.url, time(nullptr));
    const http_reply reply = exchange(asked);
    if (reply.status != 200) {
        status.trouble = reply.trouble.empty() ? fmt::format("an answer of status {}", reply.status)
                                               : reply.trouble;
        return status;
    }
    try {
        const nlohmann::json all = nlohmann::json::parse(reply.body);
        for (const nlohmann::json& each : all.at("storages")) {
            if (each.at("name") == utf8(storage)) {
                status.sharing = sharing_in(each, direction);
            }
        }
    } catch (const std::exception&) {
        status.trouble = "what answers there is no page of the service";
    }
    return status;
}
