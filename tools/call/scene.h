// One call of one entry: its arguments made from what was given, everything opened before it that
// it works on, the call itself with the messages that the host receives meanwhile, what it has
// handed out, and everything closed behind it.
#pragma once

#include "tools/call/given.h"
#include "tools/call/stage.h"

#include <vector>

class call_scene {
  public:
    /// Opens whatever the call needs. Fails when that can't be had.
    call_scene(const server_options& common, const entry& which, given_values values);

    /// Makes the call, once, and returns its status.
    int call();
    /// What it has handed out, by argument.
    const ordered_json& out() const { return out_; }
    const std::vector<call_message>& messages() const { return messages_; }
    /// Closes everything again. False when something couldn't be closed well, which is said. What
    /// it has not closed is closed at the end.
    bool close() noexcept { return stage_.close(); }

  private:
    uint64_t make(const argument& which);
    void require_some_rate() const;

    const entry_description description_;
    const given_arguments given_;
    call_stage stage_;
    std::vector<uint64_t> arguments_;
    ordered_json out_ = ordered_json::object();
    std::vector<call_message> messages_;
};
