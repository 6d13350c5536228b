// One call of one entry: its arguments made from what was given, everything opened before it that
// it works on, the call itself with the messages that the host receives meanwhile, what it has
// handed out, and everything closed behind it.
#pragma once

#include "tools/call/given.h"
#include "tools/call/table.h"
#include "tools/host/records.h"
#include "tools/run/operation.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

struct call_message {
    std::string severity;
    std::string text;
};

class call_scene {
  public:
    /// Opens whatever the call needs. Fails when that can't be had.
    call_scene(const server_options& common, const entry& which, given_values given);
    /// Closes what `close` has not.
    ~call_scene() { (void)close(); }
    call_scene(const call_scene&) = delete;
    call_scene& operator=(const call_scene&) = delete;

    /// Makes the call, once, and returns its status.
    int call();
    /// What it has handed out, by argument.
    const json& out() const { return out_; }
    const std::vector<call_message>& messages() const { return messages_; }
    /// Closes everything again. False when something couldn't be closed well, which is said.
    bool close() noexcept;

  private:
    void make_all();
    uint64_t make(const argument& which);
    uint64_t make_value(const argument& which);
    uint64_t make_record(const argument& which);
    uint64_t make_opened(const argument& which);
    uint64_t make_handle_out(const argument& which);
    uint64_t make_shown(const argument& which);

    const std::string* find_value(const std::string& name) const;
    std::string value_of(const argument& which) const;
    std::string field_of(const argument& which, const char* field) const;
    uint64_t number_field_of(const argument& which, const char* field) const;
    uint64_t size_for(const argument& buffer) const;
    uint64_t default_number(const argument& which) const;

    const host_server& server();
    std::string server_name() const;
    host_image& open_image(const argument& which, bool to_write);
    template <typename Handle, typename Open, typename Close>
    uint64_t open_handle(const char* what, const std::string& object, Open open, Close ending);
    uint64_t open_image_list(const argument& which);
    uint64_t open_lsu_list();
    uint64_t open_channel(const argument& which);
    template <typename Handle, typename Close>
    uint64_t handle_out(const argument& which, Close ending);
    template <typename Record>
    uint64_t record_out(const argument& which);
    uint64_t start_copy(const argument& which);
    int end_copy(sts_next_operation_s** holder);
    void require_some_rate();

    /// Keeps a value as long as the scene, where the entry finds it.
    template <typename Value>
    Value* keep(Value value) {
        const auto kept = std::make_shared<Value>(std::move(value));
        kept_.push_back(kept);
        return kept.get();
    }

    /// An entry that closes takes the handle with it.
    bool is_closing() const;

    const server_options common_;
    const entry& entry_;
    const entry_description description_;
    const given_values given_;
    const sts_session_def_v7_t session_;
    plugin_host host_;
    std::unique_ptr<host_server> server_;
    int status_ = STS_ERR_INVALID; ///< until the call has answered
    json out_ = json::object();
    std::vector<call_message> messages_;
    std::vector<uint64_t> arguments_;
    std::vector<std::shared_ptr<void>> kept_;
    std::vector<std::function<void()>> shows_; ///< after the call
    std::vector<std::function<int()>> closes_; ///< last first; each answers a status
};
