// One name, one backup, whoever makes them at once.

#include "tests/tools/run/generated_tree.h"
#include "tests/tools/tool_fixture.h"

#include <csignal>
#include <memory>

namespace fs = std::filesystem;
using testing::AnyOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class Claim : public ToolTest {
  protected:
    Claim() {
        how.directory = root;
        fs::create_directory(path("tree"));
        for (int file = 0; file < 30; ++file) {
            write_text(path("tree/" + std::to_string(file)), "content");
        }
    }
};

TEST_F(Claim, OfBackupsOfOneNameAtOnceOneIsMade) {
    constexpr int rounds = 6;
    constexpr int at_once = 3;
    for (int round = 0; round < rounds; ++round) {
        const std::string name = "b" + std::to_string(round);
        std::vector<std::unique_ptr<tool_process>> running;
        for (int each = 0; each < at_once; ++each) {
            running.push_back(std::make_unique<tool_process>(
                command("backup", {"tree", "--name", name, "--streams", std::to_string(each + 1)}),
                how));
        }
        int made = 0;
        for (const auto& each : running) {
            const ended result = each->wait();
            made += result.code == 0 ? 1 : 0;
            if (result.code != 0) {
                EXPECT_EQ(result.code, 1);
                EXPECT_THAT(result.err, AnyOf(HasSubstr("a backup \"" + name +
                                                        "\" is being made in the LSU "
                                                        "\"daily\" by "),
                                              HasSubstr("has a backup \"" + name + "\" already")));
            }
        }
        EXPECT_EQ(made, 1);
        EXPECT_EQ(run("verify", {"--name", name, "tree"}).code, 0);
    }
    const ended list = run("list", {});
    EXPECT_EQ(list.code, 0) << list.err;
    EXPECT_THAT(list.out, Not(HasSubstr(".lock")));
}

TEST_F(Claim, OfAKilledBackupIsToldAndTakenAway) {
    write_settings("THR:SAMPLE_INTERVAL=60\nTHR:AVAIL_BANDWIDTH=1000\n");
    {
        tool_process killed(command("backup", {"tree", "--name", "b", "--block", "512"}), how);
        ASSERT_TRUE(killed.await_err("of 1000 B/s"));
        const ended other = run("backup", {"tree", "--name", "b", "--streams", "2"});
        EXPECT_EQ(other.code, 1);
        EXPECT_THAT(other.err, testing::ContainsRegex(
                                   "a backup \"b\" is being made in the LSU \"daily\" by process "
                                   "[0-9]+ on .+ since 20.+; if it was killed, \"throttlectl image "
                                   "delete\" of \"b.lock\" frees the name"));
        killed.send(SIGKILL);
        EXPECT_EQ(killed.wait().code, -SIGKILL);
    }
    write_settings("THR:SAMPLE_INTERVAL=0\n");
    EXPECT_EQ(run("backup", {"tree", "--name", "b"}).code, 1);
    EXPECT_THAT(images(), IsEmpty());
    EXPECT_EQ(on_server({"image", "delete", "b.lock", "--lsu", "daily"}).code, 0);
    EXPECT_EQ(run("backup", {"tree", "--name", "b"}).code, 0);
    EXPECT_EQ(run("verify", {"--name", "b", "tree"}).code, 0);
}

TEST_F(Claim, IsGivenBackByABackupThatFails) {
    EXPECT_EQ(run("backup", {"elsewhere", "--name", "b"}).code, 1);
    EXPECT_EQ(run("backup", {"tree", "--name", "b"}).code, 0);
    EXPECT_EQ(run("backup", {"tree", "--name", "b"}).code, 1);
    EXPECT_EQ(on_server({"image", "delete", "b.1of1", "--lsu", "daily"}).code, 0);
    EXPECT_EQ(run("backup", {"tree", "--name", "b"}).code, 0);
}

TEST_F(Claim, DefaultNamesDoNotCollide) {
    tool_process first(command("backup", {"tree"}), how);
    tool_process second(command("backup", {"tree"}), how);
    EXPECT_EQ(first.wait().code, 0);
    EXPECT_EQ(second.wait().code, 0);
    EXPECT_EQ(images().size(), 2U);
}

} // namespace
