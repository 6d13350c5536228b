// Standard output that can't be written: no command goes well whose output is lost.

#include "tests/tools/tool_fixture.h"

using testing::HasSubstr;

namespace {

using Output = ToolTest;

TEST_F(Output, ThatCanNotBeWrittenIsAFailureOfEveryCommand) {
    fill_store();
    const std::vector<std::string> to_server = {"--server", server()};
    const std::vector<std::string> to_lsu = {"--server", server(), "--lsu", "daily"};
    const std::vector<std::pair<std::vector<std::string>, std::vector<std::string>>> commands = {
        {{"image", "meta", "a"}, to_lsu},
        {{"image", "list"}, to_lsu},
        {{"image", "show", "a"}, to_lsu},
        {{"image", "groups"}, to_lsu},
        {{"lsu", "list"}, to_server},
        {{"config", "get"}, to_server},
        {{"config", "get", "--text"}, to_server},
        {{"call", "claim_v7"}, to_server},
        {{"call", "--list"}, {}},
        {{"events"}, to_server},
        {{"preview"}, {}},
        {{"run", "list"}, to_lsu},
        {{"--help"}, {}}};
    for (const auto& [command, more] : commands) {
        std::vector<std::string> all = {"/bin/sh", "-c", "exec \"$0\" \"$@\" >/dev/full", program};
        all.insert(all.end(), command.begin(), command.end());
        all.insert(all.end(), more.begin(), more.end());
        all.insert(all.end(), {"--conf-dir", path("conf")});
        const ended result = run_process(all, how);
        EXPECT_EQ(result.code, 1) << testing::PrintToString(command);
        EXPECT_THAT(result.err, HasSubstr("standard output can't be written"))
            << testing::PrintToString(command);
    }
}

} // namespace
