// A tree goes through the real plugin onto the disk storage and comes back.

#include "tests/tools/run/generated_tree.h"
#include "tests/tools/tool_fixture.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class RoundTrip : public ToolTest, public testing::WithParamInterface<int> {
  protected:
    RoundTrip() { make_tree(path("tree")); }

    /// As it was named absolutely, below the target.
    std::string restored_tree() const { return path("restored") + path("tree"); }
};

INSTANTIATE_TEST_SUITE_P(Streams, RoundTrip, testing::Values(1, 4),
                         [](const auto& each) { return "In" + std::to_string(each.param); });

TEST_P(RoundTrip, GivesBackEveryByteNameModeTimeAndLink) {
    const std::string streams = std::to_string(GetParam());
    const ended backup = run("backup", {path("tree"), "--name", "b", "--streams", streams});
    ASSERT_EQ(backup.code, 0) << backup.err;
    const ended restore = run("restore", {"--name", "b", "--to", path("restored")});
    ASSERT_EQ(restore.code, 0) << restore.err;
    EXPECT_EQ(tree_difference(path("tree"), restored_tree()), "");
    const ended verify = run("verify", {"--name", "b", path("tree")});
    EXPECT_EQ(verify.code, 0) << verify.out;
    EXPECT_THAT(verify.out, HasSubstr("are the same, byte for byte"));
}

TEST_P(RoundTrip, KeepsFractionsOfASecondWhereAsked) {
    const std::string streams = std::to_string(GetParam());
    ASSERT_EQ(
        run("backup", {path("tree"), "--name", "b", "--streams", streams, "--subsecond-times"})
            .code,
        0);
    ASSERT_EQ(run("restore", {"--name", "b", "--to", path("restored")}).code, 0);
    EXPECT_EQ(tree_difference(path("tree"), restored_tree(), compared_times::to_the_nanosecond),
              "");
    EXPECT_EQ(run("verify", {"--name", "b", path("tree")}).code, 0);
    EXPECT_EQ(run("verify", {"--name", "b", "--restored", path("restored")}).code, 0);
}

TEST_P(RoundTrip, MakesAnImageForEachStream) {
    const std::string streams = std::to_string(GetParam());
    ASSERT_EQ(run("backup", {path("tree"), "--name", "b", "--streams", streams}).code, 0);
    if (GetParam() == 1) {
        EXPECT_THAT(images(), ElementsAre("b.1of1"));
    } else {
        EXPECT_THAT(images(), ElementsAre("b.1of4", "b.2of4", "b.3of4", "b.4of4"));
    }
}

TEST_P(RoundTrip, RestoredTreeIsVerifiedWhereItIs) {
    const std::string streams = std::to_string(GetParam());
    ASSERT_EQ(run("backup", {path("tree"), "--name", "b", "--streams", streams}).code, 0);
    ASSERT_EQ(run("restore", {"--name", "b", "--to", path("restored")}).code, 0);
    const ended verify = run("verify", {"--name", "b", "--restored", path("restored")});
    EXPECT_EQ(verify.code, 0) << verify.out;
}

using Backup = ToolTest;

TEST_F(Backup, SmallestBlockGivesBackTheSame) {
    make_tree(path("tree"));
    ASSERT_EQ(run("backup", {path("tree"), "--name", "b", "--block", "512"}).code, 0);
    ASSERT_EQ(run("restore", {"--name", "b", "--to", path("r"), "--block", "1k"}).code, 0);
    EXPECT_EQ(tree_difference(path("tree"), path("r") + path("tree")), "");
}

/// Two entries, "tree" and "tree/file", of a block each with one of content, and the end.
constexpr size_t plain_size = 5 * 512;
constexpr size_t extended_header = 2 * 512;

class ExtendedHeaders : public ToolTest {
  protected:
    ExtendedHeaders() {
        how.directory = root;
        fs::create_directory(path("tree"));
        write_text(path("tree/file"), "content");
        set_time("tree/file", {1000000001, 123456789});
        set_time("tree", {1000000002, 987654321});
    }

    void set_time(const std::string& name, const timespec& time) const {
        const timespec times[2] = {{1, 0}, time};
        ASSERT_EQ(utimensat(AT_FDCWD, path(name).c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
    }
    timespec restored_time(const std::string& name) const {
        struct stat status = {};
        EXPECT_EQ(lstat(path("r/" + name).c_str(), &status), 0);
        return status.st_mtim;
    }
    size_t size_with(const std::vector<std::string>& options) const {
        std::vector<std::string> all = {"tree", "--name", "b"};
        all.insert(all.end(), options.begin(), options.end());
        EXPECT_EQ(run("backup", all).code, 0);
        EXPECT_EQ(run("restore", {"--name", "b", "--to", "r"}).code, 0);
        EXPECT_EQ(run("verify", {"--name", "b", "tree"}).code, 0);
        return get_image("b.1of1").size();
    }
};

TEST_F(ExtendedHeaders, AreNotWrittenForAFractionOfASecond) {
    EXPECT_EQ(size_with({}), plain_size);
    EXPECT_EQ(restored_time("tree/file").tv_sec, 1000000001);
    EXPECT_EQ(restored_time("tree/file").tv_nsec, 0);
    EXPECT_EQ(restored_time("tree").tv_sec, 1000000002);
}

TEST_F(ExtendedHeaders, AreWrittenForAFractionOfASecondWhereAsked) {
    EXPECT_EQ(size_with({"--subsecond-times"}), plain_size + 2 * extended_header);
    EXPECT_EQ(restored_time("tree/file").tv_nsec, 123456789);
    EXPECT_EQ(restored_time("tree").tv_nsec, 987654321);
}

TEST_F(ExtendedHeaders, KeepTheFractionWhereThereIsOneAnyway) {
    ASSERT_EQ(setxattr(path("tree/file").c_str(), "user.colour", "red", 3, 0), 0);
    EXPECT_EQ(size_with({}), plain_size + extended_header);
    EXPECT_EQ(restored_time("tree/file").tv_nsec, 123456789);
}

TEST_F(ExtendedHeaders, AreWrittenForATimeThatNoPlainOneHolds) {
    set_time("tree/file", {-5, 250000000});
    EXPECT_EQ(size_with({}), plain_size + extended_header);
    EXPECT_EQ(restored_time("tree/file").tv_sec, -5);
    EXPECT_EQ(restored_time("tree/file").tv_nsec, 250000000);
}

TEST_F(Backup, KeepsASparseFileSparse) {
    fs::create_directory(path("tree"));
    write_text(path("tree/sparse"), "");
    fs::resize_file(path("tree/sparse"), 64 * 1024 * 1024);
    ASSERT_EQ(run("backup", {path("tree"), "--name", "b"}).code, 0);
    ASSERT_EQ(run("restore", {"--name", "b", "--to", path("r")}).code, 0);
    struct stat restored = {};
    ASSERT_EQ(stat((path("r") + path("tree/sparse")).c_str(), &restored), 0);
    EXPECT_EQ(restored.st_size, 64 * 1024 * 1024);
    EXPECT_LT(restored.st_blocks * 512, 1024 * 1024);
    EXPECT_EQ(run("verify", {"--name", "b", path("tree")}).code, 0);
}

TEST_F(Backup, RelativeTreeIsRestoredUnderItsOwnName) {
    fs::create_directories(path("here/tree"));
    write_text(path("here/tree/file"), "content");
    how.directory = path("here");
    ASSERT_EQ(run("backup", {"tree/", "--name", "b"}).code, 0);
    ASSERT_EQ(run("restore", {"--name", "b", "--to", "back"}).code, 0);
    EXPECT_EQ(tree_difference(path("here/tree"), path("here/back/tree")), "");
}

TEST_F(Backup, CurrentDirectoryIsRestoredAtTheTop) {
    make_tree(path("tree"));
    how.directory = path("tree");
    ASSERT_EQ(run("backup", {".", "--name", "b"}).code, 0);
    ASSERT_EQ(run("restore", {"--name", "b", "--to", path("r")}).code, 0);
    EXPECT_EQ(tree_difference(path("tree"), path("r")), "");
}

TEST_F(Backup, TakesSeveralTreesAndEachNameOnce) {
    fs::create_directories(path("a/inner"));
    fs::create_directory(path("b"));
    write_text(path("a/inner/file"), "one");
    write_text(path("b/file"), "two");
    how.directory = root;
    const ended backup = run("backup", {"a", "b", "a/inner", "--name", "n", "--streams", "3"});
    EXPECT_EQ(backup.code, 0);
    EXPECT_THAT(backup.out, HasSubstr("5 entries"));
    ASSERT_EQ(run("restore", {"--name", "n", "--to", "r"}).code, 0);
    EXPECT_EQ(tree_difference(path("a"), path("r/a")), "");
    EXPECT_EQ(tree_difference(path("b"), path("r/b")), "");
}

class UnprivilegedBackup : public ToolTest {
  protected:
    UnprivilegedBackup() { install_for_everybody(); }
};

TEST_F(UnprivilegedBackup, NamesWhatItCanNotReadAndBacksUpTheRest) {
    fs::create_directories(path("tree/secret"));
    write_text(path("tree/secret/file"), "hidden");
    write_text(path("tree/locked"), "locked");
    write_text(path("tree/open"), "open");
    give_away("tree/locked");
    give_away("tree/secret");
    fs::permissions(path("tree/locked"), fs::perms::none);
    fs::permissions(path("tree/secret"), fs::perms::none);

    const ended backup = run("backup", {path("tree"), "--name", "b"});
    EXPECT_EQ(backup.code, 1);
    EXPECT_THAT(backup.err, HasSubstr(path("tree/locked") + ": left out: Permission denied"));
    EXPECT_THAT(backup.err, HasSubstr(path("tree/secret") + ": left out: Permission denied"));
    EXPECT_THAT(backup.out, HasSubstr("2 problems"));
    run("restore", {"--name", "b", "--to", path("r")});
    EXPECT_TRUE(fs::exists(path("r") + path("tree/open")));
    EXPECT_FALSE(fs::exists(path("r") + path("tree/locked")));
}

TEST_F(UnprivilegedBackup, IsRestoredIntoDirectoriesThatAreClosedInTheEnd) {
    fs::create_directories(path("tree/closed"));
    for (int file = 0; file < 8; ++file) {
        const std::string name = "tree/closed/" + std::to_string(file);
        write_text(path(name), "inside");
        give_away(name);
    }
    fs::permissions(path("tree/closed"), fs::perms(0555));
    give_away("tree/closed");
    give_away("tree");
    how.directory = root;
    ASSERT_EQ(run("backup", {"tree", "--name", "b", "--streams", "4"}).code, 0);
    const ended restore = run("restore", {"--name", "b", "--to", "r"});
    ASSERT_EQ(restore.code, 0) << restore.err;
    EXPECT_EQ(tree_difference(path("tree"), path("r/tree")), "");
}

TEST_F(Backup, LeavesOutASocketAndSaysSo) {
    fs::create_directory(path("tree"));
    ASSERT_EQ(mknod(path("tree/socket").c_str(), S_IFSOCK | 0600, 0), 0);
    const ended backup = run("backup", {path("tree"), "--name", "b"});
    EXPECT_EQ(backup.code, 1);
    EXPECT_THAT(backup.err, HasSubstr("socket: left out: "));
}

TEST_F(Backup, MoreStreamsThanFilesLeaveEmptyArchives) {
    fs::create_directory(path("tree"));
    write_text(path("tree/only"), "one");
    ASSERT_EQ(run("backup", {path("tree"), "--name", "b", "--streams", "5"}).code, 0);
    ASSERT_EQ(run("restore", {"--name", "b", "--to", path("r")}).code, 0);
    EXPECT_EQ(tree_difference(path("tree"), path("r") + path("tree")), "");
}

using Restore = ToolTest;

TEST_F(Restore, ForcedOverwritesWhatIsThereAndKeepsTheRest) {
    fs::create_directory(path("tree"));
    write_text(path("tree/file"), "from the backup");
    how.directory = root;
    ASSERT_EQ(run("backup", {"tree", "--name", "b"}).code, 0);
    fs::create_directories(path("r/tree"));
    write_text(path("r/tree/file"), "older and longer than the one in the backup");
    write_text(path("r/tree/mine"), "mine");
    ASSERT_EQ(run("restore", {"--name", "b", "--to", "r", "--force"}).code, 0);
    EXPECT_EQ(fs::file_size(path("r/tree/file")), 15U);
    EXPECT_TRUE(fs::exists(path("r/tree/mine")));
}

TEST_F(Restore, ForcedOverAHardLinkLeavesTheOtherNameAlone) {
    fs::create_directory(path("tree"));
    write_text(path("tree/file"), "new");
    how.directory = root;
    ASSERT_EQ(run("backup", {"tree", "--name", "b"}).code, 0);
    fs::create_directories(path("r/tree"));
    write_text(path("outside"), "outside");
    fs::create_hard_link(path("outside"), path("r/tree/file"));
    ASSERT_EQ(run("restore", {"--name", "b", "--to", "r", "--force"}).code, 0);
    EXPECT_EQ(fs::file_size(path("outside")), 7U);
    EXPECT_EQ(fs::file_size(path("r/tree/file")), 3U);
}

TEST_F(Backup, IsNamedAfterTheTimeUnlessNamed) {
    fs::create_directory(path("tree"));
    ASSERT_EQ(run("backup", {path("tree")}).code, 0);
    EXPECT_THAT(images(),
                ElementsAre(testing::MatchesRegex("backup-[0-9]+-[0-9]+-[0-9a-f]+\\.1of1")));
}

using List = ToolTest;

TEST_F(List, WithoutAnLsuNamesTheServersLsus) {
    fs::create_directory(path("tree"));
    ASSERT_EQ(run("backup", {path("tree"), "--name", "b"}).code, 0);
    const ended list = tool({"run", "list", "--conf-dir", path("conf"), "--server", server()});
    EXPECT_EQ(list.code, 0);
    EXPECT_EQ(list.out, "daily\n");
}

TEST_F(List, NamesImagesWithTheirBackups) {
    fs::create_directory(path("tree"));
    ASSERT_EQ(run("backup", {path("tree"), "--name", "b"}).code, 0);
    const ended list = run("list", {});
    EXPECT_EQ(list.code, 0);
    EXPECT_THAT(list.out, testing::ContainsRegex("b.1of1 +[0-9.]+ KiB +20[0-9-]+ [0-9:]+ +b\n"));
    EXPECT_THAT(list.err, IsEmpty());
}

} // namespace
