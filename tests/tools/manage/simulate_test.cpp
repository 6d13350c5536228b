// "simulate": the calendar of a transfer, for people, programs and as a picture.

#include "tests/support/conf_dir.h"
#include "tests/tools/tool_fixture.h"

#include <nlohmann/json.hpp>

using nlohmann::json;
using testing::HasSubstr;

namespace {

class SimulateCommand : public ToolTest {
  protected:
    SimulateCommand() {
        how.environment["TZ"] = "UTC";
        write_settings("THR:SAMPLE_INTERVAL=5\nTHR:AVAIL_BANDWIDTH=1048576\n"
                       "THR:WORK_TIME_BANDWIDTH_PERCENT=50\n");
    }
    ended simulate(const std::vector<std::string>& more) const {
        std::vector<std::string> all = {"simulate", "--conf-dir", path("conf")};
        all.insert(all.end(), more.begin(), more.end());
        return tool(all);
    }
};

TEST_F(SimulateCommand, SaysWhenItIsFinishedAndWhatMovesInEachWindow) {
    const ended told = simulate({"--bytes", "18G", "--from", "2026-11-26 04:00"});
    EXPECT_EQ(told.code, 0) << told.err;
    EXPECT_EQ(told.out,
              "18.0 GiB of writes from Thursday 2026-11-26 04:00\n\n"
              "from                  to                    window     rate         moved\n"
              "Thu 2026-11-26 04:00  Thu 2026-11-26 08:00  off time   1.0 MiB/s    14.1 GiB\n"
              "Thu 2026-11-26 08:00  Thu 2026-11-26 10:14  work time  512.0 KiB/s  3.9 GiB\n\n"
              "window     time in it  moved\n"
              "work time  02:14:24    3.9 GiB\n"
              "off time   04:00:00    14.1 GiB\n\n"
              "Finished Thursday 2026-11-26 10:14, after 06:14:24.\n");
}

TEST_F(SimulateCommand, TakesAShareADirectionAndAFileOfItsOwn) {
    write_text(path("draft.conf"), "THR:SAMPLE_INTERVAL=5\nTHR:AVAIL_BANDWIDTH=1000\n"
                                   "THR:READ_BANDWIDTH_PERCENT=50\n");
    const ended told =
        simulate({"--bytes", "450000", "--from", "2026-11-26 04:00", "--read", "--share", "2",
                  "--streams", "3", "--settings", path("draft.conf"), "--json"});
    EXPECT_EQ(told.code, 0) << told.err;
    const json all = json::parse(told.out);
    EXPECT_EQ(all["file"], path("draft.conf"));
    EXPECT_EQ(all["direction"], "read");
    EXPECT_EQ(all["stretches"][0]["rate"], 250);
    EXPECT_EQ(all["finished"].get<int64_t>() - all["from"].get<int64_t>(), 1800);
    EXPECT_EQ(all["outcome"], "finished");
}

TEST_F(SimulateCommand, NothingAllowedIsSaidAndAFailure) {
    write_settings("THR:SAMPLE_INTERVAL=5\nTHR:WORK_TIME_BANDWIDTH_PERCENT=0\n");
    const ended told = simulate({"--bytes", "100T", "--from", "2026-11-26 04:00"});
    EXPECT_EQ(told.code, 1);
    EXPECT_THAT(told.out, HasSubstr("At Thursday 2026-11-26 08:00 nothing is allowed: the plugin "
                                    "ends the process, with 1.4 TiB of it moved.\n"));
}

TEST_F(SimulateCommand, DrawsItAndSaysWhatIsWrongWithTheFile) {
    write_settings("THR:SAMPLE_INTERVAL=5\nTHR:READ_BANDWIDTH_PERCENT=101\n");
    const ended told = simulate({"--bytes", "2T", "--plot", path("picture.svg")});
    EXPECT_EQ(told.code, 0);
    EXPECT_THAT(told.err, HasSubstr(":2: error: THR:READ_BANDWIDTH_PERCENT: 101"));
    EXPECT_EQ(run_process({XMLLINT, "--noout", path("picture.svg")}).code, 0);
    EXPECT_THAT(conf_dir::read(path("picture.svg")), HasSubstr("2.0 TiB of writes from "));
}

TEST_F(SimulateCommand, WrongArgumentsEndWith2) {
    EXPECT_THAT(simulate({"--bytes", "much"}).err, HasSubstr("\"much\" is no size"));
    EXPECT_EQ(simulate({"--bytes", "much"}).code, 2);
    EXPECT_EQ(simulate({}).code, 2);
    EXPECT_EQ(simulate({"--bytes", "1G", "--share", "0"}).code, 2);
    EXPECT_THAT(simulate({"--bytes", "1G", "--from", "then"}).err,
                HasSubstr("throttlectl: --from: \"then\" names no time"));
    EXPECT_EQ(simulate({"--bytes", "1G", "--settings", path("none")}).code, 1);
}

} // namespace
