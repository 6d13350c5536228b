#include "tools/run/share_archiver.h"

#include "tools/run/share_plan.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <new>
#include <optional>

namespace {

constexpr size_t read_size = size_t{128} * 1024; // bytes read from a file at once

/// Whether further names of it become links to its first one.
bool may_have_links(archive_entry* entry) {
    const mode_t type = archive_entry_filetype(entry);
    return archive_entry_nlink(entry) > 1 && type != AE_IFDIR && type != AE_IFBLK &&
           type != AE_IFCHR;
}

ino_t inode_of(archive_entry* entry) { return static_cast<ino_t>(archive_entry_ino64(entry)); }

} // namespace

share_archiver::share_archiver(host_image& image, stream& account, const transfer& run,
                               uint64_t block, kept_times times, file_problems& problems)
    : writer_(image, account, run, block, times), account_(account), run_(run), problems_(problems),
      entry_(archive_entry_new()), buffer_(read_size), zeros_(read_size) {
    if (entry_ == nullptr) {
        throw std::bad_alloc();
    }
}

void share_archiver::add(const tree_entry& found) {
    run_.check_may_move();
    const uint64_t done_behind = account_.done + cost_of(found);
    const bool has_content = S_ISREG(found.mode);
    const content_file content = has_content ? content_file(found.path) : content_file();
    if (has_content && !content.is_open()) {
        problems_.report(found.path, fmt::format("left out: {}", strerror(errno)));
    } else {
        archive(found, content);
    }
    account_.done = done_behind; // whatever has become of it
}

void share_archiver::archive(const tree_entry& found, const content_file& content) {
    archive_entry* const entry = archive_entry_clear(entry_.get());
    if (!describe(found, content)) {
        return;
    }
    link();
    std::string reason;
    const std::vector<data_range> content_ranges = ranges();
    const bool accepted = writer_.header(entry, reason);
    if (!reason.empty()) {
        problems_.report(found.path, accepted ? reason : "left out: " + reason);
    }
    if (accepted) {
        keep_name();
        copy_content(found, content, content_ranges);
        writer_.finish_entry();
    }
}

/// False when it isn't to be archived, which is said.
bool share_archiver::describe(const tree_entry& found, const content_file& content) {
    struct stat status = {};
    const bool is_known = content.is_open() && fstat(content.descriptor(), &status) == 0;
    archive_entry_copy_pathname(entry_.get(), found.name.c_str());
    std::string trouble;
    const bool is_described =
        files_.describe(entry_.get(), found.path, content, is_known ? &status : nullptr, trouble);
    if (!trouble.empty()) {
        problems_.report(found.path, trouble);
    }
    if (is_described && !content.is_open() && archive_entry_filetype(entry_.get()) == AE_IFREG) {
        problems_.report(found.path, "left out: it has become a file since it was listed");
        return false;
    }
    return is_described;
}

/// Makes the entry a link where the archive has its file under another name.
void share_archiver::link() {
    archive_entry* const entry = entry_.get();
    if (!may_have_links(entry)) {
        return;
    }
    if (const auto place = names_of_.find(archive_entry_dev(entry), inode_of(entry))) {
        archive_entry_unset_size(entry);
        archive_entry_copy_hardlink(entry, scratch_reader(names_, *place).text().c_str());
    }
}

void share_archiver::keep_name() {
    archive_entry* const entry = entry_.get();
    if (may_have_links(entry) && archive_entry_hardlink(entry) == nullptr) {
        std::string packed;
        put_text(packed, archive_entry_pathname(entry));
        names_of_.add(archive_entry_dev(entry), inode_of(entry), names_.size());
        names_.append(packed);
    }
}

/// What has to be read of the file, in order.
std::vector<share_archiver::data_range> share_archiver::ranges() const {
    const auto size = static_cast<uint64_t>(archive_entry_size(entry_.get()));
    if (archive_entry_sparse_reset(entry_.get()) == 0) {
        return {{0, size}};
    }
    std::vector<data_range> ranges;
    la_int64_t start = 0;
    la_int64_t length = 0;
    while (archive_entry_sparse_next(entry_.get(), &start, &length) == ARCHIVE_OK) {
        ranges.push_back({static_cast<uint64_t>(start), static_cast<uint64_t>(start + length)});
    }
    return ranges;
}

void share_archiver::copy_content(const tree_entry& found, const content_file& content,
                                  const std::vector<data_range>& content_ranges) {
    archive_entry* const entry = entry_.get();
    const auto size = static_cast<uint64_t>(archive_entry_size(entry));
    if (!content.is_open() || archive_entry_hardlink(entry) != nullptr) {
        return;
    }
    uint64_t position = 0;
    for (const data_range& range : content_ranges) {
        pass_hole(position, range.start);
        for (position = range.start; position < range.end;) {
            const ssize_t got = content.read(
                buffer_.data(), std::min<uint64_t>(buffer_.size(), range.end - position), position);
            if (got <= 0) {
                problems_.report(found.path,
                                 fmt::format("zeros in the backup from byte {} on: {}", position,
                                             got < 0 ? strerror(errno) : "it shrank"));
                return;
            }
            writer_.data(buffer_.data(), static_cast<size_t>(got));
            position += static_cast<uint64_t>(got);
            account_.done += static_cast<uint64_t>(got);
        }
    }
    pass_hole(position, size);
    struct stat now = {};
    if (fstat(content.descriptor(), &now) != 0 || static_cast<uint64_t>(now.st_size) != size ||
        now.st_mtim.tv_sec != archive_entry_mtime(entry) ||
        now.st_mtim.tv_nsec != archive_entry_mtime_nsec(entry)) {
        problems_.report(found.path, "changed while it was read");
    }
}

/// A hole takes no room in the archive, and nothing is read of it.
void share_archiver::pass_hole(uint64_t from, uint64_t to) {
    while (from < to) {
        const uint64_t part = std::min<uint64_t>(zeros_.size(), to - from);
        writer_.data(zeros_.data(), part);
        account_.done += part;
        from += part;
    }
}
