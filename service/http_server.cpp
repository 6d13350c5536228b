#include "service/http_server.h"

#include "service/moment.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <exception>
#include <fcntl.h>
#include <fmt/format.h>
#include <linux/sockios.h>
#include <memory>
#include <microhttpd.h>
#include <poll.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr size_t longest_request = 16384;
constexpr size_t piece_size = 16384; ///< of an answer, in memory
constexpr int niceness = 10;         ///< of whoever looks, beside those who do the work
/// Connections may be accepted between one's cut and its end.
constexpr unsigned most_descriptors = most_web_connections + 64;

/// Who made the other end of a Unix socket; none on others.
std::optional<uid_t> user_of(int socket) {
    int family = AF_UNSPEC;
    ucred found = {};
    socklen_t family_size = sizeof family;
    socklen_t size = sizeof found;
    const bool is_known = getsockopt(socket, SOL_SOCKET, SO_DOMAIN, &family, &family_size) == 0 &&
                          family == AF_UNIX &&
                          getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &found, &size) == 0;
    return is_known ? std::optional<uid_t>(found.uid) : std::nullopt;
}

/// Who connects: a user of this host, an IPv4 address, or the network of an IPv6 address.
std::string neighbour(const sockaddr* address, std::optional<uid_t> user) {
    if (user) {
        return fmt::format("user {}", *user);
    }
    if (address != nullptr && address->sa_family == AF_INET) {
        const auto* const v4 = reinterpret_cast<const sockaddr_in*>(address);
        return {reinterpret_cast<const char*>(&v4->sin_addr), sizeof v4->sin_addr};
    }
    if (address != nullptr && address->sa_family == AF_INET6) {
        constexpr size_t network = 8;
        const auto* const v6 = reinterpret_cast<const sockaddr_in6*>(address);
        const auto* const bytes = reinterpret_cast<const char*>(&v6->sin6_addr);
        return IN6_IS_ADDR_V4MAPPED(&v6->sin6_addr) ? std::string(bytes + 12, 4)
                                                    : std::string(bytes, network);
    }
    return "";
}

/// An answer that is being sent.
struct sending {
    text_source rest;
    int64_t* total; ///< bytes that were sent
    std::string piece = "";
    size_t sent = 0; ///< of the piece
};

ssize_t send_more(void* of, uint64_t, char* buffer, size_t size) {
    auto& body = *static_cast<sending*>(of);
    try {
        size_t filled = 0;
        while (filled < size) {
            if (body.sent == body.piece.size()) {
                body.piece = body.rest();
                body.sent = 0;
                if (body.piece.empty()) {
                    break;
                }
            }
            const size_t part = std::min(size - filled, body.piece.size() - body.sent);
            memcpy(buffer + filled, body.piece.data() + body.sent, part);
            body.sent += part;
            filled += part;
        }
        *body.total += static_cast<int64_t>(filled);
        return filled > 0 ? static_cast<ssize_t>(filled) : MHD_CONTENT_READER_END_OF_STREAM;
    } catch (const std::exception&) {
        return MHD_CONTENT_READER_END_WITH_ERROR;
    }
}

MHD_Result send_answer(MHD_Connection* connection, http_answer answer, const http_headers& headers,
                       bool is_head, int64_t* total) {
    auto body = std::make_unique<sending>(sending{std::move(answer.body), total});
    MHD_Response* const response =
        MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, piece_size, send_more, body.get(),
                                          [](void* of) { delete static_cast<sending*>(of); });
    if (response == nullptr) {
        return MHD_NO;
    }
    static_cast<void>(body.release()); // the response's own
    MHD_add_response_header(response, "Content-Type", answer.type.c_str());
    MHD_add_response_header(response, "Connection", "close");
    for (const auto& [name, value] : headers) {
        MHD_add_response_header(response, name.c_str(), value.c_str());
    }
    if (answer.status == MHD_HTTP_METHOD_NOT_ALLOWED) {
        MHD_add_response_header(response, "Allow", answer.allowed.c_str());
    }
    if (is_head) { // or the library sends the chunk that ends a body
        MHD_set_response_options(response, MHD_RF_HTTP_1_0_COMPATIBLE_STRICT, MHD_RO_END);
    }
    const MHD_Result result = MHD_queue_response(connection, answer.status, response);
    MHD_destroy_response(response); // the connection has its own hold of it
    return result;
}

http_request request_of(MHD_Connection* connection, const char* path) {
    struct values {
        http_request request;
        int hosts = 0;
    } found{{path, "", {}}, 0};
    MHD_get_connection_values(
        connection, MHD_HEADER_KIND,
        [](void* of, MHD_ValueKind, const char* name, const char* value) {
            auto& into = *static_cast<values*>(of);
            if (strcasecmp(name, "Host") == 0 && ++into.hosts == 1 && value != nullptr) {
                into.request.host = value;
            }
            return MHD_YES;
        },
        &found);
    MHD_get_connection_values(
        connection, MHD_GET_ARGUMENT_KIND,
        [](void* of, MHD_ValueKind, const char* name, const char* value) {
            static_cast<values*>(of)->request.query.emplace(name, value != nullptr ? value : "");
            return MHD_YES;
        },
        &found);
    if (found.hosts != 1) {
        found.request.host.clear();
    }
    return std::move(found.request);
}

/// Bytes of the body that a request says it has. None: it doesn't say.
std::optional<size_t> length_of_body(MHD_Connection* connection) {
    const char* const text =
        MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_CONTENT_LENGTH);
    size_t length = 0;
    if (text == nullptr) {
        return std::nullopt;
    }
    const char* const end = text + strlen(text);
    const auto [behind, error] = std::from_chars(text, end, length);
    return error == std::errc() && behind == end ? length : longest_body + 1;
}

} // namespace

http_answer short_answer(unsigned status, const std::string& line) {
    return {status, "text/plain; charset=utf-8", in_one_piece(line + "\n")};
}

void http_server::stop_daemon::operator()(MHD_Daemon* which) const { MHD_stop_daemon(which); }

struct http_server::callbacks {
    static void notify(void* self, MHD_Connection* connection, void** place,
                       MHD_ConnectionNotificationCode what) {
        auto& server = *static_cast<http_server*>(self);
        if (what == MHD_CONNECTION_NOTIFY_STARTED) {
            server.enter(connection, place);
        } else {
            server.leave(place);
        }
    }

    /// Called for the head of a request, then with its body, if it is to have one, and at its end.
    static MHD_Result answer(void* self, MHD_Connection* connection, const char* path,
                             const char* method, const char*, const char* more, size_t* size,
                             void** body) {
        const auto& server = *static_cast<const http_server*>(self);
        auto* const known = static_cast<http_server::connection*>(
            MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT)
                ->socket_context);
        if (known == nullptr) {
            return MHD_NO; // there was no memory for it
        }
        try {
            http_request request = request_of(connection, path);
            request.user = known->user;
            const auto send = [&](http_answer said) {
                return send_answer(connection, std::move(said), server.site_.headers,
                                   strcmp(method, MHD_HTTP_METHOD_HEAD) == 0, &known->sent);
            };
            const http_handler* const change = server.change_of(path, method);
            request.is_change = change != nullptr;
            if (change == nullptr) {
                return send(server.answer(request, method));
            }
            if (*body == nullptr) {
                if (std::optional<http_answer> why = server.objection(request, connection)) {
                    return send(std::move(*why));
                }
                *body = new std::string;
                return MHD_YES;
            }
            auto& text = *static_cast<std::string*>(*body);
            if (*size > 0) {
                text.append(more, std::exchange(*size, 0));
                return text.size() <= longest_body ? MHD_YES : MHD_NO;
            }
            request.body = std::move(text);
            return send((*change)(request));
        } catch (const std::exception&) {
            return MHD_NO; // which ends the connection
        }
    }

    static void complete(void*, MHD_Connection*, void** body, MHD_RequestTerminationCode) {
        delete static_cast<std::string*>(std::exchange(*body, nullptr));
    }

    /// No path of ours needs an escape, and none may hide in one.
    static size_t unescape(void*, MHD_Connection*, char* text) { return strlen(text); }
};

http_server::http_server(const std::vector<int>& listening, http_site site)
    : site_(std::move(site)), end_(eventfd(0, EFD_CLOEXEC)) {
    for (const int each : listening) {
        if (listen(each, SOMAXCONN) != 0) {
            throw std::runtime_error(fmt::format("can't listen: {}", strerror(errno)));
        }
        const int socket = fcntl(each, F_DUPFD_CLOEXEC, 0); // the library's own, which closes it
        fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) | O_NONBLOCK);
        daemons_.emplace_back(
            MHD_start_daemon(MHD_USE_EPOLL, 0, nullptr, nullptr, callbacks::answer, this, //
                             MHD_OPTION_LISTEN_SOCKET, socket,                            //
                             MHD_OPTION_CONNECTION_LIMIT, most_descriptors,               //
                             MHD_OPTION_CONNECTION_MEMORY_LIMIT, longest_request,         //
                             MHD_OPTION_NOTIFY_CONNECTION, callbacks::notify, this,       //
                             MHD_OPTION_NOTIFY_COMPLETED, callbacks::complete, nullptr,   //
                             MHD_OPTION_UNESCAPE_CALLBACK, callbacks::unescape, nullptr,  //
                             MHD_OPTION_STRICT_FOR_CLIENT, 1,                             //
                             MHD_OPTION_SIGPIPE_HANDLED_BY_APP, 1,                        //
                             MHD_OPTION_END));
        if (daemons_.back() == nullptr) {
            throw std::runtime_error("the web page can't be served");
        }
    }
    thread_ = std::thread([this] { run(); });
}

http_server::~http_server() {
    const uint64_t once = 1;
    if (write(end_, &once, sizeof once) == sizeof once) {
        thread_.join();
    }
    daemons_.clear();
    close(end_);
}

void http_server::run() {
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), niceness);
    std::vector<pollfd> awaited = {{end_, POLLIN, 0}};
    for (const daemon& each : daemons_) {
        awaited.push_back(
            {MHD_get_daemon_info(each.get(), MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd, POLLIN, 0});
    }
    for (;;) {
        const int ready = poll(awaited.data(), awaited.size(), milliseconds_to_wait());
        if (awaited.front().revents != 0) {
            return;
        }
        for (const daemon& each : daemons_) {
            MHD_run(each.get());
        }
        cut_overdue();
        if (ready > 0 && open_.empty() && cut_.empty()) {
            constexpr int moment_ms = 10;
            poll(awaited.data(), 1, moment_ms); // no descriptor was left to accept with
        }
    }
}

/// Until the library or a connection's end needs the thread; -1: nothing does.
int http_server::milliseconds_to_wait() const {
    int64_t wait = -1;
    const auto at_most = [&](int64_t other) { wait = wait < 0 ? other : std::min(wait, other); };
    for (const daemon& each : daemons_) {
        MHD_UNSIGNED_LONG_LONG needed = 0;
        if (MHD_get_timeout(each.get(), &needed) == MHD_YES) {
            at_most(static_cast<int64_t>(std::min<MHD_UNSIGNED_LONG_LONG>(needed, 1000)));
        }
    }
    const int64_t now = uptime_ms();
    for (const connection& each : open_) {
        at_most(std::max(each.ends(now) - now, int64_t{0}));
        if (each.patience_ends > now) {
            break;
        }
    }
    return static_cast<int>(wait);
}

void http_server::cut_overdue() {
    const int64_t now = uptime_ms();
    for (auto each = open_.begin(); each != open_.end() && each->patience_ends <= now;) {
        const auto next = std::next(each);
        if (each->ends(now) <= now) {
            cut(each);
        }
        each = next;
    }
}

int64_t http_server::connection::ends(int64_t now) const {
    int waiting = 0; // in the system, until the reader takes it
    if (patience_ends > now || ioctl(socket, SIOCOUTQ, &waiting) != 0) {
        return patience_ends;
    }
    return patience_ends + std::max<int64_t>(sent - waiting, 0) / web_bytes_a_ms;
}

/// `place` is where the library keeps what we know of the connection; null: nothing.
void http_server::enter(MHD_Connection* with, void** place) {
    const int socket = MHD_get_connection_info(with, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
    const sockaddr* const address =
        MHD_get_connection_info(with, MHD_CONNECTION_INFO_CLIENT_ADDRESS)->client_addr;
    try {
        const std::optional<uid_t> user = user_of(socket);
        open_.push_back({socket, user, neighbour(address, user), uptime_ms() + web_patience_ms});
        *place = &open_.back();
        if (open_.size() > most_web_connections) {
            cut(oldest_of_most());
        }
    } catch (const std::bad_alloc&) {
        shutdown(socket, SHUT_RDWR);
    }
}

void http_server::leave(void** place) {
    const auto is_it = [&](const connection& each) { return &each == *place; };
    open_.remove_if(is_it);
    cut_.remove_if(is_it);
}

/// The oldest connection of the neighbour who has most.
http_server::connection_list::iterator http_server::oldest_of_most() {
    std::map<std::string_view, size_t> of_each;
    for (const connection& each : open_) {
        ++of_each[each.neighbour];
    }
    const auto most =
        std::max_element(of_each.begin(), of_each.end(), [](const auto& one, const auto& other) {
            return one.second < other.second;
        });
    return std::find_if(open_.begin(), open_.end(),
                        [&](const connection& each) { return each.neighbour == most->first; });
}

/// It ends when the library next looks at it; what is still on its way is thrown away.
void http_server::cut(connection_list::iterator which) {
    const linger not_at_all = {1, 0};
    setsockopt(which->socket, SOL_SOCKET, SO_LINGER, &not_at_all, sizeof not_at_all);
    shutdown(which->socket, SHUT_RDWR);
    cut_.splice(cut_.end(), open_, which);
}

const http_handler* http_server::change_of(const std::string& path, std::string_view method) const {
    const auto change = site_.changes.find(path);
    return method == MHD_HTTP_METHOD_POST && change != site_.changes.end() ? &change->second
                                                                           : nullptr;
}

/// Why a change isn't even read; none: it may come.
std::optional<http_answer> http_server::objection(const http_request& request,
                                                  MHD_Connection* from) const {
    if (site_.refusal) {
        if (std::optional<http_answer> refusal = site_.refusal(request)) {
            return refusal;
        }
    }
    const std::optional<size_t> length = length_of_body(from);
    if (!length) {
        return short_answer(MHD_HTTP_LENGTH_REQUIRED, "How long is the body? (Content-Length)");
    }
    if (*length > longest_body) {
        return short_answer(MHD_HTTP_CONTENT_TOO_LARGE,
                            fmt::format("At most {} bytes are read.", longest_body));
    }
    return std::nullopt;
}

http_answer http_server::answer(const http_request& request, std::string_view method) const {
    if (site_.refusal) {
        if (std::optional<http_answer> refusal = site_.refusal(request)) {
            return std::move(*refusal);
        }
    }
    const auto page = site_.pages.find(request.path);
    if (page == site_.pages.end() && site_.changes.count(request.path) != 0) {
        http_answer said = short_answer(MHD_HTTP_METHOD_NOT_ALLOWED, "This takes POST alone.");
        said.allowed = "POST";
        return said;
    }
    if (page == site_.pages.end()) {
        return short_answer(MHD_HTTP_NOT_FOUND, "There is nothing here.");
    }
    if (method != MHD_HTTP_METHOD_GET && method != MHD_HTTP_METHOD_HEAD) {
        return short_answer(MHD_HTTP_METHOD_NOT_ALLOWED, "This can only be read.");
    }
    return page->second(request);
}
