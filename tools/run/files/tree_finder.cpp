#include "tools/run/files/tree_finder.h"

#include "tools/terminal/failure.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

namespace {
constexpr int place_flags = O_PATH;
} // namespace

tree_finder::tree_finder(const std::vector<tree_root>& roots) {
    for (const tree_root& root : roots) {
        struct stat status = {};
        if (lstat(root.disk.c_str(), &status) != 0) {
            throw failure(fmt::format("{}: {}", root.disk, strerror(errno)));
        }
        descriptor opened(open(root.disk.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        trees_.push_back({root, {}});
        if (opened.is_open()) {
            trees_.back().below.emplace(std::move(opened));
        }
    }
}

bool tree_finder::find(const std::string& name, struct stat& status) {
    int reason = ENOENT;
    std::string below;
    for (const opened_tree& tree : trees_) {
        if (is_of_tree(tree.root, name.empty() ? "." : name, below)) {
            if (find_in(tree, below, status)) {
                return true;
            }
            reason = errno;
        }
    }
    errno = reason;
    return false;
}

bool tree_finder::find_in(const opened_tree& tree, const std::string& below, struct stat& status) {
    is_top_ = below.empty();
    if (is_top_) {
        leaf_ = tree.root.disk;
    } else if (!tree.below) {
        errno = ENOTDIR;
        return false;
    } else {
        std::string parent = parent_of(below);
        if (!opened_parent_.is_open() || tree_ != &tree || parent != parent_) {
            opened_parent_ = tree.below->open_directory(parent, place_flags);
            tree_ = &tree;
            parent_ = std::move(parent);
        }
        if (!opened_parent_.is_open()) {
            return false;
        }
        leaf_ = leaf_of(below);
    }
    return fstatat(place(), leaf_.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

int tree_finder::place() const { return is_top_ ? AT_FDCWD : opened_parent_.get(); }

std::string tree_finder::link_target() const {
    std::array<char, PATH_MAX> target = {};
    const ssize_t length = readlinkat(place(), leaf_.c_str(), target.data(), target.size());
    return {target.data(), length > 0 ? static_cast<size_t>(length) : 0};
}
