#include "tools/run/backup_reading.h"

#include <utility>

namespace {

/// Says it before anything is opened.
transfer& started(transfer& run) {
    run.say("starting");
    return run;
}

} // namespace

backup_reading::backup_reading(const run_options& options, transfer& run, lost_image lost)
    : options_(options), run_(started(run)), lost_(std::move(lost)), from_(options) {
    from_.server.require_lsu(options.lsu);
    set_ = find_backup(from_.server.images(options.lsu), options.lsu, options.backup);
    for (const std::string& each : set_.missing) {
        lost_(each, "missing");
    }
}

void backup_reading::read(const image_work& work) {
    for (const listed_image& each : set_.images) {
        run_.add_stream(each.name, each.size);
    }
    run_.begin(allowance(options_.server, OPERATION_READ));
    run_.check_may_move();
    image_set images(run_);
    images.open(from_.server, options_.lsu, set_.images, lost_);
    run_.run_streams([&](size_t index, stream& account) {
        if (images.is_open(index)) {
            work(index, images[index], account);
        }
    });
    images.close();
    run_.end();
}
