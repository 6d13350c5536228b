// Backs up trees: lists them, spreads the files over the streams, and lets every stream archive its
// share into an image of its own.

#include "tools/host/status_names.h"
#include "tools/run/archive/archive_stream.h"
#include "tools/run/backup_claim.h"
#include "tools/run/backup_set.h"
#include "tools/run/files/content_file.h"
#include "tools/run/files/description.h"
#include "tools/run/files/problems.h"
#include "tools/run/files/tree.h"
#include "tools/run/operation.h"
#include "tools/run/streams/balance.h"
#include "tools/terminal/console.h"
#include "tools/terminal/failure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <map>
#include <numeric>
#include <sys/stat.h>
#include <utility>

namespace {

constexpr uint64_t entry_cost = 1536; // bytes of a usual header, so that empty files count too
constexpr size_t read_size = size_t{128} * 1024; // bytes read from a file at once

// --- who archives what -------------------------------------------------------------------------

/// The entries of each stream, by their index in the listing, in the listing's order.
using spread_entries = std::vector<std::vector<size_t>>;

/// What is archived together: names of one file go to one stream, where the later ones are links.
struct unit {
    std::vector<size_t> entries;
    uint64_t weight = 0;
};

std::vector<unit> units_of(const std::vector<tree_entry>& entries) {
    std::vector<unit> units;
    std::map<std::pair<dev_t, ino_t>, size_t> unit_of_file;
    for (size_t index = 0; index < entries.size(); ++index) {
        const tree_entry& entry = entries[index];
        if (S_ISDIR(entry.mode)) {
            continue;
        }
        size_t where = units.size();
        if (entry.links > 1) {
            where = unit_of_file.emplace(std::pair(entry.device, entry.inode), where).first->second;
        }
        if (where == units.size()) {
            units.push_back({{}, entry.size});
        }
        units[where].entries.push_back(index);
        units[where].weight += entry_cost;
    }
    return units;
}

/// Directories all go to the first stream: their times and modes are set when everything is there.
spread_entries spread(const std::vector<tree_entry>& entries, size_t streams) {
    spread_entries all(streams);
    for (size_t index = 0; index < entries.size(); ++index) {
        if (S_ISDIR(entries[index].mode)) {
            all[0].push_back(index);
        }
    }
    const std::vector<unit> units = units_of(entries);
    std::vector<uint64_t> weights;
    weights.reserve(units.size());
    for (const unit& each : units) {
        weights.push_back(each.weight);
    }
    const std::vector<size_t> stream_of = balance(weights, streams);
    for (size_t index = 0; index < units.size(); ++index) {
        std::vector<size_t>& share = all[stream_of[index]];
        share.insert(share.end(), units[index].entries.begin(), units[index].entries.end());
    }
    for (std::vector<size_t>& share : all) {
        std::sort(share.begin(), share.end());
    }
    return all;
}

uint64_t cost_of(const tree_entry& entry) { return entry_cost + entry.size; }

// --- one stream --------------------------------------------------------------------------------

/// Archives one share.
class share_archiver {
  public:
    share_archiver(host_image& image, stream& account, const transfer& run,
                   const backup_options& options, file_problems& problems)
        : writer_(image, account, run, options.block,
                  options.subsecond_times ? kept_times::fractions : kept_times::seconds),
          account_(account), run_(run), problems_(problems), entry_(archive_entry_new()),
          links_(archive_entry_linkresolver_new()), buffer_(read_size), zeros_(read_size) {
        if (entry_ == nullptr || links_ == nullptr) {
            throw std::bad_alloc();
        }
        archive_entry_linkresolver_set_strategy(links_.get(), ARCHIVE_FORMAT_TAR_PAX_INTERCHANGE);
    }

    void add(const tree_entry& found) {
        run_.check_may_move();
        const uint64_t done_behind = account_.done + cost_of(found);
        const bool has_content = S_ISREG(found.mode);
        const content_file content = has_content ? content_file(found.path) : content_file();
        if (has_content && !content.is_open()) {
            problems_.report(found.path, fmt::format("left out: {}", strerror(errno)));
        } else {
            archive(found, content);
        }
        account_.done = done_behind; // whatever has become of it
    }

    /// Empty, or why the image has no seal.
    std::string finish() { return writer_.finish(); }

  private:
    /// A part of a file that isn't a hole.
    struct data_range {
        uint64_t start;
        uint64_t end;
    };

    struct release_links {
        void operator()(archive_entry_linkresolver* links) const {
            archive_entry_linkresolver_free(links);
        }
    };

    void archive(const tree_entry& found, const content_file& content) {
        archive_entry* const entry = archive_entry_clear(entry_.get());
        archive_entry_copy_pathname(entry, found.name.c_str());
        struct stat status = {};
        const bool is_known = content.is_open() && fstat(content.descriptor(), &status) == 0;
        std::string trouble;
        const bool is_described =
            files_.describe(entry, found.path, content, is_known ? &status : nullptr, trouble);
        if (!trouble.empty()) {
            problems_.report(found.path, trouble);
        }
        if (!is_described) {
            return;
        }
        if (!content.is_open() && archive_entry_filetype(entry) == AE_IFREG) {
            problems_.report(found.path, "left out: it has become a file since it was listed");
            return;
        }
        archive_entry* linked = entry;
        archive_entry* deferred = nullptr; // no format of ours holds entries back
        archive_entry_linkify(links_.get(), &linked, &deferred);

        std::string reason;
        const std::vector<data_range> ranges = ranges_of(linked);
        const bool accepted = writer_.header(linked, reason);
        if (!reason.empty()) {
            problems_.report(found.path, accepted ? reason : "left out: " + reason);
        }
        if (accepted) {
            copy_content(found, content, ranges, *linked);
            writer_.finish_entry();
        }
    }

    /// What has to be read of a file, in order.
    static std::vector<data_range> ranges_of(archive_entry* entry) {
        const auto size = static_cast<uint64_t>(archive_entry_size(entry));
        if (archive_entry_sparse_reset(entry) == 0) {
            return {{0, size}};
        }
        std::vector<data_range> ranges;
        la_int64_t start = 0;
        la_int64_t length = 0;
        while (archive_entry_sparse_next(entry, &start, &length) == ARCHIVE_OK) {
            ranges.push_back({static_cast<uint64_t>(start), static_cast<uint64_t>(start + length)});
        }
        return ranges;
    }

    void copy_content(const tree_entry& found, const content_file& content,
                      const std::vector<data_range>& ranges, archive_entry& entry) {
        const auto size = static_cast<uint64_t>(archive_entry_size(&entry));
        if (!content.is_open() || archive_entry_hardlink(&entry) != nullptr) {
            return;
        }
        uint64_t position = 0;
        for (const data_range& range : ranges) {
            pass_hole(position, range.start);
            for (position = range.start; position < range.end;) {
                const ssize_t got = content.read(
                    buffer_.data(), std::min<uint64_t>(buffer_.size(), range.end - position),
                    position);
                if (got <= 0) {
                    problems_.report(
                        found.path, fmt::format("zeros in the backup from byte {} on: {}", position,
                                                got < 0 ? strerror(errno) : "it shrank"));
                    return;
                }
                writer_.data(buffer_.data(), static_cast<size_t>(got));
                position += static_cast<uint64_t>(got);
                account_.done += static_cast<uint64_t>(got);
            }
        }
        pass_hole(position, size);
        struct stat now = {};
        if (fstat(content.descriptor(), &now) != 0 || static_cast<uint64_t>(now.st_size) != size ||
            now.st_mtim.tv_sec != archive_entry_mtime(&entry) ||
            now.st_mtim.tv_nsec != archive_entry_mtime_nsec(&entry)) {
            problems_.report(found.path, "changed while it was read");
        }
    }

    /// A hole takes no room in the archive, and nothing is read of it.
    void pass_hole(uint64_t from, uint64_t to) {
        while (from < to) {
            const uint64_t part = std::min<uint64_t>(zeros_.size(), to - from);
            writer_.data(zeros_.data(), part);
            account_.done += part;
            from += part;
        }
    }

    archive_writer writer_;
    stream& account_;
    const transfer& run_;
    file_problems& problems_;
    file_describer files_;
    const entry_ptr entry_; ///< the current one
    std::unique_ptr<archive_entry_linkresolver, release_links> links_;
    std::vector<char> buffer_;
    const std::vector<char> zeros_;
};

// --- the whole ---------------------------------------------------------------------------------

bool has_lsu(host_server& server, const std::string& lsu) {
    const std::vector<std::string> lsus = server.lsus();
    return std::binary_search(lsus.begin(), lsus.end(), lsu);
}

void prepare_lsu(host_server& server, const std::string& lsu) {
    if (has_lsu(server, lsu)) {
        return;
    }
    try {
        server.create_lsu(lsu);
    } catch (const status_failure&) {
        if (!has_lsu(server, lsu)) { // another backup may have been quicker
            throw;
        }
    }
}

/// The name is claimed by now: no other backup can come to have it.
void require_new(host_server& server, const backup_options& options) {
    for (const listed_image& image : server.images(options.lsu)) {
        if (backup_of(image.name) == options.backup) {
            throw failure(fmt::format("the LSU \"{}\" has a backup \"{}\" already", options.lsu,
                                      options.backup));
        }
    }
}

tree_listing list_all(const backup_options& options, transfer& run, file_problems& problems) {
    std::vector<tree_root> roots;
    for (const std::string& directory : options.directories) {
        roots.push_back(root_of(directory));
    }
    tree_listing listing = list_for(run, roots);
    for (const tree_problem& problem : listing.problems) {
        problems.report(problem.path, "left out: " + problem.reason);
    }
    return listing;
}

/// Moves the shares into images that are complete at the end, or gone.
void fill_images(const host_server& server, const backup_options& options, transfer& run,
                 const tree_listing& listing, const spread_entries& all, file_problems& problems) {
    image_set images(run);
    try {
        for (size_t index = 0; index < all.size(); ++index) {
            run.on_account(index, [&] {
                images.add(server.create_image(
                    options.lsu, stream_image(options.backup, index, all.size()), options.backup));
            });
        }
        run.run_streams([&](size_t index, stream& account) {
            share_archiver archiver(images[index], account, run, options, problems);
            for (const size_t entry : all[index]) {
                archiver.add(listing.entries[entry]);
            }
            const std::string unsealed = archiver.finish();
            if (!unsealed.empty()) {
                console::get().line(fmt::format("the image \"{}\" has no seal, and damage to it "
                                                "won't be found: {}",
                                                images[index].name(), unsealed));
            }
        });
        images.close();
    } catch (...) {
        for (size_t index = 0; index < images.closed(); ++index) {
            server.discard_image(options.lsu, stream_image(options.backup, index, all.size()));
        }
        throw;
    }
}

} // namespace

int run_backup(const backup_options& options) {
    transfer run("backup", "nothing of the backup is kept.");
    file_problems problems;
    size_t entries = 0;
    const auto job = [&] {
        run.say("starting");
        connection to(options);
        prepare_lsu(to.server, options.lsu);
        backup_claim claim(to.host, to.server, options.lsu, options.backup);
        require_new(to.server, options);
        const tree_listing listing = list_all(options, run, problems);
        entries = listing.entries.size();
        const spread_entries all = spread(listing.entries, options.streams);
        for (size_t index = 0; index < all.size(); ++index) {
            uint64_t planned = 0;
            for (const size_t entry : all[index]) {
                planned += cost_of(listing.entries[entry]);
            }
            run.add_stream(stream_image(options.backup, index, all.size()), planned);
        }
        run.begin(allowance(options.server, OPERATION_WRITE));
        run.check_may_move();
        fill_images(to.server, options, run, listing, all, problems);
        run.end();
        claim.release();
        to.server.close();
    };
    return run_operation(options, run, job, [&] {
        fmt::print("The backup \"{}\" is in the LSU \"{}\": {} entries.\n", options.backup,
                   options.lsu, entries);
        return problems.summary();
    });
}
