// The entries that "call" knows, and what it says of them.

#include "tools/call/given.h"
#include "tools/call/table.h"
#include "tools/host/entry_list.h"
#include "tools/host/records.h"
#include "tools/manage/copy.h"
#include "tools/terminal/failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

TEST(EntryList, IsTheTablesOwnAndTheTwoOfTheSecond) {
    EXPECT_EQ(all_entries().size(), STSPI_ENTRY_COUNT + 2);
    EXPECT_EQ(all_entries().front().name, "async_flush");
    EXPECT_EQ(all_entries()[STSPI_ENTRY_COUNT - 1].name, "iocontrol_v11");
    EXPECT_EQ(all_entries().back().name, "delete_lsu");
    size_t unsupported = 0;
    for (const entry& each : all_entries()) {
        unsupported += each.is_supported ? 0 : 1;
    }
    EXPECT_EQ(unsupported, 12U);
}

TEST(EntryList, ParametersAreThoseOfTheDeclarations) {
    const auto declared = [](const char* name) {
        std::vector<std::string> all;
        for (const parameter& each : find_entry(name)->parameters) {
            all.push_back(each.type + " " + each.name);
        }
        return all;
    };
    EXPECT_THAT(declared("read_image_v7"),
                ElementsAre("throttling_image_s* image", "void* buffer", "uint64_t length",
                            "uint64_t position", "uint64_t* bytes_read"));
    EXPECT_THAT(declared("async_wait"),
                ElementsAre("const sts_session_def_v7_t* session",
                            "sts_next_operation_s** operation", "int32_t forwarded",
                            "sts_async_status_s* async_status"));
    EXPECT_THAT(declared("create_lsu"),
                ElementsAre("throttling_server_s* server", "const sts_lsu_def_s* definition",
                            "void*** out"));
    EXPECT_THAT(declared("terminate_v7"), ElementsAre());
    EXPECT_THAT(declared("copy_image"), ElementsAre());
}

TEST(EntryList, FindsWithAndWithoutThePrefix) {
    EXPECT_EQ(find_entry("claim_v7"), find_entry("throttling_claim_v7"));
    EXPECT_EQ(find_entry("claim"), nullptr);
    EXPECT_EQ(find_entry(""), nullptr);
}

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

TEST(NextLayerName, IsWhatIsBehindAllOfOurLayers) {
    EXPECT_EQ(next_layer_name("CS_throttle:t:disk:/a"), "disk:/a");
    EXPECT_EQ(next_layer_name("CS_throttle:t:CS_throttle:u:disk:/a"), "disk:/a");
    EXPECT_EQ(next_layer_name("disk:/a"), "disk:/a");
    EXPECT_EQ(next_layer_name(""), "");
    EXPECT_THROW(next_layer_name("CS_throttle:t"), usage_failure);
    EXPECT_THROW(next_layer_name("CS_throttle:t:"), usage_failure);
}

TEST(Records, ColumnsStandAsWideAsTheyHaveTo) {
    EXPECT_EQ(columns_text({"a", "long"}, {{"wider", "x"}, {"", ""}}), "a      long\nwider  x\n\n");
    EXPECT_EQ(field_lines({{"a", "x\n"}, {"long", 3}}), "a     x\\n\nlong  3\n");
}

TEST(Records, NamesThatAreNoUtf8AreReplacedInJson) {
    EXPECT_EQ(dumped(json("a\xff")), "\"a\xEF\xBF\xBD\"");
}

TEST(Records, KindOfEventThatIsNotKnownIsANumber) {
    sts_event_s event = {};
    for (const uint32_t kind : {0U, 7U}) {
        event.kind = kind;
        EXPECT_EQ(fields_of(event).at("kind"), "kind-" + std::to_string(kind));
    }
}

TEST(Records, PayloadThatIsLongerThanItsFieldIsCut) {
    sts_event_payload_s payload = {};
    payload.length = UINT32_MAX;
    EXPECT_EQ(fields_of(payload).at("text").get<std::string>().size(), sizeof payload.text);
}

} // namespace
