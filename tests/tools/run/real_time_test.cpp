// Runs that wait for real time. The clock bounds them on one side only.

#include "tests/support/conf_dir.h"
#include "tests/tools/tool_fixture.h"

#include <chrono>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <random>
#include <sys/file.h>
#include <unistd.h>

namespace fs = std::filesystem;
using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr uint64_t allowed = 400000; // bytes per second

class RealTime : public ToolTest {
  protected:
    RealTime() {
        write_settings("THR:SAMPLE_INTERVAL=60\nTHR:AVAIL_BANDWIDTH=" + std::to_string(allowed) +
                       "\n");
        fs::create_directory(path("tree"));
        for (int file = 0; file < 20; ++file) {
            write_text(path("tree/" + std::to_string(file)), std::string(100000, 'x'));
        }
    }
};

TEST_F(RealTime, ThrottledBackupIsNoFasterThanAllowedPlusOneSecondsWorth) {
    const time_t before = time(nullptr);
    const ended backup = run(
        "backup", {path("tree"), "--name", "b", "--block", "16k", "--json", path("figures.json")});
    const time_t behind = time(nullptr);
    ASSERT_EQ(backup.code, 0) << backup.err;
    const json total = json::parse(conf_dir::read(path("figures.json")))["total"];
    EXPECT_LT(total["bytes"].get<uint64_t>(), allowed * static_cast<uint64_t>(behind - before + 1));
    EXPECT_GT(total["slept_seconds"], 0);
    EXPECT_THAT(backup.err, HasSubstr("of 390.6 KiB/s")) << "no progress was shown";
}

TEST_F(RealTime, OnATerminalEachStreamHasABarThatIsRedrawnInPlace) {
    std::string line;
    for (const std::string& word :
         command("backup", {path("tree"), "--name", "b", "--streams", "2"})) {
        line += "'" + word + "' ";
    }
    const ended session =
        run_process({"/usr/bin/script", "-qec", line, path("typescript")}, how); // a terminal
    EXPECT_EQ(session.code, 0);
    const std::string shown = conf_dir::read(path("typescript"));
    EXPECT_THAT(
        shown, testing::ContainsRegex(" [0-9]+ % +[0-9.]+ .*B/s  ETA +[-0-9:]+  b.1of2 .*[#.]{5}"));
    EXPECT_THAT(
        shown, testing::ContainsRegex(" [0-9]+ % +[0-9.]+ .*B/s  ETA +[-0-9:]+  b.2of2 .*[#.]{5}"));
    EXPECT_THAT(shown, HasSubstr("\033[A\r\033[K\033[A\r\033[K\033[A\r\033[K"));
}

TEST_F(RealTime, CallThatLastsSaysSoEveryTwoSeconds) {
    ASSERT_EQ(on_server({"lsu", "create", "daily"}).code, 0);
    put_image("large", std::string(1000000, 'x'));
    const ended call =
        on_server({"call", "async_wait", "operation=daily/large", "operation.to=daily/copy",
                   "operation.bytes_per_second=300000", "forwarded=-1"});
    EXPECT_EQ(call.code, 0);
    EXPECT_THAT(call.err, HasSubstr("calling async_wait: 2 s\n"));
}

TEST_F(RealTime, InterruptedBackupAbandonsItsImages) {
    write_settings("THR:SAMPLE_INTERVAL=60\nTHR:AVAIL_BANDWIDTH=400000\n"
                   "THR:WRITE_BANDWIDTH_PERCENT=100\n");
    for (const int signal : {SIGINT, SIGTERM}) {
        tool_process backup(command("backup", {path("tree"), "--name", "b", "--streams", "2",
                                               "--json", path("figures.json")}),
                            how);
        ASSERT_TRUE(backup.await_err("of 390.6 KiB/s"));
        backup.send(signal);
        const ended result = backup.wait();
        EXPECT_EQ(result.code, 130);
        EXPECT_THAT(result.err, HasSubstr("Interrupted: nothing of the backup is kept."));
        EXPECT_EQ(json::parse(conf_dir::read(path("figures.json")))["outcome"], "interrupted");
        EXPECT_THAT(images(), IsEmpty());
    }
    write_settings("THR:SAMPLE_INTERVAL=0\n");
    EXPECT_EQ(run("backup", {path("tree"), "--name", "b"}).code, 0);
}

TEST_F(RealTime, LockThatAStrangerHoldsIsToldOfAndAnInterruptEndsTheWaitForIt) {
    ASSERT_EQ(on_server({"lsu", "create", "daily"}).code, 0);
    fs::permissions(path("store"), fs::perms(0755)); // as an earlier release made them
    fs::permissions(path("store/daily"), fs::perms(0755));
    const int held = open(path("store/daily").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    for (const int signal : {SIGINT, SIGTERM}) {
        tool_process backup(command("backup", {path("tree"), "--name", "b"}), how);
        EXPECT_TRUE(backup.await_err("storage warning: others than the owner can get into"));
        EXPECT_TRUE(backup.await_err("storage warning: waiting for another process, which holds "
                                     "the lock of " +
                                     path("store/daily") + "\n"));
        const auto start = std::chrono::steady_clock::now();
        backup.send(signal);
        const ended result = backup.wait();
        EXPECT_EQ(result.code, 130);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
        EXPECT_THAT(result.err, HasSubstr("Interrupted: nothing of the backup is kept."));
    }
    close(held);
    EXPECT_THAT(images(), IsEmpty());
}

TEST_F(RealTime, CopyThatWaitsForALockIsInterruptedAtOnce) {
    ASSERT_EQ(on_server({"lsu", "create", "daily"}).code, 0);
    put_image("image", "content");
    ASSERT_EQ(on_server({"lsu", "create", "weekly"}).code, 0);
    const int held = open(path("store/weekly").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    tool_process copy({program, "image", "copy", "image", "--lsu", "daily", "--to-lsu", "weekly",
                       "--server", server(), "--conf-dir", path("conf")},
                      how);
    ASSERT_TRUE(copy.await_err(" of 7 B"));
    const auto start = std::chrono::steady_clock::now();
    copy.send(SIGINT);
    EXPECT_EQ(copy.wait().code, 130);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    close(held);
}

TEST_F(RealTime, RateThatBecomesZeroOnTheWayIsSaidInsteadOfEndingTheProcess) {
    // A time zone in which the off window, which allows nothing, opens two seconds from now.
    constexpr long day = 86400;
    constexpr long off_begins = 18 * 3600;
    const long now = time(nullptr) % day;
    const long behind_utc = ((now + 2 - off_begins) % day + day) % day;
    how.environment["TZ"] =
        fmt::format("TEST{}:{:02}:{:02}", behind_utc / 3600, behind_utc / 60 % 60, behind_utc % 60);
    how.environment["ASAN_OPTIONS"] = "detect_leaks=0"; // the images can't even be closed
    write_settings("THR:SAMPLE_INTERVAL=60\nTHR:AVAIL_BANDWIDTH=400000\n"
                   "THR:OFF_TIME_BANDWIDTH_PERCENT=0\nTHR:WEEKEND_START=7\n");
    const ended backup =
        run("backup", {path("tree"), "--name", "b", "--streams", "2", "--block", "16k"});
    EXPECT_EQ(backup.code, 1);
    EXPECT_THAT(backup.err, HasSubstr("the settings allow 0 bytes per second for writes now"));
    how = {};
    EXPECT_THAT(images(), IsEmpty());
}

TEST_F(RealTime, InterruptDoesNotWaitForALongSleepOfThePlugin) {
    // The first block is worth an hour: the tool must come back long before that.
    write_settings("THR:SAMPLE_INTERVAL=60\nTHR:AVAIL_BANDWIDTH=100\n");
    tool_process backup(command("backup", {path("tree"), "--name", "b"}), how);
    ASSERT_TRUE(backup.await_err("of 100 B/s"));
    backup.send(SIGINT);
    EXPECT_EQ(backup.wait().code, 130); // or the test's own time is over
    EXPECT_THAT(images(), IsEmpty());
}

} // namespace
