#include "tools/host/status_names.h"

#include "platform/sts/sts_records.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::StartsWith;

namespace {

TEST(Status, IsToldByNameNumberAndMeaning) {
    EXPECT_THAT(status_text(STS_ERR_BUSY), StartsWith("STS_ERR_BUSY (2060005): "));
    EXPECT_THAT(status_text(STS_ERR_MAX_CONNECTIONS),
                StartsWith("STS_ERR_MAX_CONNECTIONS (2060020): "));
}

TEST(Status, OfANameThatNobodyClaimsIsTrueOfEveryLayer) {
    EXPECT_EQ(status_text(STS_ERR_NOT_CLAIMED),
              "STS_ERR_NOT_CLAIMED (2060009): neither the plugin, whose names begin with "
              "\"CS_throttle:\", nor a plugin of VL_STS_PLUGINS claims the name");
}

TEST(Status, OfEveryKindHasAName) {
    for (const int status :
         {2060001, 2060002, 2060005, 2060007, 2060008, 2060009, 2060010, 2060012, 2060013, 2060016,
          2060017, 2060018, 2060020, 2060026, 2060031, 2060043}) {
        EXPECT_THAT(status_text(status), StartsWith("STS_ERR_"));
    }
}

TEST(Status, OfTheSystemIsToldInItsWords) {
    EXPECT_EQ(status_text(sts_status_of_errno(ENOSPC)),
              "status 2061028: the storage says: No space left on device");
}

TEST(Status, OfAnotherLayerIsToldAsItIs) {
    EXPECT_EQ(status_text(42), "status 42: the storage library's own");
}

TEST(Status, FailureNamesOperationAndObject) {
    EXPECT_STREQ(failed("opening the image", "b", 42).what(),
                 "opening the image \"b\" failed: status 42: the storage library's own");
}

} // namespace
