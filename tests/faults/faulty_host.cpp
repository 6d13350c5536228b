#include "tests/faults/faulty_host.h"

#include "tests/plugin/memory_layer.h"
#include "tests/support/host_session.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>

/// One small object of each load of the ORB's libraries is never deleted, on purpose.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "detect_leaks=0";
}

// --- the next layer ----------------------------------------------------------------------------

namespace {

constexpr size_t image_capacity = memory_layer::image_size / transfer_size * transfer_size;

std::atomic<uint64_t> arrived{0}; // bytes
std::atomic<uint32_t> images{0};  // number of the last

int counted_write(sts_next_image_s* image, sts_forwarded_t forwarded, const void* buffer,
                  uint64_t length, uint64_t position, uint64_t* bytes_written) {
    arrived += length;
    return memory_layer::table()->write_image(image, forwarded, buffer, length, position,
                                              bytes_written);
}

} // namespace

extern "C" {

__attribute__((visibility("default"))) int stsm_init(uint64_t, const char*,
                                                     const sts_api_t** table) {
    static const sts_api_t counting = [] {
        sts_api_t all = *memory_layer::table();
        all.write_image = counted_write;
        return all;
    }();
    *table = &counting;
    return STS_OK;
}

__attribute__((visibility("default"))) int stsm_terminate() { return STS_OK; }

} // extern "C"

// --- the host ----------------------------------------------------------------------------------

throttled_server::throttled_server(const loaded_plugin& plugin, const sts_session_def_v7_t& session)
    : entries(plugin.entries()) {
    EXPECT_EQ(entries.open_server_v7(&session, "CS_throttle:cloud:disk:s3", nullptr, 0, &handle),
              STS_OK);
}

throttled_server::~throttled_server() { EXPECT_EQ(entries.close_server_v7(handle), STS_OK); }

open_image::open_image(const throttled_server& server, virtual_clock* clock)
    : entries_(server.entries), clock_(clock), number_(++images) {
    sts_lsu_ref_s lsu = {};
    lsu.server = server.handle;
    strcpy(lsu.name, "lsu");
    const auto* const definition =
        reinterpret_cast<const sts_image_def_s*>(&lsu); // nobody reads it
    EXPECT_EQ(entries_.create_image_v10(&lsu, definition, number_, &handle_), STS_OK);
}

open_image::~open_image() {
    EXPECT_EQ(entries_.close_image_v7(handle_, 0, 0), STS_OK);
    EXPECT_EQ(memory_layer::wrong_bytes(), 0);
}

void open_image::write() {
    if (clock_ != nullptr) {
        clock_->advance(1);
    }
    const uint64_t position = written_ % image_capacity;
    for (size_t i = 0; i < transfer_size; ++i) {
        data_[i] = memory_layer::expected_byte(number_, position + i);
    }
    const uint64_t before = arrived;
    uint64_t moved = 0;
    EXPECT_EQ(entries_.write_image_v7(handle_, 0, data_.data(), transfer_size, position, &moved),
              STS_OK);
    EXPECT_EQ(moved, transfer_size);
    EXPECT_GE(arrived - before, transfer_size); // other threads write, too
    written_ += transfer_size;
}

void open_image::read_back() {
    std::vector<unsigned char> data(std::min<uint64_t>(written_, image_capacity));
    uint64_t moved = 0;
    EXPECT_EQ(entries_.read_image_v7(handle_, data.data(), data.size(), 0, &moved), STS_OK);
    EXPECT_EQ(moved, data.size());
    for (size_t i = 0; i < data.size(); ++i) {
        ASSERT_EQ(data[i], memory_layer::expected_byte(number_, i)) << i;
    }
}

FaultyHost::FaultyHost() : session(host_session("a:b")) {
    files.write_plugin_file("THR:SAMPLE_INTERVAL=1\nTHR:AVAIL_BANDWIDTH=1000000000\n");
    take_log();
}

void FaultyHost::TearDown() {
    image.reset();
    server.reset();
    plugin.reset();
    EXPECT_EQ(memory_layer::open_handles(), 0);
    unsetenv("VLSL_PORT");
}

void FaultyHost::back_up() {
    open_server();
    open();
    image->write();
    image->write();
    image.reset();
    server.reset();
}
