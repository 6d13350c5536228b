// One user that takes all it can get, and another that has work to do.

#include "tests/service/service_process.h"
#include "tests/service/wire_client.h"

#include "plugin/stsapi.h"

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

TEST(GreedyPeer, AFloodOverManyConnectionsKeepsNoOtherUserWaitingInRealTime) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can act as two users";
    }
    const service_process service;
    tool_process flood = start_as_another(service, {"greedy", "16"});
    ASSERT_TRUE(flood.await_err("flooding"));
    const remote_session client(service.port());
    double longest = 0;
    for (int each = 0; each < 50; ++each) {
        const auto start = std::chrono::steady_clock::now();
        ASSERT_EQ(client.report("w:s3", 1000, 1).status, 0);
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        longest = std::max(longest, taken.count());
    }
    RecordProperty("longest_ms", static_cast<int>(longest * 1000));
    EXPECT_LT(longest, 1);
    flood.send(SIGKILL);
}

} // namespace
