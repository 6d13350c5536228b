// The platform's common calls, built for a service user that doesn't exist.

#include "platform/common/vlcommon.h"

#include "tests/support/next_function.h"

#include <cstdlib>
#include <cstring>
#include <curl/curl.h>
#include <dlfcn.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class ConfDir : public testing::Test {
  protected:
    ~ConfDir() override { unsetenv("VL_CONF_DIR"); }

    /// The directory, or "-1" when the call fails.
    static std::string ask(size_t size = 4096) {
        std::string directory(size, '?');
        return GetConfDir(directory.data(), size) == 0 ? directory.c_str() : "-1";
    }
};

TEST_F(ConfDir, IsTheOneThatTheEnvironmentNames) {
    setenv("VL_CONF_DIR", "/some/where", 1);
    EXPECT_EQ(ask(), "/some/where");
}

TEST_F(ConfDir, IsTheOneFixedAtBuildTimeWhenTheEnvironmentNamesNone) {
    unsetenv("VL_CONF_DIR");
    EXPECT_EQ(ask(), THROTTLING_CONF_DIR);
}

TEST_F(ConfDir, TakesAnEmptyNameForNone) {
    setenv("VL_CONF_DIR", "", 1);
    EXPECT_EQ(ask(), THROTTLING_CONF_DIR);
}

TEST_F(ConfDir, HasNoSlashAtItsEnd) {
    setenv("VL_CONF_DIR", "/some/where///", 1);
    EXPECT_EQ(ask(), "/some/where");
}

TEST_F(ConfDir, MayBeTheRoot) {
    setenv("VL_CONF_DIR", "///", 1);
    EXPECT_EQ(ask(), "/");
}

TEST_F(ConfDir, FailsWhereItDoesntFit) {
    setenv("VL_CONF_DIR", "/some", 1);
    EXPECT_EQ(ask(6), "/some");
    EXPECT_EQ(ask(5), "-1");
    char untouched[] = "??";
    EXPECT_EQ(GetConfDir(untouched, 0), -1);
    EXPECT_STREQ(untouched, "??");
    EXPECT_EQ(GetConfDir(untouched, 1), -1);
    EXPECT_EQ(untouched[1], '?');
}

TEST(ServiceUser, ThatDoesntExistLeavesTheOwnerAlone) {
    std::string name = (std::filesystem::temp_directory_path() / "vlcommon-XXXXXX").string();
    const int file = mkstemp(name.data());
    ASSERT_NE(file, -1);
    struct stat before = {};
    struct stat after = {};
    EXPECT_EQ(fstat(file, &before), 0);
    EXPECT_EQ(onet_chown_service_user_if_root(name.c_str(), 0), 0);
    EXPECT_EQ(fstat(file, &after), 0);
    EXPECT_EQ(before.st_uid, after.st_uid);
    EXPECT_EQ(before.st_gid, after.st_gid);
    EXPECT_EQ(onet_chown_service_user_if_root("/no/such/file", 0), 0); // nothing to be done
    close(file);
    std::filesystem::remove(name);
}

bool is_http_library_missing = false;

bool is_http_library_loaded() {
    void* const library = dlopen(HTTP_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    if (library != nullptr) {
        dlclose(library);
    }
    return library != nullptr;
}

TEST(Libraries, HttpLibraryThatIsMissingCantBeStarted) {
    is_http_library_missing = true;
    EXPECT_EQ(VL_curl_global_init(3), CURLE_FAILED_INIT);
    VL_curl_global_cleanup();
    is_http_library_missing = false;
}

TEST(Libraries, StartAndStop) {
    VL_curl_global_cleanup(); // nothing is there to be stopped
    EXPECT_FALSE(is_http_library_loaded()) << "by nobody who starts it";
    EXPECT_EQ(VL_curl_global_init(3), 0);
    EXPECT_TRUE(is_http_library_loaded());
    VL_curl_global_cleanup();
    EXPECT_EQ(VL_curl_global_init(3), 0);
    VL_curl_global_cleanup();
    EXPECT_EQ(VL_101_vlopenssl_init(), 0);
    VL_101_vlopenssl_fini(0);
    EXPECT_EQ(VL_101_vlopenssl_init(), 0);
}

TEST(Logging, TakesAnyLevel) {
    for (const int level : {-1, 0, 1, 4, 5, 1000}) {
        logmsg(level, "%s%n is only text", "vlcommon_test");
    }
}

} // namespace

extern "C" __attribute__((visibility("default"))) void* dlopen(const char* file, int how) noexcept {
    if (is_http_library_missing) {
        return nullptr;
    }
    return next_function<void*(const char*, int)>("dlopen")(file, how);
}
