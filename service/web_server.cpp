#include "service/web_server.h"

#include "service/listening.h"
#include "service/moment.h"
#include "service/views.h"

#include <arpa/inet.h>
#include <charconv>
#include <fmt/format.h>
#include <httplib.h>
#include <page.h>
#include <stdexcept>
#include <unistd.h>

namespace {

constexpr size_t threads = 8;
constexpr time_t patience = 5; ///< seconds for a request to arrive
constexpr size_t longest_request = 4096;

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

time_t since_of(const httplib::Request& request) {
    const std::string text = request.get_param_value("since");
    time_t since = 0;
    std::from_chars(text.data(), text.data() + text.size(), since);
    return since;
}

/// Nothing of a page may come from, or go, elsewhere; nor may a page elsewhere frame it.
const httplib::Headers protective_headers = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'unsafe-inline'; style-src 'unsafe-inline'; "
     "connect-src 'self'; img-src data:; frame-ancestors 'none'; base-uri 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cache-Control", "no-store"}};

void set_paths(httplib::Server& server, ledger& book) {
    server.Get("/", [](const httplib::Request&, httplib::Response& response) {
        response.set_content(page, "text/html; charset=utf-8");
    });
    server.Get("/status", [&](const httplib::Request& request, httplib::Response& response) {
        const moment now = this_moment();
        response.set_content(status_json(book.view(now, since_of(request)), now),
                             "application/json");
    });
    server.Get("/metrics", [&](const httplib::Request&, httplib::Response& response) {
        const moment now = this_moment();
        response.set_content(metrics_text(book.view(now, now.wall)),
                             "text/plain; version=0.0.4; charset=utf-8");
    });
}

void refuse_foreign_hosts(httplib::Server& server) {
    server.set_pre_routing_handler(
        [](const httplib::Request& request, httplib::Response& response) {
            if (is_own_host(request.get_header_value("Host"))) {
                return httplib::Server::HandlerResponse::Unhandled;
            }
            response.status = 403;
            response.set_content("Ask by address, or by a name of this host.\n", "text/plain");
            return httplib::Server::HandlerResponse::Handled;
        });
}

} // namespace

bool is_own_host(const std::string& host) {
    const std::string name = host_name(host);
    return is_address(name) || name == "localhost" || name == own_name();
}

web_server::web_server(const std::string& address, int port, ledger& book)
    : server_(std::make_unique<httplib::Server>()) {
    server_->new_task_queue = [] { return new httplib::ThreadPool(threads); };
    server_->set_read_timeout(patience, 0);
    server_->set_write_timeout(patience, 0);
    server_->set_payload_max_length(longest_request);
    server_->set_default_headers(protective_headers);
    refuse_foreign_hosts(*server_);
    set_paths(*server_, book);
    // By itself the library would let others listen on the port too.
    server_->set_socket_options([](int socket) {
        const int on = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    });
    const port_reservation reserved(address, port);
    port_ = reserved.port();
    if (!server_->bind_to_port(address.c_str(), port_)) {
        throw std::runtime_error(fmt::format("can't listen on {} port {}", address, port_));
    }
    thread_ = std::thread([this] {
        server_->listen_after_bind();
        has_ended_ = true;
    });
    while (!server_->is_running() && !has_ended_) {
        std::this_thread::yield(); // one that doesn't run yet can't be stopped
    }
}

web_server::~web_server() {
    server_->stop();
    thread_.join();
}
