// What the service's own file says of how it is reached, and the encoding helper beside it.

#include "config/settings.h"
#include "config/settings_file.h"

#include "plugin/throttling_log.h"
#include "plugin/version_mark.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <openssl/bio.h>
#include <openssl/evp.h>

namespace {

constexpr int secure_by_default = 1;

int security_of(const sts_session_def_v7_t* session, const char* who, const char* value) {
    const auto security = static_cast<int32_t>(strtol(value, nullptr, 10));
    if (security >= 0) {
        return security;
    }
    log_msg(session, who, 1, STS_SEV_WARN, "invalid cssc_is_secure, set to default");
    return secure_by_default;
}

struct free_chain {
    void operator()(BIO* chain) const { BIO_free_all(chain); }
};

} // namespace

int get_cssc_security(const sts_session_def_v7_t* session) {
    log_msg(session, __func__, 1, STS_SEV_DEBUG, "enter.");
    const file_ptr file = open_settings(cloudstore_config_path);
    if (file == nullptr) {
        log_msg(session, __func__, 1, STS_SEV_WARN,
                "file %s not found, use default issecure value.", cloudstore_config_path);
        return secure_by_default;
    }
    char line[config_line_size];
    config_line parts;
    while (fgets(line, sizeof line, file.get()) != nullptr) {
        if (!find_setting(session, __func__, line, parts)) {
            continue;
        }
        parts.cut();
        if (strcmp(parts.key, "CSSC_IS_SECURE") == 0) {
            return security_of(session, __func__, parts.value());
        }
    }
    return secure_by_default;
}

char* encodeBase64(const char* text) {
    std::unique_ptr<BIO, free_chain> filter(BIO_new(BIO_f_base64()));
    if (filter == nullptr) {
        return nullptr;
    }
    BIO* const sink = BIO_new(BIO_s_mem());
    if (sink == nullptr) {
        return nullptr;
    }
    const std::unique_ptr<BIO, free_chain> chain(BIO_push(filter.release(), sink));
    BIO_write(chain.get(), text, static_cast<int>(strlen(text)));
    BIO_flush(chain.get());
    char* encoded = nullptr;
    const long length = BIO_get_mem_data(sink, &encoded);
    char* const result =
        length > 0 ? static_cast<char*>(malloc(static_cast<size_t>(length))) : nullptr;
    if (result != nullptr) {
        memcpy(result, encoded, static_cast<size_t>(length) - 1);
        result[length - 1] = '\0'; // in place of the filter's last newline
    }
    return result;
}
