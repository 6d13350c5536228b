#include "tools/run/files/tree.h"

#include "tools/terminal/failure.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <fts.h>
#include <memory>
#include <sys/stat.h>
#include <unordered_set>

namespace fs = std::filesystem;

namespace {

constexpr size_t entries_between_reports = 1024;

struct close_fts {
    void operator()(FTS* walk) const { fts_close(walk); }
};

int by_name(const FTSENT** left, const FTSENT** right) {
    return strcmp((*left)->fts_name, (*right)->fts_name);
}

std::string name_in_archive(const tree_root& root, const std::string& path) {
    const size_t start = path.find_first_not_of('/', root.disk.size());
    if (start == std::string::npos) {
        return root.name;
    }
    const std::string below = path.substr(start);
    return root.name == "." ? below : root.name + "/" + below;
}

tree_entry entry_of(const FTSENT& found, const std::string& name) {
    const struct stat& status = *found.fts_statp;
    tree_entry entry;
    entry.name = name;
    entry.path = found.fts_path;
    entry.mode = status.st_mode;
    entry.size = S_ISREG(status.st_mode) ? static_cast<uint64_t>(status.st_size) : 0;
    entry.device = status.st_dev;
    entry.inode = status.st_ino;
    entry.links = status.st_nlink;
    return entry;
}

/// Adds one tree to what is listed.
class tree_walk {
  public:
    tree_walk(tree_listing& listing, const std::function<void(size_t)>& found)
        : listing_(listing), found_(found) {}

    void add(const tree_root& root) {
        std::string path = root.disk;
        char* const paths[] = {path.data(), nullptr};
        const std::unique_ptr<FTS, close_fts> walk(
            fts_open(paths, FTS_PHYSICAL | FTS_NOCHDIR, by_name));
        if (walk == nullptr) {
            throw failure(fmt::format("{}: {}", root.disk, strerror(errno)));
        }
        while (const FTSENT* const found = next(walk.get(), root)) {
            take(*found, root);
        }
    }

  private:
    static FTSENT* next(FTS* walk, const tree_root& root) {
        errno = 0;
        FTSENT* const found = fts_read(walk);
        if (found == nullptr && errno != 0) {
            throw failure(fmt::format("{}: {}", root.disk, strerror(errno)));
        }
        return found;
    }

    void take(const FTSENT& found, const tree_root& root) {
        switch (found.fts_info) {
        case FTS_DP: // a directory again, after what is in it
            return;
        case FTS_NS:
        case FTS_DNR:
        case FTS_ERR:
            if (found.fts_level == FTS_ROOTLEVEL && found.fts_info == FTS_NS) {
                throw failure(fmt::format("{}: {}", root.disk, strerror(found.fts_errno)));
            }
            listing_.problems.push_back({found.fts_path, strerror(found.fts_errno)});
            return;
        case FTS_DC:
            listing_.problems.push_back({found.fts_path, "a directory that contains itself"});
            return;
        default:
            break;
        }
        const std::string name = name_in_archive(root, found.fts_path);
        if (names_.insert(name).second) {
            listing_.entries.push_back(entry_of(found, name));
        }
        if (listing_.entries.size() % entries_between_reports == 0) {
            found_(listing_.entries.size());
        }
    }

    tree_listing& listing_;
    const std::function<void(size_t)>& found_;
    std::unordered_set<std::string> names_; ///< trees may overlap
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

tree_listing list_trees(const std::vector<tree_root>& roots,
                        const std::function<void(size_t)>& found) {
    tree_listing listing;
    tree_walk walk(listing, found);
    for (const tree_root& root : roots) {
        walk.add(root);
    }
    found(listing.entries.size());
    return listing;
}
