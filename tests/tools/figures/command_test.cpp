// "plot" as a program: it reads the figures that "run" has written and draws them.

#include "tests/tools/tool_fixture.h"

#include <fstream>
#include <iterator>

using testing::HasSubstr;

namespace {

using PlotCommand = ToolTest;

std::string content_of(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST_F(PlotCommand, DrawsTheRunsThatItIsGiven) {
    std::filesystem::create_directory(path("tree"));
    write_text(path("tree/file"), std::string(100000, 'x'));
    for (const char* name : {"monday", "tuesday"}) {
        ASSERT_EQ(run("backup", {path("tree"), "--name", name, "--json", path(name)}).code, 0);
    }
    const ended plot = tool({"plot", path("monday"), path("tuesday"), "--to", path("both.svg"),
                             "--title", "Two <days>"});
    EXPECT_EQ(plot.code, 0) << plot.err;
    EXPECT_EQ(plot.out, "The picture is in " + path("both.svg") + ".\n");
    const std::string svg = content_of(path("both.svg"));
    for (const char* text : {">monday<", ">tuesday<", "Two &lt;days&gt;"}) {
        EXPECT_THAT(svg, HasSubstr(text));
    }
}

TEST_F(PlotCommand, NamesTheFileThatCanNotBeReadOrHoldsNoRun) {
    ended plot = tool({"plot", path("none"), "--to", path("both.svg")});
    EXPECT_EQ(plot.code, 1);
    EXPECT_THAT(plot.err, HasSubstr(path("none") + " can't be read: No such file or directory"));
    plot = tool({"plot", path("conf"), "--to", path("both.svg")});
    EXPECT_THAT(plot.err, HasSubstr(path("conf") + " can't be read: Is a directory"));
    for (const char* const content : {"{}", ""}) {
        write_text(path("other"), content);
        plot = tool({"plot", path("other"), "--to", path("both.svg")});
        EXPECT_EQ(plot.code, 1);
        EXPECT_THAT(plot.err, HasSubstr(path("other") + " doesn't hold the figures of a run"));
    }
    EXPECT_FALSE(std::filesystem::exists(path("both.svg")));
}

TEST_F(PlotCommand, NamesThePictureThatCanNotBeWritten) {
    write_text(path("run"), R"({"backup": "a", "began": 1, "samples": [
        {"time": 1, "bytes": [1], "allowed_rate": null}]})");
    const ended plot = tool({"plot", path("run"), "--to", path("none/both.svg")});
    EXPECT_EQ(plot.code, 1);
    EXPECT_THAT(plot.err, HasSubstr(path("none/both.svg") + " can't be written: "));
}

TEST_F(PlotCommand, NeedsRunsAndAPicture) {
    EXPECT_EQ(tool({"plot", "--to", "both.svg"}).code, 2);
    EXPECT_EQ(tool({"plot", "monday.json"}).code, 2);
    EXPECT_THAT(tool({"plot", "--help"}).out, HasSubstr("Examples:\n  throttlectl plot"));
}

} // namespace
