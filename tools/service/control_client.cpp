#include "tools/service/control_client.h"

#include "common/control_path.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"
#include "tools/terminal/waiting.h"

#include <cerrno>
#include <cstring>
#include <curl/curl.h>
#include <fmt/format.h>
#include <memory>

namespace {

constexpr size_t largest_answer = size_t{64} << 20; // bytes
constexpr long longest_s = 30;

struct curl_deleter {
    void operator()(CURL* which) const { curl_easy_cleanup(which); }
    void operator()(curl_slist* which) const { curl_slist_free_all(which); }
};
using handle = std::unique_ptr<CURL, curl_deleter>;
using headers = std::unique_ptr<curl_slist, curl_deleter>;

size_t take(char* data, size_t, size_t size, void* into) {
    auto& text = *static_cast<std::string*>(into);
    if (size > largest_answer - text.size()) {
        return 0; // which ends it
    }
    text.append(data, size);
    return size;
}

std::string why_not(CURL* with, CURLcode code) {
    long error = 0;
    curl_easy_getinfo(with, CURLINFO_OS_ERRNO, &error);
    if (code != CURLE_COULDNT_CONNECT || error == 0) {
        return curl_easy_strerror(code);
    }
    if (error == EACCES) {
        return "its group alone may ask there, and root";
    }
    const bool is_absent = error == ENOENT || error == ECONNREFUSED;
    return fmt::format("{}{}", strerror(static_cast<int>(error)),
                       is_absent ? "; is vlsld running, with its socket there? (--control PATH)"
                                 : "");
}

std::string without_end_of_line(std::string text) {
    text.erase(text.find_last_not_of('\n') + 1);
    return text;
}

} // namespace

control_client::control_client(const std::string& path)
    : path_(path.empty() ? control_path_to_ask() : path) {}

ordered_json control_client::get(const std::string& page) const { return ask(page, nullptr); }

ordered_json control_client::post(const std::string& page, const ordered_json& asked) const {
    const std::string body = dumped(asked);
    return ask(page, &body);
}

ordered_json control_client::ask(const std::string& page, const std::string* body) const {
    const auto fail = [&](const std::string& why) {
        throw failure(fmt::format("the service's control socket {}: {}", path_, why));
    };
    const waiting shown("asking the service at " + path_);
    const handle with(curl_easy_init());
    const headers type(curl_slist_append(nullptr, "Content-Type: application/json"));
    if (with == nullptr || type == nullptr) {
        throw std::bad_alloc();
    }
    std::string answer;
    curl_easy_setopt(with.get(), CURLOPT_UNIX_SOCKET_PATH, path_.c_str());
    curl_easy_setopt(with.get(), CURLOPT_URL, ("http://localhost" + page).c_str());
    curl_easy_setopt(with.get(), CURLOPT_PROXY, ""); // whatever the environment names
    curl_easy_setopt(with.get(), CURLOPT_TIMEOUT, longest_s);
    curl_easy_setopt(with.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(with.get(), CURLOPT_WRITEFUNCTION, take);
    curl_easy_setopt(with.get(), CURLOPT_WRITEDATA, &answer);
    if (body != nullptr) {
        curl_easy_setopt(with.get(), CURLOPT_HTTPHEADER, type.get());
        curl_easy_setopt(with.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(body->size()));
        curl_easy_setopt(with.get(), CURLOPT_POSTFIELDS, body->c_str());
    }
    const CURLcode code = curl_easy_perform(with.get());
    long status = 0;
    curl_easy_getinfo(with.get(), CURLINFO_RESPONSE_CODE, &status);
    if (code != CURLE_OK) {
        fail(why_not(with.get(), code));
    }
    if (status != 200) {
        fail(answer.empty() ? fmt::format("an answer of status {}", status)
                            : printable(without_end_of_line(answer)));
    }
    ordered_json read = ordered_json::parse(answer, nullptr, false);
    if (!read.is_object()) {
        fail("its answer is no JSON object; is it vlsld's?");
    }
    return read;
}
