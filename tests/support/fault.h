// Makes calls of the C library and allocations fail, one after the other, and keeps released memory
// readable, so that a stale handle can be tried under a sanitizer. Linking this in replaces the
// calls for the whole program; they are the real ones until a test asks for a fault.
#pragma once

#include <cstddef>
#include <string>

namespace fault {

/// The next call of that name fails with `error` in errno: "fopen", "fputs", "fclose", "fgets",
/// "chmod", "fcntl", "onet_chown_service_user_if_root" or "localtime_r". Further ones too, while
/// `times` lasts.
void fail(const std::string& call, int error, int times = 1);

/// Sends every fopen below `directory` to the same name below `instead`.
void redirect(const std::string& directory, const std::string& instead);

/// The path of the last fopen, as it was asked for.
const std::string& last_opened();

/// The allocation after `count` more by operator new fails, once; a negative count: none does.
void fail_new_after(int count);

/// Allocations by operator new since the last call.
long take_allocations();

/// While one lives, memory released by operator delete stays readable.
class retained_memory {
  public:
    retained_memory();
    ~retained_memory();
    retained_memory(const retained_memory&) = delete;
    retained_memory& operator=(const retained_memory&) = delete;
};

/// No faults, no redirection.
void clear();

} // namespace fault
