#include "service/control/control_server.h"

#include "service/web_server.h"

#include <fmt/format.h>
#include <unistd.h>

namespace {

std::optional<http_answer> refuse_strangers(const http_request& request) {
    if (!request.is_change || may_change(request.user, geteuid())) {
        return std::nullopt;
    }
    return short_answer(403, fmt::format("Only root and the service's own user ({}) may change "
                                         "anything; you are user {}.",
                                         geteuid(), request.user.value_or(uid_t(-1))));
}

http_site site(ledger& book) { return {{}, refuse_strangers, {{"/status", status_page(book)}}}; }

} // namespace

bool may_change(std::optional<uid_t> user, uid_t own) {
    return user && (*user == 0 || *user == own);
}

control_server::control_server(const std::string& path, ledger& book)
    : socket_(path), server_({socket_.get()}, site(book)) {}
