// One user that takes all it can get, and another that has work to do.

#include "tests/service/service_process.h"
#include "tests/service/wire_client.h"

#include "tests/support/certificates.h"
#include "tests/support/giop.h"
#include "tests/support/process_state.h"

#include "plugin/stsapi.h"
#include "service/ledger.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

/// Clients in a process of another user than this one.
tool_process start_as_another(const service_process& service, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {MANY_CLIENTS, std::to_string(service.port())});
    return {arguments, process_options{{}, "", true}};
}

TEST(GreedyPeer, StoragesOfOneUserLeaveRoomForAnothers) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can act as two users";
    }
    service_process service;
    const remote_session greedy(service.port());
    for (int each = 0; each < 1024; ++each) {
        ASSERT_EQ(greedy.check_connections("a:mine" + std::to_string(each), 1).status, 0);
    }
    EXPECT_EQ(greedy.check_connections("a:one more", 1).status, STS_ERR_NOMEM);
    tool_process other = start_as_another(service, {"hold", "theirs"});
    ASSERT_TRUE(other.await_err("holding"));
    EXPECT_EQ(service.storage("theirs")["connections"], 1);
    EXPECT_TRUE(service.await_log("storage \"mine0\": dropped, its peer has more than its part"));
    other.send(SIGKILL);
}

/// Asks for so many sessions at once. What the last one is answered.
giop::reply ask_for_sessions(giop::connection& client, size_t count) {
    giop::cdr_writer arguments;
    arguments.text("localhost");
    arguments.text("C");
    giop::octets requests;
    for (uint32_t each = 1; each <= count; ++each) {
        const giop::octets request =
            giop::make_request(each, "HSFactory", "getHostSession", arguments.bytes());
        requests.insert(requests.end(), request.begin(), request.end());
    }
    client.send(requests);
    giop::reply last;
    for (size_t each = 0; each < count; ++each) {
        last = giop::parse_reply(client.receive().value());
    }
    return last;
}

TEST(GreedyPeer, SessionsOfOneUserLeaveRoomForAnothers) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can act as two users";
    }
    if (!has_memory_of_its_own) {
        GTEST_SKIP() << "a sanitizer takes a minute for so many sessions";
    }
    const service_process service;
    const remote_session oldest(service.port());
    ASSERT_EQ(oldest.check_connections("a:mine", 1).status, 0);
    giop::connection greedy = giop::connection::to(static_cast<uint16_t>(service.port()));
    constexpr size_t batch = 512;
    for (size_t open = 1; open < most_sessions; open += batch) {
        const giop::reply last = ask_for_sessions(greedy, std::min(batch, most_sessions - open));
        ASSERT_EQ(last.status, giop::reply_status::no_exception);
    }
    giop::reply refused = ask_for_sessions(greedy, 1);
    EXPECT_EQ(refused.status, giop::reply_status::system_exception);
    giop::cdr_reader said(refused.body, refused.little_endian);
    EXPECT_EQ(said.text(), "IDL:omg.org/CORBA/NO_RESOURCES:1.0");
    EXPECT_EQ(service.status()["sessions"], most_sessions);

    tool_process other = start_as_another(service, {"hold", "theirs"});
    ASSERT_TRUE(other.await_err("holding"));
    EXPECT_EQ(service.storage("theirs")["connections"], 1);
    // Room was made by the session that had been silent longest, which gave back what it held.
    EXPECT_EQ(service.status()["sessions"], most_sessions);
    EXPECT_EQ(service.storage("mine")["connections"], 0);
    other.send(SIGKILL);
}

class Flood : public testing::TestWithParam<int> {};

TEST_P(Flood, KeepsNoOtherUserWaitingForASecondInRealTime) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can act as two users";
    }
    const service_process service;
    tool_process flood = start_as_another(service, {"greedy", std::to_string(GetParam())});
    ASSERT_TRUE(flood.await_err("flooding"));
    const remote_session client(service.port());
    double longest = 0;
    for (int each = 0; each < (has_memory_of_its_own ? 50 : 5); ++each) {
        const auto start = std::chrono::steady_clock::now();
        ASSERT_EQ(client.report("w:s3", 1000, 1).status, 0);
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        longest = std::max(longest, taken.count());
    }
    RecordProperty("longest_ms", static_cast<int>(longest * 1000));
    EXPECT_LT(longest, at_once);
    flood.send(SIGKILL);
}

INSTANTIATE_TEST_SUITE_P(Connections, Flood, testing::Values(16, 300, 2000),
                         [](const auto& flood) { return std::to_string(flood.param); });

TEST(GreedyPeer, HandshakesOfOneUserKeepNoOtherUsersWaitingInRealTime) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can act as two users";
    }
    const certificates own("own");
    const service_process service(
        {"--no-http", "--tls-ca", own.authority(), "--tls-key", own.key()});
    tool_process flood({MANY_CLIENTS, std::to_string(service.tls_port()), "greeting", "1000"},
                       process_options{{}, "", true});
    ASSERT_TRUE(flood.await_err("flooding"));
    const auto start = std::chrono::steady_clock::now();
    tool_process client(
        {MANY_CLIENTS, std::to_string(service.tls_port()), "hold", "s3"},
        {{{"VLSL_TLS_CA", own.authority()}, {"VLSL_TLS_KEY", own.key()}}, "", false});
    EXPECT_TRUE(client.await_err("holding"));
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    RecordProperty("taken_ms", static_cast<int>(taken.count() * 1000));
    EXPECT_LT(taken.count(), 2 * at_once);
    flood.send(SIGKILL);
    client.send(SIGKILL);
}

/// A service that can have few connections, most of which another user takes.
class FullHouse : public testing::TestWithParam<const char*> {};

TEST_P(FullHouse, IsOpenToWhoeverHasLess) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can act as two users";
    }
    const service_process service({"--no-http"}, 600);
    const remote_session client(service.port());
    tool_process crowd = start_as_another(service, {GetParam(), "2000"});
    ASSERT_TRUE(crowd.await_err("connected"));
    // Neither who was there before nor who comes now loses.
    EXPECT_EQ(client.report("w:s3", 1000, 1).status, 0);
    for (int each = 0; each < 20; ++each) {
        const auto start = std::chrono::steady_clock::now();
        giop::connection other = giop::connection::to(static_cast<uint16_t>(service.port()));
        other.send(giop::make_request(1, "HSFactory", "getInactivityTimeout", {}));
        EXPECT_TRUE(other.receive());
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::duration<double>(at_once));
    }
    crowd.send(SIGKILL);
}

INSTANTIATE_TEST_SUITE_P(Connections, FullHouse, testing::Values("silent", "idle"),
                         [](const auto& crowd) { return std::string(crowd.param); });

TEST(GreedyPeer, MemoryOfOneUserIsTakenFromNoOther) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can act as two users";
    }
    const service_process service({"--no-http"});
    giop::connection client = giop::connection::to(static_cast<uint16_t>(service.port()));
    const giop::octets question = giop::make_request(1, "HSFactory", "getInactivityTimeout", {});
    client.send({question.begin(), question.begin() + 20});
    // More than all together may have, and all of them later than we.
    tool_process crowd = start_as_another(service, {"stalled", "500"});
    ASSERT_TRUE(crowd.await_err("connected"));
    client.send({question.begin() + 20, question.end()});
    EXPECT_TRUE(client.receive());
    crowd.send(SIGKILL);
}

} // namespace
