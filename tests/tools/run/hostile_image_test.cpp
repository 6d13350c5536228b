// Images that somebody made to write where a restore mustn't. Nothing outside the target changes,
// every refused entry is named, and the good ones are restored.

#include "tests/support/conf_dir.h"
#include "tests/support/process_state.h"
#include "tests/tools/run/forged_archive.h"
#include "tests/tools/tool_fixture.h"

#include <climits>

namespace fs = std::filesystem;
using testing::HasSubstr;

namespace {

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

TEST_F(HostileImage, SecondEntryOfANameIsRefused) {
    const std::string refused = ": left out: the backup has another entry of that name";
    forged.add_symlink("link", path("outside/precious"));
    forged.add_file("link", "inside");
    forged.add_file("./file", "first");
    forged.add_file("file", "second");
    forged.add_directory("door");
    forged.add_symlink("door", path("outside"));
    forged.add_file("door/file", "in");
    const ended result = restore();
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr("link" + refused));
    EXPECT_THAT(result.err, HasSubstr("file" + refused));
    EXPECT_THAT(result.err, HasSubstr("door: left out: a directory is in its place"));
    EXPECT_TRUE(fs::is_symlink(path("in/r/link")));
    EXPECT_EQ(conf_dir::read(path("in/r/file")), "first");
    EXPECT_EQ(conf_dir::read(path("in/r/door/file")), "in");
    expect_untouched();
}

TEST_F(HostileImage, LinkToWhatWasThereBeforeIsRefused) {
    fs::create_directories(path("in/r"));
    write_text(path("in/r/mine"), "mine");
    forged.add_hardlink("taken", "mine");
    forged.add_hardlink("itself", "itself");
    put_image("b.1of1", forged.finish());
    const ended result = run("restore", {"--name", "b", "--to", path("in/r"), "--force"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr("taken: left out: it is a link to \"mine\", which isn't"));
    EXPECT_THAT(result.err, HasSubstr("itself: left out: "));
    EXPECT_EQ(fs::hard_link_count(path("in/r/mine")), 1U);
}

TEST_F(HostileImage, ForcedOverSymbolicLinksLeavesTheOutsideAlone) {
    fs::create_directories(path("in/r"));
    fs::create_symlink(path("outside"), path("in/r/way"));
    fs::create_symlink(path("outside"), path("in/r/directory"));
    fs::create_symlink(path("outside/precious"), path("in/r/file"));
    forged.add_file("way/precious", "out", 04755);
    forged.add_directory("directory");
    forged.add_file("directory/file", "in");
    forged.add_file("file", "in");
    put_image("b.1of1", forged.finish());
    const ended result = run("restore", {"--name", "b", "--to", path("in/r"), "--force"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr("way/precious: left out: "));
    EXPECT_EQ(conf_dir::read(path("in/r/directory/file")), "in");
    EXPECT_EQ(conf_dir::read(path("in/r/file")), "in");
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

/// One stream makes links to the outside under the names of directories, the other files that would
/// be below them.
class RacingStreams : public HostileImage {
  protected:
    RacingStreams() {
        constexpr int doors = 40;
        forged_archive links;
        forged_archive files;
        for (int door = 0; door < doors; ++door) {
            const std::string name = "door" + std::to_string(door);
            links.add_symlink(name, path("outside"));
            files.add_file(name + "/shell" + std::to_string(door), "out", 04755);
            files.add_file(name, "or a file of that name");
            links.add_hardlink(name + "/stolen", path("outside/precious"));
        }
        put_image("b.1of2", links.finish());
        put_image("b.2of2", files.finish());
    }

    void expect_no_escape() {
        for (int round = 0; round < (has_memory_of_its_own ? 24 : 4); ++round) {
            const ended result = run("restore", {"--name", "b", "--to", path("in/r")});
            EXPECT_EQ(result.code, 1);
            expect_untouched();
            fs::remove_all(path("in/r"));
        }
    }
};

TEST_F(RacingStreams, DoNotLeadOut) { expect_no_escape(); }

TEST_F(RacingStreams, DoNotLeadOutForSomebodyWhoIsNotRoot) {
    install_for_everybody();
    fs::create_directory(path("in"));
    fs::permissions(path("in"), fs::perms::all);
    fs::permissions(path("outside"), fs::perms::all);
    outside_mode = fs::perms::all;
    expect_no_escape();
}

} // namespace
