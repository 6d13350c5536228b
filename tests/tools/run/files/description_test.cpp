// What a file is, taken with no more calls than it needs.

#include "tools/run/files/description.h"

#include "tests/support/conf_dir.h"
#include "tests/support/next_function.h"

#include <cstdarg>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/xattr.h>

namespace fs = std::filesystem;

namespace {
int seeks = 0; // and other ways to find holes
} // namespace

// The library is to find these in place of the system's.
#pragma GCC visibility push(default)

extern "C" off_t lseek(int file, off_t offset, int whence) noexcept {
    ++seeks;
    static auto* const real = next_function<off_t(int, off_t, int)>("lseek");
    return real(file, offset, whence);
}

extern "C" int ioctl(int file, unsigned long request, ...) noexcept {
    va_list list;
    va_start(list, request);
    void* const argument = va_arg(list, void*);
    va_end(list);
    ++seeks;
    static auto* const real = next_function<int(int, unsigned long, void*)>("ioctl");
    return real(file, request, argument);
}

#pragma GCC visibility pop

namespace {

class Description : public testing::Test {
  protected:
    Description() { conf_dir::write(path, "content"); }

    void describe() {
        const content_file content(path);
        struct stat status = {};
        ASSERT_EQ(fstat(content.descriptor(), &status), 0);
        std::string trouble;
        seeks = 0;
        ASSERT_TRUE(files.describe(entry.get(), path, content, &status, trouble)) << trouble;
        EXPECT_EQ(trouble, "");
    }

    conf_dir directory;
    const std::string path = directory.path() + "/file";
    file_describer files;
    const entry_ptr entry{archive_entry_new()};
};

TEST_F(Description, LooksForNoHolesInAFileWhoseBlocksCoverIt) {
    describe();
    EXPECT_EQ(seeks, 0);
    EXPECT_EQ(archive_entry_sparse_count(entry.get()), 0);
    EXPECT_EQ(archive_entry_size(entry.get()), 7);
}

TEST_F(Description, FindsTheHolesOfAFileThatHasSome) {
    fs::resize_file(path, 1 << 20);
    describe();
    EXPECT_GT(seeks, 0);
    EXPECT_EQ(archive_entry_sparse_count(entry.get()), 1);
}

TEST_F(Description, FindsAttributesAndLists) {
    ASSERT_EQ(setxattr(path.c_str(), "user.colour", "red", 3, 0), 0);
    describe();
    EXPECT_EQ(archive_entry_xattr_count(entry.get()), 1);
    archive_entry_clear(entry.get());
    ASSERT_EQ(removexattr(path.c_str(), "user.colour"), 0);
    const char list[] = {2, 0, 0,  0,  1,  0,  6,  0, -1, -1, -1, -1, 2,  0,  4,
                         0, 7, 0,  0,  0,  4,  0,  4, 0,  -1, -1, -1, -1, 16, 0,
                         4, 0, -1, -1, -1, -1, 32, 0, 0,  0,  -1, -1, -1, -1};
    ASSERT_EQ(setxattr(path.c_str(), "system.posix_acl_access", list, sizeof list, 0), 0);
    describe();
    EXPECT_NE(archive_entry_acl_types(entry.get()) & ARCHIVE_ENTRY_ACL_TYPE_ACCESS, 0);
}

TEST_F(Description, KeepsNoTimeThatReadingChanges) {
    describe();
    EXPECT_NE(archive_entry_mtime_is_set(entry.get()), 0);
    EXPECT_EQ(archive_entry_atime_is_set(entry.get()), 0);
    EXPECT_EQ(archive_entry_ctime_is_set(entry.get()), 0);
}

} // namespace
