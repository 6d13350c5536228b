// Images that were damaged after they were written: restore and verify find it, name the image and
// the place, restore what is left, and end with 1.

#include "tests/support/conf_dir.h"
#include "tests/tools/tool_fixture.h"

#include <random>
#include <sys/stat.h>

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr size_t block = 512;

class Damage : public ToolTest {
  protected:
    Damage() {
        how.directory = root;
        fs::create_directory(path("tree"));
        for (const char* name : {"first", "middle", "last"}) {
            write_text(path("tree/") + name, std::string("content of ") + name);
        }
        std::mt19937_64 numbers(3);
        std::string large(1000000, '\0');
        for (char& each : large) {
            each = static_cast<char>(numbers());
        }
        write_text(path("tree/large"), large);
    }

    void back_up(const std::string& streams = "1") const {
        ASSERT_EQ(run("backup", {"tree", "--name", "b", "--streams", streams}).code, 0);
    }

    std::string files_of(const std::string& image) const {
        return path("store/daily/images/" + image);
    }

    /// The image with other bytes and the seal that it had.
    void rewrite(const std::string& image, const std::string& bytes) const {
        const std::string seal = conf_dir::read(files_of(image) + "/meta");
        EXPECT_EQ(on_server({"image", "delete", image, "--lsu", "daily"}).code, 0);
        put_image(image, bytes);
        write_text(files_of(image) + "/meta", seal);
    }

    /// The blocks of the entry's own header begin with its name.
    static size_t header_of(const std::string& archive, const std::string& name) {
        size_t place = 0;
        while (place < archive.size() &&
               archive.compare(place, name.size() + 1, name + '\0', 0, name.size() + 1) != 0) {
            place += block;
        }
        EXPECT_LT(place, archive.size());
        return place;
    }

    ended restore() const {
        fs::remove_all(path("r"));
        return run("restore", {"--name", "b", "--to", "r"});
    }

    /// Both commands end with 1 and say that of an image.
    ended expect_damage(const std::string& regex) const {
        const ended verify = run("verify", {"--name", "b", "tree"});
        EXPECT_EQ(verify.code, 1);
        EXPECT_THAT(verify.out, ContainsRegex(regex));
        const ended result = restore();
        EXPECT_EQ(result.code, 1);
        EXPECT_THAT(result.err, ContainsRegex(regex));
        return result;
    }

    void expect_restored(const std::vector<std::string>& names) const {
        for (const std::string& name : names) {
            EXPECT_EQ(conf_dir::read(path("r/tree/" + name)), conf_dir::read(path("tree/" + name)))
                << name;
        }
    }
};

TEST_F(Damage, OfNothingIsSaidOfWholeImages) {
    back_up("3");
    const ended result = restore();
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(without_warnings(result.err), "");
    EXPECT_EQ(without_warnings(run("verify", {"--name", "b", "tree"}).err), "");
    expect_restored({"first", "middle", "last", "large"});
}

TEST_F(Damage, ImageOfZeros) {
    back_up();
    rewrite("b.1of1", std::string(get_image("b.1of1").size(), '\0'));
    const ended result = expect_damage("the image \"b.1of1\": 5 of its 5 entries are lost");
    EXPECT_THAT(result.err, HasSubstr("the image \"b.1of1\": an entry is lost, as the header in "
                                      "bytes 0 to "));
}

TEST_F(Damage, HeaderOfZerosCostsItsOwnEntry) {
    back_up();
    std::string archive = get_image("b.1of1");
    const size_t place = header_of(archive, "tree/middle");
    archive.replace(place, block, block, '\0');
    rewrite("b.1of1", archive);
    expect_damage("the image \"b.1of1\": 1 of its 5 entries is lost");
    expect_restored({"first", "last", "large"});
    EXPECT_FALSE(fs::exists(path("r/tree/middle")));
}

TEST_F(Damage, EveryBitOfAHeaderCounts) {
    back_up();
    const std::string archive = get_image("b.1of1");
    const size_t place = header_of(archive, "tree/middle");
    for (const size_t offset : {0U, 101U, 150U, 500U}) { // name, mode, checksum, padding
        std::string damaged = archive;
        damaged[place + offset] = static_cast<char>(damaged[place + offset] ^ 1);
        rewrite("b.1of1", damaged);
        expect_damage("the image \"b.1of1\": an entry is lost, as the header in bytes [0-9]+ "
                      "to [0-9]+ is damaged");
        expect_restored({"first", "last", "large"});
    }
}

TEST_F(Damage, BitOfAFilesContentIsNamedWithTheFile) {
    back_up();
    std::string archive = get_image("b.1of1");
    const size_t place = archive.find("content of middle");
    archive[place] = 'C';
    rewrite("b.1of1", archive);
    const ended result = expect_damage("the image \"b.1of1\": content in bytes " +
                                       std::to_string(place) + " to [0-9]+");
    EXPECT_THAT(result.err, HasSubstr("tree/middle: not as it was backed up: the image \"b.1of1\" "
                                      "is damaged in its bytes " +
                                      std::to_string(place) + " to "));
    expect_restored({"first", "last", "large"});
    EXPECT_EQ(conf_dir::read(path("r/tree/middle")), "Content of middle");
}

TEST_F(Damage, InTheMiddleOfALargeFileLeavesTheRestOfIt) {
    back_up();
    std::string archive = get_image("b.1of1");
    const std::string content = conf_dir::read(path("tree/large"));
    const size_t start = archive.find(content.substr(0, 64));
    archive[start + 600000] = static_cast<char>(archive[start + 600000] ^ 4);
    rewrite("b.1of1", archive);
    expect_damage("the image \"b.1of1\": content in bytes " +
                  std::to_string(start + 2 * 256 * 1024) + " to ");
    expect_restored({"first", "middle", "last"});
    const std::string restored = conf_dir::read(path("r/tree/large"));
    ASSERT_EQ(restored.size(), content.size());
    EXPECT_EQ(restored.substr(0, 600000), content.substr(0, 600000));
    EXPECT_EQ(restored.substr(600001), content.substr(600001));
}

TEST_F(Damage, ImageThatEndsEarlyGivesWhatIsLeft) {
    back_up();
    const std::string archive = get_image("b.1of1");
    const size_t place = header_of(archive, "tree/middle");
    rewrite("b.1of1", archive.substr(0, place + 100));
    const ended result =
        expect_damage("the image \"b.1of1\": it has " + std::to_string(place + 100) +
                      " bytes, and " + std::to_string(archive.size()) + " were written");
    EXPECT_FALSE(fs::exists(path("r/tree/middle")));
    expect_restored({"first", "large", "last"});
}

TEST_F(Damage, ImageThatEndsInAFileGivesItsBeginning) {
    back_up();
    const std::string archive = get_image("b.1of1");
    const std::string content = conf_dir::read(path("tree/large"));
    const size_t start = archive.find(content.substr(0, 64));
    rewrite("b.1of1", archive.substr(0, start + 300000));
    const ended result = expect_damage("bytes, and [0-9]+ were written");
    EXPECT_THAT(result.err, HasSubstr("tree/large: not as it was backed up"));
    EXPECT_EQ(conf_dir::read(path("r/tree/large")).substr(0, 300000), content.substr(0, 300000));
}

TEST_F(Damage, ImageThatTheStorageFindsTruncatedIsMissing) {
    back_up("2");
    fs::resize_file(files_of("b.1of2") + "/data", 1000);
    expect_damage("the image \"b.1of2\": missing");
}

TEST_F(Damage, EmptyImage) {
    back_up();
    rewrite("b.1of1", "");
    expect_damage("the image \"b.1of1\": it has 0 bytes, and [0-9]+ were written");
}

TEST_F(Damage, LongerImage) {
    back_up();
    rewrite("b.1of1", get_image("b.1of1") + "more");
    expect_damage("the image \"b.1of1\": it has [0-9]+ bytes, and [0-9]+ were written");
    expect_restored({"first", "middle", "last", "large"});
}

TEST_F(Damage, MissingImageIsNamedAndTheOthersAreRestored) {
    back_up("3");
    EXPECT_EQ(on_server({"image", "delete", "b.1of3", "--lsu", "daily"}).code, 0);
    expect_damage("the image \"b.1of3\": missing");
    EXPECT_EQ(std::distance(fs::directory_iterator(path("r/tree")), {}), 3);
    const ended list = run("list", {});
    EXPECT_EQ(list.code, 1);
    EXPECT_THAT(list.err, HasSubstr("the image \"b.1of3\": missing"));
}

TEST_F(Damage, SwappedImagesAreNamed) {
    back_up("2");
    fs::rename(files_of("b.1of2"), files_of("x"));
    fs::rename(files_of("b.2of2"), files_of("b.1of2"));
    fs::rename(files_of("x"), files_of("b.2of2"));
    expect_damage("the image \"b.1of2\": it was written as \"b.2of2\"");
    expect_restored({"first", "middle", "last", "large"});
}

TEST_F(Damage, SwappedSealsAreFound) {
    back_up("2");
    fs::rename(files_of("b.1of2") + "/meta", files_of("x"));
    fs::rename(files_of("b.2of2") + "/meta", files_of("b.1of2") + "/meta");
    fs::rename(files_of("x"), files_of("b.2of2") + "/meta");
    expect_damage("the image \"b.1of2\": .* entries (is|are) lost");
}

TEST_F(Damage, OfTheSealIsSaidAndAllIsRestored) {
    back_up();
    const std::string seal = conf_dir::read(files_of("b.1of1") + "/meta");
    for (size_t place = 0; place < seal.size(); place += 7) {
        std::string damaged = seal;
        damaged[place] = static_cast<char>(damaged[place] ^ 0x10);
        write_text(files_of("b.1of1") + "/meta", damaged);
        if (place % 21 == 0) {
            expect_damage("the image \"b.1of1\": its seal is damaged");
            expect_restored({"first", "middle", "last", "large"});
        }
    }
}

TEST_F(Damage, BackupWithoutSealsIsRestoredWithAWarning) {
    back_up();
    fs::remove(files_of("b.1of1") + "/meta");
    const ended result = restore();
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.err, HasSubstr("warning: the image \"b.1of1\" has no seal"));
    expect_restored({"first", "middle", "last", "large"});
}

TEST_F(Damage, WithoutSealsEndsThatComeTooEarlyAreFound) {
    back_up();
    const std::string archive = get_image("b.1of1");
    std::string damaged = archive;
    const size_t place = header_of(archive, "tree/large");
    damaged.replace(place - 2 * block, 3 * block, 3 * block, '\0');
    rewrite("b.1of1", damaged);
    fs::remove(files_of("b.1of1") + "/meta");
    EXPECT_EQ(restore().code, 1);
    rewrite("b.1of1", std::string(archive.size(), '\0'));
    fs::remove(files_of("b.1of1") + "/meta");
    const ended zeros = restore();
    EXPECT_EQ(zeros.code, 1);
    EXPECT_THAT(zeros.err, HasSubstr("bytes hold no entry"));
}

} // namespace
