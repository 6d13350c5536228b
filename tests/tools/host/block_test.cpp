// What --block takes.

#include "tools/host/command.h"

#include <gtest/gtest.h>

namespace {

constexpr uint64_t usual = 256 * 1024;

/// The block of "--block TEXT"; 0 when it is refused.
uint64_t block_of(const std::string& text) {
    CLI::App app;
    uint64_t block = usual;
    add_block_option(app, block);
    try {
        app.parse(std::vector<std::string>{text, "--block"}); // back to front
    } catch (const CLI::ParseError&) {
        return 0;
    }
    return block;
}

TEST(Block, IsTheDefaultUnlessGiven) {
    CLI::App app;
    uint64_t block = usual;
    add_block_option(app, block);
    app.parse(std::vector<std::string>{});
    EXPECT_EQ(block, usual);
}

TEST(Block, TakesFactorsOf1024InEitherCase) {
    EXPECT_EQ(block_of("4096"), 4096U);
    EXPECT_EQ(block_of("64k"), 64U * 1024);
    EXPECT_EQ(block_of("64K"), 64U * 1024);
    EXPECT_EQ(block_of("3M"), 3U * 1024 * 1024);
    EXPECT_EQ(block_of("1G"), 1024U * 1024 * 1024);
    EXPECT_EQ(block_of("1kib"), 1024U);
}

TEST(Block, RefusesWhatIsOutOfRangeOrNoSize) {
    for (const char* text : {"0", "511", "1025M", "-1", "18446744073709551616", "99999999999G",
                             "1.5M", "1X", "", " "}) {
        EXPECT_EQ(block_of(text), 0U) << text;
    }
}

} // namespace
