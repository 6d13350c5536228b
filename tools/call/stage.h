// What a call stands on: the plugin, the server, what is kept and opened for it, what there is to
// show when it has answered, and what is closed behind it.
#pragma once

#include "tools/call/log.h"
#include "tools/host/connection.h"
#include "tools/host/entry_list.h"
#include "tools/terminal/tables.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class call_stage {
  public:
    /// Loads the plugin.
    call_stage(const server_options& common, const entry& which);
    /// Closes what `close` has not.
    ~call_stage() { (void)close(); }
    call_stage(const call_stage&) = delete;
    call_stage& operator=(const call_stage&) = delete;

    const stspi_ep_t& entries() const { return host_.entries(); }
    const sts_session_def_v7_t& session() const { return session_; }
    /// Fails as a usage failure when none is given.
    std::string server_name() const;
    /// Opened when it is first asked for, and closed last of all.
    host_server& server();
    /// The entry closes what it is called with: that takes the handle with it.
    bool is_closing() const;

    /// Keeps a value as long as the stage stands, where the entry finds it.
    template <typename Value>
    Value* keep(Value value) {
        const auto kept = std::make_shared<Value>(std::move(value));
        kept_.push_back(kept);
        return kept.get();
    }
    /// What is done when the call has answered `status`: shows what it left, by argument.
    using shower = std::function<void(int status, ordered_json& out)>;
    void show(shower each) { shows_.push_back(std::move(each)); }
    /// What is closed behind the call, last first, and answers a status. `status` is that of the
    /// call: STS_ERR_INVALID until it has answered.
    using closer = std::function<int(int status)>;
    void close_behind(closer each) { closes_.push_back(std::move(each)); }

    /// Makes the call, once, and returns its status.
    int call(const std::vector<uint64_t>& arguments, ordered_json& out,
             std::vector<call_message>& messages);
    /// False when something couldn't be closed well, which is said.
    bool close() noexcept;

  private:
    const server_options common_;
    const entry& entry_;
    const sts_session_def_v7_t session_;
    plugin_host host_;
    std::unique_ptr<host_server> server_;
    int status_ = STS_ERR_INVALID;
    std::vector<std::shared_ptr<void>> kept_;
    std::vector<shower> shows_;
    std::vector<closer> closes_;
};
