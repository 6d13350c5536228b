// The sleep in milliseconds.

#include "tests/common/sem_calls.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;

namespace {

TEST(SleepMilliSec, SleepsAThousandMicrosecondsForEach) {
    sem_calls::clear();
    sleepMilliSec(0);
    sleepMilliSec(1);
    sleepMilliSec(1500);
    EXPECT_THAT(sem_calls::take(), ElementsAre("usleep 0", "usleep 1000", "usleep 1500000"));
}

TEST(SleepMilliSec, WrapsAt32BitsOfMicroseconds) {
    sem_calls::clear();
    sleepMilliSec(2147484); // beyond a signed product
    sleepMilliSec(4294967);
    sleepMilliSec(4294968);
    sleepMilliSec(-1);
    EXPECT_THAT(sem_calls::take(), ElementsAre("usleep 2147484000", "usleep 4294967000",
                                               "usleep 704", "usleep 4294966296"));
}

} // namespace
