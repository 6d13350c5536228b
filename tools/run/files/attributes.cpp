#include "tools/run/files/attributes.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <endian.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <new>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

constexpr mode_t set_ids = S_ISUID | S_ISGID;
constexpr mode_t permission_bits = 07777;
constexpr const char* access_list_name = "system.posix_acl_access";
constexpr const char* default_list_name = "system.posix_acl_default";

// --- access control lists ----------------------------------------------------------------------

struct acl_entry {
    uint16_t tag = 0;
    uint16_t permissions = 0;
    uint32_t number = static_cast<uint32_t>(ACL_UNDEFINED_ID);
};

/// The kernel's tag; 0 for one that it doesn't know.
uint16_t kernel_tag(int tag) {
    switch (tag) {
    case ARCHIVE_ENTRY_ACL_USER_OBJ:
        return ACL_USER_OBJ;
    case ARCHIVE_ENTRY_ACL_USER:
        return ACL_USER;
    case ARCHIVE_ENTRY_ACL_GROUP_OBJ:
        return ACL_GROUP_OBJ;
    case ARCHIVE_ENTRY_ACL_GROUP:
        return ACL_GROUP;
    case ARCHIVE_ENTRY_ACL_MASK:
        return ACL_MASK;
    case ARCHIVE_ENTRY_ACL_OTHER:
        return ACL_OTHER;
    default:
        return 0;
    }
}

/// `take` is given the tag, the permissions, the number and the name of each entry of a list.
template <typename Take>
void each_acl_entry(archive_entry* entry, int type, Take take) {
    if (archive_entry_acl_reset(entry, type) == 0) {
        return;
    }
    int found_type = 0;
    int permissions = 0;
    int tag = 0;
    int number = 0;
    const char* name = nullptr;
    while (archive_entry_acl_next(entry, type, &found_type, &permissions, &tag, &number, &name) ==
           ARCHIVE_OK) {
        take(tag, permissions, number, name);
    }
}

void append(std::string& text, const void* bytes, size_t length) {
    text.append(static_cast<const char*>(bytes), length);
}

/// The list as the kernel takes it; empty where the entry has none.
std::string acl_value(archive_entry* entry, int type, const owner_lookup& owners) {
    std::vector<acl_entry> list;
    each_acl_entry(entry, type, [&](int tag, int permissions, int number, const char* name) {
        acl_entry each;
        each.tag = kernel_tag(tag);
        each.permissions = static_cast<uint16_t>(permissions & 7);
        if (each.tag == ACL_USER) {
            each.number = owners.user(name, number);
        } else if (each.tag == ACL_GROUP) {
            each.number = owners.group(name, number);
        }
        if (each.tag != 0) {
            list.push_back(each);
        }
    });
    if (list.empty()) {
        return {};
    }
    std::sort(list.begin(), list.end(), [](const acl_entry& left, const acl_entry& right) {
        return std::pair(left.tag, left.number) < std::pair(right.tag, right.number);
    });
    const posix_acl_xattr_header header = {htole32(POSIX_ACL_XATTR_VERSION)};
    std::string value(reinterpret_cast<const char*>(&header), sizeof header);
    for (const acl_entry& each : list) {
        const posix_acl_xattr_entry packed = {htole16(each.tag), htole16(each.permissions),
                                              htole32(each.number)};
        append(value, &packed, sizeof packed);
    }
    return value;
}

// --- taking them -------------------------------------------------------------------------------

std::vector<std::pair<std::string, std::string>> named_of(archive_entry* entry,
                                                          const owner_lookup& owners) {
    std::vector<std::pair<std::string, std::string>> all;
    archive_entry_xattr_reset(entry);
    const char* name = nullptr;
    const void* value = nullptr;
    size_t length = 0;
    while (archive_entry_xattr_next(entry, &name, &value, &length) == ARCHIVE_OK) {
        const std::string text = name != nullptr ? name : "";
        if (text != access_list_name && text != default_list_name) {
            all.emplace_back(text, std::string(static_cast<const char*>(value), length));
        }
    }
    for (const auto& [type, acl_name] :
         {std::pair(ARCHIVE_ENTRY_ACL_TYPE_ACCESS, access_list_name),
          std::pair(ARCHIVE_ENTRY_ACL_TYPE_DEFAULT, default_list_name)}) {
        std::string list = acl_value(entry, type, owners);
        if (!list.empty()) {
            all.emplace_back(acl_name, std::move(list));
        }
    }
    return all;
}

timespec access_time(archive_entry* entry) {
    return archive_entry_atime_is_set(entry) != 0
               ? timespec{archive_entry_atime(entry), archive_entry_atime_nsec(entry)}
               : timespec{0, UTIME_NOW};
}

timespec change_time(archive_entry* entry) {
    return archive_entry_mtime_is_set(entry) != 0
               ? timespec{archive_entry_mtime(entry), archive_entry_mtime_nsec(entry)}
               : timespec{0, UTIME_OMIT};
}

// --- setting them ------------------------------------------------------------------------------

/// What couldn't be set, by and by.
class troubles {
  public:
    void note(bool good, const std::string& what) {
        if (!good) {
            text_ += fmt::format("{}its {} can't be set: {}", text_.empty() ? "" : "; ", what,
                                 strerror(errno));
        }
    }
    std::string text() && { return std::move(text_); }

  private:
    std::string text_;
};

bool sets_owners() {
    static const bool is_root = geteuid() == 0;
    return is_root;
}

/// The wanted mode without the bits that only fit the wanted owner, on a file of another.
mode_t mode_for(const struct stat& made, const attributes& wanted) {
    mode_t mode = wanted.mode;
    if (made.st_uid != wanted.user) {
        mode &= ~mode_t{S_ISUID};
    }
    if (made.st_gid != wanted.group) {
        mode &= ~mode_t{S_ISGID};
    }
    return mode;
}

} // namespace

mode_t shown_mode(archive_entry* entry) {
    mode_t mode = archive_entry_perm(entry);
    each_acl_entry(entry, ARCHIVE_ENTRY_ACL_TYPE_ACCESS,
                   [&](int tag, int permissions, int /*number*/, const char* /*name*/) {
                       if (tag == ARCHIVE_ENTRY_ACL_MASK) {
                           mode = (mode & ~mode_t{S_IRWXG}) |
                                  static_cast<mode_t>((permissions & 7) << 3);
                       }
                   });
    return mode & permission_bits;
}

owner_lookup::owner_lookup() : names_(archive_write_disk_new()) {
    if (names_ == nullptr) {
        throw std::bad_alloc();
    }
    archive_write_disk_set_standard_lookup(names_.get());
}

uid_t owner_lookup::user(const char* name, int64_t number) const {
    return static_cast<uid_t>(archive_write_disk_uid(names_.get(), name, number));
}

gid_t owner_lookup::group(const char* name, int64_t number) const {
    return static_cast<gid_t>(archive_write_disk_gid(names_.get(), name, number));
}

attributes::attributes(archive_entry* entry, const owner_lookup& owners)
    : user(owners.user(archive_entry_uname(entry), archive_entry_uid(entry))),
      group(owners.group(archive_entry_gname(entry), archive_entry_gid(entry))),
      mode(shown_mode(entry)), times{access_time(entry), change_time(entry)},
      named(named_of(entry, owners)) {}

std::string set_attributes(int opened, const attributes& wanted) {
    troubles found;
    if (sets_owners()) {
        found.note(fchown(opened, wanted.user, wanted.group) == 0, "owner");
    }
    for (const auto& [name, value] : wanted.named) { // a change of owner takes capabilities away
        found.note(fsetxattr(opened, name.c_str(), value.data(), value.size(), 0) == 0,
                   "attribute " + name);
    }
    mode_t mode = wanted.mode;
    struct stat made = {};
    if ((mode & set_ids) != 0) {
        mode = fstat(opened, &made) == 0 ? mode_for(made, wanted) : mode & ~set_ids;
    }
    found.note(fchmod(opened, mode) == 0, "mode");
    found.note(futimens(opened, wanted.times) == 0, "times");
    return std::move(found).text();
}

std::string set_special_attributes(int directory, const std::string& name,
                                   const attributes& wanted) {
    troubles found;
    const char* const at = name.c_str();
    if (sets_owners()) {
        found.note(fchownat(directory, at, wanted.user, wanted.group, AT_SYMLINK_NOFOLLOW) == 0,
                   "owner");
    }
    // Neither can be opened without doing something to it, so its mode is set by what stands for
    // it.
    const descriptor made(openat(directory, at, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status = {};
    const bool is_special = fstat(made.get(), &status) == 0 && !S_ISREG(status.st_mode) &&
                            !S_ISDIR(status.st_mode) && !S_ISLNK(status.st_mode);
    const std::string itself = fmt::format("/proc/self/fd/{}", made.get());
    found.note(is_special && chmod(itself.c_str(), mode_for(status, wanted)) == 0, "mode");
    found.note(utimensat(directory, at, wanted.times, AT_SYMLINK_NOFOLLOW) == 0, "times");
    return std::move(found).text();
}

std::string set_link_attributes(int directory, const std::string& name, const attributes& wanted) {
    troubles found;
    const char* const at = name.c_str();
    if (sets_owners()) {
        found.note(fchownat(directory, at, wanted.user, wanted.group, AT_SYMLINK_NOFOLLOW) == 0,
                   "owner");
    }
    const std::string path = fmt::format("/proc/self/fd/{}/{}", directory, name);
    for (const auto& [attribute, value] : wanted.named) {
        found.note(lsetxattr(path.c_str(), attribute.c_str(), value.data(), value.size(), 0) == 0,
                   "attribute " + attribute);
    }
    found.note(utimensat(directory, at, wanted.times, AT_SYMLINK_NOFOLLOW) == 0, "times");
    return std::move(found).text();
}
