#include "tools/manage/copy.h"
#include "tools/terminal/failure.h"

#include <gtest/gtest.h>

namespace {

TEST(NextLayerName, IsWhatIsBehindAllOfOurLayers) {
    EXPECT_EQ(next_layer_name("CS_throttle:t:disk:/a"), "disk:/a");
    EXPECT_EQ(next_layer_name("CS_throttle:t:CS_throttle:u:disk:/a"), "disk:/a");
    EXPECT_EQ(next_layer_name("disk:/a"), "disk:/a");
    EXPECT_EQ(next_layer_name(""), "");
    EXPECT_THROW(next_layer_name("CS_throttle:t"), usage_failure);
    EXPECT_THROW(next_layer_name("CS_throttle:t:"), usage_failure);
}

} // namespace
