// "lsu" on the disk storage, through the plugin.

#include "tests/tools/tool_fixture.h"

#include <nlohmann/json.hpp>

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class LsuCommand : public ToolTest {
  protected:
    ended lsu(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "lsu");
        return on_server(arguments);
    }

    void expect_failure(const ended& result, const std::string& message) const {
        EXPECT_EQ(result.code, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, StartsWith("throttlectl: " + message));
    }

    std::string at_server() const { return " of the server \"" + server() + "\" failed: "; }
    const std::string missing = "status 2061002: the storage says: No such file or directory";
};

TEST_F(LsuCommand, ListSaysThatThereAreNone) {
    const ended list = lsu({"list"});
    EXPECT_EQ(list.code, 0);
    EXPECT_EQ(list.out, "The server \"" + server() + "\" has no LSUs.\n");
    EXPECT_EQ(lsu({"list", "--json"}).out, "[]\n");
}

TEST_F(LsuCommand, ListShowsEachWithItsLabelAndItsImages) {
    fill_store();
    const ended list = lsu({"list"});
    EXPECT_EQ(list.code, 0);
    EXPECT_THAT(list.out, StartsWith("LSU     images  used  free"));
    EXPECT_THAT(list.out, HasSubstr("\ndaily   2       16 B"));
    EXPECT_THAT(list.out, HasSubstr("  tape3\nweekly  0       0 B"));
}

TEST_F(LsuCommand, ListForAProgramIsOneListOfObjects) {
    fill_store();
    const json list = json::parse(lsu({"list", "--json"}).out);
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0].at("lsu"), "daily");
    EXPECT_EQ(list[0].at("label"), "tape3");
    EXPECT_EQ(list[0].at("server"), server());
    EXPECT_EQ(list[0].at("images"), 2);
    EXPECT_EQ(list[0].at("used"), 16);
    EXPECT_GT(list[0].at("capacity"), 0);
    EXPECT_EQ(list[1].at("lsu"), "weekly");
}

TEST_F(LsuCommand, CreateMakesAnLsuWithItsLabel) {
    const ended created = lsu({"create", "monthly", "--label", "vault"});
    EXPECT_EQ(created.code, 0);
    EXPECT_EQ(created.out, "The LSU \"monthly\" is created.\n");
    EXPECT_THAT(lsu({"show", "monthly"}).out, HasSubstr("label     vault\n"));
}

TEST_F(LsuCommand, NamesAreShownWithoutWhatMovesTheCursor) {
    EXPECT_EQ(lsu({"create", "a\x1b"}).out, "The LSU \"a\\x1b\" is created.\n");
    EXPECT_EQ(lsu({"label", "a\x1b", "b\n"}).out, "The LSU \"a\\x1b\" is labelled \"b\\n\".\n");
    EXPECT_THAT(lsu({"create", "a\x1b"}).err, HasSubstr("creating the LSU \"a\\x1b\""));
    EXPECT_EQ(on_server({"run", "list"}).out, "a\\x1b\n");
    EXPECT_THAT(on_server({"image", "list", "--lsu", "b"}).err, HasSubstr("it has a\\x1b\n"));
    EXPECT_EQ(lsu({"delete", "a\x1b"}).out, "The LSU \"a\\x1b\" is deleted.\n");
}

TEST_F(LsuCommand, CreateOfOneThatIsThereNamesItTheServerAndTheStatus) {
    fill_store();
    expect_failure(lsu({"create", "daily"}), "creating the LSU \"daily\"" + at_server() +
                                                 "status 2061017: the storage says: File exists");
}

TEST_F(LsuCommand, ShowTellsWhatItsImagesWereCopiedFromAndTo) {
    fill_store();
    ASSERT_EQ(on_server({"image", "copy", "a", "--lsu", "daily", "--to-lsu", "weekly"}).code, 0);
    const std::string next = "disk:" + path("store");
    EXPECT_THAT(lsu({"show", "daily"}).out,
                HasSubstr("copied to the LSU \"weekly\" of \"" + next + "\"\n"));
    EXPECT_THAT(lsu({"show", "weekly"}).out,
                HasSubstr("copied from the LSU \"daily\" of \"" + next + "\"\n"));
    const json shown = json::parse(lsu({"show", "weekly", "--json"}).out);
    EXPECT_THAT(shown.at("copied_from"), ElementsAre(json({{"server", next}, {"lsu", "daily"}})));
    EXPECT_EQ(shown.at("copied_to"), json::array());
}

TEST_F(LsuCommand, ShowMakesRoomForMorePeersThanItFirstThoughtOf) {
    fill_store();
    for (int index = 0; index < 17; ++index) {
        const std::string name = "peer" + std::to_string(index);
        ASSERT_EQ(lsu({"create", name}).code, 0);
        ASSERT_EQ(on_server({"image", "copy", "b", "--lsu", "daily", "--to-lsu", name}).code, 0);
    }
    EXPECT_EQ(json::parse(lsu({"show", "daily", "--json"}).out).at("copied_to").size(), 17U);
}

TEST_F(LsuCommand, DeleteTakesAnEmptyLsuAway) {
    fill_store();
    const ended deleted = lsu({"delete", "weekly"});
    EXPECT_EQ(deleted.code, 0);
    EXPECT_EQ(deleted.out, "The LSU \"weekly\" is deleted.\n");
    expect_failure(lsu({"show", "weekly"}),
                   "reading the properties of the LSU \"weekly\"" + at_server() + missing);
}

TEST_F(LsuCommand, DeleteRefusesAnLsuWithImages) {
    fill_store();
    expect_failure(lsu({"delete", "daily"}),
                   "deleting the LSU \"daily\"" + at_server() +
                       "status 2061039: the storage says: Directory not empty");
    EXPECT_EQ(lsu({"show", "daily"}).code, 0);
}

TEST_F(LsuCommand, LabelReplacesTheLabelAndAnEmptyOneTakesItAway) {
    fill_store();
    EXPECT_EQ(lsu({"label", "daily", "tape9"}).out, "The LSU \"daily\" is labelled \"tape9\".\n");
    EXPECT_EQ(json::parse(lsu({"show", "daily", "--json"}).out).at("label"), "tape9");
    EXPECT_EQ(lsu({"label", "daily", ""}).code, 0);
    EXPECT_EQ(json::parse(lsu({"show", "daily", "--json"}).out).at("label"), "");
}

TEST_F(LsuCommand, FindPrintsTheLsuWithTheLabel) {
    fill_store();
    EXPECT_EQ(lsu({"find", "tape3"}).out, "daily\n");
    expect_failure(lsu({"find", "tape9"}),
                   "finding an LSU with the label \"tape9\"" + at_server() + missing);
}

TEST_F(LsuCommand, NamesThatDoNotFitAreToldWithTheirLengths) {
    fill_store();
    expect_failure(lsu({"show", std::string(1024, 'l')}), "the LSU name \"lll");
    EXPECT_THAT(lsu({"create", std::string(1024, 'l')}).err,
                HasSubstr("is too long: 1024 bytes, at most 1023"));
    EXPECT_THAT(lsu({"label", "daily", std::string(512, 'l')}).err,
                HasSubstr("is too long: 512 bytes, at most 511"));
    EXPECT_EQ(json::parse(lsu({"show", "daily", "--json"}).out).at("label"), "tape3");
    expect_failure(lsu({"create", "a/b"}),
                   "creating the LSU \"a/b\"" + at_server() + "STS_ERR_INVALID (2060001)");
}

TEST_F(LsuCommand, WrongArgumentsEndWith2) {
    EXPECT_EQ(tool({"lsu"}).code, 2);
    EXPECT_THAT(tool({"lsu", "list"}).err, HasSubstr("--server is required"));
    EXPECT_THAT(lsu({"show"}).err, HasSubstr("LSU is required"));
    EXPECT_EQ(lsu({"show", "a", "b"}).code, 2);
    EXPECT_EQ(lsu({"create", "a", "--colour", "red"}).code, 2);
}

} // namespace
