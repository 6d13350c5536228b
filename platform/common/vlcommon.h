// The platform's common calls, as this system uses them. The library is the product's; the one
// built here stands in for it on a machine that has nothing of the product.
#pragma once

#include <cstddef>

extern "C" {

/// Writes the configuration directory into `directory` of `size` bytes, terminated, without a slash
/// at its end. 0, or -1 when there is none or it doesn't fit.
int GetConfDir(char* directory, size_t size);

/// Gives the file to the service user when this process runs as root and such a user exists, and
/// does nothing otherwise. `flags` isn't used by the stand-in. 0, or -1 when the owner can't be
/// changed.
int onet_chown_service_user_if_root(const char* path, int flags);

/// Logs `text` of the function `who` at `level`.
void logmsg(int level, const char* text, const char* who);

/// Start and stop the HTTP library for the whole process; the flags and the status are that
/// library's.
int VL_curl_global_init(long flags);
void VL_curl_global_cleanup();

/// Start and stop the TLS library for the whole process. The argument isn't used by the stand-in.
int VL_101_vlopenssl_init();
void VL_101_vlopenssl_fini(int);

} // extern "C"
