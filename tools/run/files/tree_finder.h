// Files of trees, found by the names that they have in an archive. Whatever a name is, nothing
// outside the trees is found and no symbolic link in them is followed.
#pragma once

#include "tools/run/files/beneath.h"
#include "tools/run/files/content_file.h"
#include "tools/run/files/tree.h"

#include <cstddef>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

class tree_finder {
  public:
    /// Opens the trees. Fails when one isn't there.
    explicit tree_finder(const std::vector<tree_root>& roots);

    /// Finds the file of that name, a path of `path_beneath` ("." is the empty one), in the first
    /// tree that has it: `status` says what it is. False, with the reason in errno, when none has.
    bool find(const std::string& name, struct stat& status);
    /// Of the file that was found last.
    content_file open_content() const { return {place(), leaf_}; }
    std::string link_target() const;

  private:
    struct opened_tree {
        tree_root root;
        std::optional<beneath> below; ///< none: it is no directory
    };

    bool find_in(const opened_tree& tree, const std::string& below, struct stat& status);
    int place() const;

    std::vector<opened_tree> trees_;
    const opened_tree* tree_ = nullptr; ///< the one that has the directory `parent_`
    std::string parent_;
    descriptor opened_parent_;
    bool is_top_ = true; ///< the last one found is a tree's own, and `leaf_` its path
    std::string leaf_;
};
