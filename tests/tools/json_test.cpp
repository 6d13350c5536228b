// What every --json prints: it parses, and docs/json.md names each of its fields.

#include "tests/support/conf_dir.h"
#include "tests/tools/tool_fixture.h"

#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

using nlohmann::json;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

namespace {

class JsonOutput : public ToolTest {
  protected:
    /// What docs/json.md says below that heading.
    static std::string section(const std::string& heading) {
        const std::string all = conf_dir::read(JSON_DOCUMENT);
        const size_t start = all.find("\n## " + heading + "\n");
        EXPECT_NE(start, std::string::npos) << heading;
        const size_t end = all.find("\n## ", start + 1);
        return all.substr(start, end - start);
    }

    /// The names of all fields; what stands below `open` has names of its own making.
    static void collect(const json& value, std::set<std::string>& names) {
        if (value.is_object()) {
            for (const auto& [name, inner] : value.items()) {
                names.insert(name);
                if (name != "out") {
                    collect(inner, names);
                }
            }
        } else if (value.is_array()) {
            for (const json& each : value) {
                collect(each, names);
            }
        }
    }

    static void expect_described(const json& value, const std::string& heading,
                                 const std::string& more = "") {
        std::set<std::string> names;
        collect(value, names);
        EXPECT_FALSE(names.empty()) << heading;
        const std::string text = section(heading) + (more.empty() ? "" : section(more));
        for (const std::string& each : names) {
            EXPECT_THAT(text, HasSubstr("`" + each + "`")) << "of " << heading;
        }
    }

    json parsed(const std::vector<std::string>& arguments) const {
        const ended result = tool(arguments);
        EXPECT_TRUE(json::accept(result.out)) << testing::PrintToString(arguments) << result.out;
        return json::parse(result.out, nullptr, false);
    }

    std::vector<std::string> with_lsu(std::vector<std::string> arguments) const {
        arguments.insert(arguments.end(),
                         {"--lsu", "daily", "--server", server(), "--conf-dir", path("conf")});
        return arguments;
    }
    std::vector<std::string> with_server(std::vector<std::string> arguments) const {
        arguments.insert(arguments.end(), {"--server", server(), "--conf-dir", path("conf")});
        return arguments;
    }
};

TEST_F(JsonOutput, OfEveryCommandParsesAndIsDescribed) {
    fill_store();
    put_image("\xff\"\n", "odd name");
    write_settings("THR:SAMPLE_INTERVAL=5\nTHR:READ_BANDWIDTH_PERCENT=101\n");
    const std::string conf = path("conf");
    expect_described(parsed({"preview", "--json", "--conf-dir", conf}), "preview", "config check");
    expect_described(parsed({"preview", "--week", "--json", "--conf-dir", conf}), "preview",
                     "config check");
    expect_described(parsed({"preview", "--at", "+2h", "--json", "--conf-dir", conf}), "preview",
                     "config check");
    expect_described(parsed({"simulate", "--bytes", "2T", "--json", "--conf-dir", conf}),
                     "simulate", "config check");
    expect_described(parsed({"explain", "--json", "--server", server(), "--conf-dir", conf}),
                     "explain");
    expect_described(parsed({"doctor", "--json", "--conf-dir", conf}), "doctor");
    expect_described(parsed({"config", "check", "--json", "--conf-dir", conf}), "config check");
    expect_described(parsed(with_server({"config", "get", "--json"})), "config get");
    expect_described(parsed(with_server({"config", "get", "THR:SAMPLE_INTERVAL", "--json"})),
                     "config get");
    expect_described(parsed(with_server({"lsu", "list", "--json"})), "lsu list");
    expect_described(parsed(with_server({"lsu", "show", "daily", "--json"})), "lsu show",
                     "lsu list");
    expect_described(parsed(with_lsu({"image", "list", "--json"})), "image list");
    expect_described(parsed(with_lsu({"image", "show", "a", "--json"})), "image show",
                     "image list");
    expect_described(parsed(with_lsu({"image", "groups", "--json"})), "image groups");
    expect_described(parsed(with_server({"call", "claim_v7", "--json"})), "call");
    expect_described(parsed(with_server({"call", "list_lsu_v7", "--json"})), "call");
    expect_described(parsed({"call", "--list", "--json"}), "call --list");
    EXPECT_EQ(parsed({"call", "--list", "read_image_v7", "--json"})[0]["entry"], "read_image_v7");
    std::istringstream events(on_server({"events", "--payload", "--json"}).out);
    size_t count = 0;
    for (std::string line; std::getline(events, line); ++count) {
        ASSERT_TRUE(json::accept(line)) << line;
        expect_described(json::parse(line), "events");
    }
    EXPECT_GE(count, 4U);
}

TEST_F(JsonOutput, OfARunIsDescribed) {
    std::filesystem::create_directory(path("tree"));
    write_text(path("tree/file"), std::string(100000, 'x'));
    ASSERT_EQ(run("backup", {path("tree"), "--name", "b", "--json", path("figures")}).code, 0);
    expect_described(json::parse(conf_dir::read(path("figures"))), "run");
}

TEST_F(JsonOutput, OfARunThatGoesToStandardOutputIsAllThatIsThere) {
    std::filesystem::create_directory(path("tree"));
    write_text(path("tree/file"), "content");
    const ended backup = run("backup", {path("tree"), "--name", "b", "--json", "-"});
    EXPECT_EQ(backup.code, 0);
    ASSERT_TRUE(json::accept(backup.out)) << backup.out;
    EXPECT_EQ(json::parse(backup.out)["outcome"], "done");
    EXPECT_THAT(backup.err, HasSubstr("The backup \"b\" is in the LSU \"daily\": 2 entries.\n"));
    EXPECT_FALSE(std::filesystem::exists("-"));
    const ended both = run("verify", {path("tree"), "--name", "b", "--json", "-", "--plot", "-"});
    EXPECT_EQ(both.code, 2);
    const ended lost = run_process({"/bin/sh", "-c",
                                    "exec \"$0\" run verify \"$1\" --name b --json - --conf-dir "
                                    "\"$2\" --server \"$3\" --lsu daily >/dev/full",
                                    program, path("tree"), path("conf"), server()},
                                   how);
    EXPECT_EQ(lost.code, 1);
    EXPECT_THAT(lost.err, HasSubstr("throttlectl: standard output can't be written: No space"));
}

TEST_F(JsonOutput, OfARunMayGoToFifosThatAreReadOnceAndToTheEnd) {
    std::filesystem::create_directory(path("tree"));
    write_text(path("tree/file"), "content");
    const ended result = run_process(
        {"/bin/sh", "-c",
         "mkfifo figures picture && { timeout 60 cat figures >read & timeout 60 cat picture "
         ">drawn & timeout 60 \"$0\" run backup tree --name b --json figures --plot picture "
         "--conf-dir conf --server \"$1\" --lsu daily; code=$?; wait; exit $code; }",
         program, server()},
        {how.environment, root.string(), false});
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_TRUE(json::accept(conf_dir::read(path("read"))));
    EXPECT_THAT(conf_dir::read(path("drawn")), HasSubstr("</svg>"));
}

} // namespace
