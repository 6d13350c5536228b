// Directory trees as a backup sees them: every file of them with its name in the archive.
#pragma once

#include "tools/run/files/scratch_file.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

/// A tree on disk and what its top is called in the archive.
struct tree_root {
    std::string disk;
    std::string name; ///< relative, without ".."; "." when its files stand at the archive's top
};

/// The root for a directory that a user named. An absolute path loses its "/", a relative one is
/// kept; one that leads out of the current directory is made absolute first.
tree_root root_of(const std::string& directory);

/// Whether an archive's `name` is of that tree. `below` is then its path below the top, empty for
/// the top itself.
bool is_of_tree(const tree_root& root, const std::string& name, std::string& below);
/// Where that is on disk.
std::string path_in_tree(const tree_root& root, const std::string& below);

struct tree_entry {
    std::string name; ///< in the archive
    std::string path; ///< on disk
    mode_t mode = 0;
    uint64_t size = 0; ///< bytes of content; 0 unless it is a regular file
    dev_t device = 0;
    ino_t inode = 0;
    nlink_t links = 0;
    size_t root = 0; ///< the tree that it was found in
};

/// Whether the file may have other names, as no directory has.
bool has_other_names(const tree_entry& entry);

/// What a walk through trees tells.
struct tree_visitor {
    /// An entry, valid until this returns. A directory comes before what is in it, which is sorted
    /// by name; each name comes once, though trees may overlap. May throw to end the walk.
    std::function<void(const tree_entry& entry)> found;
    /// Something that can't be read.
    std::function<void(const std::string& path, const std::string& reason)> lost;
};

enum class tree_detail { all, names }; ///< of entries other than directories

/// Symbolic links are told, not followed. Fails when a root isn't there. Of a walk's memory only
/// the names of the directories that it is in count.
void walk_trees(const std::vector<tree_root>& roots, tree_detail detail,
                const tree_visitor& visitor);

/// The entries of trees in the order in which they were found, kept in a scratch file. Device, inode
/// and links are kept of files with other names alone.
class tree_list {
  public:
    explicit tree_list(std::vector<tree_root> roots) : roots_(std::move(roots)) {}

    /// Lists what a walk finds; both functions of `visitor` are called besides.
    void fill(const tree_visitor& visitor);
    size_t size() const { return size_; }

    class reader {
      public:
        explicit reader(const tree_list& list) : list_(list), from_(list.kept_) {}
        /// The next entry, valid until the next call; null at the end.
        const tree_entry* next();

      private:
        const tree_list& list_;
        scratch_reader from_;
        tree_entry entry_;
        std::string below_;
    };

  private:
    void add(const tree_entry& entry);

    const std::vector<tree_root> roots_;
    scratch_file kept_;
    size_t size_ = 0;
    std::string name_before_;
    std::string packed_;
};
