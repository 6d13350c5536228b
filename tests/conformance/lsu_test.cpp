// LSUs: create, find, label, list, properties, delete.

#include "tests/conformance/storage.h"

#include <filesystem>
#include <memory>

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Lsu : public Storage {
  protected:
    std::unique_ptr<sts_lsu_info_s> info_of(const std::string& lsu) {
        auto info = std::make_unique<sts_lsu_info_s>();
        const sts_lsu_ref_s reference = ref(lsu);
        EXPECT_EQ(call::get_lsu_prop_byname(&reference, info.get()), STS_OK);
        return info;
    }
    int find(const char* label, sts_lsu_entry_s& found) {
        return call::find_lsu(server, forward(label), forward(&found), 0, 0, 0);
    }
};

TEST_F(Lsu, IsADirectoryOfItsServer) {
    EXPECT_EQ(create_lsu("second"), STS_OK);
    EXPECT_TRUE(fs::is_directory(path("store/second")));
    EXPECT_THAT(lsu_names(), ElementsAre("lsu", "second"));
}

TEST_F(Lsu, ThatIsThereIsntMadeAgain) {
    const sts_lsu_def_s definition = lsu_def("lsu");
    handle made;
    EXPECT_EQ(call::create_lsu(server, &definition, out(made)), errno_status(EEXIST));
    EXPECT_TRUE(call::is_empty(made));
    EXPECT_EQ(made.value != nullptr, differs(rules::holders));
    call::release_lsu(made);
    EXPECT_THAT(lsu_names(), ElementsAre("lsu"));
}

TEST_F(Lsu, HasItsProperties) {
    ASSERT_EQ(create_lsu("second", "its label"), STS_OK);
    store("one", "12345", "", "second");
    store("two", "123", "", "second");
    const auto info = info_of("second");
    EXPECT_EQ(info->server_name, server_name());
    EXPECT_STREQ(info->name, "second");
    EXPECT_STREQ(info->label, "its label");
    EXPECT_EQ(info->image_count, 2U);
    EXPECT_EQ(info->used, 8U);
    EXPECT_GT(info->capacity, 0U);
    EXPECT_LE(info->free, info->capacity);
}

TEST_F(Lsu, IsFoundByItsLabel) {
    ASSERT_EQ(create_lsu("second", "its label"), STS_OK);
    sts_lsu_entry_s found = {};
    ASSERT_EQ(find("its label", found), STS_OK);
    EXPECT_STREQ(found.name, "second");
    EXPECT_EQ(find("another label", found), errno_status(ENOENT));
    EXPECT_STREQ(found.name, "second");
}

TEST_F(Lsu, GetsAnotherLabel) {
    const sts_lsu_ref_s lsu = ref();
    ASSERT_EQ(call::label_lsu(&lsu, forward("first")), STS_OK);
    ASSERT_EQ(call::label_lsu(&lsu, forward("second")), STS_OK);
    EXPECT_STREQ(info_of("lsu")->label, "second");
    sts_lsu_entry_s found = {};
    EXPECT_EQ(find("first", found), errno_status(ENOENT));
    EXPECT_EQ(find("second", found), STS_OK);
}

TEST_F(Lsu, KeepsItsLabelWhenAnotherIsTooLong) {
    const sts_lsu_ref_s lsu = ref();
    ASSERT_EQ(call::label_lsu(&lsu, forward("label")), STS_OK);
    EXPECT_EQ(call::label_lsu(&lsu, forward(std::string(512, 'x').c_str())), STS_ERR_INVALID);
    EXPECT_EQ(call::label_lsu(&lsu, 0), STS_ERR_INVALID);
    EXPECT_STREQ(info_of("lsu")->label, "label");
}

TEST_F(Lsu, CanBeDeletedWhenItIsEmpty) {
    ASSERT_EQ(create_lsu("second"), STS_OK);
    store("image", "content", "", "second");
    differs(rules::record_given_up);
    EXPECT_EQ(call::delete_lsu(ref("second")), errno_status(ENOTEMPTY));
    EXPECT_EQ(content_of("image", "second"), "content");
    EXPECT_EQ(delete_image("image", "second"), STS_OK);
    EXPECT_EQ(call::delete_lsu(ref("second")), STS_OK);
    EXPECT_THAT(lsu_names(), ElementsAre("lsu"));
}

TEST_F(Lsu, ThatIsntThereGivesThatStatusEverywhere) {
    const sts_lsu_ref_s lsu = ref("missing");
    const sts_image_def_s image = image_def("image");
    const auto info = std::make_unique<sts_lsu_info_s>();
    const auto image_info = std::make_unique<sts_image_info_s>();
    sts_image_group_s group = {};
    handle opened;
    const int missing = errno_status(ENOENT);
    EXPECT_EQ(call::get_lsu_prop_byname(&lsu, info.get()), missing);
    EXPECT_EQ(call::get_lsu_replication_prop(&lsu, 0, nullptr, 0, nullptr), missing);
    EXPECT_EQ(call::label_lsu(&lsu, forward("label")), missing);
    EXPECT_EQ(call::delete_lsu(lsu), missing);
    EXPECT_EQ(call::create_image(&lsu, &image, STS_IMAGE_WRITE, out(opened)), missing);
    EXPECT_EQ(call::open_image(&lsu, &image, STS_IMAGE_READ, out(opened)), missing);
    EXPECT_EQ(call::delete_image(&lsu, &image, 0), missing);
    EXPECT_EQ(call::get_image_prop_byname(&lsu, &image, image_info.get()), missing);
    EXPECT_EQ(call::get_image_group_byname(&lsu, forward("group"), forward(&group)), missing);
    EXPECT_EQ(call::open_image_list(&lsu, 0, out(opened)), missing);
    EXPECT_EQ(opened.value, nullptr);
}

TEST_F(Lsu, IsntMadeWithoutADefinition) {
    handle made;
    EXPECT_EQ(call::create_lsu(server, nullptr, out(made)), STS_ERR_INVALID);
    EXPECT_EQ(made.value, nullptr);
    const sts_lsu_def_s definition = lsu_def("second");
    EXPECT_EQ(call::create_lsu(server, &definition, handle_place{nullptr}), STS_ERR_INVALID);
    EXPECT_THAT(lsu_names(), ElementsAre("lsu"));
}

TEST_F(Lsu, ListIsThatOfTheMomentWhenItWasOpened) {
    ASSERT_EQ(create_lsu("second"), STS_OK);
    handle list;
    ASSERT_EQ(call::open_lsu_list(server, 0, out(list)), STS_OK);
    ASSERT_EQ(create_lsu("third"), STS_OK);
    ASSERT_EQ(call::delete_lsu(ref("second")), STS_OK);
    sts_lsu_entry_s entry = {};
    EXPECT_EQ(call::list_lsu(list, &entry), STS_OK);
    EXPECT_STREQ(entry.name, "lsu");
    EXPECT_EQ(call::list_lsu(list, &entry), STS_ERR_END_OF_LIST);
    EXPECT_EQ(call::list_lsu(list, &entry), STS_ERR_END_OF_LIST);
    EXPECT_EQ(call::list_lsu(list, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(call::close_lsu_list(list), STS_OK);
}

TEST_F(Lsu, HasNoPeersBeforeItsFirstCopy) {
    const sts_lsu_ref_s lsu = ref();
    sts_replication_peer_s sources[1];
    sts_replication_peer_s targets[1];
    memset(sources, 'x', sizeof sources);
    memset(targets, 'x', sizeof targets);
    EXPECT_EQ(call::get_lsu_replication_prop(&lsu, 1, sources, 1, targets), STS_OK);
    EXPECT_STREQ(sources[0].server_name, "");
    EXPECT_STREQ(targets[0].server_name, "");
    EXPECT_EQ(call::get_lsu_replication_prop(&lsu, 1, nullptr, 0, nullptr), STS_ERR_INVALID);
}

} // namespace
