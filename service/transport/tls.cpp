#include "service/transport/tls.h"

#include <fmt/format.h>
#include <new>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <stdexcept>

namespace transport {

namespace {

[[noreturn]] void fail(const std::string& file, const std::string& what) {
    char reason[256] = "";
    ERR_error_string_n(ERR_get_error(), reason, sizeof reason);
    ERR_clear_error();
    throw std::runtime_error(fmt::format("{}: {}: {}", file, what, reason));
}

/// Elliptic curves alone: a peer that may choose a field of 8,192 bits takes a quarter of a second of
/// ours each time. Before them the one that a quantum computer can't undo, where the library has it.
void choose_key_exchanges(SSL_CTX* context) {
    const std::string curves = "X25519:P-256:X448:P-521:P-384";
    if (SSL_CTX_set1_groups_list(context, ("X25519MLKEM768:" + curves).c_str()) != 1 &&
        SSL_CTX_set1_groups_list(context, curves.c_str()) != 1) {
        fail("OpenSSL", "not all of the key exchanges " + curves);
    }
    ERR_clear_error();
}

/// Nobody is there to be asked for one.
int no_password(char* /*to*/, int /*size*/, int /*is_writing*/, void* /*data*/) { return 0; }

} // namespace

void tls_identity::free_context::operator()(ssl_ctx_st* context) const { SSL_CTX_free(context); }

tls_identity::tls_identity(const std::string& authority_file, const std::string& key_file)
    : context_(SSL_CTX_new(TLS_server_method())) {
    SSL_CTX* const context = context_.get();
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION);
    choose_key_exchanges(context);
    // Buffers of a session that is idle are given back.
    SSL_CTX_set_mode(context, SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set_default_passwd_cb(context, no_password);
    // Sessions aren't resumed: they would be kept, and each client has one connection.
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_num_tickets(context, 0);
    SSL_CTX_set_options(context, SSL_OP_NO_TICKET);
    if (SSL_CTX_use_certificate_chain_file(context, key_file.c_str()) != 1) {
        fail(key_file, "no certificate");
    }
    if (SSL_CTX_use_PrivateKey_file(context, key_file.c_str(), SSL_FILETYPE_PEM) != 1) {
        fail(key_file, "no private key of the certificate");
    }
    if (SSL_CTX_load_verify_locations(context, authority_file.c_str(), nullptr) != 1) {
        fail(authority_file, "no certificate of an authority");
    }
    SSL_CTX_set_client_CA_list(context, SSL_load_client_CA_file(authority_file.c_str()));
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
}

void tls_session::free_session::operator()(ssl_st* session) const { SSL_free(session); }

tls_session::tls_session(const tls_identity& identity) : session_(SSL_new(identity.context())) {
    BIO* const input = BIO_new(BIO_s_mem());
    BIO* const output = BIO_new(BIO_s_mem());
    if (session_ == nullptr || input == nullptr || output == nullptr) {
        BIO_free(input);
        BIO_free(output);
        throw std::bad_alloc();
    }
    SSL_set_bio(session_.get(), input, output);
    SSL_set_accept_state(session_.get());
}

bool tls_session::receive(const char* bytes, size_t count, std::string& plain,
                          std::string& to_send) {
    ERR_clear_error();
    size_t taken = 0;
    if (BIO_write_ex(SSL_get_rbio(session_.get()), bytes, count, &taken) != 1 || taken != count) {
        return false;
    }
    char buffer[4096];
    size_t read = 0;
    int result = 1;
    while ((result = SSL_read_ex(session_.get(), buffer, sizeof buffer, &read)) == 1) {
        plain.append(buffer, read);
    }
    take_output(to_send);
    return SSL_get_error(session_.get(), result) == SSL_ERROR_WANT_READ;
}

bool tls_session::send(const void* bytes, size_t count, std::string& to_send) {
    ERR_clear_error();
    size_t written = 0;
    const bool is_written = SSL_write_ex(session_.get(), bytes, count, &written) == 1;
    take_output(to_send);
    return is_written && written == count;
}

void tls_session::finish(std::string& to_send) {
    ERR_clear_error();
    if (is_agreed()) {
        SSL_shutdown(session_.get());
        take_output(to_send);
    }
}

bool tls_session::is_agreed() const { return SSL_is_init_finished(session_.get()) == 1; }

void tls_session::take_output(std::string& to_send) {
    BIO* const output = SSL_get_wbio(session_.get());
    char* data = nullptr;
    const long size = BIO_get_mem_data(output, &data);
    if (size > 0) {
        to_send.append(data, static_cast<size_t>(size));
        BIO_reset(output);
    }
}

} // namespace transport
