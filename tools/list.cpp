// Lists what a server has: its LSUs, or the images of one.

#include "tools/backup_set.h"
#include "tools/failure.h"
#include "tools/operation.h"
#include "tools/records.h"
#include "tools/sizes.h"

#include <algorithm>
#include <fmt/format.h>

namespace {

void print_images(host_server& server, const std::string& lsu) {
    const std::vector<listed_image> images = server.images(lsu);
    if (images.empty()) {
        fmt::print("The LSU \"{}\" has no images.\n", lsu);
        return;
    }
    size_t width = 5;
    for (const listed_image& image : images) {
        width = std::max(width, image.name.size());
    }
    fmt::print("{:<{}} {:>12} {:<19} {}\n", "image", width, "size", "created", "backup");
    for (const listed_image& image : images) {
        fmt::print("{:<{}} {:>12} {:<19} {}\n", image.name, width,
                   size_text(static_cast<double>(image.size)),
                   time_text(server.image_info(lsu, image.name).created), backup_of(image.name));
    }
}

} // namespace

int run_list(const run_options& options) {
    connection to(options);
    if (options.lsu.empty()) {
        for (const std::string& lsu : to.server.lsus()) {
            fmt::print("{}\n", lsu);
        }
    } else {
        to.server.require_lsu(options.lsu);
        print_images(to.server, options.lsu);
    }
    to.server.close();
    return to.server.passed_over() == 0 ? EXIT_DONE : EXIT_FAILED;
}
