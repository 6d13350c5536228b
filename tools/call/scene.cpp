#include "tools/call/scene.h"

#include "tools/call/log.h"
#include "tools/host/allowance.h"
#include "tools/host/status_names.h"
#include "tools/terminal/console.h"
#include "tools/terminal/failure.h"
#include "tools/terminal/waiting.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace {

using kind = argument_kind;

constexpr uint64_t usual_bytes = 4096;
constexpr uint64_t usual_peers = 16;
constexpr uint64_t most_bytes = uint64_t{16} * 1024 * 1024;
constexpr uint64_t most_peers = 4096;
constexpr const char* session_id = "throttlectl-call";

} // namespace

call_scene::call_scene(const server_options& common, const entry& which, given_values given)
    : common_(common), entry_(which), description_(description_of(which)), given_(std::move(given)),
      session_(recording_session(session_id, common.log)), host_(common.plugin) {
    check_given(entry_, description_, given_);
    try {
        make_all();
        require_some_rate();
    } catch (...) {
        (void)close();
        throw;
    }
}

bool call_scene::close() noexcept {
    bool is_well = true;
    while (!closes_.empty()) {
        if (const int status = closes_.back()()) {
            is_well = false;
            console::get().line(fmt::format("throttlectl: closing behind the call of {} failed: {}",
                                            entry_.name, status_text(status)));
        }
        closes_.pop_back();
    }
    return is_well;
}

int call_scene::call() {
    {
        const waiting notice("calling " + entry_.name);
        const recording log(messages_);
        status_ = entry_.call(host_, arguments_);
    }
    for (const auto& show : shows_) {
        show();
    }
    if (entry_.name == "close_server_v7" && status_ != STS_ERR_BUSY) {
        server_->let_go();
    }
    if (entry_.name == "terminate_v7") {
        host_.let_go();
    }
    return status_;
}

void call_scene::make_all() {
    for (const argument& each : description_.arguments) {
        arguments_.push_back(make(each));
    }
}

uint64_t call_scene::make(const argument& which) {
    if (which.kind < kind::image) {
        return make_value(which);
    }
    if (which.kind < kind::server_out) {
        return make_opened(which);
    }
    return which.kind < kind::count ? make_handle_out(which) : make_shown(which);
}

/// At a rate of 0 the plugin would end the process.
void call_scene::require_some_rate() {
    if (description_.paced && allowance(server_name(), *description_.paced).is_nothing()) {
        throw failure("the settings allow 0 bytes per second for this now, and the plugin ends the "
                      "process at that rate; see \"throttlectl preview --week\"");
    }
}

bool call_scene::is_closing() const { return entry_.name.compare(0, 6, "close_") == 0; }

// --- what was given ----------------------------------------------------------------------------

const std::string* call_scene::find_value(const std::string& name) const {
    const auto found = given_.find(name);
    return found != given_.end() ? &found->second : nullptr;
}

std::string call_scene::value_of(const argument& which) const {
    if (const std::string* const value = find_value(which.name)) {
        return *value;
    }
    throw usage_failure(
        fmt::format("{} is missing, as in {}=VALUE: {}", which.name, which.name, which.text));
}

std::string call_scene::field_of(const argument& which, const char* field) const {
    const std::string* const value = find_value(which.name + "." + field);
    return value != nullptr ? *value : "";
}

uint64_t call_scene::number_field_of(const argument& which, const char* field) const {
    const std::string text = field_of(which, field);
    return text.empty() ? 0 : number_for(which.name + "." + field, "uint64_t", text);
}

/// What a number is that isn't given: 0, or what fits the buffer that it is the size of.
uint64_t call_scene::default_number(const argument& which) const {
    for (const argument& each : description_.arguments) {
        if (each.size_argument != which.name) {
            continue;
        }
        switch (each.kind) {
        case kind::in_buffer:
            return value_of(each).size();
        case kind::out_text:
            return STS_CONFIG_SIZE;
        case kind::peers:
            return usual_peers;
        default:
            return usual_bytes;
        }
    }
    return 0;
}

uint64_t call_scene::size_for(const argument& buffer) const {
    const auto which =
        std::find_if(description_.arguments.begin(), description_.arguments.end(),
                     [&](const argument& each) { return each.name == buffer.size_argument; });
    const std::string* const value = find_value(which->name);
    const uint64_t size =
        value != nullptr ? number_for(which->name, which->type, *value) : default_number(*which);
    const uint64_t most = buffer.kind == kind::in_buffer ? value_of(buffer).size()
                          : buffer.kind == kind::peers   ? most_peers
                                                         : most_bytes;
    if (size > most) {
        throw usage_failure(fmt::format("{}={} is more than {} can hold: {}", which->name, size,
                                        buffer.name, most));
    }
    return size;
}
