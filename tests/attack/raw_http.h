// HTTP as nobody should speak it: bytes sent and taken as a test says.
#pragma once

#include <string>

class raw_http {
  public:
    /// Connects to `port` of 127.0.0.1 from `own_address`, an address of this host. `buffer`, in
    /// bytes, bounds what the system takes before the test does; 0: as much as it likes.
    explicit raw_http(int port, const char* own_address = "127.0.0.1", int buffer = 0);
    ~raw_http();
    raw_http(raw_http&& other) noexcept;
    raw_http& operator=(raw_http&&) = delete;

    /// What the peer has closed takes no more bytes.
    void send(const std::string& bytes) const;
    /// The next bytes, at most `most`; empty at the end, or after `seconds` without any.
    std::string take(size_t most = 65536, int seconds = 10) const;
    /// All bytes until the end.
    std::string take_all() const;
    /// Whether the peer has ended it.
    bool is_over() const;

  private:
    int descriptor_;
};

/// What is answered to `request`, whole.
std::string ask(int port, const std::string& request);

/// A good request for `path` by HTTP/1.1. `headers` are lines of their own.
std::string request_for(const std::string& path, const std::string& headers = "",
                        const std::string& method = "GET");
