// Paths below an open directory, resolved by the kernel so that none leads out of it: no absolute
// path, no "..", no symbolic link on the way or at the end, whoever changes the tree meanwhile.
#pragma once

#include "common/descriptor.h"

#include <optional>
#include <string>

/// An entry's name as a path below a directory: without "." and doubled or last "/"; empty for the
/// directory itself. None, with the reason, for a name that may lead out or is too long.
std::optional<std::string> path_beneath(const std::string& name, std::string& reason);

/// What is before the last "/" of such a path, and what is behind it.
std::string parent_of(const std::string& path);
std::string leaf_of(const std::string& path);

class beneath {
  public:
    /// Keeps the directory open.
    explicit beneath(descriptor top);

    int top() const { return top_.get(); }
    /// Opens a directory below by a path of `path_beneath`. Not open, with the reason in errno,
    /// when there is none; ELOOP or ENOTDIR when something on the way is no directory.
    descriptor open_directory(const std::string& path, int flags) const;
    /// The same for use as a place for others, made first, for us alone, where it isn't there.
    descriptor make_directories(const std::string& path) const;

  private:
    descriptor top_;
    const bool is_resolved_by_kernel_; ///< in one call; otherwise name by name
};
