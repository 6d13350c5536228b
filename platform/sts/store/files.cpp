// Files and directories below a root: names, directories, whole small files, transfers.

#include "platform/sts/store/files.h"

#include "platform/sts/caller/failure.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace disk {

namespace {

constexpr uint64_t copy_block = 1U << 20U;
constexpr size_t longest_file_name = 255;
constexpr mode_t directory_mode = 0700;
constexpr mode_t file_mode = 0600;

/// Whether a transfer stays within the positions that a file can have.
bool is_in_range(uint64_t length, uint64_t position) {
    constexpr auto last = static_cast<uint64_t>(std::numeric_limits<off_t>::max());
    return position <= last && length <= last - position;
}

/// Moves bytes block by block until all are done, the file ends or a call fails.
template <typename Call>
int transfer(uint64_t length, uint64_t position, uint64_t* moved, Call call) {
    *moved = 0;
    if (!is_in_range(length, position)) {
        return STS_ERR_INVALID;
    }
    while (*moved < length) {
        const ssize_t count = call(*moved, length - *moved, static_cast<off_t>(position + *moved));
        if (count > 0) {
            *moved += static_cast<uint64_t>(count);
        } else if (count == 0) {
            break;
        } else if (errno != EINTR) {
            return sts_status_of_errno(errno);
        }
    }
    return STS_OK;
}

/// Copies through memory, where the file systems can't do it between themselves.
uint64_t copy_through_memory(int from, uint64_t from_position, int to, uint64_t to_position,
                             uint64_t length) {
    const auto block = std::min(length, copy_block);
    const auto memory = std::make_unique<char[]>(block);
    uint64_t copied = 0;
    while (copied < length) {
        uint64_t got = 0;
        const uint64_t wanted = std::min(block, length - copied);
        int status = read_at(from, memory.get(), wanted, from_position + copied, &got);
        uint64_t put = 0;
        if (status == STS_OK) {
            status = write_at(to, memory.get(), got, to_position + copied, &put);
        }
        if (status != STS_OK) {
            fail(status);
        }
        copied += put;
        if (got < wanted) {
            break;
        }
    }
    return copied;
}

/// The names in a directory that `wanted`, which gets its entries, is true for; sorted.
template <typename Wanted>
std::vector<std::string> names_of(int directory, Wanted wanted) {
    unique_fd opened = open_directory(directory, ".");
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(fdopendir(opened.get()), closedir);
    if (stream == nullptr) {
        fail_errno(errno);
    }
    (void)opened.release(); // the stream's from here on
    std::vector<std::string> names;
    errno = 0;
    while (const dirent* const entry = readdir(stream.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != ".." && wanted(*entry)) {
            names.emplace_back(name);
        }
        errno = 0;
    }
    if (errno != 0) {
        fail_errno(errno);
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool is_unsupported_copy(int error) {
    return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP ||
           error == EPERM;
}

} // namespace

unique_fd& unique_fd::operator=(unique_fd&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
}

unique_fd::~unique_fd() {
    if (descriptor_ != -1) {
        ::close(descriptor_);
    }
}

int unique_fd::release() { return std::exchange(descriptor_, -1); }

// --- names

bool is_plain_name(std::string_view name) {
    return !name.empty() && name.size() <= longest_file_name && name != "." && name != ".." &&
           name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

std::string text_of_field(const char* field, size_t size) {
    const size_t length = strnlen(field, size);
    require(length < size);
    return {field, length};
}

void fill_field(char* field, size_t size, std::string_view text) {
    memset(field, 0, size);
    memcpy(field, text.data(), std::min(text.size(), size - 1));
}

// --- directories

unique_fd open_directory(int parent, const std::string& name) {
    return unique_fd(uninterrupted([&] {
        return openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    }));
}

unique_fd make_directory(int parent, const std::string& name) {
    if (mkdirat(parent, name.c_str(), directory_mode) == 0) {
        sync_file(parent);
    } else if (errno != EEXIST) {
        fail_errno(errno);
    }
    return open_directory(parent, name);
}

void make_new_directory(int parent, const std::string& name) {
    checked(mkdirat(parent, name.c_str(), directory_mode));
}

std::vector<std::string> names_in(int directory) {
    return names_of(directory, [](const dirent& /*entry*/) { return true; });
}

std::vector<std::string> directories_in(int directory) {
    return names_of(directory, [&](const dirent& entry) {
        return entry.d_type == DT_DIR ||
               (entry.d_type == DT_UNKNOWN && is_directory(directory, entry.d_name));
    });
}

bool is_directory(int parent, const std::string& name) {
    struct stat found = {};
    return fstatat(parent, name.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(found.st_mode);
}

bool is_same_directory(int parent, const std::string& name, int opened) {
    struct stat at_name = {};
    struct stat at_opened = {};
    checked(fstat(opened, &at_opened));
    return fstatat(parent, name.c_str(), &at_name, AT_SYMLINK_NOFOLLOW) == 0 &&
           at_name.st_dev == at_opened.st_dev && at_name.st_ino == at_opened.st_ino;
}

std::string path_of(int opened) {
    char path[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(opened);
    const ssize_t length = readlink(link.c_str(), path, sizeof path);
    return length > 0 ? std::string(path, static_cast<size_t>(length)) : "a directory";
}

std::string unused_name() {
    static std::atomic<uint64_t> count{0};
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    char name[96];
    (void)snprintf(name, sizeof name, "%d.%lld.%09ld.%llu", getpid(),
                   static_cast<long long>(now.tv_sec), now.tv_nsec,
                   static_cast<unsigned long long>(count++));
    return name;
}

void remove_directory(int parent, const std::string& name) noexcept {
    (void)status_of([&] {
        const unique_fd directory = open_directory(parent, name);
        for (const std::string& each : names_in(directory.get())) {
            (void)unlinkat(directory.get(), each.c_str(), 0);
        }
    });
    (void)unlinkat(parent, name.c_str(), AT_REMOVEDIR);
}

// --- files

unique_fd open_file(int parent, const std::string& name, int flags) {
    // O_NONBLOCK: a pipe that somebody put here must not hold us up before we see what it is.
    unique_fd file(uninterrupted([&] {
        return openat(parent, name.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, file_mode);
    }));
    struct stat found = {};
    checked(fstat(file.get(), &found));
    if (!S_ISREG(found.st_mode)) {
        fail_errno(EBADMSG);
    }
    return file;
}

unique_fd make_file(int parent, const std::string& name) {
    // Never one that is there: it may be a pipe, or one more name of a file that isn't ours.
    if (unlinkat(parent, name.c_str(), 0) != 0 && errno != ENOENT) {
        fail_errno(errno);
    }
    return open_file(parent, name, O_WRONLY | O_CREAT | O_EXCL);
}

unique_fd find_file(int parent, const std::string& name) {
    unique_fd file;
    const int status = status_of([&] { file = open_file(parent, name, O_RDONLY); });
    if (status != STS_OK && status != sts_status_of_errno(ENOENT)) {
        fail(status);
    }
    return file;
}

uint64_t size_of(int file) {
    struct stat found = {};
    checked(fstat(file, &found));
    return static_cast<uint64_t>(found.st_size);
}

std::optional<uint64_t> size_of(int parent, const std::string& name) {
    struct stat found = {};
    if (fstatat(parent, name.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno != ENOENT) {
            fail_errno(errno);
        }
        return std::nullopt;
    }
    return S_ISREG(found.st_mode) ? std::optional(static_cast<uint64_t>(found.st_size))
                                  : std::nullopt;
}

std::optional<std::string> read_file(int parent, const std::string& name, uint64_t longest) {
    const unique_fd file = find_file(parent, name);
    if (!file) {
        return std::nullopt;
    }
    const uint64_t size = size_of(file.get());
    if (size > longest) {
        fail_errno(EBADMSG);
    }
    std::string content(size, '\0');
    uint64_t length = 0;
    const int status = read_at(file.get(), content.data(), content.size(), 0, &length);
    if (status != STS_OK) {
        fail(status);
    }
    content.resize(length);
    return content;
}

void replace_file(int parent, const std::string& name, std::string_view content,
                  durability wanted) {
    place_file(parent, name + ".new", parent, name, content, wanted);
}

void place_file(int parent, const std::string& fresh, int directory, const std::string& name,
                std::string_view content, durability wanted) {
    const unique_fd file = make_file(parent, fresh);
    uint64_t written = 0;
    const int status = write_at(file.get(), content.data(), content.size(), 0, &written);
    if (status != STS_OK) {
        fail(status);
    }
    if (wanted == durability::synced) {
        sync_file(file.get());
    }
    checked(renameat(parent, fresh.c_str(), directory, name.c_str()));
    if (wanted == durability::synced) {
        sync_file(directory);
    }
}

void sync_file(int file) {
    uninterrupted([&] { return fsync(file); });
}

bool try_lock_file(int file) { return flock(file, LOCK_EX | LOCK_NB) == 0; }

// --- transfers

int read_at(int file, void* buffer, uint64_t length, uint64_t position, uint64_t* moved) {
    return transfer(length, position, moved, [&](uint64_t done, uint64_t left, off_t where) {
        return pread(file, static_cast<char*>(buffer) + done, left, where);
    });
}

int write_at(int file, const void* buffer, uint64_t length, uint64_t position, uint64_t* moved) {
    return transfer(length, position, moved, [&](uint64_t done, uint64_t left, off_t where) {
        return pwrite(file, static_cast<const char*>(buffer) + done, left, where);
    });
}

uint64_t copy_bytes(int from, uint64_t from_position, int to, uint64_t to_position,
                    uint64_t length) {
    require(is_in_range(length, from_position) && is_in_range(length, to_position));
    auto source = static_cast<off_t>(from_position);
    auto target = static_cast<off_t>(to_position);
    uint64_t copied = 0;
    while (copied < length) {
        // The file systems share or copy the blocks themselves where they can.
        const ssize_t count = copy_file_range(from, &source, to, &target, length - copied, 0);
        if (count > 0) {
            copied += static_cast<uint64_t>(count);
        } else if (count == 0) {
            break;
        } else if (is_unsupported_copy(errno)) {
            return copied + copy_through_memory(from, from_position + copied, to,
                                                to_position + copied, length - copied);
        } else if (errno != EINTR) {
            fail_errno(errno);
        }
    }
    return copied;
}

} // namespace disk
