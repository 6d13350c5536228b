// "events" on the disk storage, through the plugin.

#include "tests/tools/tool_fixture.h"

#include <csignal>
#include <nlohmann/json.hpp>
#include <sstream>

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class EventsCommand : public ToolTest {
  protected:
    EventsCommand() { fill_store(); }

    ended events(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "events");
        return on_server(arguments);
    }

    /// The lines of --json.
    std::vector<json> objects(std::vector<std::string> arguments) const {
        arguments.emplace_back("--json");
        return objects_in(events(arguments).out);
    }

    static std::vector<json> objects_in(const std::string& text) {
        std::vector<json> all;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            all.push_back(json::parse(line));
        }
        return all;
    }

    static std::vector<std::string> kinds_of(const std::vector<json>& all) {
        std::vector<std::string> kinds;
        for (const json& each : all) {
            kinds.push_back(each.at("kind"));
        }
        return kinds;
    }

    std::vector<std::string> follow(const std::vector<std::string>& more) const {
        std::vector<std::string> all = {program,    "events", "--follow",   "--json",
                                        "--server", server(), "--conf-dir", path("conf")};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
};

TEST_F(EventsCommand, ThoseThatAreKeptAreShownInTheirOrder) {
    const ended shown = events({});
    EXPECT_EQ(shown.code, 0);
    EXPECT_THAT(shown.out, HasSubstr("       1  20"));
    EXPECT_THAT(shown.out, HasSubstr("  lsu-created    daily\n"));
    EXPECT_THAT(shown.out, HasSubstr("  image-created  daily/a\n"));
    EXPECT_THAT(kinds_of(objects({})),
                ElementsAre("lsu-created", "lsu-created", "image-created", "image-created"));
}

TEST_F(EventsCommand, ForAProgramEachIsOneObject) {
    const json first = objects({})[0];
    EXPECT_EQ(first.at("number"), 1);
    EXPECT_GT(first.at("time"), 0);
    EXPECT_EQ(first.at("server"), server());
    EXPECT_EQ(first.at("lsu"), "daily");
    EXPECT_EQ(first.at("image"), "");
    EXPECT_FALSE(first.contains("payload"));
}

TEST_F(EventsCommand, PayloadIsShownOnRequest) {
    EXPECT_THAT(events({"--payload"}).out,
                HasSubstr("  image-created  daily/a\n          size=11\n          group=full\n"));
    EXPECT_EQ(objects({"--payload"})[0].at("payload"), "label=tape3\n");
}

TEST_F(EventsCommand, LsuAndKindChooseAmongThem) {
    EXPECT_THAT(kinds_of(objects({"--lsu", "weekly"})), ElementsAre("lsu-created"));
    EXPECT_THAT(kinds_of(objects({"--kind", "image-created"})),
                ElementsAre("image-created", "image-created"));
    EXPECT_THAT(objects({"--kind", "image-deleted", "--kind", "lsu-deleted"}), IsEmpty());
}

TEST_F(EventsCommand, EveryKindHasItsName) {
    ASSERT_EQ(on_server({"image", "meta", "a", "--set", "x", "--lsu", "daily"}).code, 0);
    ASSERT_EQ(on_server({"image", "delete", "a", "--lsu", "daily"}).code, 0);
    ASSERT_EQ(on_server({"lsu", "label", "weekly", "x"}).code, 0);
    ASSERT_EQ(on_server({"lsu", "delete", "weekly"}).code, 0);
    for (const char* const kind : {"lsu-created", "image-created", "image-changed", "image-deleted",
                                   "lsu-labelled", "lsu-deleted"}) {
        const std::vector<json> chosen = objects({"--kind", kind});
        ASSERT_FALSE(chosen.empty()) << kind;
        EXPECT_EQ(chosen[0].at("kind"), kind);
    }
}

TEST_F(EventsCommand, DeleteTakesThoseThatWerePrinted) {
    EXPECT_THAT(kinds_of(objects({"--delete", "--kind", "lsu-created"})),
                ElementsAre("lsu-created", "lsu-created"));
    EXPECT_THAT(kinds_of(objects({})), ElementsAre("image-created", "image-created"));
}

TEST_F(EventsCommand, FollowShowsWhatComesAndEndsWellOnSigintInRealTime) {
    for (const int signal : {SIGINT, SIGTERM}) {
        tool_process following(follow({}), how);
        ASSERT_TRUE(following.await_err("Following the events"));
        ASSERT_EQ(on_server({"lsu", "label", "weekly", "x"}).code, 0);
        ASSERT_TRUE(following.await_out("lsu-labelled"));
        following.send(signal);
        const ended result = following.wait();
        EXPECT_EQ(result.code, 0);
        EXPECT_THAT(kinds_of(objects_in(result.out)), ElementsAre("lsu-labelled"));
    }
}

TEST_F(EventsCommand, FollowWithThoseKeptShowsThemFirstInRealTime) {
    tool_process following(follow({"--kept", "--payload"}), how);
    ASSERT_TRUE(following.await_out("\"image\":\"b\""));
    ASSERT_EQ(on_server({"lsu", "label", "weekly", "x"}).code, 0);
    ASSERT_TRUE(following.await_out("lsu-labelled"));
    following.send(SIGINT);
    const std::vector<json> all = objects_in(following.wait().out);
    ASSERT_EQ(all.size(), 5U);
    EXPECT_EQ(all[0].at("number"), 1);
    EXPECT_EQ(all[4].at("payload"), "label=x\n");
}

TEST_F(EventsCommand, ServerWithoutALayerBelowHasNone) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"events"}, {"events", "--follow"}}) {
        const ended shown = on_server("CS_throttle:global:", arguments);
        EXPECT_EQ(shown.code, 1);
        EXPECT_THAT(shown.err, HasSubstr("the server \"CS_throttle:global:\" has no events: there "
                                         "is no layer below it"));
    }
}

TEST_F(EventsCommand, StandardOutputThatTakesNothingIsAFailure) {
    const ended shown =
        run_process({"/bin/sh", "-c", "\"$0\" events --server \"$1\" --conf-dir \"$2\" > /dev/full",
                     program, server(), path("conf")},
                    how);
    EXPECT_EQ(shown.code, 1);
    EXPECT_THAT(shown.err, HasSubstr("the events can't be written to standard output"));
}

TEST_F(EventsCommand, WrongArgumentsEndWith2) {
    EXPECT_THAT(events({"--kind", "flood"}).err, HasSubstr("--kind"));
    EXPECT_EQ(events({"--kind", "flood"}).code, 2);
    EXPECT_EQ(events({"--kept"}).code, 2);
    EXPECT_EQ(events({"more"}).code, 2);
    EXPECT_EQ(events({"--lsu", std::string(2000, 'l')}).code, 1);
}

} // namespace
