// Directory trees as a backup sees them: every file of them with its name in the archive.
#pragma once

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

struct tree_entry {
    std::string name; ///< in the archive
    std::string path; ///< on disk
    mode_t mode = 0;
    uint64_t size = 0; ///< bytes of content; 0 unless it is a regular file
    dev_t device = 0;
    ino_t inode = 0;
    nlink_t links = 0;
};

/// Something of a tree that can't be read.
struct tree_problem {
    std::string path;
    std::string reason;
};

struct tree_listing {
    std::vector<tree_entry> entries; ///< a directory before what is in it; each name once
    std::vector<tree_problem> problems;
};

/// Lists the trees. Symbolic links are listed, not followed. `found` is told the number of entries
/// so far, now and then, and may throw to end it. Fails when a root isn't there.
tree_listing list_trees(const std::vector<tree_root>& roots,
                        const std::function<void(size_t entries)>& found);
