// What an archive entry says of a file besides its content: owner, mode, times, access control
// lists and extended attributes; and how they are set on what was made for it.
#pragma once

#include "common/descriptor.h"
#include "tools/run/archive/archive_stream.h"

#include <ctime>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

/// The permission bits as the system shows them: where an access control list has a mask, that
/// stands for the group's. The archive keeps the owning group's own there.
mode_t shown_mode(archive_entry* entry);

/// Finds the users and groups of this system by the names in an archive.
class owner_lookup {
  public:
    owner_lookup();
    uid_t user(const char* name, int64_t number) const;
    gid_t group(const char* name, int64_t number) const;

  private:
    archive_ptr names_;
};

struct attributes {
    attributes() = default;
    attributes(archive_entry* entry, const owner_lookup& owners);

    uid_t user = 0;
    gid_t group = 0;
    mode_t mode = 0;                                        ///< permission bits
    timespec times[2] = {};                                 ///< as for utimensat
    std::vector<std::pair<std::string, std::string>> named; ///< extended, with access control lists
};

// Each sets what it can and returns what it couldn't, empty when all is well. Owners are set by
// root alone; set-user-ID and set-group-ID are set only on what has that owner.

/// On an open file or directory.
std::string set_attributes(int opened, const attributes& wanted);
/// On a pipe or device `name` in `directory`.
std::string set_special_attributes(int directory, const std::string& name,
                                   const attributes& wanted);
/// On a symbolic link `name` in `directory`, not what it points to.
std::string set_link_attributes(int directory, const std::string& name, const attributes& wanted);
