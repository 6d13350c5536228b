#include "tools/host/http_exchange.h"

#include <curl/curl.h>
#include <memory>
#include <new>

namespace {

struct curl_deleter {
    void operator()(CURL* which) const { curl_easy_cleanup(which); }
    void operator()(curl_slist* which) const { curl_slist_free_all(which); }
};

/// What has come, and how much may.
struct inflow {
    std::string& text;
    const size_t most;
};

size_t take(char* data, size_t, size_t size, void* into) {
    const auto& [text, most] = *static_cast<inflow*>(into);
    if (size > most - text.size()) {
        return 0; // which ends it
    }
    text.append(data, size);
    return size;
}

int connect_error(CURL* with, CURLcode code) {
    long error = 0;
    if (code == CURLE_COULDNT_CONNECT) {
        curl_easy_getinfo(with, CURLINFO_OS_ERRNO, &error);
    }
    return static_cast<int>(error);
}

} // namespace

http_reply exchange(const http_call& asked) {
    const std::unique_ptr<CURL, curl_deleter> with(curl_easy_init());
    const std::unique_ptr<curl_slist, curl_deleter> type(
        curl_slist_append(nullptr, "Content-Type: application/json"));
    if (with == nullptr || type == nullptr) {
        throw std::bad_alloc();
    }
    http_reply reply;
    inflow into = {reply.body, asked.most_bytes};
    curl_easy_setopt(with.get(), CURLOPT_URL, asked.url.c_str());
    curl_easy_setopt(with.get(), CURLOPT_PROXY, "");
    curl_easy_setopt(with.get(), CURLOPT_TIMEOUT_MS, asked.patience_ms);
    curl_easy_setopt(with.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(with.get(), CURLOPT_WRITEFUNCTION, take);
    curl_easy_setopt(with.get(), CURLOPT_WRITEDATA, &into);
    if (!asked.unix_socket.empty()) {
        curl_easy_setopt(with.get(), CURLOPT_UNIX_SOCKET_PATH, asked.unix_socket.c_str());
    }
    if (asked.json != nullptr) {
        curl_easy_setopt(with.get(), CURLOPT_HTTPHEADER, type.get());
        curl_easy_setopt(with.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(asked.json->size()));
        curl_easy_setopt(with.get(), CURLOPT_POSTFIELDS, asked.json->c_str());
    }
    const CURLcode code = curl_easy_perform(with.get());
    if (code != CURLE_OK) {
        return {0, {}, curl_easy_strerror(code), connect_error(with.get(), code)};
    }
    curl_easy_getinfo(with.get(), CURLINFO_RESPONSE_CODE, &reply.status);
    return reply;
}
