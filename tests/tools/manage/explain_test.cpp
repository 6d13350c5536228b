// "explain" and "doctor": what paces a server now, and whether all is there that it needs.

#include "tests/service/service_process.h"
#include "tests/tools/tool_fixture.h"

#include <csignal>
#include <nlohmann/json.hpp>

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr const char* windows = "THR:SAMPLE_INTERVAL=2\nTHR:AVAIL_BANDWIDTH=1048576\n"
                                "THR:READ_BANDWIDTH_PERCENT=50\n"
                                "THR:WORK_TIME_BANDWIDTH_PERCENT=20\n";

class Explained : public ToolTest {
  protected:
    Explained() {
        how.environment["TZ"] = "UTC";
        how.environment["VLSL_PORT"] = "1"; // where nobody listens
        write_settings(windows);
    }

    void ask(const service_process& service) {
        how.environment["VLSL_PORT"] = std::to_string(service.port());
    }
    ended explain(const std::string& server_name, const std::vector<std::string>& more) const {
        std::vector<std::string> all = {"explain", "--server", server_name, "--conf-dir",
                                        path("conf")};
        all.insert(all.end(), more.begin(), more.end());
        return tool(all);
    }
    json explained(const service_process& service) const {
        const ended result =
            explain(server(), {"--json", "--http-port", std::to_string(service.http_port())});
        EXPECT_EQ(result.code, 0) << result.err;
        return json::parse(result.out);
    }
    ended doctor(const std::vector<std::string>& more = {}) const {
        std::vector<std::string> all = {"doctor", "--conf-dir", path("conf")};
        all.insert(all.end(), more.begin(), more.end());
        return tool(all);
    }
};

TEST_F(Explained, LinkByLinkWhatHoldsAtATime) {
    const ended told =
        explain("CS_throttle:nas:disk:/srv/store", {"--read", "--at", "2026-11-26 10:30"});
    EXPECT_EQ(told.code, 0) << told.err;
    EXPECT_EQ(told.out,
              "server     CS_throttle:nas:disk:/srv/store: the storage \"/srv/store\", reads\n"
              "at         Thursday 2026-11-26 10:30\n"
              "file       " +
                  path("conf/libstspithrottling.conf") +
                  ": throttling is on, a sample lasts 2 s\n"
                  "bandwidth  1.0 MiB/s (THR:AVAIL_BANDWIDTH)\n"
                  "direction  50 % (THR:READ_BANDWIDTH_PERCENT)\n"
                  "window     work time, 08:00 to 18:00: 20 % (THR:WORK_TIME_BANDWIDTH_PERCENT)\n"
                  "allowed    102.4 KiB/s to all connections together\n"
                  "next       Thursday 2026-11-26 18:00: off time, 512.0 KiB/s\n");
}

TEST_F(Explained, NoServiceIsSaidWithTheAddressesWhereItWasLookedFor) {
    const ended told = explain(server(), {});
    EXPECT_EQ(told.code, 0);
    EXPECT_THAT(told.out, HasSubstr("\nservice    no service answers on "));
    EXPECT_THAT(told.out, HasSubstr("127.0.0.1:1"));
    EXPECT_THAT(told.out, HasSubstr(": each process is paced alone\n"));
    EXPECT_THAT(told.out, Not(HasSubstr("sharing")));
}

TEST_F(Explained, ServerThatIsPacedByDefaultsAsksNoService) {
    const ended told = explain("CS_throttle:global:disk:/srv/store", {});
    EXPECT_THAT(told.out, HasSubstr("settings   the defaults"));
    EXPECT_THAT(told.out, HasSubstr("bandwidth  100.0 MiB/s"));
    EXPECT_THAT(told.out, HasSubstr("service    none is asked"));
    EXPECT_EQ(explain("CS_other:t:disk:x", {}).code, 1);
}

TEST_F(Explained, ThrottlingThatIsOffIsAllThereIsToSay) {
    write_settings("THR:SAMPLE_INTERVAL=0\n");
    const ended told = explain(server(), {});
    EXPECT_THAT(told.out, HasSubstr("throttling is off"));
    EXPECT_THAT(told.out, HasSubstr("allowed    as much as it can\n"));
    EXPECT_THAT(told.out, Not(HasSubstr("service")));
}

TEST_F(Explained, WhoSharesIsWhatTheServiceShows) {
    const service_process service;
    ask(service);
    write_settings("THR:SAMPLE_INTERVAL=1\nTHR:AVAIL_BANDWIDTH=1000\n");
    EXPECT_TRUE(explained(service)["sharing"].is_null());
    std::filesystem::create_directory(path("tree"));
    write_text(path("tree/file"), std::string(1000000, 'x'));
    tool_process backup(command("backup", {path("tree"), "--name", "b", "--block", "512"}), how);
    ASSERT_TRUE(backup.await_err("of 1000 B/s"));
    const json shared = explained(service);
    const std::string storage = server().substr(server().rfind(':') + 1);
    const ended limiting =
        tool({"service", "--control", service.control(), "limit", storage, "--write", "400"});
    ASSERT_EQ(limiting.code, 0) << limiting.err;
    const json limited = explained(service);
    EXPECT_THAT(
        explain(server(), {"--http-port", std::to_string(service.http_port())}).out,
        HasSubstr(
            "\nlimit      400 B/s to all together by the service: throttlectl service status "));
    backup.send(SIGINT);
    EXPECT_EQ(shared["sharing"]["flows"], 1);
    EXPECT_EQ(shared["sharing"]["limit"], 10);
    EXPECT_EQ(shared["sharing"]["allowed"], 1000);
    EXPECT_EQ(shared["level"], 500);
    EXPECT_EQ(limited["sharing"]["allowed"], 400);
    EXPECT_EQ(limited["level"], 200);
    EXPECT_THAT(shared["service"]["answers_on"].get<std::string>(),
                HasSubstr(":" + std::to_string(service.port())));
    EXPECT_EQ(backup.wait().code, 130);
    const ended other_page = explain(server(), {"--http-port", "1"});
    EXPECT_THAT(other_page.out, HasSubstr("sharing    not known: http://127.0.0.1:1/status: "));
}

TEST_F(Explained, WhatIsNoServiceIsToldFromIt) {
    const service_process service;
    how.environment["VLSL_PORT"] = std::to_string(service.http_port());
    EXPECT_THAT(explain(server(), {}).out,
                HasSubstr("service    what takes connections on 127.0.0.1:" +
                          std::to_string(service.http_port()) +
                          " doesn't answer as the service does: each process is paced alone\n"));
}

TEST_F(Explained, DoctorHasNothingToMendWhereAllIsThere) {
    const service_process service;
    ask(service);
    const ended told = doctor();
    EXPECT_EQ(told.code, 0) << told.out;
    for (const char* const line :
         {"good  directory ", "good  settings ", "good  throttling  on: a sample lasts 2 s\n",
          "good  log ", "good  service     answers on ", "  clock ", ": version 910000 ",
          "libsts.so\n", "libvlorbST.so\n", "libvlcommon.so\n", "glibc "}) {
        EXPECT_THAT(told.out, HasSubstr(line));
    }
}

TEST_F(Explained, DoctorSaysWhatSomebodyHasToMend) {
    EXPECT_EQ(doctor().code, 1);
    EXPECT_THAT(doctor().out, HasSubstr("bad   service     no service answers on "));
    write_settings("THR:SAMPLE_INTERVAL=0\nTHR:LOG_LEVEL=7\n");
    EXPECT_THAT(doctor().out, HasSubstr("bad   settings    1 errors"));
    write_settings("THR:SAMPLE_INTERVAL=0\n");
    EXPECT_EQ(doctor().code, 0);
    std::filesystem::permissions(path("conf/libstspithrottling.conf"),
                                 std::filesystem::perms(0666));
    EXPECT_THAT(doctor().out, HasSubstr("anybody may change it; take that right away"));
    std::filesystem::remove(path("conf/libstspithrottling.conf"));
    EXPECT_THAT(doctor().out, HasSubstr("there is no such file; make it with: echo "));
    EXPECT_FALSE(std::filesystem::exists(path("conf/libstspithrottling.conf"))) << "it made one";
    const ended nowhere = tool({"doctor", "--conf-dir", path("none")});
    EXPECT_EQ(nowhere.code, 1);
    EXPECT_THAT(nowhere.out, HasSubstr("isn't there: make it with \"mkdir -p "));
    write_settings("THR:SAMPLE_INTERVAL=0\n");
    EXPECT_THAT(doctor({"--plugin", "/nowhere.so"}).out,
                HasSubstr("bad   plugin      the plugin can't be loaded: /nowhere.so"));
}

TEST_F(Explained, DoctorsLogDirectoryIsBadOnlyWhereItIsNeeded) {
    write_settings("THR:SAMPLE_INTERVAL=0\nTHR:LOG_LEVEL=5\n");
    if (std::filesystem::exists(LOG_DIRECTORY)) {
        GTEST_SKIP() << LOG_DIRECTORY << " is there";
    }
    const ended told = doctor();
    EXPECT_EQ(told.code, 1);
    EXPECT_THAT(told.out, HasSubstr("bad   log         " LOG_DIRECTORY
                                    ": No such file or directory: the plugin won't start"));
}

} // namespace
