#include "tools/terminal/sizes.h"

#include <gtest/gtest.h>

namespace {

TEST(Sizes, AreShownInTheUnitThatFits) {
    EXPECT_EQ(size_text(uint64_t{0}), "0 B");
    EXPECT_EQ(size_text(uint64_t{1023}), "1023 B");
    EXPECT_EQ(size_text(uint64_t{1024}), "1.0 KiB");
    EXPECT_EQ(size_text(uint64_t{104857600}), "100.0 MiB");
    EXPECT_EQ(size_text(1.5 * 1024 * 1024 * 1024), "1.5 GiB");
    EXPECT_EQ(size_text(18446744073709551615.0), "16384.0 PiB");
}

TEST(Sizes, RatesAreUnlimitedWhereNothingIsThrottled) {
    EXPECT_EQ(rate_text(2048.0), "2.0 KiB/s");
    EXPECT_EQ(rate_text({}), "unlimited");
}

} // namespace
