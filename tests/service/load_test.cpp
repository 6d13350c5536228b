// The service under more than it likes: thousands of sessions, clients that vanish, floods,
// rubbish.

#include "tests/service/service_process.h"
#include "tests/service/wire_client.h"
#include "tests/support/process_state.h"

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <list>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using Orvessa::Vaultaro::HostSessionFactory_var;

std::string limit_row(const std::string& storage, int limit) {
    return "name=THR:" + storage + ",description=d,type=int,value=" + std::to_string(limit) +
           ",fixed=n;";
}

tool_process start_clients(const service_process& service, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {MANY_CLIENTS, std::to_string(service.port())});
    return {arguments, process_options{}};
}

/// Waits for what has to come in the end; a test's time limit is what bounds it.
template <typename Condition>
void await(Condition condition) {
    while (!condition()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

/// A connection to the service that speaks no CORBA.
class raw_connection {
  public:
    explicit raw_connection(int port) : descriptor_(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in where = {};
        where.sin_family = AF_INET;
        where.sin_port = htons(static_cast<uint16_t>(port));
        where.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(descriptor_, reinterpret_cast<const sockaddr*>(&where), sizeof where), 0);
    }
    ~raw_connection() { close(descriptor_); }
    raw_connection(const raw_connection&) = delete;
    raw_connection& operator=(const raw_connection&) = delete;

    void send(const std::string& bytes) const {
        ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }

  private:
    int descriptor_;
};

std::string giop_header(const std::string& magic, uint32_t length) {
    std::string header = magic;
    for (int byte = 0; byte < 4; ++byte) {
        header += static_cast<char>(length >> 8 * byte);
    }
    return header;
}

TEST(Load, TwoThousandSessionsAreOpenAtOnce) {
    service_process service;
    const HostSessionFactory_var factory = find_factory(service.port());
    std::list<remote_session> sessions;
    for (int each = 0; each < 2000; ++each) {
        sessions.emplace_back(factory);
        if (each == 0) {
            sessions.front().configure(limit_row("s3", 2000));
        }
        ASSERT_EQ(sessions.back().check_connections("a:s3", 1).status, 0);
        ASSERT_EQ(sessions.back().report("w:s3", 1000, 1).status, 0);
    }
    EXPECT_EQ(sessions.front().check_connections("a:s3", 1).status, 2060020);
    EXPECT_EQ(service.status()["sessions"], 2000);
    EXPECT_EQ(service.storage("s3")["connections"], 2000);
    EXPECT_EQ(service.storage("s3")["write"]["flows"], 2000);
    for (const remote_session& each : sessions) {
        each.session->destroy();
    }
    EXPECT_EQ(service.status()["sessions"], 0);
    EXPECT_EQ(service.storage("s3")["connections"], 0);
}

TEST(Load, ThousandsOfConnectionsAreServedAtOnce) {
    service_process service;
    std::list<raw_connection> idle;
    for (int each = 0; each < 2000; ++each) {
        idle.emplace_back(service.port());
    }
    const remote_session client(service.port());
    EXPECT_EQ(client.check_connections("a:s3", 1).status, 0);
    idle.clear();
    await([&] { return service.metric("process_open_fds") < 100; });
    EXPECT_EQ(client.check_connections("a:s3", -1).status, 0);
    EXPECT_EQ(service.stop(SIGTERM).code, 0);
}

TEST(Load, ASessionTakesLessThanFourKilobytes) {
    if (!has_memory_of_its_own) {
        GTEST_SKIP() << "the memory measured would be the sanitizer's";
    }
    const service_process service;
    const HostSessionFactory_var factory = find_factory(service.port());
    const auto open = [&](int count) {
        for (int each = 0; each < count; ++each) {
            const remote_session session(factory);
            session.check_connections("a:s3", 1);
            session.report("w:s3", 1000, 1);
            session.report("r:s3", 1000, 1);
        }
    };
    open(1);
    remote_session(factory).configure(limit_row("s3", 1000000));
    open(2000); // what is needed anyway is there by now
    const double before = service.metric("process_resident_memory_bytes");
    constexpr int sessions = 5000;
    open(sessions);
    const double grown = service.metric("process_resident_memory_bytes") - before;
    EXPECT_EQ(service.storage("s3")["connections"], sessions + 2001);
    RecordProperty("bytes_a_session", static_cast<int>(grown / sessions));
    EXPECT_LT(grown / sessions, 4096);
}

TEST(Load, SessionsThatEndLeaveNothingBehind) {
    if (!has_memory_of_its_own) {
        GTEST_SKIP() << "the memory measured would be the sanitizer's";
    }
    const service_process service;
    const HostSessionFactory_var factory = find_factory(service.port());
    const auto come_and_go = [&](int count) {
        for (int each = 0; each < count; ++each) {
            const remote_session session(factory);
            session.check_connections("a:s3", 1);
            session.report("w:s3", 1000, 1);
            session.session->destroy();
        }
        return service.metric("process_resident_memory_bytes");
    };
    const double before = come_and_go(1000);
    EXPECT_LT(come_and_go(4000) - before, 1 << 20);
}

TEST(Load, KilledClientsGiveBackAfterTheirLeaseInRealTime) {
    service_process service({"--lease", "2"});
    const remote_session survivor(service.port());
    survivor.configure(limit_row("s3", 2));
    {
        tool_process clients = start_clients(service, {"hold", "s3", "2"});
        ASSERT_TRUE(clients.await_err("holding"));
        EXPECT_EQ(survivor.check_connections("a:s3", 1).status, 2060020);
        clients.send(SIGKILL);
        clients.wait();
    }
    await([&] { return survivor.check_connections("a:s3", 1).status == 0; });
    EXPECT_EQ(service.storage("s3")["connections"], 1);
    EXPECT_TRUE(service.await_log("ended, its lease has run out"));
}

TEST(Load, AFloodOnOneConnectionKeepsNobodyElseWaitingInRealTime) {
    const service_process service;
    tool_process flood = start_clients(service, {"flood"});
    ASSERT_TRUE(flood.await_err("flooding"));
    const remote_session client(service.port());
    const auto start = std::chrono::steady_clock::now();
    constexpr int questions = 200;
    for (int each = 0; each < questions; ++each) {
        ASSERT_EQ(client.report("w:s3", 1000, 1).status, 0);
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    EXPECT_LT(taken.count(), 20); // a stall is 5 s for each, or for ever
    EXPECT_EQ(service.storage("s3")["write"]["flows"], 1);
    EXPECT_GT(service.status()["reports"], questions); // the flood ran all the while
    flood.send(SIGKILL);
}

TEST(Load, RubbishOnTheWireHarmsNobody) {
    service_process service;
    const remote_session client(service.port());
    client.configure(limit_row("s3", 100));
    const std::string v12_request("GIOP\x01\x02\x01\x00", 8);
    const std::vector<std::string> rubbish = {
        "",
        "x",
        "GET / HTTP/1.1\r\nHost: localhost\r\n\r\n",
        std::string(100000, '\0'),
        std::string(100000, '\xff'),
        giop_header(v12_request, 0),
        giop_header(v12_request, 0xffffffff) + "short",
        giop_header(v12_request, 1 << 30) + std::string(65536, 'x'),
        giop_header(v12_request, 24) + std::string(24, '\xff'),
        giop_header(v12_request, 64) + std::string(64, '\0'),
        giop_header(v12_request, 1000) + std::string(10, 'y'),
        giop_header(std::string("GIOP\x09\x09\x01\x00", 8), 12) + std::string(12, 'z'),
        giop_header(std::string("GIOP\x01\x02\x01\x63", 8), 12) + std::string(12, 'z')};
    std::list<raw_connection> connections;
    for (const std::string& each : rubbish) {
        for (int round = 0; round < 5; ++round) {
            connections.emplace_back(service.port()).send(each);
        }
        EXPECT_EQ(client.check_connections("a:s3", 1).status, 0);
    }
    connections.clear();
    EXPECT_EQ(client.check_connections("a:s3", -1).status, 0);
    EXPECT_EQ(service.stop(SIGTERM).code, 0);
}

TEST(Load, HugeTextsAreRefusedAndTheServiceGoesOn) {
    const service_process service;
    const remote_session client(service.port());
    EXPECT_NE(client.configure(limit_row("s3", 2) + std::string(100000, 'x')), 0);
    EXPECT_NE(client.check_connections("a:" + std::string(100000, 'n'), 1).status, 0);
    EXPECT_THROW(client.configure(std::string(64 << 20, 'x')), CORBA::SystemException);
    const remote_session other(service.port());
    EXPECT_EQ(other.check_connections("a:s3", 1).status, 0);
    EXPECT_LT(service.metric("process_resident_memory_bytes"), 512 << 20);
}

TEST(Load, ThreadsOfOneProcessAskAtOnce) {
    const service_process service;
    const HostSessionFactory_var factory = find_factory(service.port());
    remote_session(factory).configure(limit_row("s3", 1000));
    std::atomic<int> failures = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 16; ++thread) {
        threads.emplace_back([&] {
            const remote_session session(factory);
            for (int round = 0; round < 50; ++round) {
                failures += session.check_connections("a:s3", 1).status != 0;
                failures += session.report("w:s3", 1000, 1).status != 0;
                failures += session.check_connections("a:s3", -1).status != 0;
            }
            session.session->destroy();
        });
    }
    for (std::thread& each : threads) {
        each.join();
    }
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(service.storage("s3")["connections"], 0);
}

} // namespace
