// What the tests of the built plugin share: it is loaded as a host loads it, over the storage
// library that keeps images on disk, with a scripted service and a clock of whole seconds.
#pragma once

#include "platform/sts/sts_records.h"
#include "plugin/stsapi.h"
#include "plugin/stspi_entries.h"
#include "tests/support/conf_dir.h"
#include "tests/support/host_session.h"
#include "tests/support/loaded_plugin.h"
#include "tests/support/reply_text.h"
#include "tests/support/scripted_service.h"
#include "tests/support/virtual_clock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

using lines = std::vector<std::string>;

/// The lines one after the other.
lines join(std::initializer_list<lines> parts);

class Plugin : public testing::Test {
  protected:
    /// Started, with throttling on: 1000 bytes per second in all, reported every 30 seconds, 10
    /// connections of the storage "s3".
    Plugin();
    /// Closes what is open.
    ~Plugin() override;

    void settings(const std::string& text) { files.write_plugin_file(text); }

    throttling_server_s* open_server(const std::string& name = "CS_throttle:cloud:disk:s3");
    int close_server(throttling_server_s* server);
    /// Creates an image of the storage's LSU, to be written, or opens one to be read. The status of
    /// the last attempt is in `status`; null where it failed.
    throttling_image_s* create(throttling_server_s* server, const std::string& name = "image");
    throttling_image_s* open(throttling_server_s* server, const std::string& name = "image");
    void write(throttling_image_s* image, uint64_t length);
    void read(throttling_image_s* image, uint64_t length);
    void close(throttling_image_s* image);

    /// What the service was asked since the last time; settings(TYPE, NAME) stands for the row text
    /// of the files as that server sends it.
    lines asked(const std::string& type = "cloud", const std::string& name = "s3");
    /// What the engine's function `who` told the host's log since the last time; all that others
    /// told is gone, too.
    static lines told_by(const std::string& who);

    /// A report as the service sees it.
    static std::string report(const std::string& key, time_t start, time_t end, uint64_t bytes);

    const stspi_ep_t& entries() const { return plugin_->entries(); }

    conf_dir files;
    remote_service service;
    virtual_clock clock{1'709'546'400}; // a Monday, ten o'clock
    const time_t start = clock.now();
    sts_session_def_v7_t session = host_session("a:b");
    int status = 0;

  private:
    using open_slot = int (*)(const sts_lsu_ref_s*, const sts_image_def_s*, uint32_t,
                              throttling_image_s**);
    throttling_image_s* open_by(open_slot slot, uint32_t flags, throttling_server_s* server,
                                const std::string& name);

    std::optional<loaded_plugin> plugin_;
    std::vector<throttling_image_s*> images_;
    std::vector<throttling_server_s*> servers_;
};
