// The figures at the end of a run, for programs and as a picture.

#include "tests/support/conf_dir.h"
#include "tests/tools/run/generated_tree.h"
#include "tests/tools/tool_fixture.h"

#include <nlohmann/json.hpp>

using nlohmann::json;
using testing::HasSubstr;

namespace {

class Figures : public ToolTest {
  protected:
    Figures() { make_tree(path("tree")); }

    json figures_of(const std::string& command, std::vector<std::string> arguments) const {
        arguments.insert(arguments.end(), {"--json", path("figures.json")});
        const ended result = run(command, arguments);
        EXPECT_EQ(result.code, 0) << result.err;
        return json::parse(conf_dir::read(path("figures.json")));
    }

    void expect_well_formed(const std::string& svg) const {
        const ended lint = run_process({XMLLINT, "--noout", svg});
        EXPECT_EQ(lint.code, 0) << lint.err;
    }
};

TEST_F(Figures, StreamsAndSamplesSumUpToTheTotal) {
    const json figures = figures_of("backup", {path("tree"), "--name", "b", "--streams", "3"});
    ASSERT_EQ(figures["streams"].size(), 3U);
    std::vector<uint64_t> sampled(3);
    double last_time = 0;
    for (const json& sample : figures["samples"]) {
        EXPECT_GT(sample["time"].get<double>(), last_time);
        last_time = sample["time"];
        for (size_t stream = 0; stream < 3; ++stream) {
            sampled[stream] += sample["bytes"][stream].get<uint64_t>();
        }
    }
    uint64_t total = 0;
    for (size_t stream = 0; stream < 3; ++stream) {
        EXPECT_EQ(figures["streams"][stream]["name"], "b." + std::to_string(stream + 1) + "of3");
        EXPECT_EQ(figures["streams"][stream]["bytes"], sampled[stream]);
        total += sampled[stream];
    }
    EXPECT_EQ(figures["total"]["bytes"], total);
    EXPECT_GT(total, 5U * 1024 * 1024);
    EXPECT_EQ(figures["total"]["seconds"], last_time);
    EXPECT_DOUBLE_EQ(figures["total"]["rate"].get<double>(),
                     static_cast<double>(total) / figures["total"]["seconds"].get<double>());
}

TEST_F(Figures, SayWhatWasRun) {
    const json figures = figures_of("backup", {path("tree"), "--name", "b", "--block", "64k"});
    EXPECT_EQ(figures["operation"], "backup");
    EXPECT_EQ(figures["server"], server());
    EXPECT_EQ(figures["lsu"], "daily");
    EXPECT_EQ(figures["backup"], "b");
    EXPECT_EQ(figures["outcome"], "done");
    EXPECT_EQ(figures["block"], 65536);
    EXPECT_GT(figures["began"], 1700000000);
}

TEST_F(Figures, BytesAreThoseOfTheImages) {
    const uint64_t written = figures_of("backup", {path("tree"), "--name", "b"})["total"]["bytes"];
    const uint64_t restored =
        figures_of("restore", {"--name", "b", "--to", path("r")})["total"]["bytes"];
    const uint64_t verified = figures_of("verify", {"--name", "b", path("tree")})["total"]["bytes"];
    EXPECT_EQ(written, restored);
    EXPECT_EQ(written, verified);
}

TEST_F(Figures, UnthrottledRunHasNoAllowedRate) {
    const json figures = figures_of("backup", {path("tree"), "--name", "b"});
    EXPECT_TRUE(figures["total"]["allowed_rate"].is_null());
    EXPECT_TRUE(figures["total"]["ratio"].is_null());
    EXPECT_EQ(figures["total"]["slept_seconds"], 0);
}

TEST_F(Figures, ThrottledRunIsMeasuredAgainstTheSettings) {
    write_settings("THR:SAMPLE_INTERVAL=30\nTHR:AVAIL_BANDWIDTH=400000000\n"
                   "THR:WRITE_BANDWIDTH_PERCENT=50\n");
    const json figures = figures_of("backup", {path("tree"), "--name", "b", "--streams", "2"});
    const auto number = [&](const json& row, const char* name) { return row[name].get<double>(); };
    const json& total = figures["total"];
    EXPECT_DOUBLE_EQ(number(total, "allowed_rate"), 200000000.0);
    EXPECT_DOUBLE_EQ(number(figures["streams"][0], "allowed_rate"), 100000000.0);
    EXPECT_DOUBLE_EQ(number(total, "ratio"), number(total, "rate") / 200000000.0);
}

TEST_F(Figures, GlobalServerIsMeasuredAgainstTheDefaults) {
    write_settings("THR:SAMPLE_INTERVAL=30\nTHR:AVAIL_BANDWIDTH=1000000000\n");
    const ended backup = tool({"run", "backup", path("tree"), "--conf-dir", path("conf"),
                               "--server", "CS_throttle:global:disk:" + path("store"), "--lsu",
                               "daily", "--json", path("figures.json")});
    ASSERT_EQ(backup.code, 0) << backup.err;
    const json figures = json::parse(conf_dir::read(path("figures.json")));
    EXPECT_DOUBLE_EQ(figures["total"]["allowed_rate"].get<double>(), 104857600.0);
}

TEST_F(Figures, NameThatIsNoUtf8IsReplacedInTheFile) {
    const json figures = figures_of("backup", {path("tree"), "--name", "b\xff<&"});
    EXPECT_EQ(figures["backup"], "b\xEF\xBF\xBD<&");
}

TEST_F(Figures, PictureIsWellFormedAndNamesItsStreams) {
    const ended backup = run("backup", {path("tree"), "--name", "b<&\"\xff\x01>", "--streams", "12",
                                        "--plot", path("picture.svg")});
    ASSERT_EQ(backup.code, 0) << backup.err;
    expect_well_formed(path("picture.svg"));
    const std::string svg = conf_dir::read(path("picture.svg"));
    EXPECT_THAT(svg, HasSubstr("b&lt;&amp;&quot;\xEF\xBF\xBD?&gt;.1of12"));
    EXPECT_THAT(svg, HasSubstr("and 5 more"));
    EXPECT_THAT(svg, HasSubstr("not throttled"));
}

TEST_F(Figures, TableHasARowForEachStreamAndTheTotal) {
    const ended backup = run("backup", {path("tree"), "--name", "b", "--streams", "2"});
    EXPECT_THAT(backup.out, testing::StartsWith("stream"));
    EXPECT_THAT(backup.out, HasSubstr("\nb.1of2 "));
    EXPECT_THAT(backup.out, HasSubstr("\nb.2of2 "));
    EXPECT_THAT(backup.out, HasSubstr("\ntotal "));
}

TEST_F(Figures, AreWrittenOfAFailedRunToo) {
    ASSERT_EQ(run("backup", {path("tree"), "--name", "a"}).code, 0); // makes the LSU
    write_settings("THR:SAMPLE_INTERVAL=30\nTHR:READ_BANDWIDTH_PERCENT=0\n");
    const ended restore =
        run("restore", {"--name", "a", "--to", path("r"), "--json", path("figures.json")});
    EXPECT_EQ(restore.code, 1);
    EXPECT_THAT(restore.err, HasSubstr("the settings allow 0 bytes per second for reads now"));
    EXPECT_EQ(json::parse(conf_dir::read(path("figures.json")))["outcome"], "failed");
}

} // namespace
