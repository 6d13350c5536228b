// Hostile names: whatever a caller calls an LSU, an image or a group, nothing leaves the root.

#include "tests/platform/sts/disk_store.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::UnorderedElementsAreArray;

namespace {

const std::vector<std::string> bad_names = {
    "", ".", "..", "/", "a/b", "../x", "x/..", "/etc", "./x", "x/", std::string(255, 'x') + "/"};

const std::vector<std::string> good_names = {"a",
                                             "...",
                                             ".hidden",
                                             " ",
                                             "a b",
                                             "new line\n",
                                             "\xff\xfe",
                                             "-rf",
                                             "$(touch x)",
                                             "data",
                                             "header",
                                             "images",
                                             "new",
                                             "label",
                                             "lsu",
                                             "a:b:c",
                                             "%s%n%p",
                                             "\x01\x02",
                                             std::string(255, 'x')};

class StsNames : public DiskStore {
  protected:
    /// The status of every call that names an image.
    void expect_image_statuses(const sts_image_def_s& definition, int expected) {
        const sts_lsu_ref_s lsu = ref();
        sts_next_image_s* image = nullptr;
        const auto info = std::make_unique<sts_image_info_s>();
        EXPECT_EQ(api->create_image(&lsu, &definition, 0, &image), expected);
        EXPECT_EQ(api->open_image(&lsu, &definition, 0, &image), expected);
        EXPECT_EQ(api->open_image(&lsu, &definition, STS_IMAGE_WRITE, &image), expected);
        EXPECT_EQ(api->delete_image(&lsu, &definition, 0), expected);
        EXPECT_EQ(api->get_image_prop_byname(&lsu, &definition, info.get()), expected);
        EXPECT_EQ(image, nullptr);
    }
    /// The status of every call that names an LSU.
    void expect_lsu_statuses(const sts_lsu_ref_s& lsu, int expected) {
        const sts_image_def_s definition = image_def("image");
        sts_next_image_s* image = nullptr;
        sts_next_image_list_s* list = nullptr;
        sts_next_operation_s* operation = nullptr;
        sts_image_group_s group = {};
        const sts_copy_target_s target = {};
        const auto image_info = std::make_unique<sts_image_info_s>();
        const auto lsu_info = std::make_unique<sts_lsu_info_s>();
        EXPECT_EQ(api->create_image(&lsu, &definition, 0, &image), expected);
        EXPECT_EQ(api->open_image(&lsu, &definition, 0, &image), expected);
        EXPECT_EQ(api->delete_image(&lsu, &definition, 0), expected);
        EXPECT_EQ(api->get_image_prop_byname(&lsu, &definition, image_info.get()), expected);
        EXPECT_EQ(api->get_image_group_byname(&lsu, forward("group"), forward(&group)), expected);
        EXPECT_EQ(api->get_lsu_prop_byname(&lsu, lsu_info.get()), expected);
        EXPECT_EQ(api->get_lsu_replication_prop(&lsu, 0, nullptr, 0, nullptr), expected);
        EXPECT_EQ(api->label_lsu(&lsu, forward("label")), expected);
        EXPECT_EQ(api->delete_lsu(&lsu), expected);
        EXPECT_EQ(api->open_image_list(&lsu, 0, &list), expected);
        EXPECT_EQ(api->open_image_group_list(&lsu, 0, 0, &list), expected);
        EXPECT_EQ(api->async_copy_image(nullptr, forward(&definition), &lsu, forward(&target),
                                        &operation, 0, {}),
                  expected);
    }
    /// Everything below the test's directory.
    std::vector<std::string> tree() { return tree_below(directory); }
};

TEST_F(StsNames, ThatDontStayInTheirDirectoryAreRefusedForImages) {
    const std::vector<std::string> before = tree();
    for (const std::string& name : bad_names) {
        SCOPED_TRACE(name);
        expect_image_statuses(image_def(name), STS_ERR_INVALID);
    }
    EXPECT_THAT(tree(), UnorderedElementsAreArray(before));
}

TEST_F(StsNames, ThatDontStayInTheirDirectoryAreRefusedForLsus) {
    const std::vector<std::string> before = tree();
    for (const std::string& name : bad_names) {
        SCOPED_TRACE(name);
        expect_lsu_statuses(ref(name), STS_ERR_INVALID);
        sts_lsu_def_s definition = {};
        memcpy(definition.name, name.data(), name.size());
        void* lsu = nullptr;
        EXPECT_EQ(api->create_lsu(server, &definition, &lsu), STS_ERR_INVALID);
    }
    EXPECT_THAT(tree(), UnorderedElementsAreArray(before));
}

TEST_F(StsNames, ThatArentTerminatedAreRefused) {
    sts_image_def_s definition = {};
    memset(definition.name, 'x', sizeof definition.name);
    expect_image_statuses(definition, STS_ERR_INVALID);

    sts_lsu_ref_s lsu = ref();
    memset(lsu.name, 'x', sizeof lsu.name);
    expect_lsu_statuses(lsu, STS_ERR_INVALID);

    sts_lsu_def_s lsu_definition = {};
    strcpy(lsu_definition.name, "second");
    memset(lsu_definition.label, 'x', sizeof lsu_definition.label);
    void* made = nullptr;
    EXPECT_EQ(api->create_lsu(server, &lsu_definition, &made), STS_ERR_INVALID);
    EXPECT_THAT(lsu_names(), ElementsAre("lsu"));

    sts_image_def_s grouped = image_def("image");
    memset(grouped.group, 'x', sizeof grouped.group);
    const sts_lsu_ref_s good_lsu = ref();
    sts_next_image_s* image = nullptr;
    EXPECT_EQ(api->create_image(&good_lsu, &grouped, 0, &image), STS_ERR_INVALID);
}

TEST_F(StsNames, OfLsusAreAtMostAsLongAsAFileNameCanBe) {
    create_lsu(std::string(255, 'x'));
    expect_lsu_statuses(ref(std::string(256, 'x')), STS_ERR_INVALID);
    expect_lsu_statuses(ref(std::string(1023, 'x')), STS_ERR_INVALID);
}

TEST_F(StsNames, OfImagesMayBeAnyOtherBytes) {
    for (const std::string& name : good_names) {
        store(name, "content of " + name, name);
        EXPECT_EQ(content_of(name), "content of " + name);
    }
    EXPECT_THAT(image_names(), UnorderedElementsAreArray(good_names));
    for (const std::string& name : good_names) {
        EXPECT_EQ(delete_image(name), STS_OK) << name;
    }
}

TEST_F(StsNames, BehindTheTerminatorDontMatter) {
    store("image", "content");
    sts_image_def_s definition = image_def("image");
    memset(definition.name + 6, '/', sizeof definition.name - 6);
    sts_lsu_ref_s lsu = ref();
    memset(lsu.name + 4, '/', sizeof lsu.name - 4);
    sts_next_image_s* image = nullptr;
    ASSERT_EQ(api->open_image(&lsu, &definition, 0, &image), STS_OK);
    EXPECT_EQ(read(image), "content");
}

TEST_F(StsNames, OfACopysTargetAreChecked) {
    store("image", "content");
    const sts_lsu_ref_s lsu = ref();
    const sts_image_def_s source = image_def("image");
    sts_next_operation_s* operation = nullptr;
    const auto copy_to = [&](const std::string& lsu_name, const std::string& image) {
        sts_copy_target_s target = {};
        memcpy(target.lsu, lsu_name.data(), lsu_name.size());
        memcpy(target.image, image.data(), std::min(image.size(), sizeof target.image));
        return api->async_copy_image(nullptr, forward(&source), &lsu, forward(&target), &operation,
                                     0, {});
    };
    for (const std::string& name : bad_names) {
        EXPECT_EQ(copy_to(name, "copy"), STS_ERR_INVALID) << name;
        EXPECT_EQ(copy_to("lsu", name), STS_ERR_INVALID) << name;
    }
    EXPECT_EQ(operation, nullptr);
}

TEST_F(StsNames, OfAnEventSourceAreChecked) {
    sts_next_evchannel_s* channel = nullptr;
    ASSERT_EQ(api->open_evchannel(session, 0, 0, &channel), STS_OK);
    sts_event_source_s source = {};
    memset(source.lsu, 'x', sizeof source.lsu);
    EXPECT_EQ(api->add_evsource(channel, 0, 0, server_name().c_str(), &source, 0), STS_ERR_INVALID);
}

// --- links that somebody put into the tree

class StsLinks : public StsNames {
  protected:
    StsLinks() {
        fs::create_directories(path("outside/images/image"));
        std::ofstream(path("outside/images/image/data")) << "secret";
        store("image", "content");
    }
};

TEST_F(StsLinks, InPlaceOfAnLsuArentFollowed) {
    fs::create_directory_symlink(path("outside"), path("store/link"));
    expect_lsu_statuses(ref("link"), errno_status(ENOTDIR));
}

TEST_F(StsLinks, InPlaceOfTheImagesArentFollowed) {
    create_lsu("second");
    fs::create_directory_symlink(path("outside/images"), path("store/second/images"));
    EXPECT_EQ(open_status("image", STS_IMAGE_READ, "second"), errno_status(ENOTDIR));
    EXPECT_EQ(delete_image("image", "second"), errno_status(ENOENT));
    sts_next_image_s* const image = create("other", "", "second");
    EXPECT_EQ(close(image), errno_status(ENOTDIR));
    EXPECT_TRUE(fs::exists(path("outside/images/image/data")));
    EXPECT_FALSE(fs::exists(path("outside/images/other")));
}

TEST_F(StsLinks, InPlaceOfAnImageArentFollowed) {
    fs::create_directory_symlink(path("outside/images/image"), path("store/lsu/images/link"));
    EXPECT_EQ(open_status("link"), errno_status(ENOTDIR));
    EXPECT_EQ(delete_image("link"), errno_status(ENOENT));
    EXPECT_THAT(image_names(), ElementsAre("image"));
}

TEST_F(StsLinks, InPlaceOfTheDraftsArentFollowed) {
    create_lsu("second");
    fs::create_directory(path("store/second/images"));
    fs::create_directory_symlink(path("outside"), path("store/second/new"));
    const sts_lsu_ref_s lsu = ref("second");
    const sts_image_def_s definition = image_def("image");
    sts_next_image_s* image = nullptr;
    EXPECT_EQ(api->create_image(&lsu, &definition, 0, &image), errno_status(ENOTDIR));
    open_server(); // cleans up drafts, but not behind the link
    EXPECT_TRUE(fs::exists(path("outside/images/image/data")));
}

TEST_F(StsLinks, InPlaceOfAnImagesFilesArentFollowed) {
    for (const char* const file : {"data", "header"}) {
        const std::string name = std::string("with linked ") + file;
        store(name, "content");
        const std::string replaced = path("store/lsu/images/" + name + "/" + file);
        fs::remove(replaced);
        fs::create_symlink(path("outside/images/image/data"), replaced);
        EXPECT_EQ(open_status(name), errno_status(ELOOP)) << name;
        EXPECT_EQ(delete_image(name), STS_OK) << name;
    }
    fs::create_symlink(path("outside/images/image/data"), path("store/lsu/images/image/meta"));
    EXPECT_EQ(open_status("image"), errno_status(ELOOP));
    EXPECT_EQ(delete_image("image"), STS_OK);
    EXPECT_TRUE(fs::exists(path("outside/images/image/data")));
}

TEST_F(StsLinks, InPlaceOfWhereLsusAreMadeArentFollowed) {
    fs::remove_all(path("store/.new"));
    fs::create_directory_symlink(path("outside"), path("store/.new"));
    const sts_lsu_def_s definition = lsu_def("second", "label");
    void* made = nullptr;
    EXPECT_EQ(api->create_lsu(server, &definition, &made), errno_status(ENOTDIR));
    EXPECT_EQ(delete_image("image"), STS_OK);
    const sts_lsu_ref_s lsu = ref();
    EXPECT_EQ(api->delete_lsu(&lsu), errno_status(ENOTDIR));
    open_server(); // cleans up, but not behind the link
    EXPECT_TRUE(fs::exists(path("outside/images/image/data")));
    EXPECT_THAT(lsu_names(), ElementsAre("lsu"));
}

TEST_F(StsLinks, InPlaceOfTheServersOwnFilesArentFollowed) {
    fs::create_directory(path("links"));
    fs::create_directory_symlink(path("outside"), path("links/.server"));
    sts_next_server_s* const linked = open_server("links");
    char error[200] = {};
    EXPECT_EQ(api->set_server_config(linked, "name=STS:EVENTS_KEPT,value=1,fixed=n;", error,
                                     sizeof error),
              errno_status(ENOTDIR));
    EXPECT_FALSE(fs::exists(path("outside/settings")));
}

} // namespace
