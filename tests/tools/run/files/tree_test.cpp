#include "tools/run/files/tree.h"

#include "tests/support/conf_dir.h"
#include "tools/terminal/failure.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

void expect_root(const std::string& directory, const std::string& disk, const std::string& name) {
    const tree_root root = root_of(directory);
    EXPECT_EQ(root.disk, disk) << directory;
    EXPECT_EQ(root.name, name) << directory;
}

TEST(TreeRoot, AbsolutePathLosesItsSlash) {
    expect_root("/usr/include", "/usr/include", "usr/include");
    expect_root("/usr//include/", "/usr/include", "usr/include");
    expect_root("/", "/", ".");
}

TEST(TreeRoot, RelativePathIsKept) {
    expect_root("a", "a", "a");
    expect_root("./a/./b/", "a/b", "a/b");
    expect_root("a/../b", "b", "b");
    expect_root(".", ".", ".");
}

TEST(TreeRoot, PathThatLeadsOutIsMadeAbsolute) {
    const fs::path parent = fs::current_path().parent_path();
    expect_root("../x", "../x", (parent / "x").relative_path().string());
}

class Tree : public testing::Test {
  protected:
    std::vector<std::string> names_of(const std::vector<tree_root>& roots) {
        listing = list_trees(roots, [this](size_t entries) { reported = entries; });
        std::vector<std::string> names;
        for (const tree_entry& entry : listing.entries) {
            names.push_back(entry.name);
        }
        return names;
    }

    conf_dir files; // a directory of our own
    tree_listing listing;
    size_t reported = 0;
};

TEST_F(Tree, ListsADirectoryBeforeWhatIsInItInOrder) {
    fs::create_directories(files.path() + "/b/c");
    conf_dir::write(files.path() + "/b/a", "12345");
    conf_dir::write(files.path() + "/a", "");
    EXPECT_THAT(names_of({{files.path(), "top"}}),
                ElementsAre("top", "top/a", "top/b", "top/b/a", "top/b/c"));
    EXPECT_EQ(listing.entries[3].size, 5U);
    EXPECT_EQ(listing.entries[3].path, files.path() + "/b/a");
    EXPECT_EQ(listing.entries[4].size, 0U);
    EXPECT_EQ(reported, 5U);
    EXPECT_THAT(listing.problems, IsEmpty());
}

TEST_F(Tree, NamesThatOverlapAreListedOnce) {
    fs::create_directories(files.path() + "/b/c");
    EXPECT_THAT(names_of({{files.path() + "/b", "b"}, {files.path() + "/b/c", "b/c"}}),
                ElementsAre("b", "b/c"));
}

TEST_F(Tree, SymbolicLinkIsNotFollowed) {
    fs::create_directory(files.path() + "/b");
    fs::create_directory_symlink(files.path(), files.path() + "/b/loop");
    EXPECT_THAT(names_of({{files.path() + "/b", "."}}), ElementsAre(".", "loop"));
}

TEST_F(Tree, SingleFileIsATree) {
    conf_dir::write(files.path() + "/a", "x");
    EXPECT_THAT(names_of({{files.path() + "/a", "a"}}), ElementsAre("a"));
}

TEST_F(Tree, RootThatIsNotThereFails) {
    EXPECT_THROW(names_of({{files.path() + "/none", "none"}}), failure);
}

} // namespace
