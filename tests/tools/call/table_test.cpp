// What "call" says of the entries, and what it takes for them.

#include "tools/call/given.h"
#include "tools/call/table.h"
#include "tools/terminal/failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

TEST(CallTable, DescribesEveryEntryAndEveryArgument) {
    for (const entry& each : all_entries()) {
        const entry_description described = description_of(each);
        EXPECT_FALSE(described.summary.empty()) << each.name;
        EXPECT_EQ(described.summary == "not supported by the plugin", !each.is_supported)
            << each.name;
        ASSERT_EQ(described.arguments.size(), each.parameters.size()) << each.name;
        for (const argument& which : described.arguments) {
            EXPECT_FALSE(which.text.empty()) << each.name << " " << which.name;
            EXPECT_TRUE(which.kind != argument_kind::nothing ||
                        which.type == "const sts_server_def_s*")
                << each.name << " " << which.name << " is of a type that isn't known";
        }
    }
}

TEST(CallTable, EntryThatIsNotInItIsADefect) {
    EXPECT_THROW(description_of({"new_entry", true, {}, {}}), std::logic_error);
    EXPECT_THROW(description_of({"claim_v7", true, {}, {}}), std::logic_error);
}

TEST(CallNumbers, AreDecimalOrHexadecimalWithinTheirType) {
    EXPECT_EQ(number_for("n", "uint64_t", "18446744073709551615"), UINT64_MAX);
    EXPECT_EQ(number_for("n", "uint32_t", "0xffffffff"), UINT32_MAX);
    EXPECT_EQ(static_cast<int32_t>(number_for("n", "int32_t", "-2147483648")), INT32_MIN);
    EXPECT_EQ(number_for("n", "sts_forwarded_t", "0"), 0U);
}

TEST(CallNumbers, ThatAreNoneOrDoNotFitAreRefused) {
    for (const char* const bad : {"", "-", "x", "1x", " 1", "+1", "0x", "18446744073709551616"}) {
        EXPECT_THROW(number_for("n", "uint64_t", bad), usage_failure) << bad;
    }
    EXPECT_THROW(number_for("n", "uint64_t", "-1"), usage_failure);
    EXPECT_THROW(number_for("n", "int32_t", "2147483648"), usage_failure);
    EXPECT_THROW(number_for("n", "int32_t", "-2147483649"), usage_failure);
    EXPECT_THAT([] { number_for("length", "uint32_t", "4294967296"); },
                testing::ThrowsMessage<usage_failure>(
                    "length=\"4294967296\" is not a whole number from 0 to 4294967295"));
}

} // namespace
