// The largest page that there can be, of a service whose book is full, and those who read it.

#include "tests/attack/raw_http.h"
#include "tests/service/service_process.h"
#include "tests/service/wire_client.h"
#include "tests/support/conf_dir.h"
#include "tests/support/process_state.h"
#include "tests/support/stopwatch.h"

#include "service/ledger.h"

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <list>
#include <thread>
#include <vector>

using testing::HasSubstr;

namespace {

/// A sanitizer's program needs longer for as much than a reader is given.
constexpr size_t storages = has_memory_of_its_own ? most_storages : 64;
constexpr int64_t whole_history = history_step * static_cast<int64_t>(history_points);
constexpr size_t readers_at_once = 16;

std::string row(const std::string& key, const std::string& value) {
    return "name=THR:" + key + ",description=d,type=int,value=" + value + ",fixed=n;";
}

class LargestStatus : public testing::Test {
  protected:
    const conf_dir files_;
    const std::string hurry_ = files_.path() + "/hurry";
    service_process service_{{"--lease", "100000"},
                             0,
                             {{"LD_PRELOAD", HURRIED_CLOCK_FILE},
                              {"HURRIED_CLOCK", hurry_},
                              {"HURRIED_SECONDS", std::to_string(whole_history)}}};
    const remote_session client_{service_.port()};

    /// All storages, with long names, and history as far as it goes, of long figures.
    void SetUp() override {
        ASSERT_EQ(client_.configure(row("SAMPLE_INTERVAL", "100000") +
                                    row("AVAIL_BANDWIDTH", std::string(16, '9'))),
                  0);
        for (size_t each = 0; each < storages; ++each) {
            std::string name = std::to_string(each);
            name.resize(STS_NAME_SIZE - 1, '\xff');
            ASSERT_EQ(client_.check_connections("a:" + name, 1).status, 0);
            for (const char* const direction : {"r:", "w:"}) {
                ASSERT_EQ(client_.report(direction + name, uint64_t{1} << 60, 1).status, 0);
            }
        }
        std::ofstream(hurry_).close();
        while (std::filesystem::exists(hurry_)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }

    /// Bytes that the service has, as the system tells them.
    int64_t memory(const std::string& which) const {
        const std::string status = conf_dir::read(in_proc("status"));
        return std::stoll(status.substr(status.find(which + ":") + which.size() + 1)) * 1024;
    }
    void forget_peak() const { std::ofstream(in_proc("clear_refs")) << 5; }

    std::list<raw_http> stuck_readers() const {
        std::list<raw_http> stuck;
        while (stuck.size() < readers_at_once) {
            stuck.emplace_back(service_.http_port(), "127.0.0.1", 1024)
                .send(request_for("/status"));
        }
        return stuck;
    }

  private:
    std::string in_proc(const char* file) const {
        return "/proc/" + std::to_string(service_.pid()) + "/" + file;
    }
};

/// Takes an answer as it comes, and keeps none of it. Its bytes.
size_t read_whole(const raw_http& connection) {
    size_t size = 0;
    std::string end;
    for (std::string more = connection.take(); !more.empty(); more = connection.take()) {
        size += more.size();
        end = (end + more).substr(end.size() + more.size() - std::min<size_t>(size, 7));
    }
    EXPECT_EQ(end, "\r\n0\r\n\r\n"); // it is whole
    return size;
}

TEST_F(LargestStatus, SixteenReadersAtOnceTakeLittleMemoryAndItIsGivenBack) {
    if (!has_memory_of_its_own) {
        GTEST_SKIP() << "the memory measured would be the sanitizer's";
    }
    const int64_t before = memory("VmRSS");
    forget_peak();
    std::atomic<size_t> shortest = SIZE_MAX;
    std::vector<std::thread> readers;
    while (readers.size() < readers_at_once) {
        readers.emplace_back([&] {
            const raw_http connection(service_.http_port());
            connection.send(request_for("/status"));
            shortest = std::min<size_t>(shortest, read_whole(connection));
        });
    }
    for (std::thread& each : readers) {
        each.join();
    }
    EXPECT_GT(shortest, storages * history_points * 80); // bytes, for a point of eight figures
    RecordProperty("answer_bytes", static_cast<int>(shortest));
    const int64_t peak = memory("VmHWM") - before;
    const int64_t left = memory("VmRSS") - before;
    RecordProperty("before_bytes", static_cast<int>(before));
    RecordProperty("peak_bytes", static_cast<int>(peak));
    RecordProperty("left_bytes", static_cast<int>(left));
    EXPECT_LT(peak, 64 << 20);
    EXPECT_LT(left, 16 << 20);
}

TEST_F(LargestStatus, ReadersThatTakeNothingAreCutAndHoldUpNobodyInRealTime) {
    const auto start = std::chrono::steady_clock::now();
    const auto so_far = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    const std::list<raw_http> stuck = stuck_readers();
    const auto is_over = [](const raw_http& each) { return each.is_over(); };
    while (!std::all_of(stuck.begin(), stuck.end(), is_over)) {
        ASSERT_LT(so_far(), 9);
        stuck.front().take(1); // drips
        EXPECT_LT(seconds_of([&] {
                      EXPECT_THAT(ask(service_.http_port(), request_for("/")),
                                  HasSubstr("</html>"));
                  }),
                  2 * at_once);
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    EXPECT_GT(so_far(), 4);
}

TEST_F(LargestStatus, ReadersDontHoldUpTheEndInRealTime) {
    const std::list<raw_http> stuck = stuck_readers();
    for (const raw_http& each : stuck) {
        EXPECT_FALSE(each.take(1).empty()); // it has begun, and there is much more
    }
    std::atomic<bool> is_ending = false;
    std::vector<std::thread> busy; // readers that take all they can
    while (busy.size() < readers_at_once) {
        busy.emplace_back([&] {
            const raw_http connection(service_.http_port());
            connection.send(request_for("/status"));
            while (!connection.take().empty()) {
            }
            EXPECT_TRUE(is_ending); // it had enough to read until then
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    is_ending = true;
    EXPECT_LT(seconds_of([&] { EXPECT_EQ(service_.stop(SIGTERM).code, 0); }), 5);
    for (std::thread& each : busy) {
        each.join();
    }
}

} // namespace
