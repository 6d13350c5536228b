// Makes calls of the C library and allocations fail, one after the other, and keeps released memory
// readable, so that a stale handle can be tried under a sanitizer. Linking this in replaces the
// calls for the whole program; they are the real ones until a test asks for a fault.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace fault {

/// The next call of that name fails with `error` in errno, or errno as it was for 0: "fopen",
/// "fputs", "fclose", "fgets", "chmod", "fcntl" (a record lock or its release) or
/// "onet_chown_service_user_if_root". Further ones too, while `times` lasts; `after` calls pass
/// before the first that fails.
void fail(const std::string& call, int error, int times = 1, int after = 0);

/// Sends every fopen below `directory` to the same name below `instead`.
void redirect(const std::string& directory, const std::string& instead);

/// The path of the last fopen, as it was asked for.
const std::string& last_opened();

/// Keeps the replaced calls from now on, in their order.
void watch_calls();

/// The calls since watch_calls, which ends: "fopen PATH MODE", "fputs", "fflush", "fclose", "chmod
/// PATH MODE", "onet_chown_service_user_if_root PATH FLAGS", and for a record lock that waits,
/// "lock" or "unlock", with " part" behind it unless the whole file is meant.
std::vector<std::string> take_calls();

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
