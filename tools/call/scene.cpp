#include "tools/call/scene.h"

#include "tools/call/handed_out.h"
#include "tools/call/opened.h"
#include "tools/call/values.h"
#include "tools/host/allowance.h"
#include "tools/terminal/failure.h"

#include <utility>

using kind = argument_kind;

call_scene::call_scene(const server_options& common, const entry& which, given_values values)
    : description_(description_of(which)), given_(description_, std::move(values)),
      stage_(common, which) {
    check_given(which, description_, given_.values());
    for (const argument& each : description_.arguments) {
        arguments_.push_back(make(each));
    }
    require_some_rate();
}

uint64_t call_scene::make(const argument& which) {
    if (which.kind < kind::image) {
        return make_value(which, given_, stage_);
    }
    if (which.kind < kind::server_out) {
        return make_opened(which, given_, stage_);
    }
    return which.kind < kind::count ? make_handle_out(which, stage_)
                                    : make_shown(which, given_, stage_);
}

/// At a rate of 0 the plugin would end the process.
void call_scene::require_some_rate() const {
    if (description_.paced && allowance(stage_.server_name(), *description_.paced).is_nothing()) {
        throw failure("the settings allow 0 bytes per second for this now, and the plugin ends the "
                      "process at that rate; see \"throttlectl preview --week\"");
    }
}

int call_scene::call() { return stage_.call(arguments_, out_, messages_); }
