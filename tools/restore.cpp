// Restores a backup: every stream extracts its image, below the target and nowhere else.
//
// Paths in an image are data of somebody else's. The extraction is relative to the target, which
// the process makes its current directory, and the library that extracts refuses absolute paths,
// ".." and paths that lead through a symbolic link.
//
// A directory is only made when its entry comes; its mode, owner and times are set when all streams
// are done, so that no stream's file changes them or stands before a closed door.

#include "tools/archive_stream.h"
#include "tools/backup_set.h"
#include "tools/failure.h"
#include "tools/operation.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <iterator>
#include <new>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr mode_t open_to_us = 0700;

/// Also reads the process's file mode mask, which it must change for that: not while threads run.
archive_ptr new_extractor() {
    archive_ptr disk(archive_write_disk_new());
    if (disk == nullptr) {
        throw std::bad_alloc();
    }
    int flags = ARCHIVE_EXTRACT_TIME | ARCHIVE_EXTRACT_PERM | ARCHIVE_EXTRACT_ACL |
                ARCHIVE_EXTRACT_XATTR | ARCHIVE_EXTRACT_SECURE_SYMLINKS |
                ARCHIVE_EXTRACT_SECURE_NODOTDOT | ARCHIVE_EXTRACT_SECURE_NOABSOLUTEPATHS;
    if (geteuid() == 0) {
        flags |= ARCHIVE_EXTRACT_OWNER;
    }
    archive_write_disk_set_options(disk.get(), flags);
    archive_write_disk_set_standard_lookup(disk.get());
    return disk;
}

/// Extracts entries, one after the other.
class extractor {
  public:
    explicit extractor(file_problems& problems) : disk_(new_extractor()), problems_(problems) {}

    /// Makes what the entry describes. False, and said, when that can't or mustn't be.
    bool make(archive_entry* entry) {
        const std::string name = name_of(entry);
        if (name.size() >= PATH_MAX) {
            problems_.report(name, "left out: the path is too long");
            return false;
        }
        const int result = archive_write_header(disk_.get(), entry);
        return is_good(result, name);
    }

    void content(archive_entry* entry, archive_reader& reader) {
        const void* bytes = nullptr;
        size_t length = 0;
        int64_t offset = 0;
        while (reader.data(bytes, length, offset)) {
            if (archive_write_data_block(disk_.get(), bytes, length, offset) < ARCHIVE_OK) {
                throw failure(fmt::format("writing \"{}\" failed: {}: {}", name_of(entry),
                                          archive_text(disk_.get()),
                                          strerror(archive_errno(disk_.get()))));
            }
        }
    }

    void finish_entry(archive_entry* entry) {
        is_good(archive_write_finish_entry(disk_.get()), name_of(entry));
    }

    /// Sets what had to wait until all was there.
    void close() { is_good(archive_write_close(disk_.get()), "the restored directories"); }

  private:
    bool is_good(int result, const std::string& name) {
        if (result == ARCHIVE_FATAL) {
            throw failure(
                fmt::format("restoring \"{}\" failed: {}", name, archive_text(disk_.get())));
        }
        if (result != ARCHIVE_OK) {
            problems_.report(name, (result == ARCHIVE_WARN ? "" : "left out: ") +
                                       archive_text(disk_.get()));
        }
        return result == ARCHIVE_OK || result == ARCHIVE_WARN;
    }

    archive_ptr disk_;
    file_problems& problems_;
};

/// What one stream works with.
struct share_restorer {
    explicit share_restorer(file_problems& all_problems)
        : disk(all_problems), problems(all_problems) {}

    void restore(host_image& image, stream& account, const transfer& run, uint64_t block) {
        archive_reader reader(image, account, run, block);
        std::string warning;
        while (archive_entry* const entry = reader.next(warning)) {
            run.check_may_move();
            if (!warning.empty()) {
                problems.report(name_of(entry), warning);
            }
            if (archive_entry_filetype(entry) == AE_IFDIR) {
                make_directory(entry);
            } else if (disk.make(entry)) {
                disk.content(entry, reader);
                disk.finish_entry(entry);
            }
        }
    }

    void make_directory(archive_entry* entry) {
        const entry_ptr plain(archive_entry_new());
        archive_entry_copy_pathname(plain.get(), archive_entry_pathname(entry));
        archive_entry_set_filetype(plain.get(), AE_IFDIR);
        archive_entry_set_perm(plain.get(), open_to_us);
        if (disk.make(plain.get())) {
            disk.finish_entry(plain.get());
            directories.emplace_back(archive_entry_clone(entry));
        }
    }

    extractor disk;
    file_problems& problems;
    std::vector<entry_ptr> directories; ///< as they are to be in the end
};

/// Gives the directories their own mode, owner and times, what is inside before what is around it.
void finish_directories(std::vector<std::unique_ptr<share_restorer>>& shares,
                        file_problems& problems) {
    std::vector<entry_ptr> directories;
    for (const auto& share : shares) {
        share->disk.close();
        std::move(share->directories.begin(), share->directories.end(),
                  std::back_inserter(directories));
    }
    std::sort(directories.begin(), directories.end(),
              [](const entry_ptr& left, const entry_ptr& right) {
                  return name_of(left.get()) > name_of(right.get());
              });
    extractor last(problems);
    for (const entry_ptr& directory : directories) {
        if (last.make(directory.get())) {
            last.finish_entry(directory.get());
        }
    }
    last.close();
}

/// Makes the target, or sees that it may be used.
void prepare_target(const restore_options& options) {
    std::error_code error;
    fs::create_directories(options.target, error);
    if (error) {
        throw failure(fmt::format("{} can't be made: {}", options.target, error.message()));
    }
    const bool is_empty = fs::is_empty(options.target, error);
    if (error) {
        throw failure(fmt::format("{} can't be read: {}", options.target, error.message()));
    }
    if (!is_empty && !options.force) {
        throw failure(
            fmt::format("{} isn't empty: --force restores into it all the same", options.target));
    }
}

void enter_target(const std::string& target) {
    if (chdir(target.c_str()) != 0) {
        throw failure(fmt::format("{} can't be entered: {}", target, strerror(errno)));
    }
}

} // namespace

int run_restore(const restore_options& options) {
    transfer run("restore", "what is restored so far is left as it is.");
    file_problems problems;
    const auto job = [&] {
        run.say("starting");
        const fs::path target = fs::absolute(options.target);
        connection from(options);
        from.server.require_lsu(options.lsu);
        const std::vector<listed_image> set =
            find_backup(from.server.images(options.lsu), options.lsu, options.backup);
        prepare_target(options);
        enter_target(target);

        std::vector<std::unique_ptr<share_restorer>> shares;
        for (const listed_image& each : set) {
            run.add_stream(each.name, each.size);
            shares.push_back(std::make_unique<share_restorer>(problems));
        }
        run.begin(allowance(options.server, OPERATION_READ));
        run.check_may_move();
        image_set images(run);
        images.open(from.server, options.lsu, set);
        run.run_streams([&](size_t index, stream& account) {
            shares[index]->restore(images[index], account, run, options.block);
        });
        images.close();
        run.end();
        run.say("setting the directories' modes and times");
        finish_directories(shares, problems);
        from.server.close();
    };
    return run_operation(options, run, job, [&] {
        fmt::print("The backup \"{}\" is restored in {}.\n", options.backup, options.target);
        return problems.summary();
    });
}
