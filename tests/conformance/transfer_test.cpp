// The bytes of images: data, metadata, extents, files.

#include "tests/conformance/storage.h"

#include <thread>

using testing::IsEmpty;

namespace {

class Transfer : public Storage {
  protected:
    int write_meta(handle image, const std::string& content, uint64_t position = 0) {
        uint64_t count = 0;
        const int status = call::write_image_meta(image, forward(content.data()), content.size(),
                                                  position, forward(&count), 0);
        EXPECT_EQ(count, status == STS_OK ? content.size() : 0);
        return status;
    }
    std::string read_meta(handle image, uint64_t position = 0) {
        std::string content(100, '?');
        uint64_t count = 0;
        EXPECT_EQ(call::read_image_meta(image, forward(content.data()), content.size(), position,
                                        forward(&count), 0),
                  STS_OK);
        content.resize(count);
        return content;
    }
    int flush(handle image) { return call::flush(image, 0, 0, 0, 0, 0); }
};

TEST_F(Transfer, WritesAndReadsAnywhere) {
    const handle image = create("image");
    write(image, "end", 1000);
    write(image, "begin", 0);
    EXPECT_EQ(close(image), STS_OK);
    const handle reader = open("image");
    EXPECT_EQ(read(reader, 5, 0), "begin");
    EXPECT_EQ(read(reader, 100, 1000), "end");
    EXPECT_EQ(read(reader, 3, 500), std::string(3, '\0'));
    EXPECT_EQ(read(reader, 100, 1003), "");
    EXPECT_EQ(read(reader, 100, 5000), "");
    EXPECT_EQ(close(reader), STS_OK);
}

TEST_F(Transfer, ReadsWhatIsBeingWritten) {
    const handle image = create("image");
    write(image, "content");
    EXPECT_EQ(read(image, 100, 3), "tent");
    EXPECT_EQ(close(image), STS_OK);
}

TEST_F(Transfer, MovesMoreThanAMebibyteAtOnce) {
    std::string content(5 << 20, '\0');
    for (size_t each = 0; each < content.size(); ++each) {
        content[each] = static_cast<char>(each * 31 + each / 4099);
    }
    store("image", content);
    const handle reader = open("image");
    EXPECT_EQ(read(reader, content.size() + 1), content);
    EXPECT_EQ(close(reader), STS_OK);
}

TEST_F(Transfer, OfNothingMovesNothing) {
    const handle image = create("image");
    uint64_t moved = 99;
    EXPECT_EQ(call::write_image(image, 0, "x", 0, 0, &moved), STS_OK);
    EXPECT_EQ(moved, 0U);
    EXPECT_EQ(close(image), STS_OK);
    EXPECT_EQ(content_of("image"), "");
}

TEST_F(Transfer, NeedsItsArguments) {
    const handle image = create("image");
    char buffer[1] = {};
    uint64_t moved = 0;
    EXPECT_EQ(call::read_image(image, nullptr, 1, 0, &moved), STS_ERR_INVALID);
    EXPECT_EQ(call::read_image(image, buffer, 1, 0, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(call::read_image(handle{}, buffer, 1, 0, &moved), STS_ERR_INVALID);
    EXPECT_EQ(call::write_image(image, 0, nullptr, 1, 0, &moved), STS_ERR_INVALID);
    EXPECT_EQ(call::write_image(image, 0, buffer, 1, 0, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(call::write_image(handle{}, 0, buffer, 1, 0, &moved), STS_ERR_INVALID);
    EXPECT_EQ(call::read_image_meta(image, 0, 1, 0, forward(&moved), 0), STS_ERR_INVALID);
    EXPECT_EQ(call::read_image_meta(image, forward(buffer), 1, 0, 0, 0), STS_ERR_INVALID);
    EXPECT_EQ(call::write_image_meta(image, 0, 1, 0, forward(&moved), 0), STS_ERR_INVALID);
    EXPECT_EQ(call::copy_extent(image, 0, image, 10, 5, 0, 0), STS_ERR_INVALID);
    EXPECT_EQ(close(image), STS_OK);
}

TEST_F(Transfer, RefusesAPositionThatNoFileHas) {
    const handle image = create("image");
    uint64_t moved = 0;
    char buffer[16] = {};
    EXPECT_EQ(call::write_image(image, 0, buffer, 16, ~uint64_t{0} - 4, &moved), STS_ERR_INVALID);
    EXPECT_EQ(moved, 0U);
    EXPECT_EQ(close(image), STS_OK);
    EXPECT_EQ(content_of("image"), "");
}

TEST_F(Transfer, KeepsMetadataBesideTheData) {
    const handle image = create("image");
    write(image, "content");
    EXPECT_EQ(read_meta(image), "");
    EXPECT_EQ(write_meta(image, "about it"), STS_OK);
    EXPECT_EQ(write_meta(image, "!", 8), STS_OK);
    EXPECT_EQ(flush(image), STS_OK);
    EXPECT_EQ(close(image), STS_OK);
    const handle reader = open("image");
    EXPECT_EQ(read_meta(reader), "about it!");
    EXPECT_EQ(read_meta(reader, 6), "it!");
    EXPECT_EQ(write_meta(reader, "x"), errno_status(EBADF));
    EXPECT_EQ(flush(reader), STS_OK);
    EXPECT_EQ(read(reader), "content");
    EXPECT_EQ(close(reader), STS_OK);
}

TEST_F(Transfer, CopiesAnExtentFromOneImageToAnother) {
    store("source", "0123456789");
    const handle from = open("source");
    const handle to = create("target");
    write(to, "abcdefghij");
    uint64_t copied = 0;
    EXPECT_EQ(call::copy_extent(to, 2, from, 5, 3, forward(&copied), 0), STS_OK);
    EXPECT_EQ(copied, 3U);
    EXPECT_EQ(call::copy_extent(to, 20, from, 8, 100, forward(&copied), 0), STS_OK);
    EXPECT_EQ(copied, 2U);
    EXPECT_EQ(call::copy_extent(from, 0, to, 0, 1, forward(&copied), 0), errno_status(EBADF));
    EXPECT_EQ(close(to), STS_OK);
    EXPECT_EQ(close(from), STS_OK);
    EXPECT_EQ(content_of("target"), "ab567fghij" + std::string(10, '\0') + "89");
}

TEST_F(Transfer, IncludesAWholeImageInAnother) {
    store("source", "0123456789");
    const handle from = open("source");
    const handle to = create("target");
    write(to, "ab");
    uint64_t copied = 0;
    EXPECT_EQ(call::include_in_image(to, 2, from, forward(&copied), 0, 0), STS_OK);
    EXPECT_EQ(copied, 10U);
    EXPECT_EQ(close(to), STS_OK);
    EXPECT_EQ(close(from), STS_OK);
    EXPECT_EQ(content_of("target"), "ab0123456789");
}

TEST_F(Transfer, DeletesTheFilesThatAreNamed) {
    const handle image = create("image");
    write(image, "content");
    EXPECT_EQ(write_meta(image, "about it"), STS_OK);
    EXPECT_EQ(call::delete_files(image, STS_FILES_DATA, 0, 0, 0, 0), STS_OK);
    EXPECT_EQ(read(image), "");
    EXPECT_EQ(read_meta(image), "about it");
    EXPECT_EQ(call::delete_files(image, STS_FILES_META, 0, 0, 0, 0), STS_OK);
    EXPECT_EQ(read_meta(image), "");
    EXPECT_EQ(call::delete_files(image, 64, 0, 0, 0, 0), STS_ERR_INVALID);
    EXPECT_EQ(close(image), STS_OK);
    const handle reader = open("image");
    EXPECT_EQ(call::delete_files(reader, STS_FILES_DATA, 0, 0, 0, 0), errno_status(EBADF));
    EXPECT_EQ(close(reader), STS_OK);
}

TEST_F(Transfer, OfSeveralImagesMayComeFromAsManyThreads) {
    constexpr size_t count = 4;
    std::vector<handle> images;
    for (size_t each = 0; each < count; ++each) {
        images.push_back(create("image" + std::to_string(each)));
    }
    std::vector<std::thread> threads;
    std::vector<uint64_t> moved(count);
    for (size_t each = 0; each < count; ++each) {
        threads.emplace_back([&, each] {
            const std::string block(1000, static_cast<char>('a' + each));
            for (uint64_t at = 0; at < 100; ++at) {
                uint64_t written = 0;
                if (call::write_image(images[each], 0, block.data(), block.size(),
                                      at * block.size(), &written) == STS_OK) {
                    moved[each] += written;
                }
            }
        });
    }
    for (std::thread& each : threads) {
        each.join();
    }
    for (size_t each = 0; each < count; ++each) {
        EXPECT_EQ(moved[each], 100000U);
        EXPECT_EQ(close(images[each]), STS_OK);
        EXPECT_EQ(content_of("image" + std::to_string(each)),
                  std::string(100000, static_cast<char>('a' + each)));
    }
}

} // namespace
