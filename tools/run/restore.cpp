// Restores a backup: every stream extracts its image, below the target and nowhere else
// (extraction.h). What is damaged of an image is named, and the rest is restored.

#include "tools/run/archive/archive_stream.h"
#include "tools/run/backup_reading.h"
#include "tools/run/files/extraction.h"
#include "tools/run/files/problems.h"
#include "tools/run/operation.h"
#include "tools/terminal/failure.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <memory>

namespace fs = std::filesystem;

namespace {

/// What one stream works with.
class share_restorer {
  public:
    share_restorer(extraction_target& target, file_problems& problems)
        : disk_(target, problems), problems_(problems) {}

    void restore(host_image& image, stream& account, const transfer& run, uint64_t block) {
        try {
            archive_reader reader(image, account, run, block);
            is_sealed_ = reader.is_sealed();
            restore_entries(reader, run);
            for (const std::string& each : reader.finish()) {
                problems_.report_image(image.name(), each);
            }
        } catch (const archive_damage& damage) {
            problems_.report_image(image.name(), damage.what());
        }
    }

    bool is_sealed() const { return is_sealed_; }

  private:
    void restore_entries(archive_reader& reader, const transfer& run) {
        std::string warning;
        while (archive_entry* const entry = reader.next(warning)) {
            run.check_may_move();
            const std::string name = name_of(entry);
            if (!warning.empty()) {
                problems_.report(name, warning);
            }
            if (disk_.make(entry)) {
                copy_content(reader, name);
                const std::string damage = reader.damage_of_entry();
                if (!damage.empty()) {
                    problems_.report(name, damage);
                }
                disk_.finish();
            }
        }
    }

    void copy_content(archive_reader& reader, const std::string& name) {
        const void* bytes = nullptr;
        size_t length = 0;
        int64_t offset = 0;
        try {
            while (reader.data(bytes, length, offset)) {
                disk_.write(bytes, length, offset);
            }
        } catch (const archive_damage&) {
            problems_.report(name, "its content ends early in the backup");
            throw;
        }
    }

    extractor disk_;
    file_problems& problems_;
    bool is_sealed_ = true;
};

bool is_empty(int directory, const std::string& name) {
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(
        fdopendir(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)), closedir);
    if (listing == nullptr) {
        throw failure(fmt::format("{} can't be read: {}", name, strerror(errno)));
    }
    while (const dirent* const entry = readdir(listing.get())) {
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) {
            return false;
        }
    }
    return true;
}

/// Makes the target, or sees that it may be used. All that follows goes by its descriptor.
descriptor open_target(const restore_options& options) {
    std::error_code error;
    fs::create_directories(options.target, error);
    if (error) {
        throw failure(fmt::format("{} can't be made: {}", options.target, error.message()));
    }
    descriptor target(open(options.target.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!target.is_open()) {
        throw failure(fmt::format("{} can't be opened: {}", options.target, strerror(errno)));
    }
    if (!options.force && !is_empty(target.get(), options.target)) {
        throw failure(
            fmt::format("{} isn't empty: --force restores into it all the same", options.target));
    }
    return target;
}

} // namespace

int run_restore(const restore_options& options) {
    transfer run("restore", "what is restored so far is left as it is.");
    file_problems problems;
    const auto job = [&] {
        backup_reading backup(options, run,
                              [&](const std::string& image, const std::string& reason) {
                                  problems.report_image(image, reason);
                              });
        extraction_target target(open_target(options));
        std::vector<std::unique_ptr<share_restorer>> shares;
        for (size_t index = 0; index < backup.images().size(); ++index) {
            shares.push_back(std::make_unique<share_restorer>(target, problems));
        }
        backup.read([&](size_t index, host_image& image, stream& account) {
            shares[index]->restore(image, account, run, options.block);
        });
        run.say("setting the directories' modes and times");
        target.directories.finish(target.below, problems);
        for (size_t index = 0; index < shares.size(); ++index) {
            if (!shares[index]->is_sealed()) {
                say_unsealed(backup.images()[index].name);
            }
        }
        backup.close();
    };
    return run_operation(options, run, job, [&] {
        const int code = problems.summary();
        fmt::print(code == EXIT_DONE ? "The backup \"{}\" is restored in {}.\n"
                                     : "What could be restored of the backup \"{}\" is in {}.\n",
                   options.backup, options.target);
        return code;
    });
}
