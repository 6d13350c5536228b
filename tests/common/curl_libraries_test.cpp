// The sentry on the real libraries.

#include "common/CurlSentry.h"

#include <gtest/gtest.h>

namespace {

TEST(Libraries, StartAndStopForEveryUserOfTheProcess) {
    CurlSentry& sentry = *CurlSentry::instance();
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(sentry.initialize(), 0);
        EXPECT_EQ(sentry.initialize(), 0);
        EXPECT_EQ(sentry.cleanup(), 0);
        EXPECT_EQ(sentry.cleanup(), 0);
    }
}

} // namespace
