// Images: create, open, close, delete, properties.

#include "tests/conformance/storage.h"

#include <memory>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Image : public Storage {
  protected:
    std::unique_ptr<sts_image_info_s> info_of(const std::string& name) {
        auto info = std::make_unique<sts_image_info_s>();
        const sts_lsu_ref_s lsu = ref();
        const sts_image_def_s definition = image_def(name);
        EXPECT_EQ(call::get_image_prop_byname(&lsu, &definition, info.get()), STS_OK);
        return info;
    }
};

TEST_F(Image, KeepsWhatWasWritten) {
    store("image", "content");
    EXPECT_EQ(content_of("image"), "content");
    EXPECT_THAT(image_names(), ElementsAre("image"));
}

TEST_F(Image, IsThereOnceItIsClosedAsComplete) {
    const handle image = create("image");
    write(image, "content");
    EXPECT_EQ(open_status("image"), errno_status(ENOENT));
    EXPECT_THAT(image_names(), IsEmpty());
    EXPECT_EQ(close(image), STS_OK);
    EXPECT_EQ(content_of("image"), "content");
}

TEST_F(Image, ThatIsAbandonedIsntThere) {
    const handle image = create("image");
    write(image, "content");
    EXPECT_EQ(close(image, STS_CLOSE_ABANDON), STS_OK);
    EXPECT_EQ(open_status("image"), errno_status(ENOENT));
}

TEST_F(Image, IsGivenUpByACloseWithAnotherMode) {
    const handle image = create("image");
    EXPECT_EQ(close(image, 7), STS_ERR_INVALID);
    EXPECT_THAT(image_names(), IsEmpty());
}

TEST_F(Image, ThatIsThereIsntMadeAgain) {
    store("image", "content");
    const sts_lsu_ref_s lsu = ref();
    const sts_image_def_s definition = image_def("image");
    handle again;
    EXPECT_EQ(call::create_image(&lsu, &definition, STS_IMAGE_WRITE, out(again)),
              errno_status(EEXIST));
    EXPECT_EQ(again.value, nullptr);
    EXPECT_EQ(content_of("image"), "content");
}

TEST_F(Image, OfTwoThatAreMadeAtOnceTheFirstToBeWholeStays) {
    const handle first = create("image");
    const handle second = create("image");
    write(first, "first");
    write(second, "second");
    EXPECT_EQ(close(first), STS_OK);
    EXPECT_EQ(close(second), errno_status(EEXIST));
    EXPECT_EQ(content_of("image"), "first");
}

TEST_F(Image, IsReadInItsOldFormWhileItIsWrittenAgain) {
    store("image", "old content");
    const handle writer = open("image", STS_IMAGE_WRITE);
    write(writer, "new");
    EXPECT_EQ(content_of("image"), "old content");
    EXPECT_EQ(close(writer), STS_OK);
    EXPECT_EQ(content_of("image"), "new content");
}

TEST_F(Image, IsWrittenByWhoOpenedItForThatAlone) {
    store("image", "content");
    const handle reader = open("image");
    uint64_t written = 0;
    EXPECT_EQ(call::write_image(reader, 0, "x", 1, 0, &written), errno_status(EBADF));
    EXPECT_EQ(close(reader), STS_OK);
    EXPECT_EQ(content_of("image"), "content");
}

TEST_F(Image, KnowsNoOtherFlags) {
    store("image", "content");
    const sts_lsu_ref_s lsu = ref();
    const sts_image_def_s known = image_def("image");
    const sts_image_def_s fresh = image_def("fresh");
    handle opened;
    EXPECT_EQ(call::open_image(&lsu, &known, 64, out(opened)), STS_ERR_INVALID);
    EXPECT_EQ(call::create_image(&lsu, &fresh, 64, out(opened)), STS_ERR_INVALID);
    EXPECT_EQ(call::delete_image(&lsu, &known, 64), STS_ERR_INVALID);
    EXPECT_EQ(opened.value, nullptr);
    EXPECT_THAT(image_names(), ElementsAre("image"));
}

TEST_F(Image, HasItsProperties) {
    store("image", "content", "group");
    const auto info = info_of("image");
    EXPECT_STREQ(info->name, "image");
    EXPECT_STREQ(info->group, "group");
    EXPECT_STREQ(info->lsu, "lsu");
    EXPECT_EQ(info->size, 7U);
    EXPECT_GT(info->created, 0);
    EXPECT_GE(info->modified, info->created);
    EXPECT_EQ(info->server_name, server_name());
}

TEST_F(Image, ThatIsOpenHasTheSizeThatItHasNow) {
    const handle image = create("image", "group");
    write(image, "12345", 10);
    const auto info = std::make_unique<sts_image_info_s>();
    ASSERT_EQ(call::get_image_prop(image, info.get()), STS_OK);
    EXPECT_EQ(info->size, 15U);
    EXPECT_STREQ(info->group, "group");
    EXPECT_EQ(info->server_name, server_name());
    EXPECT_EQ(call::get_image_prop(image, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(close(image), STS_OK);
}

TEST_F(Image, ThatIsDeletedIsGone) {
    store("image", "content");
    EXPECT_EQ(delete_image("image"), STS_OK);
    EXPECT_THAT(image_names(), IsEmpty());
    EXPECT_EQ(delete_image("image"), errno_status(ENOENT));
}

TEST_F(Image, ThatIsDeletedIsStillReadByWhoHasItOpen) {
    store("image", "content");
    const handle reader = open("image");
    EXPECT_EQ(delete_image("image"), STS_OK);
    EXPECT_EQ(read(reader), "content");
    EXPECT_EQ(close(reader), STS_OK);
}

TEST_F(Image, ThatIsntThereGivesThatStatusEverywhere) {
    const sts_lsu_ref_s lsu = ref();
    const sts_image_def_s definition = image_def("missing");
    const auto info = std::make_unique<sts_image_info_s>();
    EXPECT_EQ(open_status("missing"), errno_status(ENOENT));
    EXPECT_EQ(delete_image("missing"), errno_status(ENOENT));
    EXPECT_EQ(call::get_image_prop_byname(&lsu, &definition, info.get()), errno_status(ENOENT));
}

TEST_F(Image, NeedsItsArguments) {
    const sts_lsu_ref_s lsu = ref();
    const sts_image_def_s definition = image_def("image");
    const auto info = std::make_unique<sts_image_info_s>();
    handle opened;
    EXPECT_EQ(call::create_image(nullptr, &definition, 0U, out(opened)), STS_ERR_INVALID);
    EXPECT_EQ(call::create_image(&lsu, nullptr, 0U, out(opened)), STS_ERR_INVALID);
    EXPECT_EQ(call::open_image(nullptr, &definition, 0U, out(opened)), STS_ERR_INVALID);
    EXPECT_EQ(call::open_image(&lsu, nullptr, 0U, out(opened)), STS_ERR_INVALID);
    EXPECT_EQ(call::open_image(&lsu, &definition, 0U, handle_place{nullptr}), STS_ERR_INVALID);
    EXPECT_EQ(call::delete_image(&lsu, nullptr, 0U), STS_ERR_INVALID);
    EXPECT_EQ(call::get_image_prop_byname(&lsu, &definition, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(call::get_image_prop_byname(&lsu, nullptr, info.get()), STS_ERR_INVALID);
    EXPECT_EQ(call::get_lsu_prop_byname(nullptr, nullptr), STS_ERR_INVALID);
}

} // namespace
