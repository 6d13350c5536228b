// The bytes of images: data, metadata, extents, files.

#include "tests/platform/sts/disk_store.h"

#include <limits>

namespace {

constexpr auto last_position = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());

class StsTransfer : public DiskStore {
  protected:
    int read_status(sts_next_image_s* image, uint64_t length, uint64_t position) {
        char buffer[16] = {};
        return api->read_image(image, buffer, length, position, &count);
    }
    int write_status(sts_next_image_s* image, uint64_t length, uint64_t position) {
        return api->write_image(image, 0, "0123456789abcdef", length, position, &count);
    }
    int write_meta(sts_next_image_s* image, const std::string& text, uint64_t position = 0) {
        return api->write_image_meta(image, forward(text.data()), text.size(), position,
                                     forward(&count), 0);
    }
    std::string meta_of(sts_next_image_s* image, uint64_t length = 100, uint64_t position = 0) {
        std::string text(length, '?');
        EXPECT_EQ(
            api->read_image_meta(image, forward(text.data()), length, position, forward(&count), 0),
            STS_OK);
        text.resize(count);
        return text;
    }

    uint64_t count = 77;
};

TEST_F(StsTransfer, ReadsWhatWasWrittenAnywhere) {
    sts_next_image_s* const image = create("image");
    write(image, "world", 6);
    write(image, "hello ", 0);
    EXPECT_EQ(read(image, 5, 3), "lo wo");
    EXPECT_EQ(read(image), "hello world");
}

TEST_F(StsTransfer, FillsAGapWithZeros) {
    sts_next_image_s* const image = create("image");
    write(image, "x", 3);
    EXPECT_EQ(read(image), std::string("\0\0\0x", 4));
}

TEST_F(StsTransfer, GivesFewerBytesAtTheEnd) {
    store("image", "12345");
    sts_next_image_s* const image = open("image");
    EXPECT_EQ(read(image, 10, 3), "45");
    EXPECT_EQ(read(image, 10, 5), "");
    EXPECT_EQ(read(image, 10, last_position - 10), "");
}

TEST_F(StsTransfer, OfNoBytesDoesNothing) {
    sts_next_image_s* const image = create("image");
    EXPECT_EQ(write_status(image, 0, 100), STS_OK);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(read_status(image, 0, 0), STS_OK);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(read(image), "");
}

TEST_F(StsTransfer, RefusesPositionsThatNoFileHas) {
    sts_next_image_s* const image = create("image");
    EXPECT_EQ(read_status(image, 1, last_position), STS_ERR_INVALID);
    EXPECT_EQ(read_status(image, 1, last_position + 1), STS_ERR_INVALID);
    EXPECT_EQ(read_status(image, ~0UL, 0), STS_ERR_INVALID);
    EXPECT_EQ(read_status(image, 2, ~0UL), STS_ERR_INVALID);
    EXPECT_EQ(write_status(image, 1, last_position), STS_ERR_INVALID);
    EXPECT_EQ(write_status(image, 1, ~0UL), STS_ERR_INVALID);
    EXPECT_EQ(count, 0U);
}

TEST_F(StsTransfer, RefusesNullBuffersAndCounts) {
    sts_next_image_s* const image = create("image");
    char byte = 0;
    EXPECT_EQ(api->read_image(image, nullptr, 1, 0, &count), STS_ERR_INVALID);
    EXPECT_EQ(api->read_image(image, &byte, 1, 0, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(api->write_image(image, 0, nullptr, 1, 0, &count), STS_ERR_INVALID);
    EXPECT_EQ(api->write_image(image, 0, &byte, 1, 0, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(count, 77U);
}

TEST_F(StsTransfer, WritesNothingToAnImageThatIsOpenForReading) {
    store("image", "content");
    sts_next_image_s* const image = open("image");
    sts_next_image_s* const other = create("other");
    EXPECT_EQ(write_status(image, 1, 0), errno_status(EBADF));
    EXPECT_EQ(write_meta(image, "x"), errno_status(EBADF));
    EXPECT_EQ(api->delete_files(image, STS_FILES_DATA, 0, 0, 0, 0), errno_status(EBADF));
    EXPECT_EQ(api->copy_extent(image, 0, other, 0, 0, forward(&count), 0), errno_status(EBADF));
    EXPECT_EQ(api->include_in_image(image, 0, other, forward(&count), 0, 0), errno_status(EBADF));
    EXPECT_EQ(read(image), "content");
}

TEST_F(StsTransfer, FlushesData) {
    sts_next_image_s* const image = create("image");
    write(image, "content");
    EXPECT_EQ(api->flush(image, 0, 0, 0, 0, 0), STS_OK);
    EXPECT_EQ(write_meta(image, "meta"), STS_OK);
    EXPECT_EQ(api->flush(image, 0, 0, 0, 0, 0), STS_OK);
    EXPECT_EQ(close(image), STS_OK);
    EXPECT_EQ(api->flush(open("image"), 0, 0, 0, 0, 0), STS_OK);
}

// --- metadata

TEST_F(StsTransfer, KeepsMetadataBesideTheData) {
    sts_next_image_s* const image = create("image");
    write(image, "content");
    EXPECT_EQ(meta_of(image), "");
    EXPECT_EQ(write_meta(image, "some text"), STS_OK);
    EXPECT_EQ(count, 9U);
    EXPECT_EQ(write_meta(image, "more", 5), STS_OK);
    EXPECT_EQ(meta_of(image), "some more");
    EXPECT_EQ(close(image), STS_OK);
    sts_next_image_s* const reader = open("image");
    EXPECT_EQ(meta_of(reader), "some more");
    EXPECT_EQ(meta_of(reader, 2, 5), "mo");
    EXPECT_EQ(meta_of(reader, 10, 100), "");
    EXPECT_EQ(read(reader), "content");
}

TEST_F(StsTransfer, TakesMetadataOverWhenAnImageIsWrittenAgain) {
    sts_next_image_s* const image = create("image");
    EXPECT_EQ(write_meta(image, "old meta"), STS_OK);
    EXPECT_EQ(close(image), STS_OK);
    sts_next_image_s* const reader = open("image");
    sts_next_image_s* const writer = open("image", STS_IMAGE_WRITE);
    EXPECT_EQ(meta_of(writer), "old meta");
    EXPECT_EQ(write_meta(writer, "new"), STS_OK);
    EXPECT_EQ(close(writer), STS_OK);
    EXPECT_EQ(meta_of(open("image")), "new meta");
    EXPECT_EQ(meta_of(reader), "old meta");
}

TEST_F(StsTransfer, HasNoMetadataWhereNoneWasWritten) {
    store("image", "content");
    EXPECT_EQ(meta_of(open("image")), "");
}

TEST_F(StsTransfer, RefusesNullForMetadata) {
    sts_next_image_s* const image = create("image");
    char byte = 0;
    EXPECT_EQ(api->read_image_meta(image, 0, 1, 0, forward(&count), 0), STS_ERR_INVALID);
    EXPECT_EQ(api->read_image_meta(image, forward(&byte), 1, 0, 0, 0), STS_ERR_INVALID);
    EXPECT_EQ(api->write_image_meta(image, 0, 1, 0, forward(&count), 0), STS_ERR_INVALID);
    EXPECT_EQ(api->write_image_meta(image, forward(&byte), 1, 0, 0, 0), STS_ERR_INVALID);
    EXPECT_EQ(api->write_image_meta(image, forward(&byte), 1, ~0UL, forward(&count), 0),
              STS_ERR_INVALID);
}

// --- extents

TEST_F(StsTransfer, CopiesAnExtent) {
    store("source", "0123456789");
    sts_next_image_s* const target = create("target");
    write(target, "abcdefghij");
    sts_next_image_s* const source = open("source");
    EXPECT_EQ(api->copy_extent(target, 2, source, 5, 3, forward(&count), 0), STS_OK);
    EXPECT_EQ(count, 3U);
    EXPECT_EQ(read(target), "ab567fghij");
}

TEST_F(StsTransfer, CopiesAnExtentUpToTheEndOfItsSource) {
    store("source", "0123456789");
    sts_next_image_s* const target = create("target");
    sts_next_image_s* const source = open("source");
    EXPECT_EQ(api->copy_extent(target, 0, source, 8, 100, forward(&count), 0), STS_OK);
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(read(target), "89");
    EXPECT_EQ(api->copy_extent(target, 0, source, 10, 100, forward(&count), 0), STS_OK);
    EXPECT_EQ(count, 0U);
}

TEST_F(StsTransfer, CopiesAnExtentWithinOneImageWhereItDoesntOverlap) {
    sts_next_image_s* const image = create("image");
    write(image, "0123456789");
    EXPECT_EQ(api->copy_extent(image, 5, image, 0, 5, forward(&count), 0), STS_OK);
    EXPECT_EQ(read(image), "0123401234");
    EXPECT_EQ(api->copy_extent(image, 4, image, 0, 5, forward(&count), 0), STS_ERR_INVALID);
    EXPECT_EQ(api->copy_extent(image, 0, image, 4, 5, forward(&count), 0), STS_ERR_INVALID);
    EXPECT_EQ(read(image), "0123401234");
}

TEST_F(StsTransfer, RefusesExtentsThatNoFileHas) {
    store("source", "0123456789");
    sts_next_image_s* const source = open("source");
    sts_next_image_s* const target = create("target");
    EXPECT_EQ(api->copy_extent(target, ~0UL, source, 0, 2, forward(&count), 0), STS_ERR_INVALID);
    EXPECT_EQ(api->copy_extent(target, 0, source, ~0UL, 2, forward(&count), 0), STS_ERR_INVALID);
    EXPECT_EQ(api->copy_extent(target, 0, source, 0, ~0UL, forward(&count), 0), STS_ERR_INVALID);
    EXPECT_EQ(api->copy_extent(target, 0, source, 0, 1, 0, 0), STS_ERR_INVALID);
    EXPECT_EQ(api->include_in_image(target, ~0UL, source, forward(&count), 0, 0), STS_ERR_INVALID);
    EXPECT_EQ(api->include_in_image(target, 0, source, 0, 0, 0), STS_ERR_INVALID);
    EXPECT_EQ(read(target), "");
}

TEST_F(StsTransfer, IncludesAWholeImageInAnother) {
    store("source", "0123456789");
    sts_next_image_s* const target = create("target");
    write(target, "ab");
    EXPECT_EQ(api->include_in_image(target, 2, open("source"), forward(&count), 0, 0), STS_OK);
    EXPECT_EQ(count, 10U);
    EXPECT_EQ(read(target), "ab0123456789");
}

TEST_F(StsTransfer, DoesntIncludeAnImageInItself) {
    sts_next_image_s* const image = create("image");
    write(image, "0123");
    EXPECT_EQ(api->include_in_image(image, 2, image, forward(&count), 0, 0), STS_ERR_INVALID);
    EXPECT_EQ(api->include_in_image(image, 4, image, forward(&count), 0, 0), STS_OK);
    EXPECT_EQ(read(image), "01230123");
}

// --- files

TEST_F(StsTransfer, DeletesTheFilesThatAreNamed) {
    sts_next_image_s* const image = create("image");
    write(image, "content");
    EXPECT_EQ(write_meta(image, "meta"), STS_OK);
    EXPECT_EQ(api->delete_files(image, STS_FILES_DATA, 0, 0, 0, 0), STS_OK);
    EXPECT_EQ(read(image), "");
    EXPECT_EQ(meta_of(image), "meta");
    write(image, "again");
    EXPECT_EQ(api->delete_files(image, STS_FILES_META, 0, 0, 0, 0), STS_OK);
    EXPECT_EQ(api->delete_files(image, STS_FILES_META, 0, 0, 0, 0), STS_OK);
    EXPECT_EQ(read(image), "again");
    EXPECT_EQ(meta_of(image), "");
    EXPECT_EQ(api->delete_files(image, 0, 0, 0, 0, 0), STS_ERR_INVALID);
    EXPECT_EQ(api->delete_files(image, 4, 0, 0, 0, 0), STS_ERR_INVALID);
}

} // namespace
