#include "tests/platform/sts/system_calls.h"

#include "tests/support/next_function.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <mutex>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

namespace {

std::atomic<int> calls_left{-1};
std::atomic<size_t> longest_transfer{0}; // 0: any
std::atomic<unsigned> transfers{0};
std::atomic<int> copy_error{0};
std::atomic<bool> interrupting{false};
std::atomic<unsigned> locks{0};
std::atomic<bool> watching{false};
std::atomic<int> clock_speed{1};
std::atomic<int64_t> sped_up_at{0}; // nanoseconds
std::mutex synced_guard;
std::vector<std::string>& synced() {
    static std::vector<std::string> all;
    return all;
}

int real_clock_gettime(clockid_t clock, timespec* now) {
    return next_function<int(clockid_t, timespec*)>("clock_gettime")(clock, now);
}

constexpr int64_t nanoseconds = 1000000000; // of a second

int64_t nanoseconds_of(const timespec& time) { return time.tv_sec * nanoseconds + time.tv_nsec; }

/// Every call that changes files comes through here first.
void changes_files() {
    if (calls_left >= 0 && calls_left-- == 0) {
        kill(getpid(), SIGKILL);
        pause();
    }
}

/// Whether this transfer fails with EINTR; cuts `size` otherwise.
bool is_interrupted(size_t& size) {
    if (longest_transfer == 0) {
        return false;
    }
    size = std::min(size, longest_transfer.load());
    errno = EINTR;
    return transfers++ % 2 == 0;
}

/// Whether a call that moves nothing fails with EINTR.
bool is_interrupted() {
    if (!interrupting || transfers++ % 2 != 0) {
        return false;
    }
    errno = EINTR;
    return true;
}

/// Keeps the path of a file that is synced, if somebody wants to know.
void keep_synced(int file) {
    if (watching) {
        const std::lock_guard<std::mutex> lock(synced_guard);
        synced().push_back(fs::read_symlink("/proc/self/fd/" + std::to_string(file)).string());
    }
}

} // namespace

namespace system_calls {

void kill_after(int count) { calls_left = count; }

void cut_transfers(size_t longest) { longest_transfer = longest; }

void fail_copies(int error) { copy_error = error; }

void interrupt_calls() { interrupting = true; }

unsigned locks_asked_for() { return locks; }

void watch_synced() { watching = true; }

std::vector<std::string> take_synced() {
    watching = false;
    const std::lock_guard<std::mutex> lock(synced_guard);
    return std::exchange(synced(), {});
}

void speed_up(int times) {
    timespec now = {};
    real_clock_gettime(CLOCK_MONOTONIC, &now);
    sped_up_at = nanoseconds_of(now);
    clock_speed = times;
}

void clear() {
    clock_speed = 1;
    interrupting = false;
    watching = false;
    kill_after(-1);
    cut_transfers(0);
    fail_copies(0);
}

} // namespace system_calls

#define REPLACES __attribute__((visibility("default")))

extern "C" {

REPLACES int clock_gettime(clockid_t clock, timespec* now) noexcept {
    const int result = real_clock_gettime(clock, now);
    if (clock == CLOCK_MONOTONIC && clock_speed != 1) {
        const int64_t fast = sped_up_at + (nanoseconds_of(*now) - sped_up_at) * clock_speed.load();
        *now = {fast / nanoseconds, fast % nanoseconds};
    }
    return result;
}

REPLACES int openat(int parent, const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        changes_files();
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    if (is_interrupted()) {
        return -1;
    }
    return next_function<int(int, const char*, int, ...)>("openat")(parent, path, flags, mode);
}

REPLACES int mkdirat(int parent, const char* path, mode_t mode) noexcept {
    changes_files();
    return next_function<int(int, const char*, mode_t)>("mkdirat")(parent, path, mode);
}

REPLACES int unlinkat(int parent, const char* path, int flags) noexcept {
    changes_files();
    return next_function<int(int, const char*, int)>("unlinkat")(parent, path, flags);
}

REPLACES int renameat(int from, const char* old_path, int to, const char* new_path) noexcept {
    changes_files();
    return next_function<int(int, const char*, int, const char*)>("renameat")(from, old_path, to,
                                                                              new_path);
}

REPLACES int renameat2(int from, const char* old_path, int to, const char* new_path,
                       unsigned flags) noexcept {
    changes_files();
    return next_function<int(int, const char*, int, const char*, unsigned)>("renameat2")(
        from, old_path, to, new_path, flags);
}

REPLACES int ftruncate(int file, off_t length) noexcept {
    changes_files();
    if (is_interrupted()) {
        return -1;
    }
    return next_function<int(int, off_t)>("ftruncate")(file, length);
}

REPLACES int fsync(int file) {
    changes_files();
    if (is_interrupted()) {
        return -1;
    }
    keep_synced(file);
    return next_function<int(int)>("fsync")(file);
}

REPLACES int fdatasync(int file) {
    return is_interrupted() ? -1 : next_function<int(int)>("fdatasync")(file);
}

REPLACES int flock(int file, int operation) noexcept {
    ++locks;
    if ((operation & LOCK_NB) == 0 && is_interrupted()) {
        return -1;
    }
    return next_function<int(int, int)>("flock")(file, operation);
}

REPLACES ssize_t pread(int file, void* buffer, size_t size, off_t position) {
    if (is_interrupted(size)) {
        return -1;
    }
    return next_function<ssize_t(int, void*, size_t, off_t)>("pread")(file, buffer, size, position);
}

REPLACES ssize_t pwrite(int file, const void* buffer, size_t size, off_t position) {
    changes_files();
    if (is_interrupted(size)) {
        return -1;
    }
    return next_function<ssize_t(int, const void*, size_t, off_t)>("pwrite")(file, buffer, size,
                                                                             position);
}

REPLACES ssize_t copy_file_range(int from, off64_t* from_position, int to, off64_t* to_position,
                                 size_t size, unsigned flags) {
    changes_files();
    if (copy_error != 0) {
        errno = copy_error;
        return -1;
    }
    return next_function<ssize_t(int, off64_t*, int, off64_t*, size_t, unsigned)>(
        "copy_file_range")(from, from_position, to, to_position, size, flags);
}

} // extern "C"
