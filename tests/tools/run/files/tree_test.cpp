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
    std::vector<std::string> names_of(const std::vector<tree_root>& roots,
                                      tree_detail detail = tree_detail::all) {
        std::vector<std::string> names;
        walk_trees(roots, detail,
                   {[&](const tree_entry& entry) {
                        names.push_back(entry.name);
                        entries.push_back(entry);
                    },
                    [&](const std::string& path, const std::string& /*reason*/) {
                        lost.push_back(path);
                    }});
        return names;
    }

    conf_dir files; // a directory of our own
    std::vector<tree_entry> entries;
    std::vector<std::string> lost;
};

TEST_F(Tree, ListsADirectoryBeforeWhatIsInItInOrder) {
    fs::create_directories(files.path() + "/b/c");
    conf_dir::write(files.path() + "/b/a", "12345");
    conf_dir::write(files.path() + "/a", "");
    const std::vector<tree_root> roots = {{files.path(), "top"}};
    const auto expected = ElementsAre("top", "top/a", "top/b", "top/b/a", "top/b/c");
    EXPECT_THAT(names_of(roots), expected);
    EXPECT_EQ(entries[3].size, 5U);
    EXPECT_EQ(entries[3].path, files.path() + "/b/a");
    EXPECT_EQ(entries[4].size, 0U);
    EXPECT_THAT(names_of(roots, tree_detail::names), expected);
    EXPECT_THAT(lost, IsEmpty());
}

TEST_F(Tree, NamesThatOverlapAreListedOnce) {
    fs::create_directories(files.path() + "/b/c");
    const tree_root outer = {files.path() + "/b", "b"};
    const tree_root inner = {files.path() + "/b/c", "b/c"};
    EXPECT_THAT(names_of({outer, inner}), ElementsAre("b", "b/c"));
    EXPECT_THAT(names_of({inner, outer}), ElementsAre("b/c", "b"));
    EXPECT_THAT(names_of({outer, outer}), ElementsAre("b", "b/c"));
}

TEST_F(Tree, OfOneNameTheFirstTreesFileIsTaken) {
    fs::create_directories(files.path() + "/one");
    fs::create_directories(files.path() + "/other");
    conf_dir::write(files.path() + "/one/a", "1");
    conf_dir::write(files.path() + "/other/a", "22");
    conf_dir::write(files.path() + "/other/b", "22");
    EXPECT_THAT(names_of({{files.path() + "/one", "t"}, {files.path() + "/other", "t"}}),
                ElementsAre("t", "t/a", "t/b"));
    EXPECT_EQ(entries[1].size, 1U);
}

TEST_F(Tree, SymbolicLinkIsNotFollowed) {
    fs::create_directory(files.path() + "/b");
    fs::create_directory_symlink(files.path(), files.path() + "/b/loop");
    EXPECT_THAT(names_of({{files.path() + "/b", "."}}), ElementsAre(".", "loop"));
    EXPECT_THAT(names_of({{files.path() + "/b", "."}}, tree_detail::names),
                ElementsAre(".", "loop"));
}

TEST_F(Tree, SingleFileIsATree) {
    conf_dir::write(files.path() + "/a", "x");
    EXPECT_THAT(names_of({{files.path() + "/a", "a"}}), ElementsAre("a"));
}

TEST_F(Tree, TheRootDirectorysPathsHaveOneSlash) {
    EXPECT_EQ(path_in_tree({"/", "."}, "etc"), "/etc");
    EXPECT_EQ(path_in_tree({"/srv", "srv"}, "etc"), "/srv/etc");
    EXPECT_EQ(path_in_tree({"/srv", "srv"}, ""), "/srv");
}

/// Everything that a backup needs of an entry.
std::string text_of(const tree_entry& entry) {
    std::string text = entry.name + " " + entry.path + " " + std::to_string(entry.mode) + " " +
                       std::to_string(entry.size);
    if (has_other_names(entry)) {
        text += " " + std::to_string(entry.device) + ":" + std::to_string(entry.inode) + ":" +
                std::to_string(entry.links);
    }
    return text;
}

TEST_F(Tree, ListGivesBackWhatWasFoundHoweverMuch) {
    constexpr int directories = 200;
    const std::string long_name(200, 'n');
    for (int number = 0; number < directories; ++number) { // a scratch file of over a megabyte
        const std::string directory = files.path() + "/" + std::to_string(number) + long_name;
        fs::create_directory(directory);
        for (int file = 0; file < 30; ++file) {
            conf_dir::write(directory + "/" + std::to_string(file) + long_name, "content");
        }
    }
    fs::create_hard_link(files.path() + "/0" + long_name + "/0" + long_name, files.path() + "/z");
    tree_list list({{files.path(), "."}});
    std::vector<std::string> found;
    list.fill({[&](const tree_entry& entry) { found.push_back(text_of(entry)); },
               [](const std::string&, const std::string&) {}});
    ASSERT_EQ(list.size(), found.size());
    for (int reading = 0; reading < 2; ++reading) {
        tree_list::reader entries_again(list);
        for (const std::string& each : found) {
            const tree_entry* const entry = entries_again.next();
            ASSERT_NE(entry, nullptr);
            ASSERT_EQ(text_of(*entry), each);
        }
        EXPECT_EQ(entries_again.next(), nullptr);
    }
}

TEST_F(Tree, RootThatIsNotThereFails) {
    EXPECT_THROW(names_of({{files.path() + "/none", "none"}}), failure);
}

} // namespace
