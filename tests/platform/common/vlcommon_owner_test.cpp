// onet_chown_service_user_if_root, built for a service user that every system has: "nobody".

#include "platform/common/vlcommon.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class ServiceUser : public testing::Test {
  protected:
    ServiceUser() {
        name = (std::filesystem::temp_directory_path() / "vlcommon-XXXXXX").string();
        file = mkstemp(name.data());
    }
    ~ServiceUser() override {
        close(file);
        std::filesystem::remove(name);
    }
    struct stat owner() const {
        struct stat found = {};
        EXPECT_EQ(fstat(file, &found), 0);
        return found;
    }

    std::string name;
    int file = -1;
    const passwd* user = getpwnam("nobody");
    const bool is_root = geteuid() == 0;
};

TEST_F(ServiceUser, GetsTheFileWhenThisIsRootAndNothingHappensOtherwise) {
    ASSERT_NE(user, nullptr);
    const struct stat before = owner();
    EXPECT_EQ(onet_chown_service_user_if_root(name.c_str(), 0), 0);
    const struct stat after = owner();
    EXPECT_EQ(after.st_uid, is_root ? user->pw_uid : before.st_uid);
    EXPECT_EQ(after.st_gid, is_root ? user->pw_gid : before.st_gid);
}

TEST_F(ServiceUser, CantGetAFileThatIsntThere) {
    EXPECT_EQ(onet_chown_service_user_if_root("/no/such/file", 0), is_root ? -1 : 0);
}

TEST_F(ServiceUser, GetsNothingFromAProcessThatHasGivenUpRoot) {
    if (is_root) {
        ASSERT_EQ(seteuid(user->pw_uid), 0);
    }
    const struct stat before = owner();
    EXPECT_EQ(onet_chown_service_user_if_root(name.c_str(), 0), 0);
    EXPECT_EQ(onet_chown_service_user_if_root("/no/such/file", 0), 0);
    EXPECT_EQ(owner().st_uid, before.st_uid);
    if (is_root) {
        ASSERT_EQ(seteuid(0), 0);
    }
}

} // namespace
