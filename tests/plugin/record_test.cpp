// What the host gets: the record with its entry table, and the second table.

#include "tests/plugin/layer_start.h"

#include <cstring>

using testing::Each;

namespace {

// clang-format off
/// The entries by slot. The host goes by these numbers, so this list is written out once more.
const char* const entry_names[] = {
    "async_flush", "async_read_image", "async_wait", "async_write_image", "claim_v7",
    "close_evchannel", "close_image_v7", "close_image_list_v7", "close_lsu_list_v7",
    "close_server_v7", "copy_extent", "create_image_v10", "delete_event", "delete_files",
    "delete_image_v10", "get_event", "get_image_group", "get_image_group_byname",
    "get_image_prop_v10", "get_image_prop_byname_v10", "get_lsu_prop_byname_v11",
    "get_server_prop_v8", "get_server_prop_byname_v8", "include_in_image", "ioctl_v9",
    "list_image_v10", "list_lsu_v7", "open_evchannel", "open_lsu_list_v11", "open_server_v7",
    "open_target_server", "open_image_v10", "open_image_group_list", "open_image_list_v7",
    "read_image_v7", "terminate_v7", "write_image_v7", "find_lsu", "label_lsu", "read_image_meta",
    "write_image_meta", "async_cancel", "async_copy_image", "copy_image", "get_event_payload",
    "named_async_cancel", "named_async_copy_image", "named_async_status", "named_async_wait",
    "get_server_config_v11", "set_server_config_v11", "begin_copy_image", "end_copy_image",
    "async_end_copy_image", "named_async_end_copy_image", "get_lsu_replication_prop",
    "iocontrol_v11",
};

/// Those that will never be supported, by slot.
const size_t unsupported_slots[] = {1, 3, 43, 45, 46, 47, 48, 51, 52, 53, 54, 56};

struct entry {
    const char* name;
    void* function;
    bool supported;
};
#define SUPPORTED_ENTRY(name, arguments) {#name, reinterpret_cast<void*>(&throttling_##name), true},
#define UNSUPPORTED_ENTRY(name) {#name, reinterpret_cast<void*>(&throttling_##name), false},
const entry entries[] = {STSPI_ENTRIES(SUPPORTED_ENTRY, UNSUPPORTED_ENTRY)};
// clang-format on

void* slot(size_t number) { return reinterpret_cast<void* const*>(&ep)[number]; }

TEST(EntryTable, HoldsEveryEntryInItsSlot) {
    ASSERT_EQ(std::size(entries), 57U);
    ASSERT_EQ(std::size(entry_names), 57U);
    for (size_t i = 0; i < 57; ++i) {
        EXPECT_STREQ(entries[i].name, entry_names[i]) << i;
        EXPECT_EQ(slot(i), entries[i].function) << i;
        EXPECT_NE(slot(i), nullptr) << i;
    }
}

TEST(EntryTable, EveryUnsupportedEntryAnswersSoWithNoNextLayerBound) {
    sts_api = nullptr;
    for (size_t i = 0; i < 57; ++i) {
        if (!entries[i].supported) {
            EXPECT_EQ(reinterpret_cast<int (*)()>(slot(i))(), STS_ERR_NOT_SUPPORTED)
                << entries[i].name;
        }
    }
    for (const size_t i : unsupported_slots) {
        EXPECT_FALSE(entries[i].supported) << entries[i].name;
    }
}

TEST_F(LayerStart, RecordCarriesVersionTablePrefixLabelAndFixedNumbers) {
    ASSERT_EQ(stspi_init(12, path, &record), STS_OK);
    EXPECT_EQ(record.version, 11U);
    EXPECT_EQ(record.ep, &ep);
    EXPECT_STREQ(record.prefix, "CS_throttle:");
    EXPECT_STREQ(record.label, "Throttling Plugin");
    EXPECT_THAT(record.untouched, Each(0x5a));
    EXPECT_EQ(record.fixed_528, 1U);
    EXPECT_EQ(record.fixed_532, 0U);
    EXPECT_EQ(record.fixed_536, 11U);
    EXPECT_EQ(record.fixed_544, 2U);
    EXPECT_EQ(record.version_copy, 11U);
    EXPECT_STREQ(record.version_text, "910000 Vaultaro_9.1.0.1");
    EXPECT_EQ(record.version_text[31], '\0');
}

TEST_F(LayerStart, PrefixAndLabelArePaddedWithZeros) {
    ASSERT_EQ(stspi_init(12, path, &record), STS_OK);
    const std::string prefix(record.prefix, sizeof record.prefix);
    const std::string label(record.label, sizeof record.label);
    EXPECT_EQ(prefix, "CS_throttle:" + std::string(20, '\0'));
    EXPECT_EQ(label, "Throttling Plugin" + std::string(15, '\0'));
}

// --- the second entry point --------------------------------------------------------------------

TEST_F(LayerStart, SecondEntryPointNeedsNoStart) {
    stspi_api2_rec_t second = {};
    EXPECT_EQ(stspi_init2(11, &second), STS_OK);
    EXPECT_EQ(second.version, 11U);
    EXPECT_EQ(second.entry_points, PluginEntryPoints2_v11);
    EXPECT_EQ(stspi_init2(99, &second), STS_OK);
    EXPECT_EQ(second.version, 11U);
    EXPECT_THAT(next_layer().calls, testing::IsEmpty());
    EXPECT_EQ(throttling_terminate_v7(), STS_ERR_NOT_INIT); // nothing was counted
}

TEST_F(LayerStart, SecondEntryPointChecksThePointerBeforeTheVersion) {
    EXPECT_EQ(stspi_init2(5, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(stspi_init2(12, nullptr), STS_ERR_INVALID);
    stspi_api2_rec_t second = {77, nullptr};
    EXPECT_EQ(stspi_init2(10, &second), STS_ERR_PLUGIN_VERSION);
    EXPECT_EQ(second.version, 77U);
    EXPECT_EQ(second.entry_points, nullptr);
}

TEST(SecondTable, HoldsTheCreationAndDeletionOfLsusAndNothingElse) {
    static_assert(std::size(PluginEntryPoints2_v11) == 22);
    for (size_t i = 0; i < 22; ++i) {
        void* const expected = i == 4   ? reinterpret_cast<void*>(&throttling_create_lsu)
                               : i == 9 ? reinterpret_cast<void*>(&throttling_delete_lsu)
                                        : nullptr;
        EXPECT_EQ(PluginEntryPoints2_v11[i], expected) << i;
    }
}

} // namespace
