#include "service/web_server.h"

#include "service/moment.h"
#include "service/views.h"

#include <arpa/inet.h>
#include <charconv>
#include <page.h>
#include <strings.h>
#include <unistd.h>

namespace {

/// The name or address of a Host header.
std::string host_name(const std::string& host) {
    if (!host.empty() && host.front() == '[') {
        return host.substr(1, host.find(']') - 1);
    }
    return host.substr(0, host.find(':'));
}

bool is_address(const std::string& text) {
    in6_addr address = {};
    return inet_pton(AF_INET, text.c_str(), &address) == 1 ||
           inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

std::string own_name() {
    char name[256] = "";
    gethostname(name, sizeof name - 1);
    return name;
}

time_t since_of(const http_request& request) {
    const auto text = request.query.find("since");
    time_t since = 0;
    if (text != request.query.end()) {
        const char* const begin = text->second.data();
        std::from_chars(begin, begin + text->second.size(), since);
    }
    return since;
}

/// Nothing of a page may come from, or go, elsewhere; nor may a page elsewhere frame it.
const http_headers protective_headers = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'unsafe-inline'; style-src 'unsafe-inline'; "
     "connect-src 'self'; img-src data:; frame-ancestors 'none'; base-uri 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cache-Control", "no-store"}};

bool is_same_name(const std::string& one, const std::string& other) {
    return strcasecmp(one.c_str(), other.c_str()) == 0;
}

std::optional<http_answer> refuse_foreign_hosts(const http_request& request,
                                                const std::string& also_own) {
    if (is_own_host(request.host) ||
        (!also_own.empty() && is_same_name(host_name(request.host), also_own))) {
        return std::nullopt;
    }
    return short_answer(403, "Ask by address, or by a name of this host.");
}

http_site site(ledger& book, const std::string& name) {
    return {protective_headers,
            [name](const http_request& request) { return refuse_foreign_hosts(request, name); },
            {{"/",
              [](const http_request&) {
                  return http_answer{200, "text/html; charset=utf-8", in_one_piece(page)};
              }},
             {"/status", status_page(book)},
             {"/metrics", [&](const http_request&) {
                  return http_answer{200, "text/plain; version=0.0.4; charset=utf-8",
                                     metrics_text(book, this_moment())};
              }}}};
}

} // namespace

bool is_own_host(const std::string& host) {
    const std::string name = host_name(host);
    return is_address(name) || name == "localhost" || name == own_name();
}

http_handler status_page(ledger& book) {
    return [&](const http_request& request) {
        return http_answer{200, "application/json",
                           status_json(book, this_moment(), since_of(request))};
    };
}

web_server::web_server(const std::vector<int>& listening, ledger& book, const std::string& name)
    : server_(listening, site(book, name)) {}
