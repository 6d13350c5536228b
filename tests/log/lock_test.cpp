// The record lock around each line.

#include "plugin/throttling_log.h"

#include "tests/log/log_file.h"
#include "tests/support/fault.h"
#include "tests/support/host_session.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class LogLock : public testing::Test {
  protected:
    LogLock() {
        take_log();
        EXPECT_EQ(log_init(5), 0);
    }

    log_file file;
    sts_session_def_v7_t session = host_session("s");
};

TEST_F(LogLock, SpansTheWholeFileForOneLineAndItsFlush) {
    fault::watch_calls();
    EXPECT_EQ(log_msg(&session, "f", 1, STS_SEV_INFO, "m"), 0);
    EXPECT_THAT(fault::take_calls(), ElementsAre("lock", "fflush", "unlock"));
}

TEST_F(LogLock, IsNotTakenForALineThatTheFileDoesNotReceive) {
    fault::watch_calls();
    EXPECT_EQ(log_msg(&session, "f", 1, STS_SEV_HOST, "m"), 0);
    EXPECT_THAT(fault::take_calls(), IsEmpty());
}

TEST_F(LogLock, LineIsLostWhenItCanNotBeTakenThoughTheHostGotIt) {
    fault::fail("fcntl", ENOLCK);
    fault::watch_calls();
    EXPECT_EQ(log_msg(&session, "f", 1, STS_SEV_INFO, "lost"), 2060001);
    EXPECT_THAT(fault::take_calls(), ElementsAre("lock"));
    EXPECT_THAT(take_log(), ElementsAre("1 [f]lost"));
    EXPECT_THAT(file.lines(), IsEmpty());

    EXPECT_EQ(log_msg(&session, "f", 1, STS_SEV_INFO, "kept"), 0);
    EXPECT_THAT(file.entries(), ElementsAre("[INFO] [s][f]kept"));
}

TEST_F(LogLock, FailureToReleaseItIsPassedOver) {
    fault::fail("fcntl", EIO, 1, 1);
    EXPECT_EQ(log_msg(&session, "f", 1, STS_SEV_INFO, "m"), 0);
    EXPECT_THAT(file.entries(), ElementsAre("[INFO] [s][f]m"));
}

} // namespace
