// Compares a backup with trees on disk, byte for byte: what is there, of what type, with which
// mode, content and link target. Every difference is named.

#include "tools/run/archive/archive_stream.h"
#include "tools/run/backup_reading.h"
#include "tools/run/files/attributes.h"
#include "tools/run/files/beneath.h"
#include "tools/run/files/claimed_names.h"
#include "tools/run/files/content_file.h"
#include "tools/run/files/problems.h"
#include "tools/run/files/tree.h"
#include "tools/run/files/tree_finder.h"
#include "tools/run/operation.h"
#include "tools/terminal/console.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <mutex>
#include <optional>
#include <sys/stat.h>

namespace {

constexpr size_t compared_at_once = size_t{128} * 1024;
constexpr size_t most_lines = size_t{64} * 1024; // of differences in memory

/// The differences that all streams find. They are printed in order, of very many so many at a time.
class differences {
  public:
    void add(const std::string& name, const std::string& what) {
        keep(printable(name) + ": " + what);
    }
    void add_image(const std::string& image, const std::string& what) {
        keep(image_complaint(image, what));
    }
    size_t count() const { return count_; }
    void print() {
        std::sort(lines_.begin(), lines_.end());
        for (const std::string& line : lines_) {
            fmt::print("{}\n", line);
        }
        lines_.clear();
    }

  private:
    void keep(std::string line) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (lines_.size() == most_lines) {
            console::get().clear_bars();
            print();
        }
        lines_.push_back(std::move(line));
        ++count_;
    }

    std::mutex mutex_;
    std::vector<std::string> lines_;
    size_t count_ = 0;
};

/// The names that the backup has, with those of the directories that they are in.
class backup_names {
  public:
    /// May be called by several threads.
    void note(const std::string& name) {
        for (std::string each = name; !each.empty() && names_.claim(each);) {
            each = parent_of(each);
        }
    }

    void add_missing(const std::vector<tree_root>& roots, transfer& run, differences& found) const {
        entries_found looked_at(run);
        walk_trees(roots, tree_detail::names,
                   {[&](const tree_entry& entry) {
                        looked_at.add();
                        if (entry.name != "." && !names_.is_claimed(entry.name)) {
                            found.add(entry.name, "only in the tree");
                        }
                    },
                    [&](const std::string& path, const std::string& reason) {
                        found.add(path, "can't be read in the tree: " + reason);
                    }});
    }

  private:
    claimed_names names_;
};

/// Whether a file that can't be found isn't there.
bool is_absent(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == EXDEV;
}

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

/// Compares files of the tree with content that comes in pieces.
class content_comparison {
  public:
    /// Where the file first differs from `expected` (zeros when null) in the `length` bytes from
    /// `offset` on; -1 when it doesn't. Its end differs from anything.
    int64_t first_difference(const content_file& file, const char* expected, uint64_t length,
                             int64_t offset) {
        for (uint64_t done = 0; done < length;) {
            const uint64_t position = static_cast<uint64_t>(offset) + done;
            const ssize_t got = file.read(
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
    std::vector<char> buffer_ = std::vector<char>(compared_at_once);
    const std::vector<char> zeros_ = std::vector<char>(compared_at_once);
};

/// Compares what one image holds.
class share_comparison {
  public:
    share_comparison(host_image& image, stream& account, const transfer& run, uint64_t block,
                     const std::vector<tree_root>& roots, backup_names& names, differences& found)
        : image_(image.name()), reader_(image, account, run, block), run_(run), trees_(roots),
          names_(names), found_(found) {
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
            std::string reason;
            const std::optional<std::string> path = path_beneath(name, reason);
            if (path) {
                names_.note(*path);
            }
            struct stat on_disk = {};
            if (path && trees_.find(*path, on_disk)) {
                compare(name, entry, on_disk);
            } else if (!path || is_absent(errno)) {
                found_.add(name, "only in the backup");
            } else {
                found_.add(name, fmt::format("can't be read in the tree: {}", strerror(errno)));
            }
        }
    }

    void compare(const std::string& name, archive_entry* entry, const struct stat& on_disk) {
        if (const char* const target = archive_entry_hardlink(entry)) {
            compare_link(name, target, on_disk);
            return;
        }
        const mode_t type = archive_entry_filetype(entry);
        if (type != (on_disk.st_mode & S_IFMT)) {
            found_.add(name, fmt::format("{} in the backup, {} in the tree", type_name(type),
                                         type_name(on_disk.st_mode)));
            return;
        }
        const mode_t mode = shown_mode(entry);
        if (type != S_IFLNK && mode != (on_disk.st_mode & 07777U)) {
            found_.add(name, fmt::format("mode {:04o} in the backup, {:04o} in the tree", mode,
                                         on_disk.st_mode & 07777U));
        }
        if (type == S_IFLNK) {
            compare_target(name, archive_entry_symlink(entry));
        } else if (type == S_IFREG) {
            compare_content(name, static_cast<uint64_t>(archive_entry_size(entry)),
                            static_cast<uint64_t>(on_disk.st_size));
        }
    }

    void compare_link(const std::string& name, const std::string& target,
                      const struct stat& on_disk) {
        struct stat same = {};
        std::string reason;
        const std::optional<std::string> path = path_beneath(target, reason);
        if (!path || !trees_.find(*path, same) || same.st_dev != on_disk.st_dev ||
            same.st_ino != on_disk.st_ino) {
            found_.add(name, fmt::format("the same file as \"{}\" in the backup, not in the tree",
                                         printable(target)));
        }
    }

    void compare_target(const std::string& name, const char* target) {
        const std::string expected = target != nullptr ? target : "";
        const std::string actual = trees_.link_target();
        if (expected != actual) {
            found_.add(name, fmt::format("points to \"{}\" in the backup, to \"{}\" in the tree",
                                         printable(expected), printable(actual)));
        }
    }

    void compare_content(const std::string& name, uint64_t size, uint64_t size_on_disk) {
        if (size != size_on_disk) {
            found_.add(name,
                       fmt::format("{} bytes in the backup, {} in the tree", size, size_on_disk));
            return;
        }
        const content_file file = trees_.open_content();
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
    int64_t first_difference(const content_file& file, uint64_t size) {
        const void* bytes = nullptr;
        size_t length = 0;
        int64_t offset = 0;
        uint64_t compared = 0;
        while (reader_.data(bytes, length, offset)) {
            const uint64_t start = std::max(static_cast<uint64_t>(offset), compared);
            int64_t place = content_.first_difference(file, nullptr, start - compared,
                                                      static_cast<int64_t>(compared));
            if (place < 0) {
                place = content_.first_difference(file, static_cast<const char*>(bytes), length,
                                                  offset);
            }
            if (place >= 0) {
                return place;
            }
            compared = static_cast<uint64_t>(offset) + length;
        }
        return content_.first_difference(file, nullptr, size - compared,
                                         static_cast<int64_t>(compared));
    }

    const std::string image_;
    archive_reader reader_;
    const transfer& run_;
    tree_finder trees_;
    content_comparison content_;
    backup_names& names_;
    differences& found_;
};

std::vector<tree_root> compared_roots(const verify_options& options) {
    return options.restored.empty() ? roots_of(options.directories)
                                    : std::vector<tree_root>{{options.restored, "."}};
}

int print_differences(const run_options& options, differences& found) {
    found.print();
    if (found.count() == 0) {
        fmt::print("The backup \"{}\" and the trees are the same, byte for byte.\n",
                   options.backup);
        return EXIT_DONE;
    }
    fmt::print("The backup \"{}\" and the trees differ: {} {}, named above.\n", options.backup,
               found.count(), found.count() == 1 ? "difference" : "differences");
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
        const std::vector<tree_root> roots = compared_roots(options);
        const tree_finder there(roots); // or nothing needs to be read
        backup_names names;
        backup.read([&](size_t /*index*/, host_image& image, stream& account) {
            try {
                share_comparison(image, account, run, options.block, roots, names, found)
                    .compare_all();
            } catch (const archive_damage& damage) {
                found.add_image(image.name(), damage.what());
            }
        });
        run.say("looking for what only the trees have");
        names.add_missing(roots, run, found);
        backup.close();
    };
    return run_operation(options, run, job, [&] { return print_differences(options, found); });
}
