// How a message is spelled, and where it is cut.

#include "plugin/throttling_log.h"

#include "tests/log/line_time.h"
#include "tests/log/log_file.h"
#include "tests/support/host_session.h"
#include "tests/support/virtual_clock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

using testing::ElementsAre;

namespace {

class LogLine : public testing::Test {
  protected:
    LogLine() {
        take_log();
        EXPECT_EQ(log_init(6), 0);
    }

    /// What stands in front of the session's label.
    std::string head(const std::string& time) const {
        return "[" + std::to_string(getpid()) + "]" + time;
    }

    log_file file;
    line_time stamp{local_time(2024, 3, 4, 10, 5, 9), 7000};
    sts_session_def_v7_t session = host_session("s");
};

TEST_F(LogLine, HasTagProcessTimeSessionFunctionAndMessage) {
    log_msg(&session, "read_image", 1, STS_SEV_ERROR, "%s=%lu", "rate", 12UL);
    EXPECT_THAT(file.lines(),
                ElementsAre("[ERROR] " + head("10:05:09.7") + "[s][read_image]rate=12"));
}

TEST_F(LogLine, MillisecondsAreNotPadded) {
    for (const long microseconds : {7000L, 7999L, 0L, 999L, 70000L, 999999L}) {
        stamp.set_microseconds(microseconds);
        log_msg(&session, "f", 1, STS_SEV_INFO, "m");
    }
    const auto line = [this](const std::string& time) {
        return "[INFO] " + head(time) + "[s][f]m";
    };
    EXPECT_THAT(file.lines(),
                ElementsAre(line("10:05:09.7"), line("10:05:09.7"), line("10:05:09.0"),
                            line("10:05:09.0"), line("10:05:09.70"), line("10:05:09.999")));
}

TEST_F(LogLine, TimeIsLocal) {
    setenv("TZ", "LOCAL-3", 1); // three hours ahead
    tzset();
    log_msg(&session, "f", 1, STS_SEV_INFO, "m");
    setenv("TZ", "UTC", 1);
    tzset();
    EXPECT_THAT(file.lines(), ElementsAre("[INFO] " + head("13:05:09.7") + "[s][f]m"));
}

TEST_F(LogLine, TimeIsThatOfItsOwnSecondAlsoWhenTheClockIsSetBack) {
    std::vector<std::string> expected;
    const auto log_at = [&](int day, int hour, int minute, int second, const std::string& time) {
        stamp.set_seconds(local_time(2024, 3, day, hour, minute, second));
        log_msg(&session, "f", 1, STS_SEV_INFO, "m");
        expected.push_back("[INFO] " + head(time + ".7") + "[s][f]m");
    };
    log_at(4, 10, 5, 9, "10:05:09");
    log_at(4, 10, 5, 10, "10:05:10");
    log_at(4, 10, 6, 10, "10:06:10");
    log_at(4, 23, 59, 59, "23:59:59");
    log_at(5, 0, 0, 0, "00:00:00");
    log_at(4, 10, 5, 9, "10:05:09");
    log_at(5, 10, 5, 9, "10:05:09");
    EXPECT_EQ(file.lines(), expected);
}

TEST_F(LogLine, TimeZoneOfALaterStartIsThatOfItsLines) {
    log_msg(&session, "f", 1, STS_SEV_INFO, "m");
    setenv("TZ", "LOCAL-3", 1);
    tzset();
    log_shutdown();
    EXPECT_EQ(log_init(6), 0);
    log_msg(&session, "f", 1, STS_SEV_INFO, "m"); // in the same second
    setenv("TZ", "UTC", 1);
    tzset();
    EXPECT_THAT(file.lines(), ElementsAre("[INFO] " + head("10:05:09.7") + "[s][f]m",
                                          "[INFO] " + head("13:05:09.7") + "[s][f]m"));
}

TEST_F(LogLine, ForkedProcessWritesItsOwnId) {
    log_msg(&session, "f", 1, STS_SEV_INFO, "m");
    pid_t forked = fork();
    if (forked == 0) {
        log_msg(&session, "f", 1, STS_SEV_INFO, "m");
        const pid_t again = fork();
        if (again == 0) {
            log_msg(&session, "f", 1, STS_SEV_INFO, "m");
            _exit(0);
        }
        _exit(waitpid(again, nullptr, 0) == again ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(forked, &status, 0), forked);
    ASSERT_EQ(status, 0);
    log_msg(&session, "f", 1, STS_SEV_INFO, "m");
    const std::vector<std::string> lines = file.lines();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0], lines[3]);
    EXPECT_EQ(lines[1], "[INFO] [" + std::to_string(forked) + "]10:05:09.7[s][f]m");
    EXPECT_NE(lines[2], lines[1]);
    EXPECT_NE(lines[2], lines[0]);
}

TEST_F(LogLine, SecondAsksForItsTimeOnceAndAProcessForItsId) {
    log_msg(&session, "f", 1, STS_SEV_INFO, "m");
    const line_questions before = asked_for_lines();
    for (int i = 0; i < 100; ++i) {
        stamp.set_microseconds(i * 1000);
        log_msg(&session, "f", 1, STS_SEV_INFO, "m");
    }
    EXPECT_EQ(asked_for_lines().calendar, before.calendar);
    EXPECT_EQ(asked_for_lines().process, before.process);
    stamp.set_seconds(stamp.seconds() + 1);
    log_msg(&session, "f", 1, STS_SEV_INFO, "m");
    log_msg(&session, "f", 1, STS_SEV_INFO, "m");
    EXPECT_EQ(asked_for_lines().calendar, before.calendar + 1);
}

TEST_F(LogLine, LongMessageIsCutTo4094Characters) {
    log_msg(&session, "f", 1, STS_SEV_HOST, "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(host_log().back().text, std::string(4094, 'x'));
    log_msg(&session, "f", 1, STS_SEV_HOST, "%s", std::string(4094, 'x').c_str());
    EXPECT_EQ(host_log().back().text, std::string(4094, 'x'));
    log_msg(&session, "f", 1, STS_SEV_HOST, "%s", std::string(4093, 'x').c_str());
    EXPECT_EQ(host_log().back().text, std::string(4093, 'x'));
}

TEST_F(LogLine, HostTextIsCutTo4095CharactersWithItsHead) {
    log_msg(&session, "f", 1, STS_SEV_WARN, "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(host_log().back().text, "[f]" + std::string(4092, 'x'));
    log_msg(&session, "f", 1, STS_SEV_WARN, "%s", std::string(4092, 'x').c_str());
    EXPECT_EQ(host_log().back().text, "[f]" + std::string(4092, 'x'));
    log_msg(&session, "", 1, STS_SEV_WARN, "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(host_log().back().text, "[]" + std::string(4093, 'x'));
}

TEST_F(LogLine, FileLineIsCutTo4095CharactersWithItsHeadButNotItsTag) {
    log_msg(&session, "f", 1, STS_SEV_WARN, "%s", std::string(5000, 'x').c_str());
    const std::string before = head("10:05:09.7") + "[s][f]";
    EXPECT_THAT(file.lines(),
                ElementsAre("[WARN] " + before + std::string(4095 - before.size(), 'x')));
}

TEST_F(LogLine, LongSessionAndFunctionNamesAreCutToo) {
    const std::string name(5000, 'n');
    session = host_session(name.c_str());
    log_msg(&session, name.c_str(), 1, STS_SEV_INFO, "m");
    EXPECT_EQ(host_log().back().text, "[" + name.substr(0, 4094));
    EXPECT_EQ(host_log().back().session, name);
    const std::string before = head("10:05:09.7") + "[";
    EXPECT_THAT(file.lines(),
                ElementsAre("[INFO] " + before + name.substr(0, 4095 - before.size())));
}

TEST_F(LogLine, BytesOfAMessagePassAsTheyAre) {
    log_msg(&session, "f", 1, STS_SEV_INFO, "%s", "\xff\x01 caf\xc3\xa9\n");
    EXPECT_EQ(host_log().back().text, "[f]\xff\x01 caf\xc3\xa9\n");
    EXPECT_THAT(file.lines(),
                ElementsAre("[INFO] " + head("10:05:09.7") + "[s][f]\xff\x01 caf\xc3\xa9", ""));
}

} // namespace
