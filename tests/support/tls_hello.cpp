#include "tests/support/tls_hello.h"

#include <memory>
#include <openssl/ssl.h>

namespace {

using client_context = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;

client_context make_context() { return {SSL_CTX_new(TLS_client_method()), SSL_CTX_free}; }

} // namespace

bool has_group(const char* group) {
    return SSL_CTX_set1_groups_list(make_context().get(), group) == 1;
}

giop::octets tls_hello(const char* group) {
    const client_context context = make_context();
    if (group != nullptr) {
        SSL_CTX_set1_groups_list(context.get(), group);
    }
    const std::unique_ptr<SSL, decltype(&SSL_free)> client(SSL_new(context.get()), SSL_free);
    SSL_set_bio(client.get(), BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
    SSL_connect(client.get()); // nothing comes back
    const unsigned char* data = nullptr;
    const long size = BIO_get_mem_data(SSL_get_wbio(client.get()), &data);
    return {data, data + size};
}
