// What is noted and read again, in memory and in a file without a name.

#include "tools/run/files/file_table.h"
#include "tools/run/files/scratch_file.h"

#include "tests/support/conf_dir.h"
#include "tools/terminal/failure.h"

#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace {

/// $TMPDIR is a directory of our own meanwhile.
class Scratch : public testing::Test {
  protected:
    Scratch() {
        if (const char* const value = getenv("TMPDIR")) {
            before = value;
        }
        setenv("TMPDIR", directory.path().c_str(), 1);
    }
    ~Scratch() override {
        before.empty() ? unsetenv("TMPDIR") : setenv("TMPDIR", before.c_str(), 1);
    }

    conf_dir directory;
    std::string before;
    scratch_file file;
};

TEST_F(Scratch, GivesBackNumbersAndTexts) {
    const std::vector<uint64_t> numbers = {0, 1, 127, 128, 300, 1ULL << 40, ~0ULL};
    constexpr int rounds = 100000; // over a megabyte
    std::string packed;
    for (int round = 0; round < rounds; ++round) {
        packed.clear();
        put_number(packed, numbers[static_cast<size_t>(round) % numbers.size()]);
        put_text(packed, "text " + std::to_string(round) + std::string(1, '\0'));
        file.append(packed);
    }
    EXPECT_TRUE(fs::is_empty(directory.path())); // there is one, without a name
    scratch_reader reader(file);
    for (int round = 0; round < rounds; ++round) {
        ASSERT_FALSE(reader.is_at_end());
        ASSERT_EQ(reader.number(), numbers[static_cast<size_t>(round) % numbers.size()]);
        ASSERT_EQ(reader.text(), "text " + std::to_string(round) + std::string(1, '\0'));
    }
    EXPECT_TRUE(reader.is_at_end());
    EXPECT_EQ(reader.number(), 0U);
    EXPECT_EQ(reader.text(), "");
}

TEST_F(Scratch, LittleOfItNeedsNoFile) {
    setenv("TMPDIR", "/nowhere", 1);
    file.append("little");
    EXPECT_EQ(file.size(), 6U);
    char bytes[6] = {};
    EXPECT_EQ(file.read(bytes, sizeof bytes, 3), 3U);
}

TEST_F(Scratch, DirectoryThatTakesNoneIsNamed) {
    setenv("TMPDIR", "/nowhere", 1);
    try {
        file.append(std::string(2 << 20, 'x'));
        FAIL() << "it went well";
    } catch (const failure& failed) {
        EXPECT_THAT(failed.what(), testing::HasSubstr("/nowhere"));
        EXPECT_THAT(failed.what(), testing::HasSubstr("TMPDIR"));
    }
}

TEST(FileTable, TellsFilesOfAllDevicesApart) {
    file_table table;
    for (uint64_t inode = 0; inode < 5000; ++inode) {
        for (dev_t device = 0; device < 3; ++device) {
            ASSERT_EQ(table.find(device, inode), std::nullopt);
            table.add(device, inode, inode * 3 + device);
        }
    }
    for (uint64_t inode = 0; inode < 5000; ++inode) {
        for (dev_t device = 0; device < 3; ++device) {
            ASSERT_EQ(table.find(device, inode), inode * 3 + device);
        }
    }
    EXPECT_EQ(table.find(3, 1), std::nullopt);
    EXPECT_EQ(table.find(1, 5000), std::nullopt);
}

} // namespace
