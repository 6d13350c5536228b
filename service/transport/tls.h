// TLS, away from any socket: what is received goes in, what is to be sent comes out.
#pragma once

#include <memory>
#include <string>

struct ssl_ctx_st;
struct ssl_st;

namespace transport {

/// Who the service is, and whose clients it serves. Borrowed by its sessions.
class tls_identity {
  public:
    /// PEM files: the authority that clients' certificates have to be signed by, and the service's
    /// key with its certificate. Throws std::runtime_error, which names the file.
    tls_identity(const std::string& authority_file, const std::string& key_file);

    ssl_ctx_st* context() const { return context_.get(); }

  private:
    struct free_context {
        void operator()(ssl_ctx_st* context) const;
    };
    std::unique_ptr<ssl_ctx_st, free_context> context_;
};

/// One connection's TLS. Not for use by several threads at once.
class tls_session {
  public:
    /// Throws std::bad_alloc.
    explicit tls_session(const tls_identity& identity);

    /// Takes what came from the peer, appends what it means to `plain`, and what is to be sent
    /// because of it to `to_send`. False: the peer is done, or is none that is served.
    bool receive(const char* bytes, size_t count, std::string& plain, std::string& to_send);
    /// Appends `bytes` as they are to be sent. False: it can't be.
    bool send(const void* bytes, size_t count, std::string& to_send);
    /// Appends what ends the session.
    void finish(std::string& to_send);
    /// Whether the peer has shown its certificate and all is agreed.
    bool is_agreed() const;

  private:
    void take_output(std::string& to_send);

    struct free_session {
        void operator()(ssl_st* session) const;
    };
    std::unique_ptr<ssl_st, free_session> session_;
};

} // namespace transport
