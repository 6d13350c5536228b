#include "tools/host/service_status.h"

#include "tools/terminal/tables.h"

#include <ctime>
#include <curl/curl.h>
#include <fmt/format.h>
#include <memory>

namespace {

constexpr size_t most_bytes = size_t{16} * 1024 * 1024;
constexpr long patience = 2000; // milliseconds

size_t take(char* bytes, size_t size, size_t count, void* to) {
    std::string& text = *static_cast<std::string*>(to);
    if (text.size() + size * count > most_bytes) {
        return 0; // ends the transfer
    }
    text.append(bytes, size * count);
    return size * count;
}

/// The page's text; in `trouble`, when there is none, why.
std::string page(const std::string& url, std::string& trouble) {
    const std::unique_ptr<CURL, void (*)(CURL*)> asked(curl_easy_init(), curl_easy_cleanup);
    if (asked == nullptr) {
        trouble = "the HTTP library can't be started";
        return {};
    }
    std::string text;
    curl_easy_setopt(asked.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(asked.get(), CURLOPT_NOPROXY, "*");
    curl_easy_setopt(asked.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(asked.get(), CURLOPT_TIMEOUT_MS, patience);
    curl_easy_setopt(asked.get(), CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(asked.get(), CURLOPT_WRITEFUNCTION, take);
    curl_easy_setopt(asked.get(), CURLOPT_WRITEDATA, &text);
    if (const CURLcode code = curl_easy_perform(asked.get()); code != CURLE_OK) {
        trouble = curl_easy_strerror(code);
        return {};
    }
    return text;
}

service_sharing sharing_in(const nlohmann::json& storage, operation_type_t direction) {
    const nlohmann::json& flows = storage.at(direction == OPERATION_READ ? "read" : "write");
    service_sharing found;
    found.flows = flows.at("flows").get<uint64_t>();
    found.connections = storage.at("connections").get<uint64_t>();
    found.limit = storage.at("limit").get<uint64_t>();
    found.allowed = flows.at("allowed").get<uint64_t>();
    found.measured = flows.at("measured").get<uint64_t>();
    return found;
}

} // namespace

service_status service_status_of(const std::string& storage, operation_type_t direction,
                                 uint16_t port) {
    service_status status;
    // With the history from now on, which is none.
    status.url = fmt::format("http://127.0.0.1:{}/status", port);
    const std::string text =
        page(fmt::format("{}?since={}", status.url, time(nullptr)), status.trouble);
    if (!status.trouble.empty()) {
        return status;
    }
    try {
        const nlohmann::json all = nlohmann::json::parse(text);
        for (const nlohmann::json& each : all.at("storages")) {
            if (each.at("name") == storage) {
                status.sharing = sharing_in(each, direction);
            }
        }
    } catch (const nlohmann::json::exception&) {
        status.trouble = "what answers there is no page of the service";
    }
    return status;
}
