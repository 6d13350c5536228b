// The counted start and stop of the HTTP and TLS libraries, with the platform's calls recorded.

#include "common/CurlSentry.h"

#include "platform/common/vlcommon.h"

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> calls;
int http_status = 0;

std::vector<std::string> take_calls() { return std::exchange(calls, {}); }

} // namespace

extern "C" {

__attribute__((visibility("default"))) int VL_curl_global_init(long flags) {
    calls.push_back("start HTTP " + std::to_string(flags));
    return http_status;
}

__attribute__((visibility("default"))) void VL_curl_global_cleanup() {
    calls.emplace_back("stop HTTP");
}

__attribute__((visibility("default"))) int VL_101_vlopenssl_init() {
    calls.emplace_back("start TLS");
    return -1; // nobody asks
}

__attribute__((visibility("default"))) void VL_101_vlopenssl_fini(int argument) {
    calls.push_back("stop TLS " + std::to_string(argument));
}

} // extern "C"

namespace {

class Sentry : public testing::Test {
  protected:
    Sentry() {
        take_calls();
        http_status = 0;
    }

    /// The count is the record's first field.
    int count() const {
        int32_t value = -1;
        memcpy(&value, reinterpret_cast<const char*>(&*sentry), sizeof value);
        return value;
    }

    std::optional<CurlSentry> sentry{std::in_place};
};

TEST_F(Sentry, StartsWithACountOfZeroAndEnabled) {
    EXPECT_EQ(count(), 0);
    EXPECT_TRUE(sentry->isInitEnable());
    EXPECT_EQ(sizeof(CurlSentry), 8U);
}

TEST_F(Sentry, StartsTlsFirstAndStopsItLast) {
    EXPECT_EQ(sentry->initialize(), 0);
    EXPECT_THAT(take_calls(), ElementsAre("start TLS", "start HTTP 3"));
    EXPECT_EQ(sentry->cleanup(), 0);
    EXPECT_THAT(take_calls(), ElementsAre("stop HTTP", "stop TLS 0"));
    EXPECT_EQ(count(), 0);
}

TEST_F(Sentry, SharesOneStartAndStopsWithTheLastCleanup) {
    sentry->initialize();
    take_calls();
    EXPECT_EQ(sentry->initialize(), 0);
    EXPECT_EQ(count(), 2);
    EXPECT_EQ(sentry->cleanup(), 0);
    EXPECT_THAT(take_calls(), IsEmpty());
    EXPECT_EQ(sentry->cleanup(), 0);
    EXPECT_THAT(take_calls(), ElementsAre("stop HTTP", "stop TLS 0"));
}

TEST_F(Sentry, StartsAgainAfterTheLastCleanup) {
    sentry->initialize();
    sentry->cleanup();
    take_calls();
    EXPECT_EQ(sentry->initialize(), 0);
    EXPECT_THAT(take_calls(), ElementsAre("start TLS", "start HTTP 3"));
    sentry->cleanup();
}

TEST_F(Sentry, DoesNothingWhileDisabled) {
    sentry->setInitEnable(false);
    EXPECT_FALSE(sentry->isInitEnable());
    EXPECT_EQ(sentry->initialize(), 0);
    EXPECT_EQ(count(), 0);
    EXPECT_EQ(sentry->cleanup(), 0);
    EXPECT_THAT(take_calls(), IsEmpty());

    sentry->setInitEnable(true);
    sentry->initialize();
    sentry->setInitEnable(false);
    take_calls();
    EXPECT_EQ(sentry->cleanup(), 0);
    EXPECT_EQ(count(), 1);
    EXPECT_THAT(take_calls(), IsEmpty());
}

TEST_F(Sentry, CountsAFailedStartAndDoesNotRetryIt) {
    http_status = 27;
    EXPECT_EQ(sentry->initialize(), 27);
    EXPECT_EQ(count(), 1);
    take_calls();
    EXPECT_EQ(sentry->initialize(), 0);
    EXPECT_EQ(count(), 2);
    EXPECT_THAT(take_calls(), IsEmpty());
}

TEST_F(Sentry, StopsTheLibrariesAlsoWithoutAStart) {
    EXPECT_EQ(sentry->cleanup(), 0);
    EXPECT_THAT(take_calls(), ElementsAre("stop HTTP", "stop TLS 0"));
    EXPECT_EQ(count(), 0);
}

TEST_F(Sentry, StartsAndStopsTheHttpLibraryAlone) {
    http_status = 5;
    EXPECT_EQ(sentry->initCurl(), 5);
    EXPECT_THAT(take_calls(), ElementsAre("start HTTP 3"));
    sentry->cleanupCurl();
    EXPECT_THAT(take_calls(), ElementsAre("stop HTTP"));
    EXPECT_EQ(count(), 0);
}

TEST_F(Sentry, ItsDestructorCleansUpOnceAtACountOfThree) {
    for (int i = 0; i < 3; ++i) {
        sentry->initialize();
    }
    take_calls();
    sentry.reset();
    EXPECT_THAT(take_calls(), IsEmpty()); // a count of two keeps the libraries
}

TEST_F(Sentry, ItsDestructorStopsTheLibrariesAtACountOfOne) {
    sentry->initialize();
    take_calls();
    sentry.reset();
    EXPECT_THAT(take_calls(), ElementsAre("stop HTTP", "stop TLS 0"));
}

TEST_F(Sentry, ItsDestructorDoesNothingAtACountOfZero) {
    sentry.reset();
    EXPECT_THAT(take_calls(), IsEmpty());
}

TEST_F(Sentry, TheProcessHasOneThatIsReadyAndNotStarted) {
    ASSERT_NE(CurlSentry::instance(), nullptr);
    EXPECT_EQ(CurlSentry::instance(), CurlSentry::instance());
    EXPECT_TRUE(CurlSentry::instance()->isInitEnable());
    EXPECT_EQ(CurlSentry::instance()->initialize(), 0);
    EXPECT_THAT(take_calls(), ElementsAre("start TLS", "start HTTP 3"));
    EXPECT_EQ(CurlSentry::instance()->cleanup(), 0);
}

} // namespace
