#include "tools/service/control_client.h"

#include "common/control_path.h"
#include "tools/host/http_exchange.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"
#include "tools/terminal/waiting.h"

#include <cerrno>
#include <cstring>
#include <fmt/format.h>

namespace {

constexpr size_t largest_answer = size_t{64} << 20; // bytes
constexpr long longest_ms = 30'000;

std::string why_not(const http_reply& reply) {
    if (reply.error == 0) {
        return reply.trouble;
    }
    if (reply.error == EACCES) {
        return "its group alone may ask there, and root";
    }
    const bool is_absent = reply.error == ENOENT || reply.error == ECONNREFUSED;
    return fmt::format("{}{}", strerror(reply.error),
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
    const http_reply reply =
        exchange({"http://localhost" + page, path_, body, longest_ms, largest_answer});
    if (reply.status == 0) {
        fail(why_not(reply));
    }
    if (reply.status != 200) {
        fail(reply.body.empty() ? fmt::format("an answer of status {}", reply.status)
                                : printable(without_end_of_line(reply.body)));
    }
    ordered_json read = ordered_json::parse(reply.body, nullptr, false);
    if (!read.is_object()) {
        fail("its answer is no JSON object; is it vlsld's?");
    }
    return read;
}
