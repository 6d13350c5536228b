#include "tools/run/files/tree.h"

#include "tools/run/files/claimed_names.h"
#include "tools/terminal/failure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

struct close_directory {
    void operator()(DIR* directory) const { closedir(directory); }
};

/// The names in a directory, sorted. One of ten million takes some 250 MB.
class directory_names {
  public:
    /// False, with the reason in errno, when they can't be read.
    bool read(const std::string& path) {
        const std::unique_ptr<DIR, close_directory> directory(opendir(path.c_str()));
        if (directory == nullptr) {
            return false;
        }
        errno = 0;
        while (const dirent* const each = readdir(directory.get())) {
            if (strcmp(each->d_name, ".") != 0 && strcmp(each->d_name, "..") != 0) {
                places_.push_back(bytes_.size());
                bytes_ += static_cast<char>(each->d_type);
                bytes_.append(each->d_name, strlen(each->d_name) + 1);
            }
            errno = 0;
        }
        std::sort(places_.begin(), places_.end(), [this](size_t left, size_t right) {
            return strcmp(name(left), name(right)) < 0;
        });
        return errno == 0;
    }

    bool is_at_end() const { return next_ == places_.size(); }
    /// The next name, and its type as DT_DIR and the like.
    const char* take(unsigned char& type) {
        const size_t place = places_[next_++];
        type = static_cast<unsigned char>(bytes_[place]);
        return name(place);
    }

  private:
    const char* name(size_t place) const { return bytes_.data() + place + 1; }

    std::string bytes_; ///< of each its type, its name and a zero
    std::vector<size_t> places_;
    size_t next_ = 0;
};

/// Walks one tree after the other.
class tree_walk {
  public:
    tree_walk(const std::vector<tree_root>& roots, tree_detail detail, const tree_visitor& visitor)
        : roots_(roots), detail_(detail), visitor_(visitor) {
        for (size_t root = 1; root < roots.size(); ++root) {
            for (size_t before = 0; before < root; ++before) {
                std::string below;
                if (is_of_tree(roots[before], roots[root].name, below) ||
                    is_of_tree(roots[root], roots[before].name, below)) {
                    named_.emplace();
                    return;
                }
            }
        }
    }

    void walk() {
        for (root_ = 0; root_ < roots_.size(); ++root_) {
            entry_.root = root_;
            entry_.path = roots_[root_].disk;
            entry_.name = roots_[root_].name;
            struct stat status = {};
            if (lstat(entry_.path.c_str(), &status) != 0) {
                throw failure(fmt::format("{}: {}", entry_.path, strerror(errno)));
            }
            tell(status);
            while (!levels_.empty()) {
                go_on();
            }
        }
    }

  private:
    struct level {
        directory_names names;
        size_t path_length; ///< of the directory's, with the "/" behind it
        size_t name_length;
    };

    /// Takes the next entry of the innermost directory, or leaves that.
    void go_on() {
        level& inner = levels_.back();
        entry_.path.resize(inner.path_length);
        entry_.name.resize(inner.name_length);
        if (inner.names.is_at_end()) {
            levels_.pop_back();
            return;
        }
        unsigned char type = DT_UNKNOWN;
        const char* const leaf = inner.names.take(type);
        entry_.path += leaf;
        entry_.name += leaf;
        struct stat status = {};
        if (detail_ == tree_detail::names && type != DT_DIR && type != DT_UNKNOWN) {
            status.st_mode = static_cast<mode_t>(DTTOIF(type));
        } else if (lstat(entry_.path.c_str(), &status) != 0) {
            visitor_.lost(entry_.path, strerror(errno));
            return;
        }
        tell(status);
    }

    /// Tells the entry whose names are set, and enters it where it is a directory.
    void tell(const struct stat& status) {
        entry_.mode = status.st_mode;
        entry_.size = S_ISREG(status.st_mode) ? static_cast<uint64_t>(status.st_size) : 0;
        entry_.device = status.st_dev;
        entry_.inode = status.st_ino;
        entry_.links = status.st_nlink;
        if (!was_told()) {
            visitor_.found(entry_);
        }
        if (S_ISDIR(status.st_mode)) {
            enter();
        }
    }

    void enter() {
        directory_names names;
        if (!names.read(entry_.path)) {
            visitor_.lost(entry_.path, strerror(errno));
            return;
        }
        if (entry_.path.back() != '/') {
            entry_.path += '/';
        }
        entry_.name = entry_.name == "." ? "" : entry_.name + '/';
        levels_.push_back({std::move(names), entry_.path.size(), entry_.name.size()});
    }

    /// Whether a tree before had that name. Hashes may meet by chance: then no such tree has it.
    bool was_told() {
        if (!named_ || named_->claim(entry_.name)) {
            return false;
        }
        for (size_t before = 0; before < root_; ++before) {
            std::string below;
            struct stat status = {};
            if (is_of_tree(roots_[before], entry_.name, below) &&
                lstat(path_in_tree(roots_[before], below).c_str(), &status) == 0) {
                return true;
            }
        }
        return false;
    }

    const std::vector<tree_root>& roots_;
    const tree_detail detail_;
    const tree_visitor& visitor_;
    std::optional<claimed_names> named_; ///< where trees may overlap
    size_t root_ = 0;
    std::vector<level> levels_;
    tree_entry entry_;
};

} // namespace

tree_root root_of(const std::string& directory) {
    fs::path path = fs::path(directory).lexically_normal();
    if (!path.has_filename()) {
        path = path.parent_path(); // a "/" at the end; the root directory stays as it is
    }
    fs::path name = path;
    if (!name.empty() && *name.begin() == "..") {
        name = fs::absolute(directory).lexically_normal();
        name = name.has_filename() ? name : name.parent_path();
    }
    name = name.relative_path();
    return {path.string(), name.empty() ? "." : name.string()};
}

bool is_of_tree(const tree_root& root, const std::string& name, std::string& below) {
    const size_t length = root.name.size();
    if (name == root.name) {
        below.clear();
    } else if (root.name == ".") {
        below = name;
    } else if (name.size() > length && name[length] == '/' &&
               name.compare(0, length, root.name) == 0) {
        below = name.substr(length + 1);
    } else {
        return false;
    }
    return true;
}

std::string path_in_tree(const tree_root& root, const std::string& below) {
    if (below.empty()) {
        return root.disk;
    }
    return root.disk.back() == '/' ? root.disk + below : root.disk + '/' + below;
}

bool has_other_names(const tree_entry& entry) { return entry.links > 1 && !S_ISDIR(entry.mode); }

void walk_trees(const std::vector<tree_root>& roots, tree_detail detail,
                const tree_visitor& visitor) {
    tree_walk(roots, detail, visitor).walk();
}

// --- the list ----------------------------------------------------------------------------------

// An entry is: how many bytes its name has in common with the one before, and the rest of it; its
// tree; the mode, with a bit that says whether the file has other names; the size; and with other
// names the file's device and number and how many there are.

void tree_list::fill(const tree_visitor& visitor) {
    const tree_visitor both = {[&](const tree_entry& entry) {
                                   add(entry);
                                   visitor.found(entry);
                               },
                               visitor.lost};
    walk_trees(roots_, tree_detail::all, both);
}

void tree_list::add(const tree_entry& entry) {
    const auto [differs, rest] = std::mismatch(name_before_.begin(), name_before_.end(),
                                               entry.name.begin(), entry.name.end());
    packed_.clear();
    put_number(packed_, static_cast<uint64_t>(differs - name_before_.begin()));
    put_number(packed_, static_cast<uint64_t>(entry.name.end() - rest));
    packed_.append(rest, entry.name.end());
    put_number(packed_, entry.root);
    const bool has_others = has_other_names(entry);
    put_number(packed_, uint64_t{entry.mode} << 1 | (has_others ? 1 : 0));
    put_number(packed_, entry.size);
    if (has_others) {
        put_number(packed_, entry.device);
        put_number(packed_, entry.inode);
        put_number(packed_, entry.links);
    }
    kept_.append(packed_);
    name_before_ = entry.name;
    ++size_;
}

const tree_entry* tree_list::reader::next() {
    if (from_.is_at_end()) {
        return nullptr;
    }
    entry_.name.resize(from_.number());
    from_.add_bytes(entry_.name, from_.number());
    entry_.root = from_.number();
    const uint64_t mode = from_.number();
    entry_.mode = static_cast<mode_t>(mode >> 1);
    entry_.size = from_.number();
    const bool has_others = (mode & 1) != 0;
    entry_.device = has_others ? from_.number() : 0;
    entry_.inode = has_others ? from_.number() : 0;
    entry_.links = has_others ? from_.number() : 1;
    const tree_root& root = list_.roots_[entry_.root];
    (void)is_of_tree(root, entry_.name, below_);
    entry_.path = path_in_tree(root, below_);
    return &entry_;
}
