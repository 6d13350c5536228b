// Arguments: wrong ones end with 2 and say why, and the help teaches.

#include "tests/tools/tool_fixture.h"

using testing::HasSubstr;

namespace {

class Usage : public ToolTest {
  protected:
    void expect_usage(const std::vector<std::string>& arguments, const std::string& message) const {
        const ended result = tool(arguments);
        EXPECT_EQ(result.code, 2);
        EXPECT_THAT(result.err, HasSubstr(message));
    }
};

TEST_F(Usage, AsksForACommand) {
    expect_usage({}, "A subcommand is required");
    expect_usage({"run"}, "A subcommand is required");
}

TEST_F(Usage, RefusesWhatItDoesNotKnow) {
    expect_usage({"walk"}, "A subcommand is required\nNot known here: walk\n");
    expect_usage({"lsu", "lits", "--server", "s"}, "Not known here: lits\n");
    expect_usage({"run", "list", "--server", "s", "--lsu", "l", "--fast"}, "--fast");
    expect_usage({"preview", "--direction", "up"}, "--direction");
}

TEST_F(Usage, AsksForWhatIsMissing) {
    expect_usage({"run", "backup", "tree", "--lsu", "l"}, "--server is required");
    expect_usage({"run", "backup", "--server", "s", "--lsu", "l"}, "DIR is required");
    expect_usage({"run", "restore", "--server", "s", "--lsu", "l", "--to", "r"},
                 "--name is required");
    expect_usage({"run", "restore", "--server", "s", "--lsu", "l", "--name", "b"},
                 "--to is required");
    expect_usage({"run", "verify", "--server", "s", "--lsu", "l", "--name", "b"},
                 "DIR or --restored is required");
}

TEST_F(Usage, RefusesStreamsAndBlocksOutOfRange) {
    const std::vector<std::string> backup = {"run", "backup", "t", "--server", "s", "--lsu", "l"};
    const auto with = [&](const std::string& option, const std::string& value) {
        std::vector<std::string> all = backup;
        all.insert(all.end(), {option, value});
        return all;
    };
    // How the range itself is told is the matter of CLI11.
    expect_usage(with("--streams", "0"), "--streams: Value 0 not in range");
    expect_usage(with("--streams", "65"), "--streams: Value 65 not in range");
    expect_usage(with("--block", "511"), "--block: Value 511 not in range");
    expect_usage(with("--block", "2G"), "--block: Value 2147483648 not in range");
    expect_usage(with("--block", "much"), "--block");
}

TEST_F(Usage, RefusesACopysRateThatIsNone) {
    for (const char* rate : {"0", "-3", "fast"}) {
        expect_usage(
            {"image", "copy", "i", "--server", "s", "--lsu", "l", "--to-lsu", "m", "--rate", rate},
            "--rate: ");
    }
}

TEST_F(Usage, RefusesEmptyNamesRatherThanTakeThemForAllOrTheDefault) {
    using words = std::vector<std::string>;
    const std::vector<words> commands = {
        {"events", "--server", "s", "--delete", "--lsu", ""},
        {"image", "delete", "", "--server", "s", "--lsu", "l"},
        {"image", "list", "--server", "s", "--lsu", "l", "--group", ""},
        {"image", "meta", "i", "--server", "s", "--lsu", "l", "--set-file", ""},
        {"image", "copy", "i", "--server", "s", "--lsu", "l", "--to-lsu", ""},
        {"lsu", "create", "", "--server", "s"},
        {"lsu", "list", "--server", ""},
        {"config", "get", "", "--server", "s"},
        {"run", "backup", "t", "--server", "s", "--lsu", "l", "--name", ""},
        {"run", "backup", "", "--server", "s", "--lsu", "l"},
        {"run", "restore", "--server", "s", "--lsu", "l", "--name", "b", "--to", ""},
        {"plot", "r", "--to", ""},
        {"preview", "--conf-dir", ""}};
    for (const words& command : commands) {
        expect_usage(command, ": the value is empty");
    }
}

TEST_F(Usage, TellsItsVersion) {
    const ended version = tool({"--version"});
    EXPECT_EQ(version.code, 0);
    EXPECT_EQ(version.out, "throttlectl " PROGRAM_VERSION "\n");
}

TEST_F(Usage, HelpOfEveryCommandShowsAnExample) {
    for (const char* command : {"backup", "restore", "verify", "list"}) {
        const ended help = tool({"run", command, "--help"});
        EXPECT_EQ(help.code, 0);
        EXPECT_THAT(help.out, HasSubstr(std::string("throttlectl run ") + command));
        EXPECT_THAT(help.out, HasSubstr("--server CS_throttle:"));
    }
    EXPECT_THAT(tool({"preview", "--help"}).out, HasSubstr("throttlectl preview"));
    EXPECT_THAT(tool({"--help"}).out, HasSubstr("throttlectl run backup"));
    EXPECT_THAT(tool({"run", "--help"}).out, HasSubstr("slept_seconds"));
}

TEST_F(Usage, HelpOfEveryCommandOnAServerShowsExamplesOfIt) {
    for (const std::vector<std::string>& command :
         std::vector<std::vector<std::string>>{{"lsu"},
                                               {"lsu", "list"},
                                               {"lsu", "show"},
                                               {"lsu", "create"},
                                               {"lsu", "delete"},
                                               {"lsu", "label"},
                                               {"lsu", "find"},
                                               {"image"},
                                               {"image", "list"},
                                               {"image", "groups"},
                                               {"image", "show"},
                                               {"image", "delete"},
                                               {"image", "copy"},
                                               {"image", "meta"},
                                               {"events"},
                                               {"config"},
                                               {"config", "get"},
                                               {"config", "set"},
                                               {"call"}}) {
        std::vector<std::string> arguments = command;
        arguments.emplace_back("--help");
        const ended help = tool(arguments);
        EXPECT_EQ(help.code, 0);
        std::string example = "Examples:\n  throttlectl";
        for (const std::string& each : command) {
            example += " " + each;
        }
        EXPECT_THAT(help.out, HasSubstr(example));
    }
}

TEST_F(Usage, PreviewShowsTheWeekOfTheSettings) {
    write_settings("THR:SAMPLE_INTERVAL=30\nTHR:AVAIL_BANDWIDTH=1048576\n"
                   "THR:WORK_TIME_BANDWIDTH_PERCENT=50\nTHR:READ_BANDWIDTH_PERCENT=101\n");
    const ended preview =
        tool({"preview", "--conf-dir", path("conf"), "--week", "--direction", "write"});
    EXPECT_EQ(preview.code, 0);
    EXPECT_THAT(preview.out, HasSubstr("Throttling is on"));
    EXPECT_THAT(preview.out, HasSubstr("512.0 KiB/s"));
    EXPECT_THAT(preview.out, HasSubstr("writes"));
    EXPECT_THAT(preview.out, testing::Not(HasSubstr("reads")));
    EXPECT_EQ(preview.err, path("conf/libstspithrottling.conf") +
                               ":4: error: THR:READ_BANDWIDTH_PERCENT: 101 isn't from 0 to 100; "
                               "the plugin refuses it and goes on with 100\n");
}

TEST_F(Usage, PreviewWithoutAFileNamesItAndMakesNone) {
    const ended preview = tool({"preview", "--conf-dir", path("")});
    EXPECT_EQ(preview.code, 1);
    EXPECT_EQ(preview.out, "");
    EXPECT_THAT(preview.err, HasSubstr("libstspithrottling.conf: there is no such file"));
    EXPECT_FALSE(std::filesystem::exists(path("libstspithrottling.conf")));
}

TEST_F(Usage, PreviewWarnsOfARateOfZero) {
    write_settings("THR:SAMPLE_INTERVAL=30\nTHR:OFF_TIME_BANDWIDTH_PERCENT=0\n");
    const ended preview = tool({"preview", "--conf-dir", path("conf")});
    EXPECT_THAT(preview.out, HasSubstr("At 0 B/s the plugin ends the process that transfers."));
}

} // namespace
