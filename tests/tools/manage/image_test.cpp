// "image" on the disk storage, through the plugin.

#include "tests/support/conf_dir.h"
#include "tests/tools/tool_fixture.h"

#include <csignal>
#include <nlohmann/json.hpp>

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

class ImageCommand : public ToolTest {
  protected:
    ImageCommand() { fill_store(); }

    ended image(std::vector<std::string> arguments, const std::string& lsu = "daily") const {
        arguments.insert(arguments.begin(), "image");
        arguments.insert(arguments.end(), {"--lsu", lsu});
        return on_server(arguments);
    }

    json shown(const std::string& name, const std::string& lsu = "daily") const {
        return json::parse(image({"show", name, "--json"}, lsu).out);
    }

    const std::string missing = "status 2061002: the storage says: No such file or directory";
};

TEST_F(ImageCommand, ListShowsNameSizeAndGroup) {
    const ended list = image({"list"});
    EXPECT_EQ(list.code, 0);
    EXPECT_THAT(list.out, StartsWith("image  size  created"));
    EXPECT_THAT(list.out, HasSubstr("\na      11 B"));
    EXPECT_THAT(list.out, HasSubstr("  full\nb      5 B"));
    EXPECT_EQ(image({"list"}, "weekly").out, "The LSU \"weekly\" has no images.\n");
}

TEST_F(ImageCommand, ListForAProgramTellsAllProperties) {
    const json list = json::parse(image({"list", "--json"}).out);
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0].at("image"), "a");
    EXPECT_EQ(list[0].at("group"), "full");
    EXPECT_EQ(list[0].at("lsu"), "daily");
    EXPECT_EQ(list[0].at("server"), server());
    EXPECT_EQ(list[0].at("size"), 11);
    EXPECT_GT(list[0].at("created"), 0);
    EXPECT_EQ(json::parse(image({"list", "--json"}, "weekly").out), json::array());
}

TEST_F(ImageCommand, ListOfAGroupHasItsImagesAlone) {
    const json list = json::parse(image({"list", "--group", "full", "--json"}).out);
    ASSERT_EQ(list.size(), 1U);
    EXPECT_EQ(list[0].at("image"), "a");
    EXPECT_EQ(image({"list", "--group", "none"}).out,
              "The LSU \"daily\" has no images of the group \"none\".\n");
}

TEST_F(ImageCommand, GroupsAreCounted) {
    EXPECT_EQ(image({"groups"}).out, "group  images  size\nfull   1       11 B\n");
    EXPECT_EQ(image({"groups"}, "weekly").out,
              "The images of the LSU \"weekly\" are in no group.\n");
    EXPECT_EQ(json::parse(image({"groups", "--json"}).out),
              json::array({{{"group", "full"}, {"images", 1}, {"size", 11}}}));
}

TEST_F(ImageCommand, ShowTellsTheProperties) {
    const ended show = image({"show", "a"});
    EXPECT_EQ(show.code, 0);
    EXPECT_THAT(show.out, HasSubstr("image     a\ngroup     full\nlsu       daily\n"));
    EXPECT_THAT(show.out, HasSubstr("size      11 B\n"));
    EXPECT_EQ(shown("a").at("size"), 11);
}

TEST_F(ImageCommand, ShowOfOneThatIsNotThereNamesItTheServerAndTheStatus) {
    const ended show = image({"show", "c"});
    EXPECT_EQ(show.code, 1);
    EXPECT_THAT(show.err, StartsWith("throttlectl: reading the properties of the image \"c\" of "
                                     "the server \"" +
                                     server() + "\" failed: " + missing));
}

TEST_F(ImageCommand, DeleteGoesOnBehindOneThatItCanNotDelete) {
    const ended deleted = image({"delete", "c", "a", "b"});
    EXPECT_EQ(deleted.code, 1);
    EXPECT_EQ(deleted.out, "The image \"a\" is deleted.\nThe image \"b\" is deleted.\n");
    EXPECT_EQ(deleted.err, "throttlectl: deleting the image \"c\" of the server \"" + server() +
                               "\" failed: " + missing + "\n");
    EXPECT_EQ(image({"list"}).out, "The LSU \"daily\" has no images.\n");
}

TEST_F(ImageCommand, LsuThatIsNotThereIsNamedWithThoseThatAre) {
    const ended list = image({"list"}, "yearly");
    EXPECT_EQ(list.code, 1);
    EXPECT_THAT(list.err, HasSubstr("has no LSU \"yearly\"; it has daily, weekly"));
}

// --- copy --------------------------------------------------------------------------------------

TEST_F(ImageCommand, CopyMakesTheSameImageElsewhere) {
    const ended copy = image({"copy", "a", "--to-lsu", "weekly", "--to-image", "c"});
    EXPECT_EQ(copy.code, 0);
    EXPECT_THAT(copy.out, StartsWith("The image \"a\" is copied to \"c\" in the LSU \"weekly\": "
                                     "11 B in "));
    EXPECT_EQ(shown("c", "weekly").at("size"), 11);
    EXPECT_EQ(shown("c", "weekly").at("group"), "full");
    EXPECT_EQ(image({"meta", "c"}, "weekly").out, "catalogue");
}

TEST_F(ImageCommand, CopyToAnotherServerTakesItsFullName) {
    const std::string other = "CS_throttle:t2:disk:" + path("other");
    ASSERT_EQ(on_server(other, {"lsu", "create", "kept"}).code, 0);
    EXPECT_EQ(image({"copy", "a", "--to-server", other, "--to-lsu", "kept"}).code, 0);
    EXPECT_EQ(on_server(other, {"image", "show", "a", "--lsu", "kept"}).code, 0);
}

TEST_F(ImageCommand, CopyThatCanNotBeginTellsTheStatus) {
    const std::string failed = "copying the image \"daily/a\" of the server \"" + server() +
                               "\" to \"daily/a\" failed: status 2061017: the storage says: File "
                               "exists";
    const ended copy = image({"copy", "a", "--to-lsu", "daily"});
    EXPECT_EQ(copy.code, 1);
    EXPECT_THAT(copy.err, HasSubstr(failed));
    EXPECT_THAT(image({"copy", "c", "--to-lsu", "weekly"}).err, HasSubstr(missing));
    EXPECT_EQ(image({"copy", "a", "--to-lsu", "weekly", "--to-server", "CS_throttle:t"}).code, 2);
}

TEST_F(ImageCommand, CopyIsCancelledBySigintAndLeavesNothingInRealTime) {
    put_image("large", std::string(1000000, 'x'));
    tool_process copy({program, "image", "copy", "large", "--lsu", "daily", "--to-lsu", "weekly",
                       "--rate", "10000", "--block", "1000", "--server", server(), "--conf-dir",
                       path("conf")},
                      how);
    ASSERT_TRUE(copy.await_err(" of 976.6 KiB"));
    copy.send(SIGINT);
    const ended cancelled = copy.wait();
    EXPECT_EQ(cancelled.code, 130);
    EXPECT_THAT(cancelled.err, HasSubstr("Interrupted: the copy of \"large\" is cancelled, and "
                                         "nothing is left of it."));
    EXPECT_EQ(image({"list"}, "weekly").out, "The LSU \"weekly\" has no images.\n");
}

// --- metadata ----------------------------------------------------------------------------------

TEST_F(ImageCommand, MetaIsPrintedAsItIs) {
    EXPECT_EQ(image({"meta", "a"}).out, "catalogue");
    EXPECT_EQ(image({"meta", "b"}).out, "");
}

TEST_F(ImageCommand, MetaIsReplacedAsAWholeAndTheDataStays) {
    EXPECT_EQ(image({"meta", "a", "--set", "short"}).out,
              "The image \"a\" has 5 bytes of metadata.\n");
    EXPECT_EQ(image({"meta", "a"}).out, "short");
    EXPECT_EQ(get_image("a"), "hello there");
    EXPECT_EQ(shown("a").at("group"), "full");
}

TEST_F(ImageCommand, MetaOfAFileLargerThanABlockComesBack) {
    std::string content(200000, '\0');
    for (size_t index = 0; index < content.size(); ++index) {
        content[index] = static_cast<char>(index * 7);
    }
    write_text(path("meta"), content);
    EXPECT_EQ(image({"meta", "b", "--set-file", path("meta")}).code, 0);
    EXPECT_EQ(image({"meta", "b"}).out, content);
}

TEST_F(ImageCommand, MetaIsClearedOrSetToNothing) {
    EXPECT_EQ(image({"meta", "a", "--clear"}).code, 0);
    EXPECT_EQ(image({"meta", "a"}).out, "");
    write_text(path("empty"), "");
    EXPECT_EQ(image({"meta", "b", "--set-file", path("empty")}).code, 0);
    EXPECT_EQ(image({"meta", "b"}).out, "");
}

TEST_F(ImageCommand, MetaFromAFileThatCanNotBeReadChangesNothing) {
    const ended set = image({"meta", "a", "--set-file", path("nowhere")});
    EXPECT_EQ(set.code, 1);
    EXPECT_THAT(set.err, HasSubstr("nowhere can't be read: No such file or directory"));
    EXPECT_EQ(image({"meta", "a", "--set-file", path("conf")}).code, 1) << "a directory";
    EXPECT_EQ(image({"meta", "a"}).out, "catalogue");
}

TEST_F(ImageCommand, WrongArgumentsEndWith2) {
    EXPECT_THAT(tool({"image", "list", "--server", "s"}).err, HasSubstr("--lsu is required"));
    EXPECT_EQ(image({"show", "a", "b"}).code, 2);
    EXPECT_EQ(image({"copy", "a"}).code, 2);
    EXPECT_EQ(image({"copy", "a", "--to-lsu", "weekly", "--rate", "fast"}).code, 2);
    EXPECT_EQ(image({"meta", "a", "--clear", "--set", "x"}).code, 2);
    EXPECT_EQ(image({"delete"}).code, 2);
}

} // namespace
