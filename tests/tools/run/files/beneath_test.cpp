// Paths that are resolved below a directory, by the kernel and without its help.

#include "tools/run/files/beneath.h"

#include "tests/support/conf_dir.h"
#include "tests/support/next_function.h"
#include "tools/run/files/extraction.h"

#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>

namespace fs = std::filesystem;

namespace {

int openat2_error = 0; ///< 0: the call is made
int openat2_errors_left = 0;

} // namespace

/// Hands six on, however many were given.
extern "C" __attribute__((no_sanitize("address"))) long syscall(long number, ...) noexcept {
    va_list list;
    va_start(list, number);
    long arguments[6];
    for (long& each : arguments) {
        each = va_arg(list, long);
    }
    va_end(list);
    if (number == SYS_openat2 && openat2_error != 0 && openat2_errors_left-- > 0) {
        errno = openat2_error;
        return -1;
    }
    static auto* const real = next_function<long(long, ...)>("syscall");
    return real(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4],
                arguments[5]);
}

namespace {

/// With the kernel's help, where it has no such call, and where a filter forbids it.
class Beneath : public testing::TestWithParam<int> {
  protected:
    Beneath() {
        openat2_error = GetParam();
        openat2_errors_left = 1000000;
        fs::create_directories(files.path() + "/top/a/b");
        fs::create_directories(files.path() + "/outside/b");
        fs::create_directory_symlink(files.path() + "/outside", files.path() + "/top/absolute");
        fs::create_directory_symlink("../outside", files.path() + "/top/relative");
        fs::create_directory_symlink("a", files.path() + "/top/inside");
        fs::create_directory_symlink("/proc/self/fd", files.path() + "/top/magic");
        conf_dir::write(files.path() + "/top/file", "x");
    }
    ~Beneath() override { openat2_error = 0; }

    descriptor opened_top() const {
        return descriptor(open((files.path() + "/top").c_str(), O_RDONLY | O_DIRECTORY));
    }
    static bool is_refused(const descriptor& opened) {
        return !opened.is_open() && (errno == ELOOP || errno == ENOTDIR);
    }

    conf_dir files;
};

INSTANTIATE_TEST_SUITE_P(Ways, Beneath, testing::Values(0, ENOSYS, EPERM), [](const auto& each) {
    return each.param == 0 ? "ByTheKernel" : each.param == ENOSYS ? "ByWalking" : "Forbidden";
});

TEST_P(Beneath, OpensWhatIsBelow) {
    const beneath below(opened_top());
    EXPECT_TRUE(below.open_directory("", O_RDONLY).is_open());
    EXPECT_TRUE(below.open_directory("a", O_RDONLY).is_open());
    EXPECT_TRUE(below.open_directory("a/b", O_PATH).is_open());
    EXPECT_FALSE(below.open_directory("a/none", O_PATH).is_open());
    EXPECT_EQ(errno, ENOENT);
}

TEST_P(Beneath, FollowsNoSymbolicLink) {
    const beneath below(opened_top());
    for (const char* path : {"absolute", "absolute/b", "relative", "relative/b", "inside",
                             "inside/b", "magic", "magic/0", "file/b"}) {
        EXPECT_TRUE(is_refused(below.open_directory(path, O_PATH))) << path;
        EXPECT_TRUE(is_refused(below.make_directories(path))) << path;
    }
    EXPECT_FALSE(below.make_directories("absolute/made").is_open());
    EXPECT_FALSE(below.make_directories("a/../../outside/made/x").is_open());
    EXPECT_EQ(std::distance(fs::directory_iterator(files.path() + "/outside"), {}), 1);
}

TEST_P(Beneath, MakesDirectoriesForUsAlone) {
    const beneath below(opened_top());
    EXPECT_TRUE(below.make_directories("x/y/z").is_open());
    EXPECT_EQ(fs::status(files.path() + "/top/x/y").permissions(), fs::perms(0700));
}

TEST_P(Beneath, KeepsToTheDirectoryThatWasOpened) {
    const beneath below(opened_top());
    fs::rename(files.path() + "/top", files.path() + "/moved");
    fs::create_directory_symlink(files.path() + "/outside", files.path() + "/top");
    EXPECT_TRUE(below.make_directories("made").is_open());
    EXPECT_TRUE(fs::exists(files.path() + "/moved/made"));
    EXPECT_FALSE(fs::exists(files.path() + "/outside/made"));
}

TEST_P(Beneath, ExtractsIntoTheTargetThatWasOpened) {
    extraction_target target(opened_top());
    file_problems problems;
    extractor disk(target, problems);
    fs::rename(files.path() + "/top", files.path() + "/moved");
    fs::create_directory_symlink(files.path() + "/outside", files.path() + "/top");
    const entry_ptr entry(archive_entry_new());
    const auto make = [&](const char* name, unsigned type) {
        archive_entry_clear(entry.get());
        archive_entry_set_pathname(entry.get(), name);
        archive_entry_set_filetype(entry.get(), type);
        archive_entry_set_perm(entry.get(), 0751);
        archive_entry_set_uid(entry.get(), geteuid());
        archive_entry_set_gid(entry.get(), getegid());
        return disk.make(entry.get());
    };
    ASSERT_TRUE(make("new/file", AE_IFREG));
    disk.write("text", 4, 0);
    disk.finish();
    EXPECT_FALSE(make("relative/file", AE_IFREG));
    EXPECT_FALSE(make("new", AE_IFDIR));
    EXPECT_FALSE(make("pipe", AE_IFIFO));
    target.directories.finish(target.below, problems);
    EXPECT_EQ(conf_dir::read(files.path() + "/moved/new/file"), "text");
    EXPECT_EQ(fs::status(files.path() + "/moved/new").permissions(), fs::perms(0751));
    EXPECT_EQ(fs::status(files.path() + "/moved/pipe").permissions(), fs::perms(0751));
    EXPECT_EQ(std::distance(fs::directory_iterator(files.path() + "/outside"), {}), 1);
}

TEST_P(Beneath, DirectoryThatWasReplacedKeepsItsAttributes) {
    extraction_target target(opened_top());
    file_problems problems;
    extractor disk(target, problems);
    const entry_ptr entry(archive_entry_new());
    archive_entry_set_pathname(entry.get(), "new");
    archive_entry_set_filetype(entry.get(), AE_IFDIR);
    archive_entry_set_perm(entry.get(), 0777);
    disk.make(entry.get());
    fs::rename(files.path() + "/top/new", files.path() + "/away");
    fs::create_directory(files.path() + "/top/new");
    fs::permissions(files.path() + "/top/new", fs::perms(0700));
    target.directories.finish(target.below, problems);
    EXPECT_EQ(fs::status(files.path() + "/top/new").permissions(), fs::perms(0700));
    EXPECT_NE(problems.summary(), 0);
}

TEST(BeneathAtOnce, RenamesMeanwhileAreTriedAgain) {
    conf_dir files;
    fs::create_directory(files.path() + "/a");
    const beneath below(descriptor(open(files.path().c_str(), O_RDONLY | O_DIRECTORY)));
    openat2_error = EAGAIN;
    openat2_errors_left = 3;
    EXPECT_TRUE(below.open_directory("a", O_PATH).is_open());
    openat2_error = 0;
}

TEST(PathBeneath, IsPlainOrRefused) {
    std::string reason;
    EXPECT_EQ(path_beneath("a//b/./c/", reason), "a/b/c");
    EXPECT_EQ(path_beneath("./", reason), "");
    EXPECT_EQ(path_beneath("..a/b..", reason), "..a/b..");
    for (const std::string& bad :
         {std::string(), std::string("/a"), std::string(".."), std::string("a/../b"),
          std::string("a/.."), std::string(5000, 'a')}) {
        EXPECT_EQ(path_beneath(bad, reason), std::nullopt) << bad;
    }
}

TEST(ClaimedNames, AreGivenOnce) {
    claimed_names names;
    for (int round = 0; round < 2; ++round) {
        for (int each = 0; each < 5000; ++each) {
            EXPECT_EQ(names.claim("name " + std::to_string(each)), round == 0);
        }
    }
    EXPECT_TRUE(names.is_claimed("name 17"));
    EXPECT_FALSE(names.is_claimed("name 5000"));
}

} // namespace
