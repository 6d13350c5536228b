// Lists of images, groups and LSUs.

#include "tests/platform/sts/disk_store.h"

#include <filesystem>

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class StsList : public DiskStore {
  protected:
    sts_next_image_list_s* open_list() {
        const sts_lsu_ref_s lsu = ref();
        sts_next_image_list_s* list = nullptr;
        EXPECT_EQ(api->open_image_list(&lsu, 0, &list), STS_OK);
        return list;
    }
    sts_image_group_s group_by_name(const std::string& name) {
        const sts_lsu_ref_s lsu = ref();
        sts_image_group_s group = {};
        EXPECT_EQ(api->get_image_group_byname(&lsu, forward(name.c_str()), forward(&group)),
                  STS_OK);
        return group;
    }
    std::vector<std::string> group_names() {
        const sts_lsu_ref_s lsu = ref();
        sts_next_image_list_s* list = nullptr;
        EXPECT_EQ(api->open_image_group_list(&lsu, 0, 0, &list), STS_OK);
        std::vector<std::string> names;
        sts_image_entry_s entry = {};
        while (api->list_image(list, &entry) == STS_OK) {
            names.push_back(std::string(entry.name) + "=" + std::to_string(entry.size));
        }
        EXPECT_EQ(close(list), STS_OK);
        return names;
    }
};

TEST_F(StsList, GivesImagesInTheOrderOfTheirNames) {
    store("b", "12", "group");
    store("c", "123");
    store("a", "1");
    sts_next_image_list_s* const list = open_list();
    sts_image_entry_s entry = {};
    ASSERT_EQ(api->list_image(list, &entry), STS_OK);
    EXPECT_STREQ(entry.name, "a");
    EXPECT_STREQ(entry.group, "");
    EXPECT_EQ(entry.size, 1U);
    ASSERT_EQ(api->list_image(list, &entry), STS_OK);
    EXPECT_STREQ(entry.name, "b");
    EXPECT_STREQ(entry.group, "group");
    EXPECT_EQ(entry.size, 2U);
    ASSERT_EQ(api->list_image(list, &entry), STS_OK);
    EXPECT_STREQ(entry.name, "c");
    EXPECT_EQ(api->list_image(list, &entry), STS_ERR_END_OF_LIST);
    EXPECT_EQ(api->list_image(list, &entry), STS_ERR_END_OF_LIST);
    EXPECT_STREQ(entry.name, "c"); // untouched
    EXPECT_EQ(api->list_image(list, nullptr), STS_ERR_INVALID);
}

TEST_F(StsList, OfAnEmptyLsuIsAtItsEnd) {
    EXPECT_THAT(image_names(), IsEmpty());
    EXPECT_THAT(group_names(), IsEmpty());
}

TEST_F(StsList, PassesOverImagesThatHaveGone) {
    store("a", "1");
    store("b", "2");
    store("c", "3");
    sts_next_image_list_s* const list = open_list();
    EXPECT_EQ(delete_image("b"), STS_OK);
    store("d", "4"); // came too late
    sts_image_entry_s entry = {};
    ASSERT_EQ(api->list_image(list, &entry), STS_OK);
    ASSERT_EQ(api->list_image(list, &entry), STS_OK);
    EXPECT_STREQ(entry.name, "c");
    EXPECT_EQ(api->list_image(list, &entry), STS_ERR_END_OF_LIST);
}

TEST_F(StsList, TellsADamagedImageAndGoesOnBehindIt) {
    store("a", "1");
    store("b", "2");
    store("c", "3");
    fs::remove(path("store/lsu/images/b/header"));
    sts_next_image_list_s* const list = open_list();
    sts_image_entry_s entry = {};
    EXPECT_EQ(api->list_image(list, &entry), STS_OK);
    EXPECT_EQ(api->list_image(list, &entry), errno_status(EBADMSG));
    EXPECT_STREQ(entry.name, "a");
    EXPECT_EQ(api->list_image(list, &entry), STS_OK);
    EXPECT_STREQ(entry.name, "c");
}

TEST_F(StsList, HasThePropertiesOfTheImageItGaveLast) {
    store("a", "1", "group");
    store("b", "22");
    sts_next_image_list_s* const list = open_list();
    sts_image_entry_s entry = {};
    sts_image_info_s info = {};
    EXPECT_EQ(api->get_image_prop(list, &info), STS_ERR_END_OF_LIST);
    ASSERT_EQ(api->list_image(list, &entry), STS_OK);
    ASSERT_EQ(api->get_image_prop(list, &info), STS_OK);
    EXPECT_STREQ(info.name, "a");
    EXPECT_STREQ(info.group, "group");
    EXPECT_STREQ(info.lsu, "lsu");
    EXPECT_STREQ(info.server_name, server_name().c_str());
    ASSERT_EQ(api->list_image(list, &entry), STS_OK);
    ASSERT_EQ(api->get_image_prop(list, &info), STS_OK);
    EXPECT_EQ(info.size, 2U);
    EXPECT_EQ(delete_image("b"), STS_OK);
    EXPECT_EQ(api->get_image_prop(list, &info), errno_status(ENOENT));
    EXPECT_EQ(api->list_image(list, &entry), STS_ERR_END_OF_LIST);
    EXPECT_EQ(api->get_image_prop(list, &info), STS_ERR_END_OF_LIST);
    EXPECT_EQ(api->get_image_prop(list, nullptr), STS_ERR_INVALID);
}

TEST_F(StsList, RefusesTypesThatArentKnown) {
    const sts_lsu_ref_s lsu = ref();
    sts_next_image_list_s* list = nullptr;
    for (const int32_t type : {1, -1, 7}) {
        EXPECT_EQ(api->open_image_list(&lsu, type, &list), STS_ERR_INVALID);
        EXPECT_EQ(api->open_image_group_list(&lsu, 0, type, &list), STS_ERR_INVALID);
    }
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(api->open_image_list(&lsu, 0, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(api->open_image_group_list(&lsu, 0, 0, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(api->open_lsu_list(server, 0, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(close(server), STS_OK); // nothing counts as open
}

TEST_F(StsList, OfAMissingLsuIsntOpened) {
    const sts_lsu_ref_s lsu = ref("none");
    sts_next_image_list_s* list = nullptr;
    EXPECT_EQ(api->open_image_list(&lsu, 0, &list), errno_status(ENOENT));
    EXPECT_EQ(api->open_image_group_list(&lsu, 0, 0, &list), errno_status(ENOENT));
    EXPECT_EQ(close(server), STS_OK);
}

TEST_F(StsList, GivesLsusThatAreStillThere) {
    create_lsu("a");
    create_lsu("b");
    sts_next_lsu_list_s* list = nullptr;
    ASSERT_EQ(api->open_lsu_list(server, 0, &list), STS_OK);
    const sts_lsu_ref_s gone = ref("a");
    ASSERT_EQ(api->delete_lsu(&gone), STS_OK);
    sts_lsu_entry_s entry = {};
    ASSERT_EQ(api->list_lsu(list, &entry), STS_OK);
    EXPECT_STREQ(entry.name, "b");
    ASSERT_EQ(api->list_lsu(list, &entry), STS_OK);
    EXPECT_STREQ(entry.name, "lsu");
    EXPECT_EQ(api->list_lsu(list, &entry), STS_ERR_END_OF_LIST);
    EXPECT_EQ(api->list_lsu(list, nullptr), STS_ERR_INVALID);
}

// --- groups

TEST_F(StsList, GivesGroupsWithTheSizeOfTheirImages) {
    store("a", "1", "x");
    store("b", "22", "y");
    store("c", "333", "x");
    store("d", "4444");
    EXPECT_THAT(group_names(), ElementsAre("x=4", "y=2"));
}

TEST_F(StsList, HasNoImagePropertiesForAGroup) {
    store("a", "1", "x");
    const sts_lsu_ref_s lsu = ref();
    sts_next_image_list_s* list = nullptr;
    ASSERT_EQ(api->open_image_group_list(&lsu, 0, 0, &list), STS_OK);
    sts_image_entry_s entry = {};
    sts_image_info_s info = {};
    ASSERT_EQ(api->list_image(list, &entry), STS_OK);
    EXPECT_EQ(api->get_image_prop(list, &info), STS_ERR_END_OF_LIST);
}

TEST_F(StsList, FindsAGroupByNameAndByImage) {
    store("a", "1", "x");
    store("b", "22", "x");
    store("c", "333", "y");
    sts_image_group_s by_handle = {};
    ASSERT_EQ(api->get_image_group(open("b"), forward(&by_handle), 0, 0, 0, 0), STS_OK);
    for (const sts_image_group_s& each : {by_handle, group_by_name("x")}) {
        EXPECT_STREQ(each.name, "x");
        EXPECT_EQ(each.image_count, 2U);
        EXPECT_EQ(each.size, 3U);
    }
}

TEST_F(StsList, CountsAnImageInItsGroupOnceItIsComplete) {
    sts_next_image_s* const image = create("a", "x");
    sts_image_group_s group = {};
    ASSERT_EQ(api->get_image_group(image, forward(&group), 0, 0, 0, 0), STS_OK);
    EXPECT_STREQ(group.name, "x");
    EXPECT_EQ(group.image_count, 0U);
    EXPECT_EQ(close(image), STS_OK);
    EXPECT_EQ(group_by_name("x").image_count, 1U);
    EXPECT_EQ(delete_image("a"), STS_OK);
    EXPECT_THAT(group_names(), IsEmpty());
}

TEST_F(StsList, FindsNoGroupWhereThereIsNone) {
    store("a", "1");
    const sts_lsu_ref_s lsu = ref();
    sts_image_group_s group = {};
    EXPECT_EQ(api->get_image_group_byname(&lsu, forward("x"), forward(&group)),
              errno_status(ENOENT));
    EXPECT_EQ(api->get_image_group(open("a"), forward(&group), 0, 0, 0, 0), errno_status(ENOENT));
    EXPECT_EQ(api->get_image_group_byname(&lsu, forward(""), forward(&group)), STS_ERR_INVALID);
    EXPECT_EQ(api->get_image_group_byname(&lsu, 0, forward(&group)), STS_ERR_INVALID);
    EXPECT_EQ(api->get_image_group_byname(&lsu, forward("x"), 0), STS_ERR_INVALID);
    EXPECT_EQ(api->get_image_group(open("a"), 0, 0, 0, 0, 0), STS_ERR_INVALID);
}

} // namespace
