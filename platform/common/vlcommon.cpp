// Stands in for the product's common library on a machine that has nothing of the product.

#include "platform/common/vlcommon.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <curl/curl.h>
#include <dlfcn.h>
#include <openssl/crypto.h>
#include <pwd.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

#pragma GCC visibility push(default)

namespace {

/// Looks up the service user. False when there is none.
bool find_service_user(passwd& user, std::vector<char>& text) {
    text.resize(16384);
    passwd* found = nullptr;
    int error = ERANGE;
    while ((error = getpwnam_r(THROTTLING_SERVICE_USER, &user, text.data(), text.size(), &found)) ==
           ERANGE) {
        text.resize(2 * text.size());
    }
    return error == 0 && found != nullptr;
}

/// A function of the HTTP library, null where there is none. It is loaded by whoever starts it alone,
/// as it and all that it needs take longer to load than the plugin.
template <typename Function>
Function* http_function(const char* name, int how) {
    void* const library = dlopen(HTTP_LIBRARY, RTLD_NOW | RTLD_NODELETE | how);
    return library != nullptr ? reinterpret_cast<Function*>(dlsym(library, name)) : nullptr;
}

} // namespace

int GetConfDir(char* directory, size_t size) {
    const char* configured = getenv("VL_CONF_DIR");
    if (configured == nullptr || configured[0] == '\0') {
        configured = THROTTLING_CONF_DIR;
    }
    const int length = snprintf(directory, size, "%s", configured);
    if (length < 0 || static_cast<size_t>(length) >= size) {
        return -1;
    }
    while (strlen(directory) > 1 && directory[strlen(directory) - 1] == '/') {
        directory[strlen(directory) - 1] = '\0';
    }
    return 0;
}

int onet_chown_service_user_if_root(const char* path, int /*flags*/) {
    if (geteuid() != 0) {
        return 0;
    }
    passwd user = {};
    std::vector<char> text;
    if (!find_service_user(user, text)) {
        return 0;
    }
    return chown(path, user.pw_uid, user.pw_gid) == 0 ? 0 : -1;
}

void logmsg(int level, const char* text, const char* who) {
    constexpr int priorities[] = {LOG_DEBUG, LOG_DEBUG, LOG_INFO, LOG_WARNING, LOG_ERR};
    const bool known =
        level >= 0 && level < static_cast<int>(sizeof priorities / sizeof *priorities);
    syslog(known ? priorities[level] : LOG_NOTICE, "[%s]%s", who, text);
}

int VL_curl_global_init(long flags) {
    auto* const init = http_function<decltype(curl_global_init)>("curl_global_init", 0);
    return init != nullptr ? init(flags) : CURLE_FAILED_INIT;
}

void VL_curl_global_cleanup() {
    using function = decltype(curl_global_cleanup);
    auto* const cleanup = http_function<function>("curl_global_cleanup", RTLD_NOLOAD);
    if (cleanup != nullptr) { // else nobody has started it
        cleanup();
    }
}

int VL_101_vlopenssl_init() { return OPENSSL_init_crypto(0, nullptr) == 1 ? 0 : -1; }

// The TLS library stops itself when the process ends; stopped earlier it could never start again.
void VL_101_vlopenssl_fini(int) {}

#pragma GCC visibility pop
