// Compares a backup with trees on disk, byte for byte: what is there, of what type, with which
// mode, content and link target. Every difference is named.

#include "tools/run/archive/archive_stream.h"
#include "tools/run/backup_reading.h"
#include "tools/run/files/attributes.h"
#include "tools/run/files/content_file.h"
#include "tools/run/files/problems.h"
#include "tools/run/files/tree.h"
#include "tools/run/operation.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

#include <fmt/format.h>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>

namespace {

constexpr size_t compared_at_once = size_t{128} * 1024;

/// The differences that all streams find.
class differences {
  public:
    void add(const std::string& name, const std::string& what) {
        const std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(printable(name) + ": " + what);
    }
    void add_image(const std::string& image, const std::string& what) {
        const std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(image_complaint(image, what));
    }
    std::vector<std::string> sorted() const {
        std::vector<std::string> lines = lines_;
        std::sort(lines.begin(), lines.end());
        return lines;
    }

  private:
    std::mutex mutex_;
    std::vector<std::string> lines_;
};

/// The trees by the names that their entries have in the archive.
class tree_index {
  public:
    explicit tree_index(const tree_listing& listing)
        : listing_(listing), is_in_backup_(listing.entries.size()) {
        for (size_t index = 0; index < listing.entries.size(); ++index) {
            by_name_.emplace(listing.entries[index].name, index);
        }
    }

    const tree_entry* find(const std::string& name) const {
        const auto found = by_name_.find(name);
        return found != by_name_.end() ? &listing_.entries[found->second] : nullptr;
    }

    /// Notes that the backup has it, and with it the directories that it is in. May be called by
    /// several threads.
    void note_in_backup(const std::string& name) {
        for (std::string each = name; !each.empty();) {
            if (const tree_entry* const entry = find(each)) {
                is_in_backup_[static_cast<size_t>(entry - listing_.entries.data())] = true;
            }
            const size_t slash = each.rfind('/');
            each.resize(slash != std::string::npos ? slash : 0);
        }
    }

    void add_missing(differences& found) const {
        for (size_t index = 0; index < listing_.entries.size(); ++index) {
            if (!is_in_backup_[index] && listing_.entries[index].name != ".") {
                found.add(listing_.entries[index].name, "only in the tree");
            }
        }
    }

  private:
    const tree_listing& listing_;
    std::unordered_map<std::string, size_t> by_name_;
    std::vector<std::atomic<bool>> is_in_backup_;
};

const char* type_name(mode_t mode) {
    switch (mode & S_IFMT) {
    case S_IFREG:
        return "a file";
    case S_IFDIR:
        return "a directory";
    case S_IFLNK:
        return "a symbolic link";
    case S_IFIFO:
        return "a pipe";
    case S_IFCHR:
        return "a character device";
    case S_IFBLK:
        return "a block device";
    default:
        return "of another type";
    }
}

std::string link_target(const std::string& path) {
    std::array<char, PATH_MAX> target = {};
    const ssize_t length = readlink(path.c_str(), target.data(), target.size());
    return {target.data(), length > 0 ? static_cast<size_t>(length) : 0};
}

/// A file of the tree, compared with content that comes in pieces.
class compared_file {
  public:
    explicit compared_file(const std::string& path)
        : file_(path), buffer_(compared_at_once), zeros_(compared_at_once) {}

    bool is_open() const { return file_.is_open(); }

    /// Where the file first differs from `expected` (zeros when null) in the `length` bytes from
    /// `offset` on; -1 when it doesn't. Its end differs from anything.
    int64_t first_difference(const char* expected, uint64_t length, int64_t offset) {
        for (uint64_t done = 0; done < length;) {
            const uint64_t position = static_cast<uint64_t>(offset) + done;
            const ssize_t got = file_.read(
                buffer_.data(), std::min<uint64_t>(buffer_.size(), length - done), position);
            if (got <= 0) {
                return static_cast<int64_t>(position);
            }
            const char* const wanted = expected != nullptr ? expected + done : zeros_.data();
            if (memcmp(buffer_.data(), wanted, static_cast<size_t>(got)) != 0) {
                const auto differs =
                    std::mismatch(buffer_.begin(), buffer_.begin() + got, wanted).first;
                return static_cast<int64_t>(position) + (differs - buffer_.begin());
            }
            done += static_cast<uint64_t>(got);
        }
        return -1;
    }

  private:
    const content_file file_;
    std::vector<char> buffer_;
    const std::vector<char> zeros_;
};

/// Compares what one image holds.
class share_comparison {
  public:
    share_comparison(host_image& image, stream& account, const transfer& run, uint64_t block,
                     tree_index& trees, differences& found)
        : image_(image.name()), reader_(image, account, run, block), run_(run), trees_(trees),
          found_(found) {
        if (!reader_.is_sealed()) {
            say_unsealed(image_);
        }
    }

    void compare_all() {
        compare_entries();
        for (const std::string& each : reader_.finish()) {
            found_.add_image(image_, each);
        }
    }

  private:
    void compare_entries() {
        std::string warning;
        while (archive_entry* const entry = reader_.next(warning)) {
            run_.check_may_move();
            const std::string name = name_of(entry);
            trees_.note_in_backup(name);
            if (const tree_entry* const on_disk = trees_.find(name)) {
                compare(name, entry, *on_disk);
            } else {
                found_.add(name, "only in the backup");
            }
        }
    }

    void compare(const std::string& name, archive_entry* entry, const tree_entry& on_disk) {
        if (const char* const target = archive_entry_hardlink(entry)) {
            compare_link(name, target, on_disk);
            return;
        }
        const mode_t type = archive_entry_filetype(entry);
        if (type != (on_disk.mode & S_IFMT)) {
            found_.add(name, fmt::format("{} in the backup, {} in the tree", type_name(type),
                                         type_name(on_disk.mode)));
            return;
        }
        const mode_t mode = shown_mode(entry);
        if (type != S_IFLNK && mode != (on_disk.mode & 07777U)) {
            found_.add(name, fmt::format("mode {:04o} in the backup, {:04o} in the tree", mode,
                                         on_disk.mode & 07777U));
        }
        if (type == S_IFLNK) {
            compare_target(name, archive_entry_symlink(entry), on_disk);
        } else if (type == S_IFREG) {
            compare_content(name, static_cast<uint64_t>(archive_entry_size(entry)), on_disk);
        }
    }

    void compare_link(const std::string& name, const std::string& target,
                      const tree_entry& on_disk) {
        const tree_entry* const same = trees_.find(target);
        if (same == nullptr || same->device != on_disk.device || same->inode != on_disk.inode) {
            found_.add(name, fmt::format("the same file as \"{}\" in the backup, not in the tree",
                                         printable(target)));
        }
    }

    void compare_target(const std::string& name, const char* target, const tree_entry& on_disk) {
        const std::string expected = target != nullptr ? target : "";
        const std::string actual = link_target(on_disk.path);
        if (expected != actual) {
            found_.add(name, fmt::format("points to \"{}\" in the backup, to \"{}\" in the tree",
                                         printable(expected), printable(actual)));
        }
    }

    void compare_content(const std::string& name, uint64_t size, const tree_entry& on_disk) {
        if (size != on_disk.size) {
            found_.add(name,
                       fmt::format("{} bytes in the backup, {} in the tree", size, on_disk.size));
            return;
        }
        compared_file file(on_disk.path);
        if (!file.is_open()) {
            found_.add(name, fmt::format("can't be read in the tree: {}", strerror(errno)));
            return;
        }
        const int64_t place = first_difference(file, size);
        if (place >= 0) {
            found_.add(name, fmt::format("differs at byte {}", place));
        }
    }

    /// Between the pieces of a sparse file, and behind the last, there are zeros.
    int64_t first_difference(compared_file& file, uint64_t size) {
        const void* bytes = nullptr;
        size_t length = 0;
        int64_t offset = 0;
        uint64_t compared = 0;
        while (reader_.data(bytes, length, offset)) {
            const uint64_t start = std::max(static_cast<uint64_t>(offset), compared);
            int64_t place =
                file.first_difference(nullptr, start - compared, static_cast<int64_t>(compared));
            if (place < 0) {
                place = file.first_difference(static_cast<const char*>(bytes), length, offset);
            }
            if (place >= 0) {
                return place;
            }
            compared = static_cast<uint64_t>(offset) + length;
        }
        return file.first_difference(nullptr, size - compared, static_cast<int64_t>(compared));
    }

    const std::string image_;
    archive_reader reader_;
    const transfer& run_;
    tree_index& trees_;
    differences& found_;
};

tree_listing list_all(const verify_options& options, transfer& run, differences& found) {
    std::vector<tree_root> roots;
    if (!options.restored.empty()) {
        roots.push_back({options.restored, "."});
    }
    for (const std::string& directory : options.directories) {
        roots.push_back(root_of(directory));
    }
    tree_listing listing = list_for(run, roots);
    for (const tree_problem& problem : listing.problems) {
        found.add(problem.path, "can't be read in the tree: " + problem.reason);
    }
    return listing;
}

int print_differences(const run_options& options, const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        fmt::print("{}\n", line);
    }
    if (lines.empty()) {
        fmt::print("The backup \"{}\" and the trees are the same, byte for byte.\n",
                   options.backup);
        return EXIT_DONE;
    }
    fmt::print("The backup \"{}\" and the trees differ: {} {}, named above.\n", options.backup,
               lines.size(), lines.size() == 1 ? "difference" : "differences");
    return EXIT_FAILED;
}

} // namespace

int run_verify(const verify_options& options) {
    transfer run("verify", "the comparison isn't complete.");
    differences found;
    const auto job = [&] {
        backup_reading backup(options, run,
                              [&](const std::string& image, const std::string& reason) {
                                  found.add_image(image, reason);
                              });
        const tree_listing listing = list_all(options, run, found);
        tree_index trees(listing);
        backup.read([&](size_t /*index*/, host_image& image, stream& account) {
            try {
                share_comparison(image, account, run, options.block, trees, found).compare_all();
            } catch (const archive_damage& damage) {
                found.add_image(image.name(), damage.what());
            }
        });
        trees.add_missing(found);
        backup.close();
    };
    return run_operation(options, run, job,
                         [&] { return print_differences(options, found.sorted()); });
}
