// Which messages reach the host and which the file.

#include "plugin/throttling_log.h"

#include "tests/log/log_file.h"
#include "tests/support/fault.h"
#include "tests/support/host_session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr sts_severity_v7_t severity_of(int number) {
    return static_cast<sts_severity_v7_t>(number);
}

class LogSinks : public testing::Test {
  protected:
    LogSinks() { take_log(); }

    log_file file;
    sts_session_def_v7_t session = host_session("s");
};

TEST_F(LogSinks, MaskDecidesWhatTheHostSees) {
    const struct {
        int severity;
        unsigned bit; // 0: passes whatever the mask
    } cases[] = {{0, 0}, {1, 2}, {2, 4}, {3, 1}, {4, 8}, {5, 1024}, {6, 0}, {99, 0}, {-1, 0}};
    for (const auto& each : cases) {
        for (unsigned bit = 1; bit <= 0x8000; bit <<= 1) {
            SCOPED_TRACE(testing::Message() << "severity " << each.severity << " bit " << bit);
            session.log_mask = static_cast<uint16_t>(bit);
            EXPECT_EQ(log_msg(&session, "f", 1, severity_of(each.severity), "m"), 0);
            EXPECT_EQ(take_log().size(), each.bit == 0 || each.bit == bit ? 1U : 0U);

            session.log_mask = static_cast<uint16_t>(~bit);
            log_msg(&session, "f", 1, severity_of(each.severity), "m");
            EXPECT_EQ(take_log().size(), each.bit != bit ? 1U : 0U);
        }
    }
}

TEST_F(LogSinks, LevelDecidesWhatTheFileReceives) {
    const struct {
        int level;
        std::vector<std::string> lines; // of severities 1 to 5
    } cases[] = {
        {0, {}},
        {1, {}},
        {2, {"[INFO] [s][f]1"}},
        {3, {"[INFO] [s][f]1", "[WARN] [s][f]2"}},
        {4, {"[INFO] [s][f]1", "[WARN] [s][f]2", "[DEBUG] [s][f]3"}},
        {5, {"[INFO] [s][f]1", "[WARN] [s][f]2", "[DEBUG] [s][f]3", "[ERROR] [s][f]4"}},
        {6, {"[INFO] [s][f]1", "[WARN] [s][f]2", "[DEBUG] [s][f]3", "[ERROR] [s][f]4", " [s][f]5"}},
        {-1, {}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(testing::Message() << "level " << each.level);
        log_file fresh;
        ASSERT_EQ(log_init(each.level), 0);
        for (int severity = 1; severity <= 5; ++severity) {
            EXPECT_EQ(log_msg(&session, "f", 1, severity_of(severity), "%d", severity), 0);
        }
        EXPECT_EQ(fresh.entries(), each.lines);
    }
}

TEST_F(LogSinks, SeveritiesWithoutATagGetAnEmptyOne) {
    ASSERT_EQ(log_init(100), 0);
    for (const int severity : {0, 5, 6, 99, -1}) {
        log_msg(nullptr, "f", 1, severity_of(severity), "%d", severity);
    }
    EXPECT_THAT(file.entries(),
                ElementsAre(" [no session][f]0", " [no session][f]5", " [no session][f]6",
                            " [no session][f]99", " [no session][f]-1"));
}

TEST_F(LogSinks, DebugLineAtLevelThreeReachesTheHostAlone) {
    ASSERT_EQ(log_init(3), 0);
    EXPECT_EQ(log_msg(&session, "f", 1, STS_SEV_DEBUG, "m"), 0);
    EXPECT_THAT(take_log(), ElementsAre("3 [f]m"));
    EXPECT_THAT(file.lines(), IsEmpty());
}

TEST_F(LogSinks, MaskDoesNotHoldBackTheFile) {
    ASSERT_EQ(log_init(5), 0);
    session.log_mask = 0;
    EXPECT_EQ(log_msg(&session, "f", 1, STS_SEV_ERROR, "m"), 0);
    EXPECT_THAT(take_log(), IsEmpty());
    EXPECT_THAT(file.entries(), ElementsAre("[ERROR] [s][f]m"));
}

TEST_F(LogSinks, HostHearsBeforeAnyFileIsOpen) {
    EXPECT_EQ(log_msg(&session, "f", 1, STS_SEV_INFO, "m"), 0);
    EXPECT_THAT(take_log(), ElementsAre("1 [f]m"));
    EXPECT_THAT(file.names(), IsEmpty());
}

TEST_F(LogSinks, NullSessionReachesTheFileAlone) {
    ASSERT_EQ(log_init(5), 0);
    EXPECT_EQ(log_msg(nullptr, "f", 1, STS_SEV_WARN, "m"), 0);
    EXPECT_THAT(take_log(), IsEmpty());
    EXPECT_THAT(file.entries(), ElementsAre("[WARN] [no session][f]m"));
}

TEST_F(LogSinks, SessionWithoutACallbackReachesTheFileAlone) {
    ASSERT_EQ(log_init(5), 0);
    session.log = nullptr;
    EXPECT_EQ(log_msg(&session, "f", 1, STS_SEV_WARN, "m"), 0);
    EXPECT_THAT(file.entries(), ElementsAre("[WARN] [s][f]m"));
}

TEST_F(LogSinks, NullSessionIdIsHandedToTheHostAndLabelledInTheFile) {
    ASSERT_EQ(log_init(5), 0);
    session = host_session(nullptr);
    log_msg(&session, "f", 1, STS_SEV_WARN, "m");
    ASSERT_EQ(host_log().size(), 1U);
    EXPECT_EQ(host_log().front().session, "(null)");
    EXPECT_THAT(file.entries(), ElementsAre("[WARN] [no session][f]m"));
}

TEST_F(LogSinks, HostGetsTheSessionIdAndTheSeverity) {
    session = host_session("master:1");
    log_msg(&session, "f", 1, STS_SEV_ERROR, "m");
    ASSERT_EQ(host_log().size(), 1U);
    EXPECT_EQ(host_log().front().session, "master:1");
    EXPECT_EQ(host_log().front().severity, 4);
}

TEST_F(LogSinks, NullFunctionNameIsNoFuncInBothSinks) {
    ASSERT_EQ(log_init(5), 0);
    log_msg(&session, nullptr, 1, STS_SEV_WARN, "m");
    EXPECT_THAT(take_log(), ElementsAre("2 [no-func]m"));
    EXPECT_THAT(file.entries(), ElementsAre("[WARN] [s][no-func]m"));
}

TEST_F(LogSinks, SeverityFiveReachesTheHostWithoutAFunctionName) {
    log_msg(&session, "f", 1, STS_SEV_HOST, "100%%");
    log_msg(&session, nullptr, 1, STS_SEV_HOST, "%s", "%d");
    EXPECT_THAT(take_log(), ElementsAre("5 100%", "5 %d"));
}

TEST_F(LogSinks, EveryOtherSeverityReachesTheHostWithIt) {
    for (const int severity : {-1, 0, 1, 2, 3, 4, 6, 7}) {
        log_msg(&session, "f", 1, severity_of(severity), "m");
        EXPECT_THAT(take_log(), ElementsAre(std::to_string(severity) + " [f]m"));
    }
}

TEST_F(LogSinks, ThirdArgumentChangesNothing) {
    ASSERT_EQ(log_init(5), 0);
    for (const int third : {1, 0, -1, INT32_MAX}) {
        EXPECT_EQ(log_msg(&session, "f", third, STS_SEV_WARN, "m"), 0);
    }
    EXPECT_THAT(take_log(), ElementsAre("2 [f]m", "2 [f]m", "2 [f]m", "2 [f]m"));
    EXPECT_THAT(file.entries(), ElementsAre("[WARN] [s][f]m", "[WARN] [s][f]m", "[WARN] [s][f]m",
                                            "[WARN] [s][f]m"));
}

TEST_F(LogSinks, CallsDoNotAllocate) {
    static int heard;
    heard = 0;
    session.log = [](const char*, const char*, sts_severity_v7_t) { ++heard; };
    session.log_mask = STS_LOG_WARN;
    ASSERT_EQ(log_init(3), 0);
    fault::take_allocations();
    log_msg(&session, "f", 1, STS_SEV_ERROR, "%s", "nobody takes it");
    log_msg(nullptr, "f", 1, STS_SEV_DEBUG, "%s", "nobody takes it");
    EXPECT_EQ(fault::take_allocations(), 0);
    log_msg(&session, "f", 1, STS_SEV_WARN, "%s", "both take it");
    EXPECT_EQ(fault::take_allocations(), 0);
    EXPECT_EQ(heard, 1);
    EXPECT_EQ(file.lines().size(), 1U);
}

} // namespace
