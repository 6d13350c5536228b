// What the tests of the frame share: the plugin on a recording next layer, a scripted service, a
// virtual clock and settings of the test's own.
#pragma once

#include "plugin/throttling.h"

#include "tests/support/conf_dir.h"
#include "tests/support/fake_next_layer.h"
#include "tests/support/fault.h"
#include "tests/support/host_session.h"
#include "tests/support/scripted_client.h"
#include "tests/support/virtual_clock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

using lines = std::vector<std::string>;

/// Stands for a handle where a call must leave `out` alone.
template <typename Handle>
Handle* untouched() {
    static char place;
    return reinterpret_cast<Handle*>(&place);
}

/// Closes a server that a test leaves open, whatever is open on it.
struct close_at_end {
    void operator()(throttling_server_s* server) const;
    void operator()(throttling_image_s* image) const;
};
using server_ptr = std::unique_ptr<throttling_server_s, close_at_end>;
using image_ptr = std::unique_ptr<throttling_image_s, close_at_end>;

class Frame : public testing::Test {
  protected:
    Frame();
    ~Frame() override;

    /// What a test leaves open is closed on a next layer that does as it is told: what it said of
    /// calls may rest on variables that are gone.
    void TearDown() override;

    /// Settings that turn throttling on, at 1000 bytes per second in all, reported every 30
    /// seconds.
    void turn_throttling_on();

    /// Opens a server. `name` is that of a storage, "s3", on the next layer's server "disk:s3".
    server_ptr open(const std::string& name = "CS_throttle:cloud:disk:s3");
    /// The LSU "lsu1" of a server.
    static sts_lsu_ref_s lsu_of(throttling_server_s* server);
    /// Opens an image of `server` for nothing in particular.
    image_ptr open_image(const server_ptr& server);

    /// What happened since the last time, in order: "SEVERITY [FUNCTION]MESSAGE" for a log line of
    /// the frame or the engine, "-> CALL" for one of the next layer, "=> CALL" for an exchange with
    /// the service, and "sleep(SECONDS)". Lines of the settings are left out.
    static lines take_story();
    /// The same with the lines of the settings.
    static lines take_whole_story();
    /// Forgets what happened up to now.
    static void forget();

    conf_dir files;
    virtual_clock clock{local_time(2024, 3, 4, 10)}; // a Monday
    sts_session_def_v7_t session = host_session("a:b");
    const sts_image_def_s* image_def = untouched<const sts_image_def_s>();
};

/// A line of the log at error severity.
std::string error_line(const std::string& who, const std::string& message);
