// Images of the storage library: when they are there, what is known about them, when they go.

#include "tests/platform/sts/disk_store.h"
#include "tests/support/virtual_clock.h"

#include <filesystem>

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class StsImage : public DiskStore {
  protected:
    sts_image_info_s info_by_name(const std::string& name) {
        const sts_lsu_ref_s lsu = ref();
        const sts_image_def_s definition = image_def(name);
        sts_image_info_s info = {};
        EXPECT_EQ(api->get_image_prop_byname(&lsu, &definition, &info), STS_OK);
        return info;
    }
    sts_image_info_s info_of(void* handle) {
        sts_image_info_s info = {};
        EXPECT_EQ(api->get_image_prop(handle, &info), STS_OK);
        return info;
    }
    int status_of_creating(const std::string& name, uint32_t flags = STS_IMAGE_WRITE,
                           const std::string& lsu_name = "lsu") {
        const sts_lsu_ref_s lsu = ref(lsu_name);
        const sts_image_def_s definition = image_def(name);
        sts_next_image_s* image = nullptr;
        const int status = api->create_image(&lsu, &definition, flags, &image);
        if (status == STS_OK) {
            EXPECT_EQ(close(image, STS_CLOSE_ABANDON), STS_OK);
        }
        return status;
    }
    bool has_drafts() { return !fs::is_empty(path("store/lsu/new")); }
};

TEST_F(StsImage, IsThereOnceItIsClosedAsComplete) {
    sts_next_image_s* const image = create("image");
    write(image, "content");
    EXPECT_EQ(open_status("image"), errno_status(ENOENT));
    EXPECT_THAT(image_names(), IsEmpty());
    EXPECT_EQ(close(image), STS_OK);
    EXPECT_THAT(image_names(), ElementsAre("image"));
    EXPECT_EQ(content_of("image"), "content");
    EXPECT_FALSE(has_drafts());
}

TEST_F(StsImage, LeavesNothingWhenItIsAbandoned) {
    sts_next_image_s* const image = create("image");
    write(image, "content");
    EXPECT_EQ(close(image, STS_CLOSE_ABANDON), STS_OK);
    EXPECT_EQ(open_status("image"), errno_status(ENOENT));
    EXPECT_FALSE(has_drafts());
}

TEST_F(StsImage, IsGivenUpByAModeThatIsntKnown) {
    sts_next_image_s* const image = create("image");
    EXPECT_EQ(close(image, 7), STS_ERR_INVALID);
    EXPECT_EQ(close(image), STS_ERR_INVALID); // the handle is gone
    EXPECT_EQ(open_status("image"), errno_status(ENOENT));
    EXPECT_FALSE(has_drafts());
}

TEST_F(StsImage, MayBeEmpty) {
    store("image", "");
    EXPECT_EQ(content_of("image"), "");
    EXPECT_EQ(info_by_name("image").size, 0U);
}

TEST_F(StsImage, IsntCreatedWhereThereIsOne) {
    store("image", "content");
    EXPECT_EQ(status_of_creating("image"), errno_status(EEXIST));
    EXPECT_EQ(content_of("image"), "content");
}

TEST_F(StsImage, OfTheWriterThatClosesFirstIsTheOneThatStays) {
    sts_next_image_s* const first = create("image");
    sts_next_image_s* const second = create("image");
    write(first, "first");
    write(second, "second");
    EXPECT_EQ(close(second), STS_OK);
    EXPECT_EQ(close(first), errno_status(EEXIST));
    EXPECT_EQ(close(first), STS_ERR_INVALID); // the handle is gone all the same
    EXPECT_EQ(content_of("image"), "second");
    EXPECT_FALSE(has_drafts());
}

TEST_F(StsImage, WrittenAgainIsSeenWholeByItsReaders) {
    store("image", "old content");
    sts_next_image_s* const before = open("image");
    sts_next_image_s* const writer = open("image", STS_IMAGE_WRITE);
    EXPECT_EQ(read(writer), "old content"); // a writer reads too
    write(writer, "new");
    EXPECT_EQ(content_of("image"), "old content");
    EXPECT_EQ(close(writer), STS_OK);
    EXPECT_EQ(content_of("image"), "new content");
    EXPECT_EQ(read(before), "old content");
    EXPECT_EQ(close(before), STS_OK);
    EXPECT_FALSE(has_drafts());
}

TEST_F(StsImage, KeepsWhatItWasWhenAWriterAbandonsIt) {
    store("image", "old content");
    sts_next_image_s* const writer = open("image", STS_IMAGE_READ | STS_IMAGE_WRITE);
    write(writer, "new");
    EXPECT_EQ(close(writer, STS_CLOSE_ABANDON), STS_OK);
    EXPECT_EQ(content_of("image"), "old content");
}

TEST_F(StsImage, IsntWrittenAgainAfterItWasDeleted) {
    store("image", "content");
    sts_next_image_s* const writer = open("image", STS_IMAGE_WRITE);
    EXPECT_EQ(delete_image("image"), STS_OK);
    EXPECT_EQ(close(writer), errno_status(ENOENT));
    EXPECT_THAT(image_names(), IsEmpty());
    EXPECT_FALSE(has_drafts());
}

TEST_F(StsImage, IsReadWithoutFlags) {
    store("image", "content");
    sts_next_image_s* const image = open("image", 0);
    EXPECT_EQ(read(image), "content");
    uint64_t written = 0;
    EXPECT_EQ(api->write_image(image, 0, "x", 1, 0, &written), errno_status(EBADF));
}

TEST_F(StsImage, RefusesFlagsThatArentKnown) {
    store("image", "content");
    EXPECT_EQ(open_status("image", 4), STS_ERR_INVALID);
    EXPECT_EQ(open_status("image", 0x80000001), STS_ERR_INVALID);
    EXPECT_EQ(status_of_creating("other", 4), STS_ERR_INVALID);
    const sts_lsu_ref_s lsu = ref();
    const sts_image_def_s definition = image_def("image");
    EXPECT_EQ(api->delete_image(&lsu, &definition, 1), STS_ERR_INVALID);
    EXPECT_EQ(content_of("image"), "content");
}

TEST_F(StsImage, IsNotFoundWhereTheLsuIsMissing) {
    EXPECT_EQ(open_status("image", STS_IMAGE_READ, "none"), errno_status(ENOENT));
    EXPECT_EQ(status_of_creating("image", STS_IMAGE_WRITE, "none"), errno_status(ENOENT));
    EXPECT_EQ(delete_image("image", "none"), errno_status(ENOENT));
    EXPECT_FALSE(fs::exists(path("store/none")));
}

TEST_F(StsImage, TellsItsPropertiesByHandleAndByName) {
    virtual_clock clock(1000);
    sts_next_image_s* const image = create("image", "group");
    write(image, "12345");
    sts_image_info_s info = info_of(image);
    EXPECT_STREQ(info.name, "image");
    EXPECT_EQ(info.size, 5U);
    EXPECT_EQ(info.created, 1000);
    clock.set(1060);
    EXPECT_EQ(close(image), STS_OK);
    sts_next_image_s* const reader = open("image");
    for (const sts_image_info_s& each : {info_of(reader), info_by_name("image")}) {
        EXPECT_STREQ(each.name, "image");
        EXPECT_STREQ(each.group, "group");
        EXPECT_STREQ(each.lsu, "lsu");
        EXPECT_STREQ(each.server_name, server_name().c_str());
        EXPECT_EQ(each.size, 5U);
        EXPECT_EQ(each.created, 1000);
        EXPECT_EQ(each.modified, 1060);
    }
}

TEST_F(StsImage, KeepsItsGroupAndTimeOfCreationWhenItIsWrittenAgain) {
    virtual_clock clock(1000);
    store("image", "content", "group");
    clock.set(2000);
    sts_next_image_s* const writer = open("image", STS_IMAGE_WRITE);
    EXPECT_EQ(close(writer), STS_OK);
    const sts_image_info_s info = info_by_name("image");
    EXPECT_STREQ(info.group, "group");
    EXPECT_EQ(info.created, 1000);
    EXPECT_EQ(info.modified, 2000);
}

TEST_F(StsImage, IsDeletedUnderItsReaders) {
    store("image", "content");
    sts_next_image_s* const reader = open("image");
    EXPECT_EQ(delete_image("image"), STS_OK);
    EXPECT_EQ(open_status("image"), errno_status(ENOENT));
    EXPECT_EQ(delete_image("image"), errno_status(ENOENT));
    EXPECT_EQ(read(reader), "content");
    EXPECT_FALSE(has_drafts());
}

TEST_F(StsImage, CanBeCreatedAgainAfterItWasDeleted) {
    store("image", "old");
    EXPECT_EQ(delete_image("image"), STS_OK);
    store("image", "new");
    EXPECT_EQ(content_of("image"), "new");
}

TEST_F(StsImage, IsThereForEveryServerOnTheSameRoot) {
    store("image", "content");
    sts_next_server_s* const other = open_server();
    const sts_lsu_ref_s lsu = [&] {
        sts_lsu_ref_s reference = ref();
        reference.server = other;
        return reference;
    }();
    const sts_image_def_s definition = image_def("image");
    sts_next_image_s* image = nullptr;
    ASSERT_EQ(api->open_image(&lsu, &definition, STS_IMAGE_READ, &image), STS_OK);
    EXPECT_EQ(read(image), "content");
}

TEST_F(StsImage, ThatIsBeingWrittenSurvivesTheOpenOfAnotherServer) {
    sts_next_image_s* const image = create("image");
    write(image, "content");
    open_server();
    EXPECT_EQ(close(image), STS_OK);
    EXPECT_EQ(content_of("image"), "content");
}

TEST_F(StsImage, IsOnTheDiskAlsoWithoutWaitingForIt) {
    set("STS:SYNC_AT_CLOSE", 0);
    store("image", "content");
    EXPECT_EQ(content_of("image"), "content");
}

TEST_F(StsImage, RefusesNullArguments) {
    const sts_lsu_ref_s lsu = ref();
    const sts_image_def_s definition = image_def("image");
    sts_next_image_s* image = nullptr;
    sts_image_info_s info = {};
    EXPECT_EQ(api->create_image(nullptr, &definition, 0, &image), STS_ERR_INVALID);
    EXPECT_EQ(api->create_image(&lsu, nullptr, 0, &image), STS_ERR_INVALID);
    EXPECT_EQ(api->create_image(&lsu, &definition, 0, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(api->open_image(nullptr, &definition, 0, &image), STS_ERR_INVALID);
    EXPECT_EQ(api->open_image(&lsu, nullptr, 0, &image), STS_ERR_INVALID);
    EXPECT_EQ(api->open_image(&lsu, &definition, 0, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(api->delete_image(nullptr, &definition, 0), STS_ERR_INVALID);
    EXPECT_EQ(api->delete_image(&lsu, nullptr, 0), STS_ERR_INVALID);
    EXPECT_EQ(api->get_image_prop_byname(nullptr, &definition, &info), STS_ERR_INVALID);
    EXPECT_EQ(api->get_image_prop_byname(&lsu, nullptr, &info), STS_ERR_INVALID);
    EXPECT_EQ(api->get_image_prop_byname(&lsu, &definition, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(image, nullptr);
}

} // namespace
