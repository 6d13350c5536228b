// Lists what a server has: its LSUs, or the images of one.

#include "tools/host/records.h"
#include "tools/host/status_names.h"
#include "tools/run/backup_set.h"
#include "tools/run/files/problems.h"
#include "tools/run/operation.h"
#include "tools/terminal/console.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/printable.h"
#include "tools/terminal/sizes.h"
#include "tools/terminal/waiting.h"

#include <fmt/format.h>
#include <map>

namespace {

/// Names the images that backups lack. False when there are any.
bool tell_missing(const std::vector<listed_image>& images, const std::string& lsu) {
    std::map<std::string, std::vector<listed_image>> backups;
    for (const listed_image& image : images) {
        backups[backup_of(image.name)].push_back(image);
    }
    backups.erase("");
    bool are_whole = true;
    for (const auto& [backup, its_images] : backups) {
        try {
            for (const std::string& each : find_backup(its_images, lsu, backup).missing) {
                are_whole = false;
                console::get().problem(image_complaint(each, "missing"));
            }
        } catch (const failure& twice) {
            are_whole = false;
            console::get().problem(twice.what());
        }
    }
    return are_whole;
}

/// False when backups lack images.
bool print_images(host_server& server, const std::string& lsu) {
    std::vector<std::vector<std::string>> lines;
    const std::vector<listed_image> images = server.images(lsu);
    for (const listed_image& image : images) {
        try {
            const int64_t created = server.image_info(lsu, image.name).created;
            lines.push_back({printable(image.name), size_text(image.size), time_text(created),
                             printable(backup_of(image.name))});
        } catch (const status_failure& error) {
            server.pass_over(error.what());
        }
    }
    if (lines.empty()) {
        fmt::print("The LSU \"{}\" has no images.\n", lsu);
    } else {
        fmt::print("{}", columns_text({"image", "size", "created", "backup"}, lines));
    }
    return tell_missing(images, lsu);
}

} // namespace

int run_list(const run_options& options) {
    const waiting notice("listing what \"" + options.server + "\" has");
    connection to(options);
    bool are_whole = true;
    if (options.lsu.empty()) {
        for (const std::string& lsu : to.server.lsus()) {
            fmt::print("{}\n", printable(lsu));
        }
    } else {
        to.server.require_lsu(options.lsu);
        are_whole = print_images(to.server, options.lsu);
    }
    const int code = ended(to.server);
    return are_whole ? code : EXIT_FAILED;
}
