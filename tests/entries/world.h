// Everything that an operation can be called with, good and ready: a server with two images, a list
// of each kind and an event channel on a recording next layer. A call keeps all that can be seen of
// it. In a line of the next layer each handle of its own bears the name of ours with a stroke
// (server', image'), each number the place of the host's argument (f2; u3 or i3 where it has 32
// bits).
#pragma once

#include "tests/entries/memory_meter.h"
#include "tests/entries/operations.h"
#include "tests/log/log_file.h"
#include "tests/plugin/frame.h"

#include <array>
#include <cstdlib>
#include <optional>

/// The host's argument in place `place`, from 1: all 64 bits, unlike any other.
constexpr uint64_t forwarded(size_t place) { return 0xfedcba98f6543210U + place; }

class world : public Frame {
  public:
    world();
    ~world() override;
    void TestBody() override {}

    /// Good arguments for an operation; those of a type are told apart by their place alone.
    std::vector<uint64_t> arguments_for(const operation& called);

    /// Takes away what is below: the next layer's server, channel, or that part of the name.
    void cut_off();

    /// Brings lines without a session into the story too: the log's file alone has them.
    void read_log_file();

    /// Calls with what is given; afterwards the members below tell. A next layer whose slot `slot`
    /// is called answers `status` at call number `at`, from 1.
    void call(const operation& called, const std::vector<uint64_t>& arguments,
              const std::string& slot = "", int status = 0, int at = 1,
              memory_meter::refused refused = {});

    int status = -1;
    lines story;                       ///< of the entry: its lines, calls and exchanges
    std::vector<std::string> sessions; ///< that its lines were logged with
    memory_meter::reading memory;
    int handles_added = 0; ///< to the count of the images' server

    server_ptr server;
    image_ptr image; ///< null once it is closed
    image_ptr other;
    throttling_lsu_list_s* lsu_list = nullptr;     ///< null once it is closed
    throttling_image_list_s* image_list = nullptr; ///< null once it is closed
    throttling_evchannel_s* channel = nullptr;     ///< null once it is closed
    sts_lsu_ref_s* lsu;                            ///< from malloc; null once it is given up
    std::string text;                              ///< the name or the configuration
    sts_session_def_v7_t own_session = host_session("own"); ///< of the calls that need no server
    sts_next_operation_s* holder = untouched<sts_next_operation_s>();
    void* out = untouched<void>();
    uint32_t used = 77;
    uint64_t moved = 77;
    alignas(8) std::array<char, 16384> record; ///< each filled with Z
    std::array<char, 16384> other_record;
    std::array<char, 16384> buffer;
    sts_copy_params_s params;

  protected:
    /// A good server, as those of the lines bear its names.
    server_ptr open_named();

  private:
    void watch(const next_call& call);
    void take_lines_of_file();
    void take_story();

    const int32_t* count_; ///< of the images' server
    sts_next_server_s* next_server_;
    sts_next_evchannel_s* next_channel_;
    std::optional<log_file> file_;
    size_t lines_taken_ = 0; ///< of the file
};
