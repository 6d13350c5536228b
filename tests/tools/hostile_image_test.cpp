// Images that somebody made to write where a restore mustn't. Nothing outside the target changes,
// every refused entry is named, and the good ones are restored.

#include "tests/support/conf_dir.h"
#include "tests/tools/tool_fixture.h"

#include <archive.h>
#include <archive_entry.h>
#include <climits>

namespace fs = std::filesystem;
using testing::HasSubstr;

namespace {

/// An archive in memory, of any entries.
class forged_archive {
  public:
    forged_archive() : bytes_(1024 * 1024, '\0'), archive_(archive_write_new()) {
        archive_write_set_format_pax(archive_);
        archive_write_set_bytes_in_last_block(archive_, 1);
        archive_write_open_memory(archive_, bytes_.data(), bytes_.size(), &used_);
    }

    void add_file(const std::string& name, const std::string& content) {
        archive_entry* const entry = new_entry(name, AE_IFREG);
        archive_entry_set_size(entry, static_cast<int64_t>(content.size()));
        write(entry, content);
    }
    void add_directory(const std::string& name) { write(new_entry(name, AE_IFDIR), ""); }
    void add_symlink(const std::string& name, const std::string& target) {
        archive_entry* const entry = new_entry(name, AE_IFLNK);
        archive_entry_set_symlink(entry, target.c_str());
        write(entry, "");
    }
    void add_hardlink(const std::string& name, const std::string& target) {
        archive_entry* const entry = new_entry(name, AE_IFREG);
        archive_entry_set_hardlink(entry, target.c_str());
        write(entry, "");
    }

    std::string finish() {
        archive_write_close(archive_);
        archive_write_free(archive_);
        return bytes_.substr(0, used_);
    }

  private:
    static archive_entry* new_entry(const std::string& name, unsigned type) {
        archive_entry* const entry = archive_entry_new();
        archive_entry_set_pathname(entry, name.c_str());
        archive_entry_set_filetype(entry, type);
        archive_entry_set_perm(entry, 0755);
        return entry;
    }
    void write(archive_entry* entry, const std::string& content) {
        EXPECT_EQ(archive_write_header(archive_, entry), ARCHIVE_OK);
        archive_write_data(archive_, content.data(), content.size());
        archive_entry_free(entry);
    }

    std::string bytes_;
    size_t used_ = 0;
    archive* archive_;
};

class HostileImage : public ToolTest {
  protected:
    HostileImage() {
        fs::create_directory(path("outside"));
        outside_mode = fs::status(path("outside")).permissions();
        write_text(path("outside/precious"), "precious");
        fs::create_directory(path("tree"));
        EXPECT_EQ(run("backup", {path("tree"), "--name", "a"}).code, 0); // makes the LSU
    }

    /// Restores what was forged so far and one good file.
    ended restore() {
        forged.add_file("good", "good");
        put_image("b.1of1", forged.finish());
        const ended result = run("restore", {"--name", "b", "--to", path("in/r")});
        EXPECT_EQ(conf_dir::read(path("in/r/good")), "good");
        return result;
    }

    void expect_untouched() const {
        EXPECT_EQ(conf_dir::read(path("outside/precious")), "precious");
        EXPECT_EQ(std::distance(fs::directory_iterator(path("outside")), {}), 1);
        EXPECT_EQ(std::distance(fs::directory_iterator(path("in")), {}), 1);
        EXPECT_EQ(fs::hard_link_count(path("outside/precious")), 1U);
        EXPECT_EQ(fs::status(path("outside")).permissions(), outside_mode);
    }

    forged_archive forged;
    fs::perms outside_mode = fs::perms::unknown;
};

TEST_F(HostileImage, DotDotIsRefused) {
    forged.add_file("../x", "out");
    forged.add_file("a/../../y", "out");
    forged.add_directory("../made");
    const ended result = restore();
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr("../x: left out: "));
    EXPECT_THAT(result.err, HasSubstr("a/../../y: left out: "));
    EXPECT_THAT(result.err, HasSubstr("../made: left out: "));
    EXPECT_THAT(result.out, HasSubstr("3 problems"));
    expect_untouched();
}

TEST_F(HostileImage, AbsolutePathIsRefused) {
    forged.add_file(path("outside/file"), "out");
    forged.add_directory(path("outside"));
    forged.add_file("/" + path("outside/precious"), "out");
    const ended result = restore();
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr("outside/file: left out: "));
    expect_untouched();
}

TEST_F(HostileImage, NothingIsWrittenThroughASymbolicLink) {
    forged.add_symlink("link", path("outside"));
    forged.add_file("link/file", "out");
    forged.add_directory("link/made");
    forged.add_file("link/precious", "out");
    const ended result = restore();
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr("link/file: left out: "));
    expect_untouched();
}

TEST_F(HostileImage, FileInThePlaceOfASymbolicLinkReplacesIt) {
    forged.add_symlink("link", path("outside/precious"));
    forged.add_file("link", "inside");
    restore();
    EXPECT_EQ(conf_dir::read(path("in/r/link")), "inside");
    expect_untouched();
}

TEST_F(HostileImage, DirectoryThatBecomesASymbolicLinkDoesNotLeadOut) {
    forged.add_directory("door");
    forged.add_symlink("door", path("outside"));
    forged.add_file("door/file", "out");
    restore();
    expect_untouched();
}

TEST_F(HostileImage, HardLinkToTheOutsideIsRefused) {
    forged.add_hardlink("stolen", path("outside/precious"));
    forged.add_hardlink("taken", "../../outside/precious");
    forged.add_file("stolen", "out");
    forged.add_file("taken", "out");
    const ended result = restore();
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr("stolen: left out: "));
    EXPECT_THAT(result.err, HasSubstr("taken: left out: "));
    expect_untouched();
}

TEST_F(HostileImage, PathBeyondWhatTheSystemTakesIsRefused) {
    std::string deep;
    while (deep.size() < PATH_MAX) {
        deep += "directory/";
    }
    forged.add_file(deep + "file", "out");
    const ended result = restore();
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr("left out: the path is too long"));
    expect_untouched();
}

TEST_F(HostileImage, VerifyReadsNothingOutsideTheTree) {
    forged.add_file("../outside/precious", "precious");
    forged.add_file(path("outside/precious"), "precious");
    put_image("b.1of1", forged.finish());
    const ended verify = run("verify", {"--name", "b", path("tree")});
    EXPECT_EQ(verify.code, 1);
    EXPECT_THAT(verify.out, HasSubstr("../outside/precious: only in the backup"));
    EXPECT_THAT(verify.out, HasSubstr(path("outside/precious") + ": only in the backup"));
}

} // namespace
