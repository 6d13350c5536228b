#include "service/state_directory.h"

#include "common/environment.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& why) {
    throw state_error(path + ": " + why);
}

[[noreturn]] void fail_with(const std::string& path, int error) { fail(path, strerror(error)); }

/// Makes a directory and those above it; each that it makes is its owner's alone.
void make_directories(const std::string& path) {
    for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string part = path.substr(0, end);
        struct stat there = {};
        if (mkdir(part.c_str(), S_IRWXU) != 0 && stat(part.c_str(), &there) != 0) {
            fail_with(part, errno);
        }
        if (end == std::string::npos) {
            return;
        }
    }
}

std::string owner_and_mode(const struct stat& of) {
    return fmt::format("owner {}, mode {:04o}", of.st_uid, of.st_mode & 07777U);
}

/// Whoever may write there could put a secret of their own into the place of ours.
void check_directory(const std::string& path, int directory) {
    struct stat found = {};
    if (fstat(directory, &found) != 0) {
        fail_with(path, errno);
    }
    if ((found.st_uid != geteuid() && found.st_uid != 0) ||
        (found.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        fail(path, fmt::format("others may write there ({}); it has to be of user {} and writable "
                               "by nobody else: chmod 0700, or name another directory",
                               owner_and_mode(found), geteuid()));
    }
}

void check_file(const std::string& path, const struct stat& found) {
    if (!S_ISREG(found.st_mode)) {
        fail(path, "is no file; remove it, and a new one is made");
    }
    if (found.st_uid != geteuid() || (found.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        fail(path, fmt::format("others may have read it ({}); it has to be of user {} with mode "
                               "0600: remove it, and a new one is made",
                               owner_and_mode(found), geteuid()));
    }
}

/// As many bytes as there are, up to `size`. None when they can't be read.
std::optional<std::string> read_up_to(int from, size_t size) {
    std::string text(size, '\0');
    size_t got = 0;
    while (got < size) {
        const ssize_t more = read(from, text.data() + got, size - got);
        if (more < 0 && errno != EINTR) {
            return std::nullopt;
        }
        if (more == 0) {
            break;
        }
        got += more > 0 ? static_cast<size_t>(more) : 0;
    }
    text.resize(got);
    return text;
}

bool write_all(int to, const std::string& text) {
    size_t written = 0;
    while (written < text.size()) {
        const ssize_t more = write(to, text.data() + written, text.size() - written);
        if (more < 0 && errno != EINTR) {
            return false;
        }
        written += more > 0 ? static_cast<size_t>(more) : 0;
    }
    return true;
}

} // namespace

std::string default_state_directory() {
    const std::string given = absolute_path_in("STATE_DIRECTORY");
    if (!given.empty()) {
        return given.substr(0, given.find(':'));
    }
    if (geteuid() == 0) {
        return "/var/lib/vlsld";
    }
    const std::string state = absolute_path_in("XDG_STATE_HOME");
    if (!state.empty()) {
        return state + "/vlsld";
    }
    const std::string home = absolute_path_in("HOME");
    return home.empty() ? "" : home + "/.local/state/vlsld";
}

state_directory::state_directory(const std::string& path) : path_(path) {
    make_directories(path);
    opened_ = descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened_.is_open()) {
        fail_with(path, errno);
    }
    check_directory(path, opened_.get());
}

std::optional<std::string> state_directory::read(const std::string& name, size_t most) const {
    const std::string path = path_of(name);
    // It may be a link or a FIFO; neither is followed or waited for.
    const descriptor file(openat(opened_.get(), name.c_str(),
                                 O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file.is_open()) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        if (errno == ELOOP || errno == ENXIO) {
            fail(path, "is no file; remove it, and a new one is made");
        }
        fail_with(path, errno);
    }
    struct stat found = {};
    if (fstat(file.get(), &found) != 0) {
        fail_with(path, errno);
    }
    check_file(path, found);
    std::optional<std::string> text = read_up_to(file.get(), most);
    if (!text) {
        fail_with(path, errno);
    }
    return text;
}

/// `place` gives the draft its name; false, with the reason in errno, when it can't.
template <typename Place>
void state_directory::write_draft(const std::string& name, const std::string& text,
                                  Place place) const {
    const std::string path = path_of(name);
    const std::string draft = fmt::format(".{}.{}", name, gettid());
    unlinkat(opened_.get(), draft.c_str(), 0); // left by one of our number that was killed
    const descriptor file(openat(opened_.get(), draft.c_str(),
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                 S_IRUSR | S_IWUSR));
    if (!file.is_open()) {
        fail_with(path, errno);
    }
    int error = 0;
    if (!write_all(file.get(), text) || fsync(file.get()) != 0 || !place(draft.c_str())) {
        error = errno;
    }
    unlinkat(opened_.get(), draft.c_str(), 0);
    if (error != 0 || fsync(opened_.get()) != 0) {
        fail_with(path, error != 0 ? error : errno);
    }
}

void state_directory::write(const std::string& name, const std::string& text) const {
    write_draft(name, text, [&](const char* draft) {
        return renameat(opened_.get(), draft, opened_.get(), name.c_str()) == 0;
    });
}

void state_directory::write_first(const std::string& name, const std::string& text) const {
    write_draft(name, text, [&](const char* draft) {
        return linkat(opened_.get(), draft, opened_.get(), name.c_str(), 0) == 0 || errno == EEXIST;
    });
}

void state_directory::rename(const std::string& name, const std::string& other) const {
    renameat(opened_.get(), name.c_str(), opened_.get(), other.c_str());
}
