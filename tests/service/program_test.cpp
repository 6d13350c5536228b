// vlsld as a program: how it starts, what it says, how it stops.

#include "tests/service/service_process.h"
#include "tests/service/wire_client.h"

#include "tests/support/conf_dir.h"

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

ended run(const std::vector<std::string>& arguments, const process_options& options = {}) {
    std::vector<std::string> command = {service_process::program(), "--state",
                                        service_process::state()};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return run_process(command, options);
}

TEST(Program, HelpTeaches) {
    const ended help = run({"--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_THAT(help.out,
                AllOf(HasSubstr("--port PORT"), HasSubstr("--listen ADDRESS"),
                      HasSubstr("--lease SECONDS"), HasSubstr("--tls-ca FILE"),
                      HasSubstr("--state DIR"), HasSubstr("--http-port PORT"),
                      HasSubstr("--no-http"), HasSubstr("corbaloc:iiop:1.2@HOST:PORT/HSFactory"),
                      HasSubstr("Examples:\n  vlsld "), HasSubstr("Ends with 0")));
    EXPECT_TRUE(help.err.empty());
}

TEST(Program, TellsItsVersion) {
    const ended version = run({"--version"});
    EXPECT_EQ(version.code, 0);
    EXPECT_EQ(version.out, "vlsld " PROGRAM_VERSION "\n");
}

TEST(Program, WrongArgumentsEndItWith2) {
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"--no-such"},
                                               {"--port", "65536"},
                                               {"--port", "x"},
                                               {"--lease", "0"},
                                               {"surplus"},
                                               {"--tls-ca", "/etc/passwd"},
                                               {"--tls-key", "/etc/passwd"},
                                               {"--tls-ca", "/no/such", "--tls-key", "/no/such"},
                                               {"--tls-port", "0"},
                                               {"--no-http", "--http-port", "0"}}) {
        const ended result = run(arguments);
        EXPECT_EQ(result.code, 2) << arguments[0];
        EXPECT_THAT(result.err, HasSubstr("--")) << arguments[0];
    }
}

TEST(Program, SaysWhereItListensOnItsFirstLines) {
    service_process service;
    const std::string port = std::to_string(service.port());
    const std::string http_port = std::to_string(service.http_port());
    const ended result = service.stop(SIGTERM);
    EXPECT_THAT(result.out, StartsWith("listening on 127.0.0.1:" + port));
    EXPECT_THAT(result.out, HasSubstr("\nweb page at 127.0.0.1:" + http_port));
}

TEST(Program, StopsWithZeroOnSigtermAndSigint) {
    for (const int signal : {SIGTERM, SIGINT}) {
        service_process service;
        const remote_session client(service.port()); // whose connection stays open
        const ended result = service.stop(signal);
        EXPECT_EQ(result.code, 0);
        EXPECT_THAT(result.err, ContainsRegex(std::string("stopping: ") + strsignal(signal) +
                                              "\n.* stopped\n$"));
    }
}

TEST(Program, EachLogLineHasItsTime) {
    service_process service;
    const remote_session client(service.port());
    const std::string log = service.stop(SIGTERM).err;
    EXPECT_THAT(log, ContainsRegex("^20[0-9-]+T[0-9:]+[+-][0-9]+ listening on 127"));
    EXPECT_THAT(log,
                ContainsRegex("\n20[0-9-]+T[0-9:]+[+-][0-9]+ session [0-9a-f]+ \"\": opened\n"));
}

TEST(Program, APortInUseIsNamed) {
    const service_process service;
    const std::string port = std::to_string(service.port());
    const ended result = run({"--port", port, "--no-http"});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err,
              "vlsld: can't listen on 127.0.0.1 port " + port + ": Address already in use\n");

    const std::string http_port = std::to_string(service.http_port());
    const ended web = run({"--port", "0", "--http-port", http_port});
    EXPECT_EQ(web.code, 1);
    EXPECT_THAT(web.err, HasSubstr("can't listen on 127.0.0.1 port " + http_port +
                                   ": Address already in use\n"));
}

TEST(Program, ListensOnLoopbackAloneUnlessToldOtherwise) {
    const ended result = run({"--listen", "203.0.113.7", "--port", "0", "--no-http"});
    EXPECT_EQ(result.code, 1); // no address of this host
    EXPECT_THAT(result.err, HasSubstr("can't listen on 203.0.113.7 port 0: "));
    const ended name = run({"--listen", "no address", "--no-http"});
    EXPECT_EQ(name.code, 1);
    EXPECT_THAT(name.err, HasSubstr("can't listen on no address port "));
}

TEST(Program, TheEnvironmentNamesThePort) {
    std::optional<service_process> first(std::in_place);
    const std::string port = std::to_string(first->port());
    const ended taken = run({"--no-http"}, {{{"VLSL_PORT", port}}, "", false});
    EXPECT_THAT(taken.err, HasSubstr("port " + port + ": Address already in use"));
    for (const char* wrong : {"x", "1x", "-1", "65536"}) {
        const ended result = run({"--no-http"}, {{{"VLSL_PORT", wrong}}, "", false});
        EXPECT_EQ(result.code, 1);
        EXPECT_THAT(result.err,
                    HasSubstr(std::string("VLSL_PORT is \"") + wrong + "\", which is no port"));
    }
}

TEST(Program, WithoutTheWebNothingElseListens) {
    const service_process service({"--no-http"});
    EXPECT_NE(service.port(), 0);
    EXPECT_EQ(service.http_port(), 0);
}

TEST(Program, FilesThatCantBeWrittenAreNamed) {
    const ended ports = run({"--port", "0", "--no-http", "--port-file", "/no/such/ports"});
    EXPECT_EQ(ports.code, 1);
    EXPECT_THAT(ports.err, HasSubstr("vlsld: --port-file /no/such/ports can't be written"));
    const ended log = run({"--port", "0", "--no-http", "--log-file", "/no/such/log"});
    EXPECT_EQ(log.code, 1);
    EXPECT_THAT(log.err, HasSubstr("vlsld: --log-file /no/such/log: No such file or directory"));
}

} // namespace
