// Stands between the storage library and the system's file calls, for tests that end the process at
// one of them, let them be interrupted or fall short, or want to know of them. Linking it in
// replaces the calls for the whole program; they are the real ones until a test asks for more.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace system_calls {

/// Ends this process with SIGKILL in place of the call that comes after `count` more of those that
/// change files. What a test's child asks for itself; a negative count: none.
void kill_after(int count);

/// Lets every pread and pwrite move at most `longest` bytes, and fail with EINTR every other time.
void cut_transfers(size_t longest);

/// Fails every copy_file_range with `error`.
void fail_copies(int error);

/// Fails every other call that opens, locks, cuts or syncs a file with EINTR.
void interrupt_calls();

/// How many locks have been asked for, those that are still waited for too.
unsigned locks_asked_for();

/// Keeps the paths of what is synced from now on; gives them.
void watch_synced();
std::vector<std::string> take_synced();

/// From now on the clock that waits are measured by runs `times` as fast.
void speed_up(int times);

/// All calls are the real ones again.
void clear();

} // namespace system_calls
