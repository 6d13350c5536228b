#include "tools/run/files/description.h"

#include <cerrno>
#include <new>
#include <sys/xattr.h>

namespace {

constexpr off_t stat_block = 512; // bytes of a block as stat counts them
constexpr const char* access_list_attribute = "system.posix_acl_access";

bool may_have_holes(const struct stat& status) {
    return status.st_blocks * stat_block < status.st_size;
}

bool may_have_attributes(int file) {
    return flistxattr(file, nullptr, 0) != 0 ||
           fgetxattr(file, access_list_attribute, nullptr, 0) >= 0 ||
           (errno != ENODATA && errno != ENOTSUP);
}

/// What the library need not look for in an open file. It takes seeks to find that there is no
/// hole, and more calls than these to find that there are no attributes.
int left_out(const content_file& content, const struct stat& status) {
    return (may_have_holes(status) ? 0 : ARCHIVE_READDISK_NO_SPARSE) |
           (may_have_attributes(content.descriptor())
                ? 0
                : ARCHIVE_READDISK_NO_XATTR | ARCHIVE_READDISK_NO_ACL);
}

} // namespace

file_describer::file_describer() : disk_(archive_read_disk_new()) {
    if (disk_ == nullptr) {
        throw std::bad_alloc();
    }
    archive_read_disk_set_symlink_physical(disk_.get());
    archive_read_disk_set_standard_lookup(disk_.get());
}

bool file_describer::describe(archive_entry* entry, const std::string& path,
                              const content_file& content, const struct stat* status,
                              std::string& trouble) {
    archive_entry_copy_sourcepath(entry, path.c_str());
    archive_read_disk_set_behavior(disk_.get(),
                                   ARCHIVE_READDISK_NO_FFLAGS |
                                       (status != nullptr ? left_out(content, *status) : 0));
    const int result =
        archive_read_disk_entry_from_file(disk_.get(), entry, content.descriptor(), status);
    trouble = result == ARCHIVE_OK ? "" : archive_text(disk_.get());
    // What reading alone changes is no part of a backup.
    archive_entry_unset_atime(entry);
    archive_entry_unset_ctime(entry);
    archive_entry_unset_birthtime(entry);
    return result >= ARCHIVE_WARN;
}
