// Backs up trees: lists them, spreads the files over the streams, and lets every stream archive its
// share into an image of its own.

#include "tools/host/status_names.h"
#include "tools/run/backup_claim.h"
#include "tools/run/backup_set.h"
#include "tools/run/files/problems.h"
#include "tools/run/files/tree.h"
#include "tools/run/operation.h"
#include "tools/run/share_archiver.h"
#include "tools/run/share_plan.h"
#include "tools/terminal/console.h"
#include "tools/terminal/failure.h"

#include <algorithm>
#include <fmt/format.h>

namespace {

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

tree_list list_all(const backup_options& options, transfer& run, share_plan& plan,
                   file_problems& problems) {
    tree_list list(roots_of(options.directories));
    entries_found found(run);
    list.fill({[&](const tree_entry& entry) {
                   plan.note(entry);
                   found.add();
               },
               [&](const std::string& path, const std::string& reason) {
                   problems.report(path, "left out: " + reason);
               }});
    found.tell();
    return list;
}

/// Archives that stream's share. Empty, or why the image has no seal.
std::string archive_share(share_archiver&& archiver, const tree_list& list, const share_plan& plan,
                          size_t stream) {
    tree_list::reader entries(list);
    for (size_t number = 0; const tree_entry* const entry = entries.next(); ++number) {
        if (plan.stream_of(number) == stream) {
            archiver.add(*entry);
        }
    }
    return archiver.finish();
}

/// Moves the shares into images that are complete at the end, or gone.
void fill_images(const host_server& server, const backup_options& options, transfer& run,
                 const tree_list& list, const share_plan& plan, file_problems& problems) {
    const size_t count = plan.streams();
    const kept_times times = options.subsecond_times ? kept_times::fractions : kept_times::seconds;
    image_set images(run);
    try {
        for (size_t index = 0; index < count; ++index) {
            run.on_account(index, [&] {
                images.add(server.create_image(
                    options.lsu, stream_image(options.backup, index, count), options.backup));
            });
        }
        run.run_streams([&](size_t index, stream& account) {
            const std::string unsealed = archive_share(
                share_archiver(images[index], account, run, options.block, times, problems), list,
                plan, index);
            if (!unsealed.empty()) {
                console::get().problem(fmt::format("the image \"{}\" has no seal, and damage to it "
                                                   "won't be found: {}",
                                                   images[index].name(), unsealed));
            }
        });
        images.close();
    } catch (...) {
        for (size_t index = 0; index < images.closed(); ++index) {
            server.discard_image(options.lsu, stream_image(options.backup, index, count));
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
        share_plan plan(options.streams);
        const tree_list list = list_all(options, run, plan, problems);
        plan.spread(list);
        entries = list.size();
        for (size_t index = 0; index < plan.streams(); ++index) {
            run.add_stream(stream_image(options.backup, index, plan.streams()),
                           plan.planned(index));
        }
        run.begin(allowance(options.server, OPERATION_WRITE));
        run.check_may_move();
        fill_images(to.server, options, run, list, plan, problems);
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
