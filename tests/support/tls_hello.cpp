#include "tests/support/tls_hello.h"

#include <memory>
#include <openssl/ssl.h>

giop::octets tls_hello(const char* group) {
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(
        SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    SSL_CTX_set1_groups_list(context.get(), group);
    const std::unique_ptr<SSL, decltype(&SSL_free)> client(SSL_new(context.get()), SSL_free);
    SSL_set_bio(client.get(), BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
    SSL_connect(client.get()); // nothing comes back
    const unsigned char* data = nullptr;
    const long size = BIO_get_mem_data(SSL_get_wbio(client.get()), &data);
    return {data, data + size};
}
