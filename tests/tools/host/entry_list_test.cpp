// The entries that "call" knows.

#include "tools/host/entry_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;

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

} // namespace
