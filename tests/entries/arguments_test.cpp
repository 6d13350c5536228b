// What goes down is what was given, byte for byte and bit for bit, and it goes down without memory
// of its own: the LSU is swapped on the stack. The numbers of every call are held by the matrix's
// lines.

#include "tests/entries/row_world.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <string_view>

namespace {

std::string bytes_of(const void* record, size_t size) {
    return std::string(static_cast<const char*>(record), size);
}

/// Whether the address lies in the part of the stack that the calls of this function use.
bool is_on_stack(uint64_t address) {
    const auto here = reinterpret_cast<uint64_t>(__builtin_frame_address(0));
    return address < here + 65536 && address + 65536 > here;
}

/// The calls that the row's operation makes of the next layer.
std::vector<next_call> calls_of(row_world& in) {
    std::vector<next_call> seen;
    next_layer().observer = [&](const next_call& call) { seen.push_back(call); };
    in.call();
    next_layer().observer = nullptr;
    return seen;
}

const row& row_of(std::string_view operation) {
    return *std::find_if(rows().begin(), rows().end(),
                         [&](const row& each) { return each.operation == operation; });
}

TEST(Arguments, EveryLsuGoesDownWithAll1024NameBytesAndTheNextLayersServer) {
    const std::set<std::string> with_own_lsu = {"open_image_list_v7", "open_image_group_list",
                                                "open_image_v10", "create_image_v10"};
    int records = 0;
    for (const row& each : rows()) {
        if (!has_parameter(each, parameter_t::lsu)) {
            continue;
        }
        SCOPED_TRACE(each.operation);
        row_world in(each);
        for (size_t i = 0; i < STS_LSU_NAME_SIZE; ++i) {
            in.lsu->name[i] = static_cast<char>(i % 251 + 1);
        }
        in.lsu->name[4] = '\0'; // all bytes behind it go down too
        sts_lsu_ref_s expected = *in.lsu;
        expected.server = in.server->next_server;
        const uint64_t given = reinterpret_cast<uint64_t>(in.lsu);
        const std::vector<next_call> calls = calls_of(in);
        ASSERT_EQ(calls.size(), 1U);
        const next_argument& lsu = calls[0].arguments[each.operation == "async_copy_image" ? 2 : 0];
        EXPECT_EQ(lsu.content, bytes_of(&expected, sizeof expected));
        EXPECT_NE(lsu.value, given);
        if (with_own_lsu.count(each.operation) == 0) {
            EXPECT_TRUE(is_on_stack(lsu.value));
        } else { // an image has it where a list has it
            const auto* const list = static_cast<const throttling_image_list_s*>(in.out);
            EXPECT_EQ(lsu.value, reinterpret_cast<uint64_t>(&list->next_lsu));
        }
        ++records;
    }
    EXPECT_EQ(records, 14);
}

TEST(Arguments, CopyParametersGoDownByValueAllTheir256Bytes) {
    row_world in(row_of("async_copy_image"));
    const std::vector<next_call> calls = calls_of(in);
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].arguments[6].content, bytes_of(&in.params, 256));
}

TEST(Arguments, FirstOfACopyIsNeverRead) {
    for (const uint64_t first : {uint64_t{0}, uint64_t{1}, ~uint64_t{0}}) {
        row_world in(row_of("async_copy_image"));
        std::vector<uint64_t> arguments = in.good_arguments();
        arguments[0] = first;
        in.call_with(arguments);
        EXPECT_EQ(in.status, STS_OK);
        EXPECT_THAT(in.story, testing::Contains("-> " + in.of.call));
    }
}

TEST(Arguments, FourthAndSeventhOfAnOpenedChannelAreNeverHandedOn) {
    row_world in(row_of("open_evchannel"));
    in.call();
    for (const std::string& line : in.story) {
        EXPECT_EQ(line.find("f4"), std::string::npos);
        EXPECT_EQ(line.find("f7"), std::string::npos);
    }
}

TEST(Arguments, ImagesOfACallThatTakesTwoAreToldApart) {
    for (const char* const name : {"include_in_image", "copy_extent"}) {
        row_world in(row_of(name));
        std::vector<uint64_t> arguments = in.good_arguments();
        std::swap(arguments[0], arguments[2]);
        in.call_with(arguments);
        ASSERT_EQ(in.story.size(), 1U);
        EXPECT_EQ(in.story[0].find(std::string("-> ") + name + "(other', f2, image', f4, f5, f6"),
                  0U);
    }
}

TEST(EntryMemory, OnlyWhatHandsOutAHandleOrUsesTheSettingsTakesAny) {
    std::set<std::string> takers;
    for (const row& each : rows()) {
        row_world in(each);
        in.call();
        if (in.memory.asked > 0 && !each.throttled) {
            takers.insert(each.operation);
        }
    }
    EXPECT_EQ(takers,
              (std::set<std::string>{"open_server_v7", "open_target_server", "open_image_v10",
                                     "create_image_v10", "open_lsu_list_v11", "open_image_list_v7",
                                     "open_image_group_list", "create_lsu", "async_copy_image",
                                     "open_evchannel", "get_server_config_v11",
                                     "set_server_config_v11", "ioctl_v9"}));
}

TEST(EntryMemory, HandlesTakeOneBlockEachAndAChannelOneMoreForItsName) {
    for (const auto& [operation, blocks] : std::map<std::string, int>{{"open_image_v10", 1},
                                                                      {"create_image_v10", 1},
                                                                      {"open_lsu_list_v11", 1},
                                                                      {"open_image_list_v7", 1},
                                                                      {"open_image_group_list", 1},
                                                                      {"create_lsu", 1},
                                                                      {"async_copy_image", 1},
                                                                      {"open_evchannel", 2}}) {
        row_world in(row_of(operation));
        in.call();
        EXPECT_EQ(in.memory.asked, blocks) << operation;
    }
}

TEST(EntryMemory, RelayOfTheConfigurationTakesNoMoreThanTheSettingsDo) {
    char type[] = "cloud";
    char storage[] = "s3";
    row_world in(row_of("get_server_config_v11"));
    char text[STS_CONFIG_SIZE];
    memory_meter::start();
    read_config_file_to_buf(&in.own_session, text, type, storage);
    const int asked = memory_meter::stop().asked;
    in.call();
    EXPECT_EQ(in.memory.asked, asked);

    row_world set(row_of("set_server_config_v11"));
    memory_meter::start();
    write_config_file_from_buf(&set.own_session, set.text.c_str(), type, storage);
    const int asked_by_write = memory_meter::stop().asked;
    set.call();
    EXPECT_EQ(set.memory.asked, asked_by_write);
}

} // namespace
