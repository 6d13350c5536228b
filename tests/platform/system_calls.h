// Stands between the storage library and the system's file calls, for tests that end the process at
// one of them or let transfers fall short. Linking it in replaces the calls for the whole program;
// they are the real ones until a test asks for more.
#pragma once

#include <cstddef>

namespace system_calls {

/// Ends this process with SIGKILL in place of the call that comes after `count` more of those that
/// change files. What a test's child asks for itself; a negative count: none.
void kill_after(int count);

/// Lets every pread and pwrite move at most `longest` bytes, and fail with EINTR every other time.
void cut_transfers(size_t longest);

/// Fails every copy_file_range with `error`.
void fail_copies(int error);

/// All calls are the real ones again.
void clear();

} // namespace system_calls
