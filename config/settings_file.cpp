#include "config/settings_file.h"

#include "common/descriptor.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <libgen.h>
#include <limits.h>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <thread>
#include <unistd.h>

namespace {

using std::chrono::nanoseconds;

// --- waiting for the lock ----------------------------------------------------------------------

/// How long this process may still wait: a second at first, and a hundredth of the time that
/// passes, up to a second again.
class patience {
  public:
    nanoseconds left() const {
        const nanoseconds owed = (nanoseconds(full_again_) - now()) / recovery;
        return std::clamp(most - owed, nanoseconds(0), most);
    }

    void spend(nanoseconds waited) {
        int64_t before = full_again_;
        int64_t after = 0;
        do {
            after = (std::max(nanoseconds(before), now()) + waited * recovery).count();
        } while (!full_again_.compare_exchange_weak(before, after));
    }

    static nanoseconds now() { return std::chrono::steady_clock::now().time_since_epoch(); }

  private:
    static constexpr nanoseconds most = std::chrono::seconds(1);
    static constexpr int recovery = 100;  ///< seconds until a second that was spent is back
    std::atomic<int64_t> full_again_ = 0; ///< when nothing is owed any more
};

patience lock_patience;

constexpr auto lock_poll = std::chrono::milliseconds(1);

bool take_lock(int directory, int operation) {
    const nanoseconds start = patience::now();
    nanoseconds waited(0);
    while (flock(directory, operation | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK || waited >= lock_patience.left()) {
            lock_patience.spend(waited);
            return false;
        }
        std::this_thread::sleep_for(lock_poll);
        waited = patience::now() - start;
    }
    if (waited > lock_poll) {
        lock_patience.spend(waited / 10); // a neighbour's turn; many of them wear it out too
    }
    return true;
}

// --- paths -------------------------------------------------------------------------------------

/// A path of its own size at most; empty where it doesn't fit.
struct path_text {
    char text[4096] = "";

    path_text() = default;
    explicit path_text(const char* path) { append(path); }
    void append(const char* more) {
        const size_t length = strlen(text);
        const size_t added = strlen(more);
        if (length + added < sizeof text) {
            memcpy(text + length, more, added + 1);
        } else {
            text[0] = '\0';
        }
    }
    bool empty() const { return text[0] == '\0'; }
};

/// The file itself, behind all links; empty where there is none behind a link, or no way to it.
path_text behind_links(const char* path) {
    static_assert(sizeof path_text::text >= PATH_MAX);
    path_text found;
    if (realpath(path, found.text) != nullptr) {
        return found;
    }
    struct stat link = {};
    return errno == ENOENT && lstat(path, &link) != 0 ? path_text(path) : path_text();
}

// --- texts that are laid beside the file -------------------------------------------------------

constexpr const char* new_pattern = ".XXXXXX.new";
constexpr const char* new_suffix = ".new";
constexpr auto new_suffix_length = static_cast<int>(sizeof ".new" - 1);
constexpr time_t abandoned_after = 60; // seconds

/// Whether a file of that name was laid beside `file` by replace_settings.
bool is_laid_beside(std::string_view name, std::string_view file) {
    const size_t length = file.size() + strlen(new_pattern);
    return name.size() == length && name.substr(0, file.size()) == file &&
           name[file.size()] == '.' && name.substr(length - strlen(new_suffix)) == new_suffix;
}

/// Removes what processes have left beside `target` that were killed before its turn came.
void remove_abandoned(const char* target) {
    path_text copy(target);
    const char* const slash = strrchr(target, '/');
    DIR* const directory = slash != nullptr ? opendir(dirname(copy.text)) : nullptr;
    if (directory == nullptr) {
        return;
    }
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    while (const dirent* const entry = readdir(directory)) {
        struct stat file = {};
        if (is_laid_beside(entry->d_name, slash + 1) &&
            fstatat(dirfd(directory), entry->d_name, &file, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISREG(file.st_mode) && file.st_mtim.tv_sec < now.tv_sec - abandoned_after) {
            unlinkat(dirfd(directory), entry->d_name, 0);
        }
    }
    closedir(directory);
}

/// Gives `descriptor` the extended attributes of the other. False when one can't be had.
bool copy_attributes(int from, int descriptor) {
    char names[4096];
    const ssize_t length = flistxattr(from, names, sizeof names);
    if (length < 0) {
        return errno == ENOTSUP;
    }
    for (const char* name = names; name < names + length; name += strlen(name) + 1) {
        char value[4096];
        const ssize_t size = fgetxattr(from, name, value, sizeof value);
        const bool labels = strncmp(name, "security.", 9) == 0; // the system's own to set
        if (!labels &&
            (size < 0 || fsetxattr(descriptor, name, value, static_cast<size_t>(size), 0) != 0)) {
            return false;
        }
    }
    return true;
}

/// Makes `descriptor` what the old file is to others. False where only the old file can be that.
bool take_after(int old, int descriptor) {
    struct stat file = {};
    return fstat(old, &file) == 0 && fchown(descriptor, file.st_uid, file.st_gid) == 0 &&
           copy_attributes(old, descriptor) && fchmod(descriptor, file.st_mode & 07777U) == 0;
}

enum class laid { whole, not_allowed, failed };

/// Whether that error says that the directory takes no other file.
bool is_not_allowed(int error) {
    return error == EACCES || error == EPERM || error == EROFS || error == ENAMETOOLONG;
}

/// A new text beside its file; gone with this unless it has taken the file's place.
class text_beside {
  public:
    text_beside() = default;
    ~text_beside() {
        if (made_) {
            unlink(path_.text);
        }
    }
    text_beside(const text_beside&) = delete;
    text_beside& operator=(const text_beside&) = delete;

    /// Lays it beside `target`, on the disk when this is back. `old` is the file whose place it is
    /// to take, or -1.
    laid lay(const char* target, int old, const char* text, int& status) {
        path_ = path_text(target);
        path_.append(new_pattern);
        if (path_.empty()) {
            return laid::not_allowed;
        }
        const int made = mkostemps(path_.text, new_suffix_length, O_CLOEXEC);
        if (made < 0) {
            status = STS_ERR_END_OF_LIST;
            return is_not_allowed(errno) ? laid::not_allowed : laid::failed;
        }
        close(made);
        made_ = true;
        file_ptr file(fopen(path_.text, "w+"));
        if (file == nullptr) {
            status = STS_ERR_END_OF_LIST;
            return laid::failed;
        }
        status = STS_ERR_FILE;
        setvbuf(file.get(), nullptr, _IONBF, 0); // what fails, fails before the text is relied upon
        const bool written = fputs(text, file.get()) >= 0;
        const bool alike =
            old >= 0 ? take_after(old, fileno(file.get())) : fchmod(fileno(file.get()), 0644) == 0;
        const bool kept = fsync(fileno(file.get())) == 0 || errno == EINVAL;
        if (fclose(file.release()) != 0 || !written || !kept) {
            return laid::failed;
        }
        return alike ? laid::whole : laid::not_allowed;
    }

    /// Lets it take that place.
    laid take_place_of(const char* target) {
        made_ = rename(path_.text, target) != 0;
        if (!made_) {
            return laid::whole;
        }
        return is_not_allowed(errno) || errno == EBUSY || errno == EXDEV ? laid::not_allowed
                                                                         : laid::failed;
    }

  private:
    path_text path_;
    bool made_ = false;
};

// --- the file ----------------------------------------------------------------------------------

settings_seen look_again(const char* path) {
    settings_seen seen;
    const descriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (file.get() < 0) {
        seen.state = errno == ENOENT ? settings_seen::missing : settings_seen::unreadable;
        return seen;
    }
    return look_at(file.get());
}

/// 0 while the text that stems from `seen` may still go to `path`.
int may_replace(const char* path, const settings_seen* seen) {
    if (seen == nullptr) {
        return STS_OK;
    }
    if (seen->state == settings_seen::unreadable) {
        return settings_left;
    }
    const settings_seen now = look_again(path);
    if (now.state == settings_seen::unreadable) {
        return settings_left;
    }
    return now == *seen ? STS_OK : settings_overtaken;
}

/// Rewrites the file where it is, as far as it gets.
int write_through(const char* path, const char* text) {
    file_ptr file(fopen(path, "w+"));
    if (file == nullptr) {
        return STS_ERR_END_OF_LIST;
    }
    const bool written = fputs(text, file.get()) >= 0;
    const bool closed = fclose(file.release()) == 0;
    return written && closed ? STS_OK : STS_ERR_FILE;
}

} // namespace

file_ptr open_settings(const char* path) {
    struct stat file = {};
    if (stat(path, &file) == 0 && !S_ISREG(file.st_mode) && !S_ISDIR(file.st_mode)) {
        errno = EINVAL;
        return nullptr;
    }
    errno = 0;
    return file_ptr(fopen(path, "r"));
}

settings_seen look_at(int descriptor) {
    settings_seen seen;
    char bytes[4096];
    ssize_t count = 0;
    while ((count = pread(descriptor, bytes, sizeof bytes, static_cast<off_t>(seen.length))) > 0) {
        const auto size = static_cast<size_t>(count);
        seen.length += size;
        seen.hash = 31 * seen.hash + std::hash<std::string_view>()({bytes, size});
    }
    seen.state = count == 0 ? settings_seen::readable : settings_seen::unreadable;
    return seen;
}

directory_lock::directory_lock(const char* path, int operation) {
    path_text directory(path);
    if (directory.empty()) {
        return;
    }
    directory_ = open(dirname(directory.text), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    held_ = directory_ >= 0 && take_lock(directory_, operation);
}

directory_lock::~directory_lock() {
    if (held_) {
        flock(directory_, LOCK_UN); // also where a child that was forked meanwhile has it open
    }
    if (directory_ >= 0) {
        close(directory_);
    }
}

int replace_settings(const char* path, const char* text, const settings_seen* seen) {
    const path_text target = behind_links(path);
    struct stat file = {};
    const bool exists = stat(path, &file) == 0;
    if (exists && S_ISCHR(file.st_mode) && seen == nullptr) {
        return write_through(path, text);
    }
    if (exists && !S_ISREG(file.st_mode)) {
        return STS_ERR_END_OF_LIST;
    }
    const descriptor old(exists ? open(path, O_RDWR | O_CLOEXEC | O_NONBLOCK) : -1);
    if (exists && old.get() < 0) {
        return STS_ERR_END_OF_LIST;
    }
    if (const int status = may_replace(path, seen)) {
        return status; // before the work of laying it
    }
    text_beside laid_text;
    const bool own_name = !target.empty() && (!exists || file.st_nlink == 1);
    int failure = STS_OK;
    laid result =
        own_name ? laid_text.lay(target.text, old.get(), text, failure) : laid::not_allowed;
    if (result == laid::failed) {
        return failure;
    }
    const directory_lock lock(path, LOCK_EX);
    if (const int status = may_replace(path, seen)) {
        return status;
    }
    if (result == laid::whole) {
        result = laid_text.take_place_of(target.text);
    }
    switch (result) {
    case laid::whole:
        remove_abandoned(target.text);
        return STS_OK;
    case laid::not_allowed:
        return write_through(path, text);
    case laid::failed:
        break;
    }
    return STS_ERR_FILE;
}
