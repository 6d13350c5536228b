// Opening and closing of the daily file.

#include "plugin/throttling_log.h"

#include "tests/log/log_file.h"
#include "tests/support/fault.h"
#include "tests/support/host_session.h"
#include "tests/support/virtual_clock.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class LogLifecycle : public testing::Test {
  protected:
    LogLifecycle() { take_log(); }

    log_file file;
    virtual_clock clock{local_time(2024, 3, 5, 23, 59, 59)};
    sts_session_def_v7_t session = host_session("s");
};

TEST_F(LogLifecycle, OpensTheDatedFileForAppendingAndReading) {
    fault::watch_calls();
    EXPECT_EQ(log_init(1), 0);
    EXPECT_THAT(fault::take_calls(),
                ElementsAre("fopen " THROTTLING_LOG_ROOT "/vlcssc/throttlinglog_20240305 a+"));
    EXPECT_THAT(file.names(), ElementsAre("throttlinglog_20240305"));
}

TEST_F(LogLifecycle, LogRootIsTheProductsUnlessTheBuildNamesAnother) {
    const std::string expected = "/usr/opvault/vaultaro/logs";
    if (THROTTLING_LOG_ROOT != expected) {
        GTEST_SKIP() << "built with a log root of its own";
    }
    ASSERT_EQ(log_init(1), 0);
    EXPECT_EQ(fault::last_opened(), "/usr/opvault/vaultaro/logs/vlcssc/throttlinglog_20240305");
}

TEST_F(LogLifecycle, MonthAndDayArePaddedToTwoDigits) {
    const struct {
        int year, month, day;
        const char* name;
    } cases[] = {
        {2024, 1, 2, "throttlinglog_20240102"},    {2024, 9, 9, "throttlinglog_20240909"},
        {2024, 10, 10, "throttlinglog_20241010"},  {2023, 12, 31, "throttlinglog_20231231"},
        {2024, 2, 29, "throttlinglog_20240229"},   {10000, 1, 2, "throttlinglog_100000102"},
        {100000, 1, 2, "throttlinglog_100000010"}, // cut to nine characters
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        log_file fresh;
        clock.set(local_time(each.year, each.month, each.day));
        ASSERT_EQ(log_init(1), 0);
        EXPECT_THAT(fresh.names(), ElementsAre(each.name));
    }
}

TEST_F(LogLifecycle, DateIsLocal) {
    setenv("TZ", "LOCAL-1", 1); // an hour ahead: it is the next day there
    tzset();
    EXPECT_EQ(log_init(1), 0);
    setenv("TZ", "UTC", 1);
    tzset();
    EXPECT_THAT(file.names(), ElementsAre("throttlinglog_20240306"));
}

TEST_F(LogLifecycle, LevelZeroOpensNothing) {
    fault::watch_calls();
    EXPECT_EQ(log_init(0), 0);
    EXPECT_EQ(log_msg(nullptr, "f", 1, STS_SEV_INFO, "m"), 0);
    EXPECT_THAT(fault::take_calls(), IsEmpty());
    EXPECT_THAT(file.names(), IsEmpty());
}

TEST_F(LogLifecycle, NegativeLevelOpensTheFileAsAnyOtherButZero) {
    EXPECT_EQ(log_init(-1), 0);
    EXPECT_THAT(file.names(), ElementsAre("throttlinglog_20240305"));
}

TEST_F(LogLifecycle, DirectoryIsNotMade) {
    std::filesystem::remove(file.directory());
    EXPECT_EQ(log_init(5), 2060018);
    EXPECT_FALSE(std::filesystem::exists(file.directory()));
    EXPECT_EQ(log_msg(&session, "f", 1, STS_SEV_ERROR, "m"), 0);
    EXPECT_THAT(take_log(), ElementsAre("4 [f]m"));
    std::filesystem::create_directory(file.directory());
}

TEST_F(LogLifecycle, FailedOpenLeavesTheLevelAsItWas) {
    ASSERT_EQ(log_init(3), 0);
    fault::fail("fopen", EACCES);
    EXPECT_EQ(log_init(5), 2060018);
    log_msg(nullptr, "f", 1, STS_SEV_WARN, "below 3");
    log_msg(nullptr, "f", 1, STS_SEV_ERROR, "below 5");
    EXPECT_THAT(file.entries(), ElementsAre("[WARN] [no session][f]below 3"));
}

TEST_F(LogLifecycle, LinesAreAddedToWhatTheFileHolds) {
    std::ofstream(file.directory() + "/throttlinglog_20240305") << "an earlier process\n";
    ASSERT_EQ(log_init(5), 0);
    log_msg(nullptr, "f", 1, STS_SEV_INFO, "m");
    EXPECT_THAT(file.entries(), ElementsAre("an earlier process", "[INFO] [no session][f]m"));
}

TEST_F(LogLifecycle, EachLineIsInTheFileWhenTheCallReturns) {
    ASSERT_EQ(log_init(5), 0);
    log_msg(nullptr, "f", 1, STS_SEV_INFO, "one");
    EXPECT_EQ(file.lines().size(), 1U);
    log_msg(nullptr, "f", 1, STS_SEV_INFO, "two");
    EXPECT_EQ(file.lines().size(), 2U);
}

TEST_F(LogLifecycle, FileStaysTheSamePastMidnight) {
    ASSERT_EQ(log_init(5), 0);
    log_msg(nullptr, "f", 1, STS_SEV_INFO, "before");
    clock.advance(2);
    log_msg(nullptr, "f", 1, STS_SEV_INFO, "after");
    EXPECT_THAT(file.names(), ElementsAre("throttlinglog_20240305"));
    EXPECT_THAT(file.entries(),
                ElementsAre("[INFO] [no session][f]before", "[INFO] [no session][f]after"));
}

TEST_F(LogLifecycle, ShutdownWithoutAFileSucceeds) {
    EXPECT_EQ(log_shutdown(), 0);
    EXPECT_EQ(log_shutdown(), 0);
}

TEST_F(LogLifecycle, ShutdownClosesTheFile) {
    ASSERT_EQ(log_init(5), 0);
    fault::watch_calls();
    EXPECT_EQ(log_shutdown(), 0);
    EXPECT_THAT(fault::take_calls(), ElementsAre("fclose"));
}

TEST_F(LogLifecycle, ShutdownTellsThatClosingFailed) {
    ASSERT_EQ(log_init(5), 0);
    fault::fail("fclose", EIO);
    EXPECT_EQ(log_shutdown(), 2060017);
    EXPECT_EQ(log_shutdown(), 0); // it isn't closed again
}

TEST_F(LogLifecycle, CallAfterShutdownReachesTheHostAlone) {
    ASSERT_EQ(log_init(5), 0);
    ASSERT_EQ(log_shutdown(), 0);
    EXPECT_EQ(log_msg(&session, "f", 1, STS_SEV_ERROR, "m"), 0);
    EXPECT_EQ(log_msg(nullptr, "f", 1, STS_SEV_ERROR, "m"), 0);
    EXPECT_THAT(take_log(), ElementsAre("4 [f]m"));
    EXPECT_THAT(file.lines(), IsEmpty());
}

TEST_F(LogLifecycle, LaterStartOpensAnew) {
    ASSERT_EQ(log_init(5), 0);
    ASSERT_EQ(log_shutdown(), 0);
    clock.advance(2);
    ASSERT_EQ(log_init(2), 0);
    log_msg(nullptr, "f", 1, STS_SEV_INFO, "m");
    log_msg(nullptr, "f", 1, STS_SEV_WARN, "m");
    EXPECT_THAT(file.names(), ElementsAre("throttlinglog_20240305", "throttlinglog_20240306"));
    EXPECT_THAT(file.entries(), ElementsAre("[INFO] [no session][f]m"));
}

TEST_F(LogLifecycle, FullDiskLosesTheLineWithoutAStatus) {
    std::filesystem::create_symlink("/dev/full", file.directory() + "/throttlinglog_20240305");
    ASSERT_EQ(log_init(5), 0);
    EXPECT_EQ(log_msg(&session, "f", 1, STS_SEV_ERROR, "m"), 0);
    EXPECT_THAT(take_log(), ElementsAre("4 [f]m"));
    log_shutdown();
    std::filesystem::remove(file.directory() + "/throttlinglog_20240305");
}

} // namespace
