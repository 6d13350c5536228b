// What a comparison finds. Every kind of difference is named with its file.

#include "tests/tools/generated_tree.h"
#include "tests/tools/tool_fixture.h"

#include <fstream>

namespace fs = std::filesystem;
using testing::HasSubstr;

namespace {

class Verify : public ToolTest {
  protected:
    Verify() {
        make_tree(path("tree"));
        how.directory = root;
        EXPECT_EQ(run("backup", {"tree", "--name", "b", "--streams", "2"}).code, 0);
    }

    /// Expects that one difference, and no other.
    void expect_difference(const std::string& line) const {
        const ended verify = run("verify", {"--name", "b", "tree"});
        EXPECT_EQ(verify.code, 1);
        EXPECT_THAT(verify.out, HasSubstr("\n" + line + "\n"));
        EXPECT_THAT(verify.out, HasSubstr("differ: 1 difference, named above"));
    }

    void change_byte(const std::string& name, std::streamoff place) const {
        std::fstream file(path(name), std::ios::in | std::ios::out | std::ios::binary);
        file.seekg(place);
        const char byte = static_cast<char>(file.get() + 1);
        file.seekp(place);
        file.put(byte);
    }
};

TEST_F(Verify, FindsAChangedByte) {
    change_byte("tree/large", 3000000);
    expect_difference("tree/large: differs at byte 3000000");
}

TEST_F(Verify, FindsAChangedLastByte) {
    change_byte("tree/large", 5 * 1024 * 1024 + 12);
    expect_difference("tree/large: differs at byte 5242892");
}

TEST_F(Verify, FindsAChangedByteInAHole) {
    change_byte("tree/sparse", 1000);
    expect_difference("tree/sparse: differs at byte 1000");
}

TEST_F(Verify, FindsAChangedByteInTheHoleAtTheEnd) {
    change_byte("tree/sparse", 5 * 1024 * 1024 - 1);
    expect_difference("tree/sparse: differs at byte 5242879");
}

TEST_F(Verify, FindsAnotherSize) {
    fs::resize_file(path("tree/large"), 10);
    expect_difference("tree/large: 5242893 bytes in the backup, 10 in the tree");
}

TEST_F(Verify, FindsAnotherMode) {
    fs::permissions(path("tree/large"), fs::perms(0600));
    fs::permissions(path("tree/nothing in it"), fs::perms(04711));
    const ended verify = run("verify", {"--name", "b", "tree"});
    EXPECT_EQ(verify.code, 1);
    EXPECT_THAT(verify.out, HasSubstr("tree/large: mode 0644 in the backup, 0600 in the tree\n"));
    EXPECT_THAT(verify.out,
                HasSubstr("tree/nothing in it: mode 0644 in the backup, 4711 in the tree\n"));
}

TEST_F(Verify, FindsAnotherType) {
    fs::remove(path("tree/large"));
    fs::create_directory(path("tree/large"));
    expect_difference("tree/large: a file in the backup, a directory in the tree");
}

TEST_F(Verify, FindsAnotherLinkTarget) {
    fs::remove(path("tree/links/relative"));
    fs::create_symlink("two", path("tree/links/relative"));
    expect_difference(
        "tree/links/relative: points to \"one\" in the backup, to \"two\" in the tree");
}

TEST_F(Verify, FindsALinkThatIsAFileOfItsOwn) {
    fs::remove(path("tree/links/third"));
    fs::copy(path("tree/links/one"), path("tree/links/third"));
    expect_difference("tree/links/third: the same file as \"tree/links/another\" in the backup, "
                      "not in the tree");
}

TEST_F(Verify, FindsWhatIsGone) {
    fs::remove(path("tree/nothing in it"));
    expect_difference("tree/nothing in it: only in the backup");
}

TEST_F(Verify, FindsWhatIsNew) {
    fs::create_directory(path("tree/new"));
    expect_difference("tree/new: only in the tree");
}

TEST_F(Verify, FindsWhatIsNewInARestoredTree) {
    ASSERT_EQ(run("restore", {"--name", "b", "--to", "r"}).code, 0);
    write_text(path("r/tree/new"), "new");
    const ended verify = run("verify", {"--name", "b", "--restored", "r"});
    EXPECT_EQ(verify.code, 1);
    EXPECT_THAT(verify.out, HasSubstr("\ntree/new: only in the tree\n"));
}

TEST_F(Verify, TellsOfATreeThatIsNotThere) {
    const ended verify = run("verify", {"--name", "b", "elsewhere"});
    EXPECT_EQ(verify.code, 1);
    EXPECT_EQ(verify.err, "throttlectl: elsewhere: No such file or directory\n");
}

} // namespace
