// One exchange over HTTP with the service on this host.
#pragma once

#include <string>

struct http_call {
    std::string url;
    std::string unix_socket; ///< path of the socket in place of the host of `url`; empty: none
    const std::string* json = nullptr; ///< what is posted; null: the page is asked for
    long patience_ms = 2000;           ///< for all of it
    size_t most_bytes = size_t{16} << 20;
};

struct http_reply {
    long status = 0; ///< of HTTP; 0: there is no answer
    std::string body;
    std::string trouble; ///< why there is no answer; empty: there is one
    int error = 0;       ///< errno of a connection that can't be made; 0: not known, or it was made
};

/// Past any proxy that the environment names. Throws std::bad_alloc alone.
http_reply exchange(const http_call& asked);
