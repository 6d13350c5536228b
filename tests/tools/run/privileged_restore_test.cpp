// What only root may make: files of others, those that run as their owner, devices.

#include "tests/tools/tool_fixture.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace fs = std::filesystem;
using testing::HasSubstr;

namespace {

constexpr uid_t somebody = 1234;
constexpr gid_t some_group = 4321;

/// Type, mode, owner, group and device, in words.
std::string state_of(const std::string& path) {
    struct stat file = {};
    if (lstat(path.c_str(), &file) != 0) {
        return "missing";
    }
    char text[100];
    snprintf(text, sizeof text, "%o of %u:%u, %u:%u", file.st_mode, file.st_uid, file.st_gid,
             major(file.st_rdev), minor(file.st_rdev));
    return text;
}

class PrivilegedRestore : public ToolTest {
  protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "only root can make such a tree";
        }
        fs::create_directories(path("tree/shared"));
        write_text(path("tree/runs as owner"), "#!/bin/sh\n");
        write_text(path("tree/runs as group"), "#!/bin/sh\n");
        ASSERT_EQ(mkfifo(path("tree/pipe").c_str(), 0600), 0);
        fs::create_symlink("nowhere", path("tree/link"));
        has_device = mknod(path("tree/null").c_str(), S_IFCHR | 0600, makedev(1, 3)) == 0;
        for (const fs::directory_entry& each : fs::directory_iterator(path("tree"))) {
            ASSERT_EQ(lchown(each.path().c_str(), somebody, some_group), 0);
        }
        ASSERT_EQ(chmod(path("tree/shared").c_str(), 03775), 0);
        ASSERT_EQ(chmod(path("tree/runs as owner").c_str(), 04755), 0);
        ASSERT_EQ(chmod(path("tree/runs as group").c_str(), 02755), 0);
        how.directory = root;
    }

    bool has_device = false; ///< not every container's root may make one
};

TEST_F(PrivilegedRestore, GivesBackOwnersModesAndDevices) {
    ASSERT_EQ(run("backup", {"tree", "--name", "b", "--streams", "3"}).code, 0);
    const ended restore = run("restore", {"--name", "b", "--to", "r"});
    ASSERT_EQ(restore.code, 0) << restore.err;
    size_t seen = 0;
    for (const fs::directory_entry& each : fs::directory_iterator(path("tree"))) {
        EXPECT_EQ(state_of(path("r/tree/") + each.path().filename().string()),
                  state_of(each.path()))
            << each.path();
        ++seen;
    }
    EXPECT_EQ(seen, has_device ? 6U : 5U);
    EXPECT_THAT(state_of(path("r/tree/runs as owner")), HasSubstr("104755 of 1234:4321"));
}

TEST_F(PrivilegedRestore, BySomebodyElseMakesNothingThatRunsAsThem) {
    install_for_everybody();
    if (has_device) { // which they couldn't even read
        fs::remove(path("tree/null"));
    }
    fs::permissions(path("tree/pipe"), fs::perms(0644));
    ASSERT_EQ(run("backup", {"tree", "--name", "b"}).code, 0);
    const ended restore = run("restore", {"--name", "b", "--to", "r"});
    EXPECT_THAT(state_of(path("r/tree/runs as owner")), HasSubstr("100755 of 65534:"));
    EXPECT_THAT(state_of(path("r/tree/runs as group")), HasSubstr("100755 of 65534:"));
    EXPECT_THAT(restore.out, HasSubstr("restored")) << restore.err;
}

} // namespace
