// Properties, the one group of forwarded operations with something of its own to do: the full
// server name goes back up, and an image or an image list will do for the properties of an image.

#include "tests/plugin/frame.h"

#include <array>
#include <cstring>

namespace {

class Forwarded : public Frame {
  protected:
    Forwarded() { info.fill('Z'); }

    template <typename Info>
    Info* info_as() {
        return reinterpret_cast<Info*>(info.data());
    }
    /// The record holds that name in 512 bytes, zeros behind it, and is otherwise as it was.
    void expect_name_alone(size_t offset, const std::string& name) {
        std::array<char, 8192> expected;
        expected.fill('Z');
        memset(expected.data() + offset, 0, STS_NAME_SIZE);
        memcpy(expected.data() + offset, name.data(), name.size());
        EXPECT_TRUE(info == expected);
    }

    std::array<char, 8192> info;
    server_ptr server = open();
};

TEST_F(Forwarded, ImagePropertiesAreTakenFromAnImageAndAnImageListAlike) {
    const sts_lsu_ref_s lsu = lsu_of(server.get());
    const image_ptr image = open_image(server);
    throttling_image_list_s* list = nullptr;
    ASSERT_EQ(throttling_open_image_list_v7(&lsu, 4, &list), STS_OK);
    next_layer().name(image->next_image, "image'");
    next_layer().name(list->next_list, "list'");
    next_layer().name(info.data(), "info");
    forget();
    EXPECT_EQ(throttling_get_image_prop_v10(image.get(), info_as<sts_image_info_s>()), STS_OK);
    EXPECT_EQ(take_story(), lines{"-> get_image_prop(image', info)"});
    expect_name_alone(6360, "CS_throttle:cloud:disk:s3");
    info.fill('Z');
    EXPECT_EQ(throttling_get_image_prop_v10(list, info_as<sts_image_info_s>()), STS_OK);
    EXPECT_EQ(take_story(), lines{"-> get_image_prop(list', info)"});
    expect_name_alone(6360, "CS_throttle:cloud:disk:s3");
    EXPECT_EQ(throttling_close_image_list_v7(list), STS_OK);
}

TEST_F(Forwarded, NameOfTheServerTakesTheWholeFieldOverWhatTheNextLayerLeft) {
    const std::string longest = "CS_throttle:cloud:disk:" + std::string(488, 's');
    ASSERT_EQ(longest.size(), 511U);
    const server_ptr longer = open(longest);
    const sts_lsu_ref_s lsu = lsu_of(longer.get());
    next_layer().effects["get_lsu_prop_byname"] = [&](const next_call& call) {
        memset(call.pointer<char>(1) + 8, 'n', STS_NAME_SIZE); // not even terminated
    };
    EXPECT_EQ(throttling_get_lsu_prop_byname_v11(&lsu, info_as<sts_lsu_info_s>()), STS_OK);
    expect_name_alone(8, longest);
    info.fill('Z');
    EXPECT_EQ(throttling_get_image_prop_byname_v10(&lsu, image_def, info_as<sts_image_info_s>()),
              STS_OK);
    expect_name_alone(6360, longest);
}

TEST_F(Forwarded, RecordOfAFailedCallIsLeftAsTheNextLayerLeftIt) {
    const sts_lsu_ref_s lsu = lsu_of(server.get());
    next_layer().answers["get_lsu_prop_byname"] = 4711;
    next_layer().effects["get_lsu_prop_byname"] = [&](const next_call& call) {
        strcpy(call.pointer<char>(1) + 8, "disk:s3");
    };
    EXPECT_EQ(throttling_get_lsu_prop_byname_v11(&lsu, info_as<sts_lsu_info_s>()), 4711);
    EXPECT_STREQ(info.data() + 8, "disk:s3");
    EXPECT_TRUE(has_logged(STS_SEV_ERROR, "[throttling_get_lsu_prop_byname_v9]fail to call the "
                                          "next plugin in the stack, error code = 4711"));
}

TEST_F(Forwarded, ReplicationPropertiesWithoutANextLayerSucceedAndLeaveTheirOutputsAlone) {
    const server_ptr end = open("CS_throttle:global:");
    const sts_lsu_ref_s lsu = lsu_of(end.get());
    int first = 1;
    int second = 2;
    EXPECT_EQ(throttling_get_lsu_replication_prop(&lsu, 3, &first, 4, &second), STS_OK);
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 2);
    EXPECT_EQ(take_story(), (lines{"3 [throttling_get_lsu_replication_prop]enter.",
                                   "3 [throttling_get_lsu_replication_prop]leave."}));
}

TEST_F(Forwarded, DeletionOfAnImageLeavesNoLineOfLeavingWhereItFails) {
    const sts_lsu_ref_s lsu = lsu_of(server.get());
    next_layer().answers["delete_image"] = 2060013; // no end of a list here
    EXPECT_EQ(throttling_delete_image_v10(&lsu, image_def, 3), 2060013);
    EXPECT_EQ(
        take_story(),
        (lines{"3 [throttling_delete_image_v10]enter.",
               "-> delete_image({#2 \"lsu1\"}, image_def, 3)",
               error_line("throttling_delete_image_v10",
                          "fail to call the next plugin in the stack, error code = 2060013")}));
}

} // namespace
