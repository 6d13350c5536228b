// "config" on the plugin's settings and those of the disk storage below it.

#include "tests/support/conf_dir.h"
#include "tests/tools/tool_fixture.h"

#include <nlohmann/json.hpp>

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

class ConfigCommand : public ToolTest {
  protected:
    std::string shared() const { return "CS_throttle:global:disk:" + path("store"); }
    std::string own_limit() const { return "THR:" + path("store"); }

    ended get(const std::string& name, std::vector<std::string> arguments = {}) const {
        arguments.insert(arguments.begin(), {"config", "get"});
        return on_server(name, arguments);
    }
    std::string value(const std::string& key) const { return get(shared(), {key}).out; }

    ended set(const std::string& name, std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"config", "set"});
        return on_server(name, arguments);
    }

    /// `set` fails with `code` and `message`, and every setting is as it was.
    void expect_refusal(const std::string& name, const std::vector<std::string>& arguments,
                        int code, const std::string& message) const {
        const std::string before = get(name, {"--text"}).out;
        const ended result = set(name, arguments);
        EXPECT_EQ(result.code, code);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, HasSubstr(message));
        EXPECT_EQ(get(name, {"--text"}).out, before);
    }
};

TEST_F(ConfigCommand, GetShowsTheNextLayersSettingsBeforeThePlugins) {
    const ended all = get(server());
    EXPECT_EQ(all.code, 0);
    EXPECT_THAT(all.out, StartsWith("key "));
    const size_t storage = all.out.find("\nSTS:SYNC_AT_CLOSE ");
    const size_t plugin = all.out.find("\nTHR:READ_BANDWIDTH_PERCENT ");
    EXPECT_NE(storage, std::string::npos);
    EXPECT_NE(plugin, std::string::npos);
    EXPECT_LT(storage, plugin);
}

TEST_F(ConfigCommand, GetAsTextIsTheTextOfAllLayers) {
    const std::string text = get(server(), {"--text"}).out;
    EXPECT_THAT(text, StartsWith("name=STS:EVENTS_KEPT,description=Events that are kept until they "
                                 "are deleted,type=int,value=10000,fixed=n;name=STS:"));
    EXPECT_THAT(text, HasSubstr("fixed=n;name=THR:READ_BANDWIDTH_PERCENT,"));
    EXPECT_THAT(text, testing::EndsWith("fixed=y;\n"));
}

TEST_F(ConfigCommand, GetOfOneKeyPrintsItsValueAlone) {
    EXPECT_EQ(get(server(), {"THR:AVAIL_BANDWIDTH"}).out, "104857600\n");
    EXPECT_EQ(get(server(), {own_limit()}).out, "10\n");
    EXPECT_EQ(json::parse(get(server(), {"STS:EVENTS_KEPT", "--json"}).out),
              json({{"name", "STS:EVENTS_KEPT"},
                    {"value", "10000"},
                    {"type", "int"},
                    {"fixed", false},
                    {"description", "Events that are kept until they are deleted"}}));
}

TEST_F(ConfigCommand, GetForAProgramMarksWhatThisServerCanNotSet) {
    const json rows = json::parse(get(server(), {"--json"}).out);
    EXPECT_EQ(rows.size(), 17U);
    for (const json& row : rows) {
        const std::string name = row.at("name");
        EXPECT_EQ(row.at("fixed"), name.compare(0, 4, "STS:") != 0 && name != own_limit()) << name;
    }
}

TEST_F(ConfigCommand, GetOfAnUnknownKeyNamesItAndTheServer) {
    const ended one = get(server(), {"THR:NOTHING"});
    EXPECT_EQ(one.code, 1);
    EXPECT_THAT(one.err, HasSubstr("the server \"" + server() + "\" has no key \"THR:NOTHING\""));
}

TEST_F(ConfigCommand, SetChangesWhatIsNamedInAllLayersAndKeepsTheRest) {
    write_settings("THR:SAMPLE_INTERVAL=0\nTHR:READ_BANDWIDTH_PERCENT=70\nTHR:WEEKEND_START=5\n");
    const ended result = set(shared(), {"THR:AVAIL_BANDWIDTH=5000", "STS:EVENTS_KEPT=30"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, "STS:EVENTS_KEPT: 10000 -> 30\nTHR:AVAIL_BANDWIDTH: 104857600 -> 5000\n");
    EXPECT_EQ(value("THR:AVAIL_BANDWIDTH"), "5000\n");
    EXPECT_EQ(value("STS:EVENTS_KEPT"), "30\n");
    EXPECT_EQ(value("THR:READ_BANDWIDTH_PERCENT"), "70\n");
    EXPECT_EQ(value("THR:WEEKEND_START"), "5\n");
}

TEST_F(ConfigCommand, SetThroughAStorageChangesItsOwnLimit) {
    EXPECT_EQ(set(server(), {own_limit() + "=4"}).out, own_limit() + ": 10 -> 4\n");
    EXPECT_THAT(conf_dir::read(path("conf/libstspithrottling.conf")),
                HasSubstr(own_limit() + "=4\n"));
}

TEST_F(ConfigCommand, SetOfTheNextLayersThroughAStorageKeepsItsOwnLimit) {
    ASSERT_EQ(set(server(), {own_limit() + "=4"}).code, 0);
    ASSERT_EQ(set(server(), {"STS:SYNC_AT_CLOSE=0"}).code, 0);
    EXPECT_EQ(get(server(), {own_limit()}).out, "4\n");
    EXPECT_EQ(get(server(), {"STS:SYNC_AT_CLOSE"}).out, "0\n");
}

TEST_F(ConfigCommand, SetToldOfWhatThePluginAdjustsWithIt) {
    const ended result = set(shared(), {"THR:WORK_TIME_END=20"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, "THR:WORK_TIME_END: 18 -> 20\nTHR:OFF_TIME_START: 18 -> 20\n");
}

TEST_F(ConfigCommand, SetChangesWhatSeveralLayersHaveAndTellsItOnce) {
    std::filesystem::copy_file(PLUGIN, path("copy.so"));
    how.environment["VL_STS_PLUGINS"] = path("copy.so");
    const auto stacked = [&](const std::string& upper, const std::string& lower) {
        return "CS_throttle:" + upper + ":CS_throttle:" + lower + ":disk:" + path("store");
    };
    EXPECT_EQ(set(stacked("a", "b"), {own_limit() + "=4"}).out, own_limit() + ": 10 -> 4\n");
    std::string was = "104857600";
    for (const auto& [upper, lower] :
         {std::pair("global", "global"), {"global", "b"}, {"a", "global"}}) {
        const std::string now = was == "5000" ? "6000" : "5000";
        EXPECT_EQ(set(stacked(upper, lower), {"THR:AVAIL_BANDWIDTH=" + now}).out,
                  "THR:AVAIL_BANDWIDTH: " + was + " -> " + now + "\n")
            << upper << lower;
        was = now;
    }
    EXPECT_EQ(value(own_limit()), "4\n");
    expect_refusal(stacked("a", "b"), {"THR:AVAIL_BANDWIDTH=7"}, 1, "that is fixed there");
}

TEST_F(ConfigCommand, SetToWhatItIsChangesNothing) {
    EXPECT_THAT(set(shared(), {"THR:SAMPLE_INTERVAL=0"}).out, StartsWith("All is as it was"));
    EXPECT_EQ(set(shared(), {"THR:AVAIL_BANDWIDTH=007"}).out,
              "THR:AVAIL_BANDWIDTH: 104857600 -> 7\n");
}

TEST_F(ConfigCommand, ValueThatThePluginRefusesIsNamedAndNothingIsChanged) {
    ASSERT_EQ(set(shared(), {"THR:READ_BANDWIDTH_PERCENT=50"}).code, 0);
    expect_refusal(
        shared(), {"STS:EVENTS_KEPT=1", "THR:READ_BANDWIDTH_PERCENT=101"}, 1,
        "setting STS:EVENTS_KEPT=1 THR:READ_BANDWIDTH_PERCENT=101 of the server \"" + shared() +
            "\" failed: \"THR:READ_BANDWIDTH_PERCENT\" doesn't take \"101\" (it would be "
            "100); nothing is changed");
    expect_refusal(shared(), {"THR:WORK_TIME_END=8"}, 1,
                   "\"THR:WORK_TIME_END\" doesn't take \"8\" (it would be 9)");
    expect_refusal(server(), {own_limit() + "=0"}, 1,
                   "\"" + own_limit() + "\" doesn't take \"0\" (it would be 10)");
}

TEST_F(ConfigCommand, RefusedSetLosesNoEvents) {
    fill_store();
    const std::string before = on_server({"events", "--json"}).out;
    ASSERT_EQ(set(shared(), {"STS:EVENTS_KEPT=1", "THR:READ_BANDWIDTH_PERCENT=101"}).code, 1);
    EXPECT_EQ(on_server({"events", "--json"}).out, before);
}

TEST_F(ConfigCommand, ValueThatTheNextLayerRefusesIsToldInItsWords) {
    expect_refusal(shared(), {"STS:EVENTS_KEPT=-1", "THR:AVAIL_BANDWIDTH=5"}, 1,
                   "failed: STS:EVENTS_KEPT: \"-1\" is not a number from 0 to 1000000: "
                   "STS_ERR_INVALID (2060001)");
}

TEST_F(ConfigCommand, SettingsThatCanNotBeWrittenArePutBackInTheNextLayer) {
    const std::string before = get(shared(), {"--text"}).out; // and the file is there
    std::filesystem::rename(path("conf/libstspithrottling.conf"), path("settings"));
    std::filesystem::create_directory(path("conf/libstspithrottling.conf"));
    const ended result = set(shared(), {"STS:EVENTS_KEPT=1"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr("nothing is changed"));
    std::filesystem::remove(path("conf/libstspithrottling.conf"));
    std::filesystem::rename(path("settings"), path("conf/libstspithrottling.conf"));
    EXPECT_EQ(get(shared(), {"--text"}).out, before);
}

TEST_F(ConfigCommand, SetThatFailsIsToldAlsoWhenTheSettingsCanNotBeReadAnyMore) {
    const ended result =
        tool({"config", "set", "STS:KEPT=8", "--server", "s", "--plugin", OTHER_PLUGIN});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr("setting STS:KEPT=8 of the server \"s\" failed: full: "
                                      "STS_ERR_FILE (2060017)"));
    EXPECT_THAT(result.err, HasSubstr("what was there before can't be put back whole"));
}

TEST_F(ConfigCommand, KeyThatIsFixedOrUnknownIsNamedWithItsValue) {
    expect_refusal(server(), {"THR:AVAIL_BANDWIDTH=5"}, 1,
                   "\"THR:AVAIL_BANDWIDTH\" can't be set to \"5\" through the server \"" +
                       server() + "\": that is fixed there.");
    expect_refusal(shared(), {"THR:NOTHING=5"}, 1,
                   "\"THR:NOTHING\" can't be set to \"5\": the server \"" + shared() +
                       "\" has no such key; it has STS:EVENTS_KEPT, ");
}

TEST_F(ConfigCommand, ValueThatIsNoNumberIsNamedWithItsKey) {
    for (const char* const bad : {"fast", "1x", " 1", "99999999999999999999", "1,2", "1;"}) {
        expect_refusal(shared(), {std::string("THR:AVAIL_BANDWIDTH=") + bad}, 1,
                       std::string("\"THR:AVAIL_BANDWIDTH\" can't be set to \"") + bad +
                           "\": not a whole number");
    }
}

TEST_F(ConfigCommand, WrongArgumentsEndWith2) {
    expect_refusal(shared(), {"THR:AVAIL_BANDWIDTH"}, 2, "isn't KEY=VALUE");
    expect_refusal(shared(), {"THR:AVAIL_BANDWIDTH="}, 2, "isn't KEY=VALUE");
    expect_refusal(shared(), {"THR:AVAIL_BANDWIDTH=1", "THR:AVAIL_BANDWIDTH=2"}, 2,
                   "\"THR:AVAIL_BANDWIDTH\" is set twice");
    EXPECT_EQ(set(shared(), {}).code, 2);
    EXPECT_EQ(tool({"config"}).code, 2);
    EXPECT_THAT(tool({"config", "get"}).err, HasSubstr("--server is required"));
    EXPECT_EQ(get(shared(), {"--json", "--text"}).code, 2);
    EXPECT_EQ(get(shared(), {"a", "b"}).code, 2);
}

TEST_F(ConfigCommand, CheckSaysWhatIsWrongAndEndsWithOneForAnError) {
    write_settings("THR:SAMPLE_INTERVAL=5\n");
    const std::string file = path("conf") + "/libstspithrottling.conf";
    const ended well = tool({"config", "check", "--conf-dir", path("conf")});
    EXPECT_EQ(well.code, 0);
    EXPECT_EQ(well.out, file + ": nothing is wrong\n");
    write_text(path("draft"), "THR:SAMPLE_INTERVAL=61\n");
    EXPECT_EQ(tool({"config", "check", path("draft")}).code, 0); // a warning alone
    write_text(path("draft"), "THR:SAMPLE_INTERVAL=5s\n");
    const ended wrong = tool({"config", "check", path("draft")});
    EXPECT_EQ(wrong.code, 1);
    EXPECT_EQ(wrong.out, path("draft") + ":1: error: THR:SAMPLE_INTERVAL: \"5s\" isn't a whole "
                                         "number; the plugin takes 5\n");
    const json told = json::parse(tool({"config", "check", "--json", path("draft")}).out);
    EXPECT_EQ(told["errors"], 1);
    EXPECT_EQ(told["warnings"], 0);
    EXPECT_EQ(told["findings"][0]["line"], 1);
    EXPECT_EQ(told["findings"][0]["key"], "THR:SAMPLE_INTERVAL");
    const ended missing = tool({"config", "check", path("none")});
    EXPECT_EQ(missing.code, 1);
    EXPECT_THAT(missing.err, HasSubstr(path("none") + ": there is no such file"));
    EXPECT_THAT(missing.err, HasSubstr("echo THR:SAMPLE_INTERVAL=5 > " + path("none")));
}

TEST_F(ConfigCommand, PreviewSaysTheLinesOfTheCheck) {
    write_settings("THR:SAMPLE_INTERVAL=5s\n");
    const ended shown = tool({"preview", "--at", "+1h", "--json", "--conf-dir", path("conf")});
    EXPECT_EQ(shown.code, 0);
    EXPECT_EQ(shown.err, tool({"config", "check", "--conf-dir", path("conf")}).out);
    EXPECT_EQ(json::parse(shown.out)["read"], 104857600);
    EXPECT_EQ(tool({"preview", "--at", "soon", "--conf-dir", path("conf")}).code, 2);
    std::filesystem::remove(path("conf") + "/libstspithrottling.conf");
    const ended missing = tool({"preview", "--conf-dir", path("conf")});
    EXPECT_EQ(missing.code, 1);
    EXPECT_THAT(missing.err, HasSubstr("libstspithrottling.conf: there is no such file"));
}

TEST_F(ConfigCommand, SetRefusesWhatTheCheckCallsAnErrorUnlessForced) {
    expect_refusal(shared(), {"THR:OFF_TIME_BANDWIDTH_PERCENT=0"}, 1,
                   "comes to 0 in 84 hours of the week");
    EXPECT_EQ(set(shared(), {"--force", "THR:OFF_TIME_BANDWIDTH_PERCENT=0"}).code, 0);
    EXPECT_EQ(value("THR:OFF_TIME_BANDWIDTH_PERCENT"), "0\n");
    EXPECT_EQ(set(shared(), {"THR:WORK_TIME_END=17"}).code, 0); // that was wrong before
}

TEST_F(ConfigCommand, SetTakesSizesAsPeopleWriteThemAndSaysFromWhenItHolds) {
    const ended done = set(shared(), {"THR:AVAIL_BANDWIDTH=12.5MB/s"});
    EXPECT_EQ(done.code, 0);
    EXPECT_THAT(done.out, HasSubstr("THR:AVAIL_BANDWIDTH: 104857600 -> 13107200\n"));
    EXPECT_THAT(done.err, HasSubstr("for every server that is opened from now on"));
    EXPECT_EQ(value("THR:AVAIL_BANDWIDTH"), "13107200\n");
}

} // namespace
