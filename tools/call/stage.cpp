#include "tools/call/stage.h"

#include "tools/host/status_names.h"
#include "tools/terminal/console.h"
#include "tools/terminal/waiting.h"

#include <fmt/format.h>

namespace {
constexpr const char* session_id = "throttlectl-call";
} // namespace

call_stage::call_stage(const server_options& common, const entry& which)
    : common_(common), entry_(which), session_(recording_session(session_id, common.log)),
      host_(common.plugin) {}

std::string call_stage::server_name() const {
    if (common_.server.empty()) {
        throw usage_failure(
            fmt::format("--server is required: {} is called on a server", entry_.name));
    }
    return common_.server;
}

host_server& call_stage::server() {
    if (server_ == nullptr) {
        server_ = std::make_unique<host_server>(host_, session_, server_name());
        closes_.insert(closes_.begin(), [this](int) { return server_->end(); });
    }
    return *server_;
}

bool call_stage::is_closing() const { return entry_.name.compare(0, 6, "close_") == 0; }

int call_stage::call(const std::vector<uint64_t>& arguments, ordered_json& out,
                     std::vector<call_message>& messages) {
    {
        const waiting notice("calling " + entry_.name);
        const recording log(messages);
        status_ = entry_.call(host_, arguments);
    }
    for (const shower& each : shows_) {
        each(status_, out);
    }
    if (entry_.name == "close_server_v7" && status_ != STS_ERR_BUSY) {
        server_->let_go();
    }
    if (entry_.name == "terminate_v7") {
        host_.let_go();
    }
    return status_;
}

bool call_stage::close() noexcept {
    bool is_well = true;
    while (!closes_.empty()) {
        if (const int status = closes_.back()(status_)) {
            is_well = false;
            console::get().problem(fmt::format("closing behind the call of {} failed: {}",
                                               entry_.name, status_text(status)));
        }
        closes_.pop_back();
    }
    return is_well;
}
