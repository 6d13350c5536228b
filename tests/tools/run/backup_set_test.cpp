#include "tools/run/backup_set.h"

#include "tools/terminal/failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

std::vector<listed_image> images_of(const std::vector<std::string>& names) {
    std::vector<listed_image> images;
    for (const std::string& name : names) {
        images.push_back({name, "", 1});
    }
    return images;
}

std::vector<std::string> found(const std::vector<std::string>& names, const std::string& backup) {
    std::vector<std::string> set;
    for (const listed_image& image : find_backup(images_of(names), "daily", backup).images) {
        set.push_back(image.name);
    }
    return set;
}

std::string failure_of(const std::vector<std::string>& names, const std::string& backup) {
    try {
        found(names, backup);
    } catch (const failure& thrown) {
        return thrown.what();
    }
    return "";
}

TEST(BackupSet, NamesItsImages) {
    EXPECT_EQ(stream_image("b", 0, 1), "b.1of1");
    EXPECT_EQ(stream_image("b", 11, 12), "b.12of12");
}

TEST(BackupSet, KnowsItsImagesByTheirNames) {
    EXPECT_EQ(backup_of("b.1of4"), "b");
    EXPECT_EQ(backup_of("a.b.2of2"), "a.b");
    EXPECT_EQ(backup_of("of.1of1"), "of");
    for (const char* none : {"", "b", "b.1of", "b.of1", "b.0of1", "b.2of1", "b.1of1x", "b.xof1",
                             ".1of1", "b.-1of1", "b.1of99999999999999999999", "b1of1"}) {
        EXPECT_EQ(backup_of(none), "") << none;
    }
}

TEST(BackupSet, IsFoundInTheOrderOfItsStreams) {
    std::vector<std::string> names;
    std::vector<std::string> expected;
    for (size_t index = 0; index < 12; ++index) {
        expected.push_back(stream_image("b", index, 12));
    }
    names = expected;
    std::sort(names.begin(), names.end()); // b.10of12 before b.2of12
    names.insert(names.begin(), "a.1of1");
    names.push_back("other");
    EXPECT_EQ(found(names, "b"), expected);
}

TEST(BackupSet, NamesTheImagesThatItLacks) {
    const auto missing = [](const std::vector<std::string>& names) {
        return find_backup(images_of(names), "daily", "b").missing;
    };
    EXPECT_THAT(missing({"b.1of3", "b.3of3"}), testing::ElementsAre("b.2of3"));
    EXPECT_THAT(missing({"b.2of3"}), testing::ElementsAre("b.1of3", "b.3of3"));
    EXPECT_THAT(missing({"b.1of1"}), testing::IsEmpty());
    EXPECT_EQ(missing({"b.1of999999999999"}).size(), 64U) << "a name that somebody made up";
    EXPECT_EQ(found({"b.3of3", "b.1of3"}, "b"), (std::vector<std::string>{"b.1of3", "b.3of3"}));
}

TEST(BackupSet, ThatIsThereTwiceIsRefused) {
    EXPECT_EQ(failure_of({"b.1of1", "b.1of2", "b.2of2"}, "b"),
              "the backup \"b\" is there twice, in 1 and in 2 streams");
}

TEST(BackupSet, ThatIsNotThereIsRefusedWithThoseThatAre) {
    EXPECT_EQ(failure_of({}, "b"),
              "there is no backup \"b\" in the LSU \"daily\", and no other either");
    EXPECT_EQ(failure_of({"x.1of1", "a.1of2", "a.2of2", "strange"}, "b"),
              "there is no backup \"b\" in the LSU \"daily\"; it has a, x");
}

} // namespace
