// Lists of images and of groups, and the groups themselves.

#include "tests/conformance/storage.h"

#include <memory>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class List : public Storage {
  protected:
    handle open_list() {
        const sts_lsu_ref_s lsu = ref();
        handle list;
        EXPECT_EQ(call::open_image_list(&lsu, 0, out(list)), STS_OK);
        return list;
    }
};

TEST_F(List, GivesImagesInTheOrderOfTheirNames) {
    store("b", "12", "group");
    store("c", "123");
    store("a", "1");
    EXPECT_THAT(image_names(), ElementsAre("a", "b", "c"));
    const handle list = open_list();
    sts_image_entry_s entry = {};
    EXPECT_EQ(call::list_image(list, &entry), STS_OK);
    EXPECT_EQ(call::list_image(list, &entry), STS_OK);
    EXPECT_STREQ(entry.name, "b");
    EXPECT_STREQ(entry.group, "group");
    EXPECT_EQ(entry.size, 2U);
    EXPECT_EQ(call::list_image(list, &entry), STS_OK);
    EXPECT_EQ(call::list_image(list, &entry), STS_ERR_END_OF_LIST);
    EXPECT_EQ(call::list_image(list, &entry), STS_ERR_END_OF_LIST);
    EXPECT_STREQ(entry.name, "c"); // untouched
    EXPECT_EQ(call::list_image(list, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(call::close_image_list(list), STS_OK);
}

TEST_F(List, OfAnEmptyLsuIsAtItsEnd) { EXPECT_THAT(image_names(), IsEmpty()); }

TEST_F(List, PassesOverWhatHasGone) {
    store("a", "1");
    store("b", "2");
    const handle list = open_list();
    EXPECT_EQ(delete_image("a"), STS_OK);
    sts_image_entry_s entry = {};
    EXPECT_EQ(call::list_image(list, &entry), STS_OK);
    EXPECT_STREQ(entry.name, "b");
    EXPECT_EQ(call::close_image_list(list), STS_OK);
}

TEST_F(List, TellsThePropertiesOfTheImageThatItGaveLast) {
    store("a", "1");
    store("b", "12");
    const handle list = open_list();
    const auto info = std::make_unique<sts_image_info_s>();
    EXPECT_EQ(call::get_image_prop(list, info.get()), STS_ERR_END_OF_LIST);
    sts_image_entry_s entry = {};
    EXPECT_EQ(call::list_image(list, &entry), STS_OK);
    EXPECT_EQ(call::list_image(list, &entry), STS_OK);
    ASSERT_EQ(call::get_image_prop(list, info.get()), STS_OK);
    EXPECT_STREQ(info->name, "b");
    EXPECT_EQ(info->size, 2U);
    EXPECT_EQ(info->server_name, server_name());
    EXPECT_EQ(call::close_image_list(list), STS_OK);
}

TEST_F(List, IsOfTypeZero) {
    const sts_lsu_ref_s lsu = ref();
    handle list;
    EXPECT_EQ(call::open_image_list(&lsu, 1, out(list)), STS_ERR_INVALID);
    EXPECT_EQ(call::open_image_list(nullptr, 0, out(list)), STS_ERR_INVALID);
    EXPECT_EQ(call::open_image_list(&lsu, 0, handle_place{nullptr}), STS_ERR_INVALID);
    EXPECT_EQ(list.value, nullptr);
}

// --- groups -------------------------------------------------------------------------------------

TEST_F(List, OfGroupsGivesEachWithTheSizeOfItsImages) {
    store("a", "1", "x");
    store("b", "12", "y");
    store("c", "123", "x");
    store("d", "1234");
    const handle other = left_for_ever([this] { return open_server(); });
    const sts_lsu_ref_s lsu = ref_on(other);
    handle list;
    ASSERT_EQ(call::open_image_group_list(&lsu, 0, 0, out(list)), STS_OK);
    std::vector<std::string> groups;
    sts_image_entry_s entry = {};
    int status = STS_OK;
    while ((status = call::list_image(list, &entry)) == STS_OK) {
        groups.push_back(std::string(entry.name) + "=" + std::to_string(entry.size));
    }
    EXPECT_EQ(status, STS_ERR_END_OF_LIST);
    EXPECT_THAT(groups, ElementsAre("x=4", "y=2"));
    EXPECT_EQ(call::close_image_list(list), STS_OK);
    EXPECT_EQ(call::close_server(other), differs(rules::group_list_count) ? STS_ERR_BUSY : STS_OK);
}

TEST_F(List, OfGroupsHoldsItsServerUntilItIsClosed) {
    const handle other = left_for_ever([this] { return open_server(); });
    const sts_lsu_ref_s lsu = ref_on(other);
    handle list;
    const auto open = [&] { return call::open_image_group_list(&lsu, 0, 0, out(list)); };
    ASSERT_EQ(left_for_ever(open), STS_OK);
    if (differs(rules::group_list_holds_nothing)) {
        EXPECT_EQ(call::close_server(other), STS_OK);
        return;
    }
    EXPECT_EQ(call::close_server(other), STS_ERR_BUSY);
    EXPECT_EQ(call::close_image_list(list), STS_OK);
    EXPECT_EQ(call::close_server(other), STS_OK);
}

TEST_F(List, OfGroupsThatCantBeOpenedGivesItsStatus) {
    const sts_lsu_ref_s lsu = ref("missing");
    handle list;
    const auto open = [&] { return call::open_image_group_list(&lsu, 0, 0, out(list)); };
    EXPECT_EQ(left_for_ever(open), errno_status(ENOENT));
    EXPECT_EQ(list.value != nullptr, differs(rules::group_list_left_in_out));
    EXPECT_EQ(call::close_image_list(list), STS_ERR_INVALID);
}

TEST_F(List, GroupIsToldByItsNameAndByOneOfItsImages) {
    store("a", "1", "x");
    store("b", "123", "x");
    store("c", "12");
    const sts_lsu_ref_s lsu = ref();
    sts_image_group_s group = {};
    EXPECT_EQ(call::get_image_group_byname(&lsu, forward("x"), forward(&group)), STS_OK);
    EXPECT_STREQ(group.name, "x");
    EXPECT_EQ(group.image_count, 2U);
    EXPECT_EQ(group.size, 4U);
    EXPECT_EQ(call::get_image_group_byname(&lsu, forward("y"), forward(&group)),
              errno_status(ENOENT));
    EXPECT_EQ(call::get_image_group_byname(&lsu, 0, forward(&group)), STS_ERR_INVALID);

    const handle image = open("a");
    group = {};
    EXPECT_EQ(call::get_image_group(image, forward(&group), 0, 0, 0, 0), STS_OK);
    EXPECT_STREQ(group.name, "x");
    EXPECT_EQ(group.image_count, 2U);
    EXPECT_EQ(call::get_image_group(image, 0, 0, 0, 0, 0), STS_ERR_INVALID);
    EXPECT_EQ(close(image), STS_OK);
    const handle single = open("c");
    EXPECT_EQ(call::get_image_group(single, forward(&group), 0, 0, 0, 0), errno_status(ENOENT));
    EXPECT_EQ(close(single), STS_OK);
}

} // namespace
