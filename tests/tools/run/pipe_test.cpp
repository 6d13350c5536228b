// "pipe": what flows through it is whole, paced, counted, and ends as a filter does.

#include "tests/service/service_process.h"
#include "tests/support/conf_dir.h"
#include "tests/tools/tool_fixture.h"

#include <csignal>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

class PipeCommand : public ToolTest {
  protected:
    static constexpr const char* pipe_server = "CS_throttle:nas:pipe:nas1";

    PipeCommand() { how.environment["VLSL_PORT"] = "1"; } // where nobody listens

    /// The shell's `script`, in which $0 is the pipe's command; `options` are its options.
    std::vector<std::string> scripted(const std::string& script,
                                      const std::string& options = "-q") const {
        return {"/bin/bash", "-c",
                "throttled() { " + program + " pipe --server " + pipe_server + " --conf-dir " +
                    path("conf") + " " + options + " \"$@\"; }; cd " + root.string() + "; " +
                    script};
    }
    ended shell(const std::string& script, const std::string& options = "-q") const {
        return run_process(scripted(script, options), how);
    }
};

TEST_F(PipeCommand, PassesEveryByteOnInBothDirectionsAndKeepsNothing) {
    write_settings("THR:SAMPLE_INTERVAL=5\n");
    const ended told = shell("head -c 20000000 /dev/urandom >in; throttled <in >out && cmp in out "
                             "&& cat in | throttled --read | cat >out && cmp in out && ls");
    EXPECT_EQ(told.code, 0) << told.err;
    EXPECT_EQ(told.out, "conf\nin\nout\n");
}

TEST_F(PipeCommand, OfNothingIsNothing) {
    const ended told = shell("throttled </dev/null");
    EXPECT_EQ(told.code, 0) << told.err;
    EXPECT_EQ(told.out, "");
    EXPECT_EQ(without_warnings(told.err), "");
}

TEST_F(PipeCommand, PartialBlockGoesOnAtOnce) {
    tool_process flowing(scripted("(echo hello; sleep 100) | throttled"), how);
    EXPECT_TRUE(flowing.await_out("hello\n"));
}

TEST_F(PipeCommand, ReaderThatHasGoneEndsItQuietlyByTheSignal) {
    const ended told = shell("throttled </dev/zero | head -c 1000 >/dev/null; "
                             "echo ${PIPESTATUS[0]}");
    EXPECT_EQ(told.out, "141\n");
    EXPECT_EQ(without_warnings(told.err), "");
    const ended ignored = shell("trap '' PIPE; throttled </dev/zero | head -c 1000 >/dev/null; "
                                "echo ${PIPESTATUS[0]}");
    EXPECT_EQ(ignored.out, "1\n");
    EXPECT_EQ(without_warnings(ignored.err),
              "throttlectl: standard output can't be written: Broken pipe\n");
}

TEST_F(PipeCommand, WhatCanNotBeReadOrWrittenIsAFailure) {
    EXPECT_THAT(shell("throttled </").err,
                HasSubstr("throttlectl: standard input can't be read: Is a directory\n"));
    const ended full = shell("throttled </dev/zero >/dev/full");
    EXPECT_EQ(full.code, 1);
    EXPECT_THAT(full.err, HasSubstr("standard output can't be written: No space left on device"));
    const ended disk = tool({"pipe", "--server", server(), "--conf-dir", path("conf")});
    EXPECT_EQ(disk.code, 2);
    EXPECT_THAT(disk.err, HasSubstr("is no pipe; CS_throttle:TYPE:pipe:NAME is"));
    EXPECT_EQ(shell("throttled --label 'two words' </dev/null").code, 2);
}

TEST_F(PipeCommand, RealTimeIsPacedByTheSettingsAndShowsItsProgress) {
    write_settings("THR:SAMPLE_INTERVAL=5\nTHR:AVAIL_BANDWIDTH=100000\n");
    const ended told = shell("begins=$(date +%s); head -c 400000 /dev/zero | throttled --size "
                             "400000 >out; echo $(($(date +%s) - begins)); wc -c <out",
                             "");
    EXPECT_EQ(told.code, 0);
    EXPECT_GE(std::stoi(told.out), 2) << "four seconds' worth, less what passes at once";
    EXPECT_THAT(told.out, HasSubstr("\n400000\n"));
    EXPECT_THAT(told.err, HasSubstr("throttlectl: no service answers on "));
    EXPECT_THAT(told.err, testing::ContainsRegex("KiB 0:00:0[0-9] .* % ETA 0:00:"));
    EXPECT_THAT(told.err, testing::ContainsRegex("390.6 KiB 0:00:0.*100 % ETA 0:00:00\n$"));
}

TEST_F(PipeCommand, IsCountedByTheServiceAndGivesItsPlaceBackWhenInterrupted) {
    service_process service;
    how.environment["VLSL_PORT"] = std::to_string(service.port());
    write_settings("THR:SAMPLE_INTERVAL=1\nTHR:AVAIL_BANDWIDTH=100000\n");
    tool_process flowing({"/bin/sh", "-c",
                          "exec " + program + " pipe --server " + pipe_server +
                              " --label tar-home "
                              "--conf-dir " +
                              path("conf") + " </dev/zero >/dev/null"},
                         how);
    ASSERT_TRUE(flowing.await_err(" KiB/s]"));
    EXPECT_EQ(service.storage("nas1")["connections"], 1);
    flowing.send(SIGINT);
    const ended told = flowing.wait();
    EXPECT_EQ(told.code, 130);
    EXPECT_THAT(told.err, Not(HasSubstr("no service answers")));
    EXPECT_EQ(service.storage("nas1")["connections"], 0);
}

TEST_F(PipeCommand, RateOfZeroIsSaidInsteadOfEndingTheProcess) {
    write_settings("THR:SAMPLE_INTERVAL=5\nTHR:WRITE_BANDWIDTH_PERCENT=0\n");
    const ended told = shell("throttled </dev/zero >/dev/null");
    EXPECT_EQ(told.code, 1);
    EXPECT_THAT(told.err, HasSubstr("the settings allow 0 bytes per second for writes now"));
    EXPECT_EQ(shell("echo x | throttled --read").out, "x\n");
}

} // namespace
