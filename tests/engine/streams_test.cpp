// Many streams of one server, each in a thread of its own, on one virtual clock: what they move
// together is the allowed rate, whatever their number, the interval and the next layer.
//
// The clock stands still while any stream runs, and moves on to the next wake-up when all sleep. So
// the streams meet where it matters, when many of them wake to a sample that is due.

#include "client/CloudVLSLClient.h"
#include "engine/service_connector.h"

#include "tests/support/conf_dir.h"
#include "tests/support/reply_text.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>
#include <vector>

namespace {

constexpr int64_t second = 1'000'000'000; // in nanoseconds, as all times of the clock

/// A clock that a known number of threads share.
class shared_clock {
  public:
    explicit shared_clock(int streams) : awake_(streams) {}

    int64_t now() const { return now_; }

    void sleep(int64_t duration) {
        std::unique_lock<std::mutex> lock(guard_);
        const int64_t until = now_ + duration;
        wake_ups_.push_back(until);
        rest();
        moved_.wait(lock, [&] { return now_ >= until; });
    }

    /// A stream has ended: nobody waits for it.
    void leave() {
        const std::lock_guard<std::mutex> lock(guard_);
        rest();
    }

  private:
    /// One stream less is awake; the last one moves the clock.
    void rest() {
        if (--awake_ > 0 || wake_ups_.empty()) {
            return;
        }
        now_ = *std::min_element(wake_ups_.begin(), wake_ups_.end());
        const auto due = std::remove(wake_ups_.begin(), wake_ups_.end(), now_.load());
        awake_ += static_cast<int>(wake_ups_.end() - due);
        wake_ups_.erase(due, wake_ups_.end());
        moved_.notify_all();
    }

    std::mutex guard_;
    std::condition_variable moved_;
    std::vector<int64_t> wake_ups_;
    int awake_;
    std::atomic<int64_t> now_{1'700'000'000 * second};
};

shared_clock* the_clock = nullptr;

/// What was told to the service, which always answers one connection for each direction.
std::atomic<uint64_t> told{0};
std::atomic<int> wrong_keys{0};

} // namespace

// The calls of the engine, from the linker (--wrap).
extern "C" time_t __wrap_time(time_t*) { return the_clock->now() / second; }
extern "C" unsigned __wrap_sleep(unsigned seconds) {
    the_clock->sleep(seconds * second);
    return 0;
}

namespace Orvessa::Vaultaro {

CCloudVLSLClient::CCloudVLSLClient(const sts_session_def_v7_t*, std::string, bool, unsigned long,
                                   int) {}
CCloudVLSLClient::~CCloudVLSLClient() = default;
int CCloudVLSLClient::set_config_params(const char*) { return 0; }
int CCloudVLSLClient::check_connections(const char*, const char*, int, std::string& out) {
    out = reply_text(1, 1, 0, 0);
    return 0;
}
int CCloudVLSLClient::check_bandwidth(const char* key, const char*, ThrottlingBandwidth_var value,
                                      std::string& out) {
    told += value->data_length();
    wrong_keys += key[0] != (value->operation_type() == OPERATION_READ ? 'r' : 'w');
    out = reply_text(1, 1, 0, 0);
    return 0;
}

} // namespace Orvessa::Vaultaro

namespace {

struct load {
    int streams;
    int interval;     ///< seconds
    uint64_t blocks;  ///< that the allowed rate has room for in a second
    int64_t transfer; ///< what the next layer takes for a block; 0: it answers at once
};

std::string name_of(const load& each) {
    return std::to_string(each.streams) + "Of" + std::to_string(each.interval) + "Seconds" +
           std::to_string(each.blocks) + (each.transfer != 0 ? "Real" : "Instant");
}

constexpr uint64_t block = 65536;
constexpr int intervals = 10;

class Streams : public testing::TestWithParam<load> {
  protected:
    Streams() {
        config_set_path(nullptr);
        told = 0;
        wrong_keys = 0;
    }
    ~Streams() override { the_clock = nullptr; }

    /// Bytes that the streams move together in ten intervals.
    uint64_t run(const load& asked, bool connected) {
        shared_clock clock(asked.streams);
        the_clock = &clock;
        throttling_config_s config;
        config.avail_bandwidth = asked.blocks * block;
        config.sample_interval = asked.interval;
        ServiceConnector connector;
        char type[] = "cloud";
        char name[] = "s3";
        connector.connect_service(nullptr, type, name);
        connector.set_config_params(&config, 0);
        if (!connected) {
            connector.disconnect_service();
        }
        const time_t start = clock.now() / second;
        bandwidth_s sample = {OPERATION_WRITE, start, start, 0};
        const int64_t end = clock.now() + int64_t{intervals} * asked.interval * second;
        std::atomic<uint64_t> moved{0};
        std::atomic<int> at_the_line{asked.streams};
        std::vector<std::thread> threads;
        for (int each = 0; each < asked.streams; ++each) {
            threads.emplace_back([&] {
                connector.check_bandwidth(&sample, 0, 1); // the first of an image, before any byte
                --at_the_line;
                while (at_the_line > 0) {
                    std::this_thread::yield();
                }
                while (clock.now() < end) {
                    connector.check_bandwidth(&sample, 0, 0);
                    if (asked.transfer != 0) {
                        clock.sleep(asked.transfer);
                    }
                    if (clock.now() < end) {
                        moved += block;
                    }
                    sample.data_length += block;
                    all_ += block;
                }
                clock.leave();
            });
        }
        for (std::thread& each : threads) {
            each.join();
        }
        shared_clock alone(1);
        the_clock = &alone;
        connector.check_bandwidth(&sample, 0, 1); // as at the close of an image
        connector.disconnect_service();
        return moved;
    }

    /// Bytes that were counted, in time or not.
    std::atomic<uint64_t> all_{0};
};

TEST_P(Streams, KeepTheAllowedRateTogether) {
    const load asked = GetParam();
    const uint64_t moved = run(asked, true);
    const auto allowed = static_cast<double>(asked.blocks * block * intervals) * asked.interval;
    const auto forgotten = static_cast<double>(asked.streams) * block * intervals;
    EXPECT_GE(static_cast<double>(moved), 0.98 * allowed);
    EXPECT_LE(static_cast<double>(moved), 1.02 * allowed + forgotten);
    EXPECT_EQ(told, all_); // no byte is lost, and none is told twice
    EXPECT_EQ(wrong_keys, 0);
}

std::vector<load> loads() {
    std::vector<load> all;
    for (const int streams : {1, 4, 16, 64}) {
        for (const int interval : {1, 2, 7, 30, 60, 600}) {
            const uint64_t blocks = interval < 60 ? 100 : interval < 600 ? 20 : 4;
            // A next layer that alone would be four times as quick as allowed, however many share
            // it.
            const int64_t transfer = second * streams / static_cast<int64_t>(4 * blocks);
            all.push_back({streams, interval, blocks, 0});
            all.push_back({streams, interval, blocks, transfer});
        }
    }
    all.push_back({16, 1, 3000, 0}); // small blocks: what is forgotten is little
    all.push_back({64, 1, 5000, 0});
    return all;
}

INSTANTIATE_TEST_SUITE_P(Engine, Streams, testing::ValuesIn(loads()),
                         [](const auto& each) { return name_of(each.param); });

TEST_F(Streams, KeepTheRateWithoutAService) {
    const load asked = {16, 5, 1000, 0};
    const auto moved = static_cast<double>(run(asked, false));
    const double allowed = 1000.0 * block * intervals * 5;
    EXPECT_GE(moved, 0.98 * allowed);
    EXPECT_LE(moved, 1.02 * allowed + 16.0 * block * intervals);
    EXPECT_EQ(told, 0U);
}

} // namespace
