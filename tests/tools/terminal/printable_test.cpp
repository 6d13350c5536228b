#include "tools/terminal/printable.h"

#include <gtest/gtest.h>

namespace {

TEST(Printable, LeavesUsualNamesAlone) {
    EXPECT_EQ(printable("usr/include/a b.h"), "usr/include/a b.h");
    EXPECT_EQ(printable("gr\xC3\xBC\xC3\x9F"), "gr\xC3\xBC\xC3\x9F");
}

TEST(Printable, ControlsNoTerminal) {
    EXPECT_EQ(printable("a\nb\033[2J\x7f\t"), "a\\nb\\x1b[2J\\x7f\\x09");
}

TEST(Printable, KeepsNamesApart) { EXPECT_NE(printable("a\nb"), printable("a\\nb")); }

} // namespace
