// Hostile names: whatever a host calls an LSU or an image, nothing leaves the root, also not
// through any number of layers.

#include "tests/conformance/storage.h"

#include <filesystem>
#include <fstream>
#include <memory>

namespace fs = std::filesystem;

namespace {

const std::vector<std::string> bad_names = {
    "", ".", "..", "/", "a/b", "../x", "x/..", "/etc", "./x", "x/", std::string(255, 'x') + "/"};

class Names : public Storage {
  protected:
    /// Everything below the test's directory.
    std::vector<std::string> tree() { return tree_below(directory); }
};

TEST_F(Names, ThatDontStayInTheirDirectoryAreRefusedForImages) {
    const std::vector<std::string> before = tree();
    const sts_lsu_ref_s lsu = ref();
    const auto info = std::make_unique<sts_image_info_s>();
    for (const std::string& name : bad_names) {
        SCOPED_TRACE(name);
        const sts_image_def_s definition = image_def(name);
        handle image;
        EXPECT_EQ(call::create_image(&lsu, &definition, 0U, out(image)), STS_ERR_INVALID);
        EXPECT_EQ(call::open_image(&lsu, &definition, 0U, out(image)), STS_ERR_INVALID);
        EXPECT_EQ(call::delete_image(&lsu, &definition, 0U), STS_ERR_INVALID);
        EXPECT_EQ(call::get_image_prop_byname(&lsu, &definition, info.get()), STS_ERR_INVALID);
        EXPECT_EQ(image.value, nullptr);
    }
    EXPECT_THAT(tree(), testing::UnorderedElementsAreArray(before));
}

TEST_F(Names, ThatDontStayInTheirDirectoryAreRefusedForLsus) {
    const std::vector<std::string> before = tree();
    const sts_image_def_s definition = image_def("image");
    const auto info = std::make_unique<sts_lsu_info_s>();
    for (const std::string& name : bad_names) {
        SCOPED_TRACE(name);
        const sts_lsu_ref_s lsu = ref(name);
        handle opened;
        EXPECT_EQ(create_lsu(name), STS_ERR_INVALID);
        EXPECT_EQ(call::get_lsu_prop_byname(&lsu, info.get()), STS_ERR_INVALID);
        EXPECT_EQ(call::label_lsu(&lsu, forward("label")), STS_ERR_INVALID);
        EXPECT_EQ(call::delete_lsu(lsu), STS_ERR_INVALID);
        EXPECT_EQ(call::open_image_list(&lsu, 0, out(opened)), STS_ERR_INVALID);
        EXPECT_EQ(call::create_image(&lsu, &definition, 0U, out(opened)), STS_ERR_INVALID);
        EXPECT_EQ(opened.value, nullptr);
    }
    EXPECT_THAT(tree(), testing::UnorderedElementsAreArray(before));
}

TEST_F(Names, OfImagesMayBeAnyOtherBytes) {
    const std::vector<std::string> names = {"...",      ".hidden",
                                            "a b",      "new line\n",
                                            "\xff\xfe", "-rf",
                                            "a:b:c",    "CS_throttle:a:disk:x",
                                            "%s%n%p",   std::string(255, 'x')};
    for (const std::string& name : names) {
        store(name, "content of " + name, name);
        EXPECT_EQ(content_of(name), "content of " + name);
    }
    EXPECT_THAT(image_names(), testing::UnorderedElementsAreArray(names));
    for (const std::string& name : names) {
        EXPECT_EQ(delete_image(name), STS_OK) << name;
    }
}

TEST_F(Names, ThatArentTerminatedAreRefused) {
    const sts_image_def_s definition = image_def(std::string(STS_IMAGE_NAME_SIZE, 'x'));
    const sts_lsu_ref_s lsu = ref();
    handle opened;
    EXPECT_EQ(call::open_image(&lsu, &definition, 0U, out(opened)), STS_ERR_INVALID);
    const sts_lsu_ref_s endless = ref(std::string(STS_LSU_NAME_SIZE, 'x'));
    EXPECT_EQ(call::open_image_list(&endless, 0, out(opened)), STS_ERR_INVALID);
    EXPECT_EQ(opened.value, nullptr);
}

TEST_F(Names, OfLinksInPlaceOfAnImageArentFollowed) {
    fs::create_directories(path("outside"));
    std::ofstream(path("outside/data")) << "secret";
    store("image", "content");
    fs::create_directory_symlink(path("outside"), path("store/lsu/images/link"));
    EXPECT_EQ(open_status("link"), errno_status(ENOTDIR));
    EXPECT_EQ(delete_image("link"), errno_status(ENOENT));
    EXPECT_TRUE(fs::exists(path("outside/data")));
    EXPECT_THAT(image_names(), testing::ElementsAre("image"));
}

} // namespace
