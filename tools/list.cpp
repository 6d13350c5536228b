// Lists what a server has: its LSUs, or the images of one.

#include "tools/backup_set.h"
#include "tools/failure.h"
#include "tools/operation.h"
#include "tools/printable.h"
#include "tools/records.h"
#include "tools/sizes.h"
#include "tools/status_names.h"
#include "tools/waiting.h"

#include <fmt/format.h>

namespace {

void print_images(host_server& server, const std::string& lsu) {
    std::vector<std::vector<std::string>> lines;
    for (const listed_image& image : server.images(lsu)) {
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
}

} // namespace

int run_list(const run_options& options) {
    const waiting notice("listing what \"" + options.server + "\" has");
    connection to(options);
    if (options.lsu.empty()) {
        for (const std::string& lsu : to.server.lsus()) {
            fmt::print("{}\n", printable(lsu));
        }
    } else {
        to.server.require_lsu(options.lsu);
        print_images(to.server, options.lsu);
    }
    return ended(to.server);
}
