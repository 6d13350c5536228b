#include "tools/terminal/tables.h"

#include <gtest/gtest.h>

namespace {

TEST(Tables, ColumnsStandAsWideAsTheyHaveTo) {
    EXPECT_EQ(columns_text({"a", "long"}, {{"wider", "x"}, {"", ""}}), "a      long\nwider  x\n\n");
    EXPECT_EQ(field_lines({{"a", "x\n"}, {"long", 3}}), "a     x\\n\nlong  3\n");
}

TEST(Tables, NamesThatAreNoUtf8AreReplacedInJson) {
    EXPECT_EQ(dumped(ordered_json("a\xff")), "\"a\xEF\xBF\xBD\"");
}

} // namespace
