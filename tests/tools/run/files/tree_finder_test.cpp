// Files of trees are found by their names in an archive, and nothing else is.

#include "tools/run/files/tree_finder.h"

#include "tests/support/conf_dir.h"
#include "tools/terminal/failure.h"

#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace {

class TreeFinder : public testing::Test {
  protected:
    TreeFinder() {
        fs::create_directories(top + "/a/b");
        fs::create_directories(files.path() + "/outside");
        conf_dir::write(top + "/a/file", "12345");
        conf_dir::write(top + "/alone", "1");
        conf_dir::write(files.path() + "/outside/secret", "secret");
        fs::create_directory_symlink("../../outside", top + "/a/door");
        fs::create_symlink("/nowhere", top + "/a/link");
    }

    bool finds(tree_finder& trees, const std::string& name) { return trees.find(name, status); }

    conf_dir files;
    const std::string top = files.path() + "/top";
    struct stat status = {};
};

TEST_F(TreeFinder, FindsWhatIsInATree) {
    tree_finder trees({{top + "/a", "srv/a"}, {top + "/alone", "alone"}});
    ASSERT_TRUE(finds(trees, "srv/a/file"));
    EXPECT_EQ(status.st_size, 5);
    char text[5] = {};
    EXPECT_EQ(trees.open_content().read(text, sizeof text, 0), 5);
    EXPECT_TRUE(finds(trees, "srv/a"));
    EXPECT_TRUE(S_ISDIR(status.st_mode));
    EXPECT_TRUE(finds(trees, "srv/a/b"));
    ASSERT_TRUE(finds(trees, "srv/a/link"));
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    EXPECT_EQ(trees.link_target(), "/nowhere");
    ASSERT_TRUE(finds(trees, "alone"));
    EXPECT_EQ(trees.open_content().read(text, sizeof text, 0), 1);
}

TEST_F(TreeFinder, FollowsNoLinkAndLeadsNowhereElse) {
    tree_finder trees({{top + "/a", "a"}, {top + "/alone", "alone"}});
    for (const char* name : {"a/door/secret", "a/none", "a/../alone", "a/b/../../../outside/secret",
                             "srv", "ab", "", "alone/x", "a/link/x"}) {
        EXPECT_FALSE(finds(trees, name)) << name;
    }
    EXPECT_TRUE(finds(trees, "a/door")); // the link itself
    EXPECT_TRUE(S_ISLNK(status.st_mode));
}

TEST_F(TreeFinder, LinkAsATreeIsJustThat) {
    tree_finder trees({{top + "/a/door", "door"}});
    EXPECT_TRUE(finds(trees, "door"));
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    EXPECT_FALSE(finds(trees, "door/secret"));
    EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(TreeFinder, OfTreesThatOverlapTheFirstThatHasItCounts) {
    conf_dir::write(top + "/a/b/only", "22");
    tree_finder trees({{top + "/a/b", "t"}, {top + "/a", "t"}, {top, "."}});
    ASSERT_TRUE(finds(trees, "t/only"));
    EXPECT_EQ(status.st_size, 2);
    ASSERT_TRUE(finds(trees, "t/file"));
    EXPECT_EQ(status.st_size, 5);
    ASSERT_TRUE(finds(trees, "alone"));
    EXPECT_TRUE(finds(trees, ""));
    EXPECT_TRUE(S_ISDIR(status.st_mode));
}

TEST_F(TreeFinder, TreeThatIsNotThereFails) {
    EXPECT_THROW(tree_finder({{top + "/none", "none"}}), failure);
}

} // namespace
