#include "tools/run/files/extraction.h"

#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

namespace {

constexpr mode_t ours_alone = 0600;
constexpr mode_t open_to_us = 0700;

/// Why an entry isn't made.
struct refusal {
    std::string reason;
};

[[noreturn]] void refuse(int error) {
    if (error == ELOOP || error == ENOTDIR) {
        throw refusal{"a symbolic link, or something else that is no directory, is on its way"};
    }
    throw refusal{strerror(error)};
}

/// Whether a failed write is the disk's and not this one file's.
bool ends_the_restore(int error) { return error != EFBIG && error != EINVAL; }

void remove_for_another(int place, const std::string& leaf) {
    if (unlinkat(place, leaf.c_str(), 0) != 0) {
        throw refusal{
            errno == EISDIR || errno == EPERM
                ? std::string("a directory is in its place")
                : fmt::format("what is in its place can't be removed: {}", strerror(errno))};
    }
}

} // namespace

bool extractor::make(archive_entry* entry) {
    current_.reset();
    const std::string name = name_of(entry);
    try {
        std::string reason;
        const std::optional<std::string> path = path_beneath(name, reason);
        if (!path) {
            throw refusal{reason};
        }
        const char* const linked = archive_entry_hardlink(entry);
        if (archive_entry_filetype(entry) == AE_IFDIR && linked == nullptr) {
            make_directory(entry, *path);
        } else if (path->empty()) {
            throw refusal{"it stands for the target, and is no directory"};
        } else if (linked != nullptr) {
            make_link(*path, linked);
        } else if (archive_entry_filetype(entry) == AE_IFREG) {
            make_file(entry, *path);
        } else if (archive_entry_filetype(entry) == AE_IFLNK) {
            make_symlink(entry, *path);
        } else {
            make_special(entry, *path);
        }
    } catch (const refusal& refused) {
        note(name, "left out: " + refused.reason);
    }
    return current_.has_value();
}

void extractor::note(const std::string& name, const std::string& trouble) {
    if (!trouble.empty()) {
        problems_.report(name, trouble);
    }
}

/// The directory that `path` is to be made in.
int extractor::place_for(const std::string& path) {
    const std::string parent = parent_of(path);
    if (!place_.is_open() || parent != place_path_) {
        place_ = target_.below.make_directories(parent);
        place_path_ = parent;
        if (!place_.is_open()) {
            refuse(errno);
        }
    }
    return place_.get();
}

/// `make` answers as a call of the system does. Only who has claimed a name takes away what is
/// there.
template <typename Make>
void extractor::make_claimed(const std::string& path, Make make) {
    const int place = place_for(path);
    const std::string leaf = leaf_of(path);
    if (!target_.names.claim(path)) {
        throw refusal{"the backup has another entry of that name, which came first"};
    }
    if (make(place, leaf.c_str()) >= 0) {
        return;
    }
    if (errno == EEXIST) {
        remove_for_another(place, leaf);
        if (make(place, leaf.c_str()) >= 0) {
            return;
        }
    }
    refuse(errno);
}

void extractor::make_directory(archive_entry* entry, const std::string& path) {
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    descriptor made;
    if (path.empty()) {
        made = target_.below.open_directory(path, O_RDONLY);
    } else {
        const int place = place_for(path);
        const std::string leaf = leaf_of(path);
        if (mkdirat(place, leaf.c_str(), open_to_us) != 0 && errno != EEXIST) {
            refuse(errno);
        }
        made = descriptor(openat(place, leaf.c_str(), flags));
        if (!made.is_open() && (errno == ENOTDIR || errno == ELOOP)) {
            make_claimed(
                path, [](int where, const char* name) { return mkdirat(where, name, open_to_us); });
            made = descriptor(openat(place, leaf.c_str(), flags));
        }
    }
    struct stat status = {};
    if (!made.is_open() || fstat(made.get(), &status) != 0) {
        refuse(errno);
    }
    if ((status.st_mode & open_to_us) != open_to_us) { // there before
        (void)fchmod(made.get(), open_to_us);
    }
    target_.directories.note(path, status, attributes(entry, owners_));
}

void extractor::make_file(archive_entry* entry, const std::string& path) {
    descriptor file;
    make_claimed(path, [&](int place, const char* leaf) {
        file = descriptor(
            openat(place, leaf, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, ours_alone));
        return file.get();
    });
    const auto size = static_cast<uint64_t>(std::max<int64_t>(archive_entry_size(entry), 0));
    current_.emplace(
        open_file{std::move(file), name_of(entry), size, 0, attributes(entry, owners_), false});
}

void extractor::make_link(const std::string& path, const std::string& linked_name) {
    std::string reason;
    const std::optional<std::string> linked = path_beneath(linked_name, reason);
    if (!linked || linked->empty() || !target_.names.is_claimed(*linked) || *linked == path) {
        throw refusal{fmt::format("it is a link to \"{}\", which isn't of this restore",
                                  printable(linked_name))};
    }
    const descriptor from = target_.below.open_directory(parent_of(*linked), O_PATH);
    if (!from.is_open()) {
        refuse(errno);
    }
    const std::string leaf = leaf_of(*linked);
    make_claimed(path, [&](int place, const char* name) {
        return linkat(from.get(), leaf.c_str(), place, name, 0);
    });
}

void extractor::make_symlink(archive_entry* entry, const std::string& path) {
    const char* const points_to = archive_entry_symlink(entry);
    if (points_to == nullptr) {
        throw refusal{"it is a symbolic link to nothing"};
    }
    make_claimed(path,
                 [&](int place, const char* leaf) { return symlinkat(points_to, place, leaf); });
    note(name_of(entry),
         set_link_attributes(place_.get(), leaf_of(path), attributes(entry, owners_)));
}

void extractor::make_special(archive_entry* entry, const std::string& path) {
    const mode_t type = archive_entry_filetype(entry);
    if (type != AE_IFIFO && type != AE_IFCHR && type != AE_IFBLK && type != AE_IFSOCK) {
        throw refusal{"it is of no type that can be made"};
    }
    const dev_t device = type == AE_IFCHR || type == AE_IFBLK ? archive_entry_rdev(entry) : 0;
    make_claimed(path, [&](int place, const char* leaf) {
        return mknodat(place, leaf, type | ours_alone, device);
    });
    note(name_of(entry),
         set_special_attributes(place_.get(), leaf_of(path), attributes(entry, owners_)));
}

// --- content -----------------------------------------------------------------------------------

void extractor::write(const void* bytes, size_t length, int64_t offset) {
    const auto* from = static_cast<const char*>(bytes);
    for (size_t done = 0; done < length && !current_->is_refused;) {
        const ssize_t written = pwrite(current_->file.get(), from + done, length - done,
                                       offset + static_cast<off_t>(done));
        if (written > 0) {
            done += static_cast<size_t>(written);
        } else if (written == 0 || errno != EINTR) {
            const std::string reason = strerror(written == 0 ? ENOSPC : errno);
            if (written == 0 || ends_the_restore(errno)) {
                throw failure(
                    fmt::format("writing \"{}\" failed: {}", printable(current_->name), reason));
            }
            current_->is_refused = true;
            note(current_->name,
                 fmt::format("ends at byte {}: {}", static_cast<uint64_t>(offset) + done, reason));
        }
    }
    current_->end = std::max(current_->end, static_cast<uint64_t>(offset) + length);
}

void extractor::finish() {
    open_file& made = *current_;
    if (made.end < made.size && !made.is_refused &&
        ftruncate(made.file.get(), static_cast<off_t>(made.size)) != 0) {
        note(made.name, fmt::format("ends at byte {}: {}", made.end, strerror(errno)));
    }
    note(made.name, set_attributes(made.file.get(), made.wanted));
    if (!made.file.close()) {
        throw failure(
            fmt::format("writing \"{}\" failed: {}", printable(made.name), strerror(errno)));
    }
    current_.reset();
}
