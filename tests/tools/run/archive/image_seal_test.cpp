// A seal of any length is read a part at a time, and isn't believed unless it is whole.

#include "tools/run/archive/image_seal.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

constexpr uint64_t pieces = 100000; // some 600 KiB of seal

/// The seal of an image with headers of 512 bytes and contents between them.
std::string made_seal(const std::string& name) {
    std::string seal;
    seal_maker maker(name, [&](const std::string& bytes) { seal += bytes; });
    const std::string block(512, 'x');
    uint64_t position = 0;
    for (uint64_t piece = 0; piece < pieces; ++piece) {
        maker.begin(piece % 2 == 0 ? piece_kind::header : piece_kind::content, position);
        maker.take(block.data(), block.size());
        position += block.size();
    }
    maker.finish();
    return seal;
}

/// What a storage gives that never gives more than `most` bytes.
image_seal::source source_of(const std::string& seal, uint64_t most, uint64_t& largest) {
    return [&seal, most, &largest](char* buffer, uint64_t length, uint64_t position) {
        largest = std::max(largest, length);
        return position < seal.size() ? seal.copy(buffer, std::min(length, most), position) : 0;
    };
}

TEST(ImageSeal, IsReadAPartAtATime) {
    const std::string name(255, 'n');
    const std::string seal = made_seal(name);
    for (const uint64_t most : {uint64_t{1} << 30, uint64_t{100000}, uint64_t{5001}}) {
        uint64_t largest = 0;
        std::optional<image_seal> read = image_seal::read(source_of(seal, most, largest));
        ASSERT_TRUE(read);
        EXPECT_EQ(read->image(), name);
        EXPECT_EQ(read->entries(), pieces / 2);
        EXPECT_EQ(read->length(), pieces * 512);
        for (uint64_t piece = 0; piece < pieces; ++piece) {
            const std::optional<image_piece> next = read->next();
            ASSERT_TRUE(next);
            ASSERT_EQ(next->length, 512U);
            ASSERT_EQ(next->kind, piece % 2 == 0 ? piece_kind::header : piece_kind::content);
        }
        EXPECT_FALSE(read->next());
        EXPECT_LE(largest, 256U * 1024);
    }
}

TEST(ImageSeal, IsRefusedWhenAnythingOfItIsOther) {
    const std::string seal = made_seal("image");
    uint64_t largest = 0;
    const auto is_taken = [&](const std::string& bytes) {
        return image_seal::read(source_of(bytes, bytes.size(), largest)).has_value();
    };
    EXPECT_TRUE(is_taken(seal));
    for (size_t place = 0; place < seal.size(); place += 20011) {
        std::string other = seal;
        other[place] = static_cast<char>(other[place] ^ 1);
        EXPECT_FALSE(is_taken(other)) << place;
    }
    for (size_t place = 1; place <= 64; ++place) {
        std::string other = seal;
        other[seal.size() - place] = static_cast<char>(other[seal.size() - place] ^ 1);
        EXPECT_FALSE(is_taken(other)) << place;
    }
    EXPECT_FALSE(is_taken(seal.substr(0, seal.size() - 1)));
    EXPECT_FALSE(is_taken(seal + "x"));
    EXPECT_FALSE(is_taken("short"));
}

TEST(ImageSeal, EndsWhereTheStorageEndsMeanwhile) {
    std::string seal = made_seal("image");
    uint64_t largest = 0;
    std::optional<image_seal> read = image_seal::read(source_of(seal, seal.size(), largest));
    ASSERT_TRUE(read);
    seal.resize(seal.size() / 2);
    uint64_t count = 0;
    while (read->next()) {
        ++count;
    }
    EXPECT_LT(count, pieces);
}

} // namespace
