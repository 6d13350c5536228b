// What the tests of a broken service share: a host that has loaded the built plugin over a next
// layer in memory, and moves data whatever becomes of the service. Each step is also an
// expectation: it answers 0, and all of its bytes arrive below.
//
// A second goes by before each transfer, so that each has a report to send.
#pragma once

#include "plugin/stsapi.h"
#include "plugin/stspi_entries.h"
#include "tests/support/conf_dir.h"
#include "tests/support/host_session.h"
#include "tests/support/loaded_plugin.h"
#include "tests/support/stopwatch.h"
#include "tests/support/virtual_clock.h"

#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using lines = std::vector<std::string>;

constexpr double time_out = 5.0;       ///< seconds that the plugin gives an exchange
constexpr double slack = 2.0;          ///< seconds that a busy machine may add to any step
constexpr size_t transfer_size = 1000; ///< bytes of each transfer

/// A throttled server, open while this lives.
class throttled_server {
  public:
    throttled_server(const loaded_plugin& plugin, const sts_session_def_v7_t& session);
    ~throttled_server();
    throttled_server(const throttled_server&) = delete;
    throttled_server& operator=(const throttled_server&) = delete;

    const stspi_ep_t& entries;
    throttling_server_s* handle = nullptr;
};

/// An image of a server, open while this lives. Images may be used on several threads, each on one.
class open_image {
  public:
    explicit open_image(const throttled_server& server, virtual_clock* clock = nullptr);
    ~open_image();
    open_image(const open_image&) = delete;
    open_image& operator=(const open_image&) = delete;

    /// Writes the next bytes of the image, from its start again once it is full, a second after
    /// what was before.
    void write();
    /// Reads all that is written, and compares.
    void read_back();

  private:
    const stspi_ep_t& entries_;
    virtual_clock* clock_;
    const uint32_t number_;
    throttling_image_s* handle_ = nullptr;
    uint64_t written_ = 0;
    std::array<unsigned char, transfer_size> data_; ///< not on the heap: that may be what fails
};

class FaultyHost : public testing::Test {
  protected:
    FaultyHost();
    /// Closes what is open while the service of the test still lives.
    void TearDown() override;

    void open_server() { server.emplace(*plugin, session); }
    void open() { image.emplace(*server, &clock); }
    /// The whole life of a backup: a server and an image, two transfers and the ends.
    void back_up();

    /// Seconds that `step` takes, told by its name.
    template <typename Step>
    static double delay_of(const std::string& name, Step step) {
        const double seconds = seconds_of(step);
        std::cout << "delay of " << name << ": " << seconds << " s\n";
        return seconds;
    }

    conf_dir files;
    virtual_clock clock{1'709'546'400};
    sts_session_def_v7_t session;
    std::optional<loaded_plugin> plugin{std::in_place, PLUGIN_FILE};
    std::optional<throttled_server> server;
    std::optional<open_image> image;
};
