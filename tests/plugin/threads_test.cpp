// Many threads on many images of one server. Opens and closes come one at a time, as the host sees
// to; everything else runs at once, on the samples and counts that they share. What must hold:
// nothing crashes and no byte of data goes wrong.

#include "plugin/throttling.h"

#include "tests/plugin/memory_layer.h"
#include "tests/support/conf_dir.h"

#include "client/CloudVLSLClient.h"

#include <atomic>
#include <cstring>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>
#include <vector>

namespace {

std::atomic<unsigned> exchanges{0};

/// The service's answer: other counts each time, now and then none at all, and something to wait.
int answer(std::string& out) {
    const std::string count = std::to_string(exchanges++ % 3);
    out = "THR_R_CONNECTION_COUNTS,value=" + count +
          ",fixed=y;THR_W_CONNECTION_COUNTS,value=" + count +
          ",fixed=y;THR_WAIT_SECONDS,value=2,fixed=y;";
    return 0;
}

std::atomic<long> sleeps{0};

} // namespace

/// Nobody sleeps here: the linker sends the plugin's calls of sleep to this one (--wrap).
extern "C" unsigned __wrap_sleep(unsigned) {
    ++sleeps;
    std::this_thread::yield();
    return 0;
}

/// A client that any number of threads may use at once.
namespace Orvessa::Vaultaro {

CCloudVLSLClient::CCloudVLSLClient(const sts_session_def_v7_t*, std::string, bool, unsigned long,
                                   int) {}
CCloudVLSLClient::~CCloudVLSLClient() = default;
int CCloudVLSLClient::set_config_params(const char*) { return 0; }
int CCloudVLSLClient::check_connections(const char*, const char*, int, std::string& out) {
    return answer(out);
}
int CCloudVLSLClient::check_bandwidth(const char*, const char*, ThrottlingBandwidth_var,
                                      std::string& out) {
    return answer(out);
}

} // namespace Orvessa::Vaultaro

namespace {

constexpr int thread_count = 8;
constexpr uint32_t images_per_thread = 6;
constexpr size_t block = 8192;

class Threads : public testing::Test {
  protected:
    Threads() {
        sts_api = memory_layer::table();
        config_set_path(nullptr);
    }
    ~Threads() override { sts_api = nullptr; }

    void open() {
        ASSERT_EQ(
            throttling_open_server_v7(&session, "CS_throttle:cloud:disk:s3", nullptr, 7, &server),
            0);
    }

    /// Writes and reads back images of this thread's own, and counts what goes wrong.
    void work(uint32_t thread) {
        for (uint32_t i = 0; i < images_per_thread; ++i) {
            const uint32_t number = thread * images_per_thread + i;
            throttling_image_s* const image = create_image(number);
            if (image == nullptr) {
                ++failures;
                continue;
            }
            write_all(image, number);
            read_all(image, number);
            const std::lock_guard<std::mutex> one_at_a_time(host);
            failures += throttling_close_image_v7(image, 0, 0) != 0;
        }
    }

    /// Runs the work on all threads and closes the server.
    void run() {
        std::vector<std::thread> threads;
        for (uint32_t i = 0; i < thread_count; ++i) {
            threads.emplace_back([this, i] { work(i); });
        }
        for (std::thread& each : threads) {
            each.join();
        }
        EXPECT_EQ(failures, 0);
        EXPECT_EQ(wrong_reads, 0);
        EXPECT_EQ(memory_layer::wrong_bytes(), 0);
        EXPECT_EQ(server->open_handles, 0);
        EXPECT_EQ(throttling_close_server_v7(server), 0);
        EXPECT_EQ(memory_layer::open_handles(), 0);
    }

    const conf_dir files;

  private:
    throttling_image_s* create_image(uint32_t number) {
        sts_lsu_ref_s lsu = {};
        lsu.server = server;
        strcpy(lsu.name, "lsu1");
        const auto* const image_def = reinterpret_cast<const sts_image_def_s*>(&number);
        throttling_image_s* image = nullptr;
        const std::lock_guard<std::mutex> one_at_a_time(host);
        throttling_create_image_v10(&lsu, image_def, number, &image);
        return image;
    }

    void write_all(throttling_image_s* image, uint32_t number) {
        unsigned char data[block];
        for (size_t position = 0; position < memory_layer::image_size; position += block) {
            for (size_t i = 0; i < block; ++i) {
                data[i] = memory_layer::expected_byte(number, position + i);
            }
            uint64_t moved = 0;
            failures += throttling_write_image_v7(image, 5, data, block, position, &moved) != 0;
            failures += moved != block;
        }
    }

    void read_all(throttling_image_s* image, uint32_t number) {
        unsigned char data[block];
        for (size_t position = 0; position < memory_layer::image_size; position += block) {
            uint64_t moved = 0;
            failures += throttling_read_image_v7(image, data, block, position, &moved) != 0;
            failures += moved != block;
            for (size_t i = 0; i < block; ++i) {
                wrong_reads += data[i] != memory_layer::expected_byte(number, position + i);
            }
        }
    }

    sts_session_def_v7_t session = {};
    throttling_server_s* server = nullptr;
    std::mutex host;
    std::atomic<long> failures{0};
    std::atomic<long> wrong_reads{0};
};

TEST_F(Threads, OnImagesOfOneServerMoveEveryByteRightWithThrottlingOff) {
    open();
    run();
    EXPECT_EQ(exchanges, 0U);
}

TEST_F(Threads, OnImagesOfOneServerMoveEveryByteRightWithThrottlingOn) {
    files.write_plugin_file("THR:SAMPLE_INTERVAL=1\nTHR:AVAIL_BANDWIDTH=100000\n");
    open();
    run();
    EXPECT_GT(exchanges, 0U);
    EXPECT_GT(sleeps, 0);
}

} // namespace
