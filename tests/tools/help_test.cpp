// The help of every command there is.

#include "tests/tools/tool_fixture.h"

#include <sstream>

namespace {

class Help : public ToolTest {
  protected:
    /// The commands that a help names.
    static std::vector<std::string> subcommands(const std::string& help) {
        std::vector<std::string> names;
        std::istringstream lines(help.substr(std::min(help.size(), help.find("\nSubcommands:\n"))));
        for (std::string line; std::getline(lines, line);) {
            if (line.compare(0, 2, "  ") == 0 && line.size() > 2 && line[2] != ' ' &&
                line.compare(2, 11, "throttlectl") != 0) {
                names.push_back(line.substr(2, line.find(' ', 2) - 2));
            }
        }
        return names;
    }

    void walk(const std::vector<std::string>& command) {
        std::vector<std::string> arguments = command;
        arguments.emplace_back("--help");
        const ended help = tool(arguments);
        const std::string name = testing::PrintToString(command);
        EXPECT_EQ(help.code, 0) << name;
        EXPECT_EQ(help.err, "") << name;
        std::istringstream lines(help.out);
        for (std::string line; std::getline(lines, line);) {
            EXPECT_LE(line.size(), 80U) << name << ": " << line;
        }
        EXPECT_THAT(help.out, testing::HasSubstr("Examples:\n  throttlectl ")) << name;
        ++walked;
        if (command.size() < 2) {
            for (const std::string& each : subcommands(help.out)) {
                std::vector<std::string> deeper = command;
                deeper.push_back(each);
                walk(deeper);
            }
        }
    }

    size_t walked = 0;
};

TEST_F(Help, OfEveryCommandFits80ColumnsAndHasAnExample) {
    walk({});
    EXPECT_GE(walked, 27U);
}

} // namespace
