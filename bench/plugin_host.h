// The host's side of a measurement: loads the built plugin as a host does and opens an image
// through it, with the settings that the measurement asks for.
#pragma once

#include "plugin/stspi_entries.h"
#include "tests/support/conf_dir.h"

#include <cstdint>
#include <string>

constexpr const char* hosted_server_name = "CS_throttle:cloud:idle:bench";

/// A host that wants errors alone, as a host does in production, and drops them.
sts_session_def_v7_t quiet_session();

/// Throws std::runtime_error that names `call` unless its status is 0.
void require_ok(int status, const char* call);

/// The settings' file for a throttled server: `bytes_per_second` in both directions at every hour.
std::string throttled(uint64_t bytes_per_second, int sample_interval);

/// The entries that have no slot in the table.
struct lsu_entries {
    int (*create_lsu)(throttling_server_s*, const sts_lsu_def_s*, void*** out);
    int (*delete_lsu)(sts_lsu_ref_s*);
};

/// The plugin, loaded and started; stopped at the end. What fails throws std::runtime_error.
class plugin_host {
  public:
    plugin_host();
    ~plugin_host();
    plugin_host(const plugin_host&) = delete;
    plugin_host& operator=(const plugin_host&) = delete;

    const stspi_ep_t& ep() const { return *record_.ep; }
    const lsu_entries& lsu_ep() const { return lsu_entries_; }

    /// Puts settings in place for the servers that are opened from now on.
    void configure(const std::string& settings) const { files_.write_plugin_file(settings); }

  private:
    conf_dir files_;
    stspi_api_rec_t record_ = {};
    lsu_entries lsu_entries_ = {};
};

/// The one that a program's measurements share, loaded by the first that asks for it.
const plugin_host& the_plugin_host();

/// A server, open while this lives.
class hosted_server {
  public:
    /// Opens it under `settings`, the text of the settings' file. Borrows `host`.
    hosted_server(const plugin_host& host, const std::string& settings,
                  const sts_session_def_v7_t& session = quiet_session());
    ~hosted_server();
    hosted_server(const hosted_server&) = delete;
    hosted_server& operator=(const hosted_server&) = delete;

    const stspi_ep_t& ep() const { return ep_; }
    throttling_server_s* handle() const { return handle_; }
    /// An LSU of this server, as the entries take it.
    sts_lsu_ref_s lsu() const;

  private:
    const stspi_ep_t& ep_;
    throttling_server_s* handle_ = nullptr;
};

/// A new image, open while this lives.
class hosted_image {
  public:
    /// Borrows `server`.
    explicit hosted_image(const hosted_server& server);
    ~hosted_image();
    hosted_image(const hosted_image&) = delete;
    hosted_image& operator=(const hosted_image&) = delete;

    throttling_image_s* handle() const { return handle_; }
    int read(void* buffer, uint64_t length, uint64_t* moved) const {
        return ep_.read_image_v7(handle_, buffer, length, 0, moved);
    }
    int write(const void* buffer, uint64_t length, uint64_t* moved) const {
        return ep_.write_image_v7(handle_, 0, buffer, length, 0, moved);
    }

  private:
    const stspi_ep_t& ep_;
    throttling_image_s* handle_ = nullptr;
};
