// The limits that "throttlectl service" sets in a service that runs, and what its clients are told.

#include "tests/service/reply_values.h"
#include "tests/service/service_process.h"
#include "tests/service/unix_client.h"
#include "tests/service/wire_client.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr const char* two_rates = "name=THR:AVAIL_BANDWIDTH,description=d,type=int,value=10485760,"
                                  "fixed=n;name=THR:SAMPLE_INTERVAL,description=d,type=int,"
                                  "value=30,fixed=n;name=THR:s3,description=d,type=int,value=4,"
                                  "fixed=n;";

class Steering : public testing::Test {
  protected:
    Steering() { client_.configure(two_rates); }

    ended steer(const std::vector<std::string>& arguments) const {
        std::vector<std::string> command = {THROTTLECTL, "service", "--control",
                                            service_.control()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return run_process(command);
    }
    std::string post(const std::string& page, const std::string& body) const {
        return answer_at(service_.control(), post_request(page, body));
    }

    service_process service_;
    remote_session client_{service_.port()};
};

TEST_F(Steering, ALimitReachesTheNextReply) {
    EXPECT_EQ(value_of(client_.report("w:s3").text, "THR_W_CONNECTION_COUNTS"), 1);
    const ended limited = steer({"limit", "s3", "--write", "1M", "--for", "2h"});
    EXPECT_EQ(limited.code, 0) << limited.err;
    EXPECT_EQ(limited.out, "storage \"s3\": write 1.0 MiB/s for 2 h 0 min\n");
    EXPECT_EQ(value_of(client_.report("w:s3").text, "THR_W_CONNECTION_COUNTS"), 10);
    EXPECT_TRUE(service_.await_log("storage \"s3\": limited by user " + std::to_string(geteuid()) +
                                   ": writes 1048576 bytes/s, for 7200 s"));
    EXPECT_THAT(steer({"status"}).out, HasSubstr("storage \"s3\"  -     1.0 MiB/s for "));
    EXPECT_EQ(steer({"unlimit", "s3"}).out, "Its limits are taken back.\n");
    EXPECT_EQ(steer({"unlimit", "s3"}).out, "It had no limits.\n");
    EXPECT_EQ(value_of(client_.report("w:s3").text, "THR_W_CONNECTION_COUNTS"), 1);
}

TEST_F(Steering, APauseReachesTheNextReplyAndNobodyIsClosed) {
    client_.report("w:s3");
    EXPECT_EQ(steer({"limit", "s3", "--write", "0"}).out, "storage \"s3\": write paused\n");
    EXPECT_EQ(value_of(client_.report("w:s3").text, "THR_WAIT_SECONDS"), 30);
    EXPECT_EQ(service_.status()["sessions"], 1);
}

TEST_F(Steering, MoreThanTheSettingsAllowIsToldToChangeNothing) {
    EXPECT_EQ(steer({"limit", "s3", "--write", "20M", "--read", "1M"}).out,
              "storage \"s3\": read 1.0 MiB/s, write 20.0 MiB/s\n"
              "write: the settings allow 10.0 MiB/s now: nothing changes while they do\n");
    EXPECT_THAT(steer({"limit", "t3", "--write", "1M"}).out,
                EndsWith("No client has named this storage yet; the limit holds when one does\n"));
    client_.configure("name=THR:SAMPLE_INTERVAL,description=d,type=int,value=0,fixed=n;"
                      "name=THR:off,description=d,type=int,value=4,fixed=n;");
    EXPECT_THAT(steer({"limit", "off", "--write", "1M"}).out,
                EndsWith("Its settings have throttling off (THR:SAMPLE_INTERVAL is 0): rates "
                         "change nothing until it is on\n"));
}

TEST_F(Steering, TheHostIsLimitedInPlaceOfAStorage) {
    EXPECT_EQ(steer({"limit", "--host", "--read", "1G/s"}).out,
              "all storages of the host: read 1.0 GiB/s\n"
              "read: the settings allow 10.0 MiB/s now: nothing changes while they do\n");
    const nlohmann::json limits =
        nlohmann::json::parse(steer({"limit", "s3", "--connections", "2", "--json"}).out);
    EXPECT_EQ(limits["connections"]["value"], 2);
    EXPECT_EQ(limits["connections"]["seconds_left"], nullptr);
    EXPECT_EQ(service_.storage("s3")["limit"], 2);
    const std::string listed = answer_at(service_.control(), get_request("/limits"));
    EXPECT_THAT(listed,
                AllOf(HasSubstr("{\"limits\":[{\"host\":true,\"read\":{\"value\":1073741824"),
                      HasSubstr("{\"storage\":\"s3\",\"read\":null,\"write\":null,")));
}

TEST_F(Steering, WrongArgumentsEndTheCommandWith2) {
    using words = std::vector<std::string>;
    const std::vector<std::pair<words, const char*>> commands = {
        {{"limit", "--write", "1M"}, "either NAME, a storage, or --host"},
        {{"limit", "s3", "--host", "--write", "1M"}, "--host"},
        {{"limit", "s3"}, "--read, --write or --connections"},
        {{"limit", "--host", "--connections", "2"}, "--connections is a storage's alone"},
        {{"limit", "s3", "--write", "fast"}, "--write: \"fast\" is no rate"},
        {{"limit", "s3", "--write", "-1"}, "--write: \"-1\" is no rate"},
        {{"limit", "s3", "--write", "1M", "--for", "soon"}, "--for: \"soon\" is no duration"},
        {{"limit", "s3", "--write", "1M", "--for", "0"}, "--for: \"0\" is no duration"},
        {{"limit", "s3", "--write", "1M", "--for", "9999d"}, "--for: \"9999d\" is no duration"},
        {{"limit", "s3", "--connections", "-1"}, "--connections"},
        {{"limit", "", "--write", "1M"}, "NAME"},
        {{"unlimit"}, "either NAME, a storage, or --host"},
        {{"dance"}, "Not known here: dance"},
        {{}, "A subcommand is required"}};
    for (const auto& [arguments, text] : commands) {
        const ended result = steer(arguments);
        EXPECT_EQ(result.code, 2) << text;
        EXPECT_THAT(result.err, HasSubstr(text));
    }
    EXPECT_THAT(post("/unlimit", "{\"host\":true}"), HasSubstr("{\"was_limited\":false}"));
}

TEST_F(Steering, WhatIsNoLimitIsRefusedAndChangesNothing) {
    const std::vector<std::pair<const char*, const char*>> bodies = {
        {"", "The body is no JSON object."},
        {"[]", "The body is no JSON object."},
        {"{\"storage\":\"s3\"", "The body is no JSON object."},
        {"{\"storage\":\"s3\",\"wriet\":5}", "There is no field \"wriet\"."},
        {"{\"write\":5}", "Either \"storage\" or \"host\" says what is limited."},
        {"{\"storage\":\"s3\",\"host\":true,\"write\":5}", "Either \"storage\" or \"host\""},
        {"{\"host\":false,\"write\":5}", "\"host\" can be true alone."},
        {"{\"storage\":7,\"write\":5}", "\"storage\" has to be a name"},
        {"{\"storage\":\"\\u0100\",\"write\":5}", "\"storage\" has to be a name"},
        {"{\"storage\":\"s3\",\"write\":-1}", "\"write\" has to be a whole number from 0"},
        {"{\"storage\":\"s3\",\"write\":1.5}", "\"write\" has to be a whole number"},
        {"{\"storage\":\"s3\",\"write\":\"5\"}", "\"write\" has to be a whole number"},
        {"{\"storage\":\"s3\",\"write\":18446744073709551615}", "\"write\" has to be"},
        {"{\"storage\":\"s3\",\"write\":99999999999999999999}", "\"write\" has to be"},
        {"{\"storage\":\"s3\",\"write\":5,\"seconds\":0}", "\"seconds\" has to be"},
        {"{\"storage\":\"s3\",\"write\":5,\"seconds\":9223372036854775807}", "\"seconds\" has"},
        {"{\"storage\":\"s3\",\"connections\":-5}", "\"connections\" has to be"}};
    for (const auto& [body, text] : bodies) {
        EXPECT_THAT(post("/limit", body), AllOf(StartsWith("HTTP/1.1 400"), HasSubstr(text)))
            << body;
    }
    const std::string deep = std::string(8000, '[') + std::string(8000, ']');
    EXPECT_THAT(post("/limit", deep), StartsWith("HTTP/1.1 400"));
    for (const char* body : {"{\"storage\":\"s3\"}", "{\"storage\":\"a\\nb\",\"write\":5}",
                             "{\"host\":true,\"connections\":5}"}) {
        EXPECT_THAT(post("/limit", body),
                    AllOf(StartsWith("HTTP/1.1 409"), HasSubstr("Nothing is changed: ")))
            << body;
    }
    EXPECT_THAT(answer_at(service_.control(), get_request("/limits")),
                HasSubstr("{\"limits\":[]}"));
}

TEST_F(Steering, ANameIsTheSameBytesEverywhere) {
    EXPECT_THAT(steer({"limit", "b\xc3\xa4r", "--write", "1M"}).out,
                HasSubstr("storage \"b\xc3\x83\xc2\xa4r\": write 1.0 MiB/s\n"));
    EXPECT_THAT(answer_at(service_.control(), get_request("/limits")),
                HasSubstr("\"storage\":\"b\u00c3\u00a4r\""));
    EXPECT_EQ(steer({"unlimit", "b\xc3\xa4r"}).out, "Its limits are taken back.\n");
}

TEST_F(Steering, TheGroupMayReadAndNotChange) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can be somebody else";
    }
    constexpr uid_t other = 65534;
    std::filesystem::permissions(std::filesystem::path(service_.control()).parent_path(),
                                 std::filesystem::perms(0711));
    ASSERT_EQ(chown(service_.control().c_str(), 0, 4242), 0);
    const auto as_other = [&](const std::string& request) {
        return answer_to_user(other, 4242, service_.control(), request);
    };
    EXPECT_THAT(as_other(get_request("/limits")), StartsWith("HTTP/1.1 200"));
    for (const char* page : {"/limit", "/unlimit"}) {
        EXPECT_THAT(as_other(post_request(page, "{\"storage\":\"s3\",\"write\":5}")),
                    AllOf(StartsWith("HTTP/1.1 403"),
                          HasSubstr("Only root and the service's own user (0) may change "
                                    "anything; you are user 65534.")));
    }
    EXPECT_THAT(as_other(get_request("/limits")), HasSubstr("{\"limits\":[]}"));
}

TEST_F(Steering, ThePageOfTheNetworkCantChangeAnything) {
    EXPECT_THROW(service_.get("/limits"), std::runtime_error);
    EXPECT_THROW(service_.get("/limit"), std::runtime_error);
}

} // namespace
