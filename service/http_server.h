// HTTP with bounds: a table of paths, each answered with a text that is made while it is taken.
//
// One thread serves all connections and waits for none. A connection carries one request and ends
// five seconds after it was accepted, whatever has been sent or taken by then; so neither a request
// that never ends nor an answer that nobody takes costs anybody else anything, and what follows a
// request is never read. When there are too many connections, the oldest one of the address that
// has most makes room.
//
// What is asked is as bounded: 16 KiB for the line and the headers, and as much for a body, which is
// read where something can be changed; no range is answered, and of an answer only the piece that
// is being sent is in memory.
//
// On a Unix socket the kernel says who is at the other end.
#pragma once

#include "service/text_source.h"

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <thread>
#include <utility>
#include <vector>

struct MHD_Connection;
struct MHD_Daemon;

constexpr size_t most_web_connections = 256;
constexpr int64_t web_patience_ms = 5000; ///< from a connection's accept to its end
constexpr int64_t web_bytes_a_ms = 1024;  ///< that a reader takes, at least, who is given more time
constexpr size_t longest_body = 16384;    ///< bytes

struct http_request {
    std::string path;
    std::string host; ///< as its header says; empty: there is none, or more than one
    std::map<std::string, std::string> query;
    std::optional<uid_t> user = std::nullopt; ///< whose it is; none but on a Unix socket
    bool is_change = false;                   ///< it is for one of `changes`
    std::string body = "";                    ///< of a change
};

struct http_answer {
    unsigned status;
    std::string type; ///< of the content
    text_source body;
    std::string allowed = "GET, HEAD"; ///< methods, where the status is 405
};

using http_headers = std::vector<std::pair<std::string, std::string>>;

using http_handler = std::function<http_answer(const http_request&)>;

/// An answer of one line of text.
http_answer short_answer(unsigned status, const std::string& line);

/// What is served. Its functions are called on the server's thread and may not wait.
struct http_site {
    http_headers headers; ///< of each answer
    /// Asked first, before a body is read; what it returns is the answer.
    std::function<std::optional<http_answer>(const http_request&)> refusal;
    /// By path. They are for GET, and without the body for HEAD; other methods get 405, other paths
    /// 404.
    std::map<std::string, http_handler> pages;
    /// By path, for POST alone, with a body of known length: else 411, or 413 where it is too long.
    std::map<std::string, http_handler> changes = {};
};

class http_server {
  public:
    /// Listens and serves on the sockets `listening`, which are bound, of any family, and stay the
    /// caller's. Throws std::runtime_error when it can't.
    http_server(const std::vector<int>& listening, http_site site);
    /// Ends all connections as they are.
    ~http_server();
    http_server(const http_server&) = delete;
    http_server& operator=(const http_server&) = delete;

  private:
    struct connection {
        int socket;
        std::optional<uid_t> user; ///< whose it is; none but on a Unix socket
        std::string neighbour;     ///< whoever it is with; all that one may have count as one
        int64_t patience_ends;     ///< milliseconds of the clock that is never set
        int64_t sent = 0;          ///< bytes of the answer

        /// When it ends if nothing more is taken; the oldest connections' are looked at alone.
        int64_t ends(int64_t now) const;
    };
    using connection_list = std::list<connection>;

    struct stop_daemon {
        void operator()(MHD_Daemon* which) const;
    };
    using daemon = std::unique_ptr<MHD_Daemon, stop_daemon>;

    struct callbacks; ///< what the library calls

    void run();
    int milliseconds_to_wait() const;
    void enter(MHD_Connection* with, void** place);
    void leave(void** place);
    connection_list::iterator oldest_of_most();
    void cut(connection_list::iterator which);
    void cut_overdue();
    http_answer answer(const http_request& request, std::string_view method) const;
    const http_handler* change_of(const std::string& path, std::string_view method) const;
    std::optional<http_answer> objection(const http_request& request, MHD_Connection* from) const;

    const http_site site_;
    connection_list open_;        ///< the oldest first
    connection_list cut_;         ///< until the library has seen their end
    std::vector<daemon> daemons_; ///< one for each socket
    const int end_;               ///< an event: the thread is to end
    std::thread thread_;
};
