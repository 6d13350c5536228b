// What a comparison finds. Every kind of difference is named with its file.

#include "tests/tools/run/generated_tree.h"
#include "tests/tools/tool_fixture.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sys/xattr.h>
#include <unistd.h>

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
    EXPECT_EQ(without_warnings(verify.err), "throttlectl: elsewhere: No such file or directory\n");
}

using VerifyAttributes = ToolTest;

/// An access control list as the kernel keeps it: tag, permissions and number of each entry.
std::string list_of(const std::vector<std::array<uint32_t, 3>>& entries) {
    std::string value = {2, 0, 0, 0};
    for (const auto& [tag, permissions, number] : entries) {
        value += {static_cast<char>(tag), 0, static_cast<char>(permissions), 0};
        for (const unsigned shift : {0U, 8U, 16U, 24U}) {
            value += static_cast<char>(number >> shift);
        }
    }
    return value;
}

std::string attribute_of(const std::string& path, const char* name) {
    std::array<char, 1000> value = {};
    const ssize_t length = lgetxattr(path.c_str(), name, value.data(), value.size());
    return {value.data(), length > 0 ? static_cast<size_t>(length) : 0};
}

TEST_F(VerifyAttributes, ListsAndTheirMasksComeBackAndAreTheSame) {
    constexpr uint32_t none = 0xffffffff;
    const std::string mask_beyond_the_group = list_of(
        {{1, 6, none}, {2, 6, 7}, {2, 4, 1234}, {4, 4, none}, {16, 6, none}, {32, 4, none}});
    const std::string mask_below_the_group =
        list_of({{1, 7, none}, {2, 7, 7}, {4, 7, none}, {8, 5, 77}, {16, 1, none}, {32, 0, none}});
    how.directory = root;
    fs::create_directories(path("tree/directory"));
    const std::vector<std::array<std::string, 3>> wanted = {
        {"tree/wide", "system.posix_acl_access", mask_beyond_the_group},
        {"tree/narrow", "system.posix_acl_access", mask_below_the_group},
        {"tree/directory", "system.posix_acl_access", mask_below_the_group},
        {"tree/directory", "system.posix_acl_default", mask_beyond_the_group},
        {"tree/wide", "user.second", "2"},
        {"tree/wide", "user.first", std::string("with\0zero", 9)},
        {"tree/directory", "user.empty", ""},
    };
    write_text(path("tree/wide"), "x");
    write_text(path("tree/narrow"), "x");
    for (const auto& [name, attribute, value] : wanted) {
        ASSERT_EQ(setxattr(path(name).c_str(), attribute.c_str(), value.data(), value.size(), 0), 0)
            << attribute << ": " << strerror(errno);
    }
    fs::permissions(path("tree/wide"), fs::perms(04000), fs::perm_options::add);
    ASSERT_EQ(run("backup", {"tree", "--name", "b"}).code, 0);
    const ended verify = run("verify", {"--name", "b", "tree"});
    EXPECT_EQ(verify.code, 0) << verify.out;
    const ended restore = run("restore", {"--name", "b", "--to", "r"});
    EXPECT_EQ(restore.code, 0) << restore.err;
    EXPECT_EQ(tree_difference(path("tree"), path("r/tree")), "");
    for (const auto& [name, attribute, value] : wanted) {
        EXPECT_EQ(attribute_of(path("r/" + name), attribute.c_str()), value) << name << attribute;
    }
    EXPECT_EQ(run("verify", {"--name", "b", "--restored", "r"}).code, 0);
    fs::permissions(path("r/tree/wide"), fs::perms(0644));
    const ended changed = run("verify", {"--name", "b", "--restored", "r"});
    EXPECT_THAT(changed.out, HasSubstr("tree/wide: mode 4664 in the backup, 0644 in the tree"));
}

TEST_F(VerifyAttributes, CapabilitiesComeBackToRoot) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "capabilities are root's to give";
    }
    const std::string net_raw = {1, 0, 0, 2, 0, 0x20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    how.directory = root;
    fs::create_directory(path("tree"));
    write_text(path("tree/file"), "x");
    ASSERT_EQ(setxattr(path("tree/file").c_str(), "security.capability", net_raw.data(),
                       net_raw.size(), 0),
              0);
    ASSERT_EQ(run("backup", {"tree", "--name", "b"}).code, 0);
    ASSERT_EQ(run("restore", {"--name", "b", "--to", "r"}).code, 0);
    EXPECT_EQ(attribute_of(path("r/tree/file"), "security.capability"), net_raw);
}

} // namespace
