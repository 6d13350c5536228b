// A backup while the service isn't there, goes away or comes back, and what is left of the plugin's
// connection when it is closed.

#include "tests/client/plugin_fixture.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class PluginAndService : public Plugin {};

TEST_F(PluginAndService, WithoutAServiceDataFlowsPacedByLocalSettings) {
    service.stop();
    throttling_server_s* const server = open_server();
    throttling_image_s* const image = create(server);
    EXPECT_EQ(status, STS_OK);
    EXPECT_THAT(errors(),
                Contains("4 [create_or_open_image_v10]fail to check connections from service."));
    write(image, 5000);
    clock.take_sleeps();
    write(image, 5000);
    EXPECT_THAT(clock.take_sleeps(), ElementsAre(5U));
    close(image);
    EXPECT_EQ(close_server(server), STS_OK);
}

TEST_F(PluginAndService, AServiceThatComesUpIsFoundByTheNextExchange) {
    service.stop();
    throttling_image_s* const image = create(open_server());
    write(image, 10);
    service.start();
    clock.advance(30);
    write(image, 20);
    EXPECT_EQ(asked(), join({new_session, {report("w:s3", start, start + 30, 10)}}));
}

TEST_F(PluginAndService, ABackupGoesOnBeingCountedByAServiceThatCameBack) {
    throttling_server_s* const server = open_server();
    throttling_image_s* const image = create(server);
    write(image, 10);
    asked();
    service.answer("check_bandwidth", dies());
    clock.advance(30);
    write(image, 20);
    EXPECT_THAT(errors(),
                ElementsAre("4 Unknown CORBA exception occured while processing check_bandwidth, "
                            "return code =2060017",
                            "4 [throttling_write_image_v7]fail to check bandwidth from service."));
    service.stop();
    service.start();
    clock.advance(30);
    write(image, 30);
    EXPECT_THAT(asked(), ElementsAre(report("w:s3", start + 30, start + 60, 20)));
    close(image);
    close_server(server);
    EXPECT_THAT(asked(), ElementsAre(report("w:s3", start + 60, start + 60, 30),
                                     "check_connections(\"w:s3\", \"a_b\", -1)",
                                     "check_connections(\"a:s3\", \"a_b\", -1)", "destroy()"));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(PluginAndService, AServiceThatDiesBeforeTheCloseIsToldAndTheCloseGoesOn) {
    throttling_server_s* const server = open_server();
    throttling_image_s* const image = create(server);
    write(image, 10);
    service.stop();
    errors();
    close(image);
    EXPECT_EQ(close_server(server), STS_OK);
    const lines told = errors();
    EXPECT_THAT(
        told, Contains("4 [throttling_close_image_v7]fail to check write bandwidth from service."));
    EXPECT_THAT(told,
                Contains("4 [throttling_close_image_v7]fail to check connections from service."));
}

// --- a service that never answers

class MutePluginServiceRealTime : public Plugin {
  protected:
    /// Seconds of real time that `call` takes.
    template <typename Call>
    static double seconds_of(Call call) {
        const auto begin = std::chrono::steady_clock::now();
        call();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    }
};

TEST_F(MutePluginServiceRealTime, HoldsATransferUpForFiveSecondsAndNoMore) {
    throttling_image_s* const image = create(open_server());
    write(image, 10);
    asked();
    errors();
    service.answer("check_bandwidth", stays_silent());
    clock.advance(30);
    EXPECT_LT(seconds_of([&] { write(image, 20); }), 5.9);
    EXPECT_THAT(asked(), ElementsAre(report("w:s3", start, start + 30, 10)));
    EXPECT_THAT(errors(),
                Contains("4 [throttling_write_image_v7]fail to check bandwidth from service."));
    service.answer("check_bandwidth", returns(0));
}

TEST_F(MutePluginServiceRealTime, HoldsAnOpenUpForFiveSecondsForEachOfItsTwoExchanges) {
    service.answer("getHostSession", stays_silent());
    throttling_server_s* const server = open_server();
    EXPECT_LT(seconds_of([&] { EXPECT_NE(create(server), nullptr); }), 10.9);
    EXPECT_THAT(asked(), ElementsAre(new_session.front(), new_session.front()));
    service.answer("getHostSession", {});
}

// --- what is left

size_t entries_of(const char* directory) {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(directory), {}));
}

/// Connections of this process to that port.
int connections_to(int port) {
    int count = 0;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        sockaddr_in peer = {};
        socklen_t length = sizeof peer;
        if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &length) == 0 &&
            peer.sin_family == AF_INET && ntohs(peer.sin_port) == port) {
            ++count;
        }
    }
    return count;
}

TEST_F(PluginAndService, TheLastServersCloseLeavesNoConnectionAndNoThread) {
    std::thread([] {}).join(); // a sanitizer has its own thread from the first one on
    const size_t threads = entries_of("/proc/self/task");
    throttling_server_s* const first = open_server();
    throttling_server_s* const second = open_server("CS_throttle:cloud:disk:glacier");
    close(create(first));
    close(create(second));
    EXPECT_GT(connections_to(service.port()), 0);
    close_server(first);
    EXPECT_GT(connections_to(service.port()), 0);
    close_server(second);
    EXPECT_EQ(connections_to(service.port()), 0);
    EXPECT_EQ(entries_of("/proc/self/task"), threads);
}

TEST_F(PluginAndService, AHundredServersInARowLeaveNothingBehind) {
    size_t threads = 0;
    size_t descriptors = 0;
    for (int round = 0; round < 100; ++round) {
        throttling_server_s* const server = open_server();
        throttling_image_s* const image = create(server, "image" + std::to_string(round));
        write(image, 10);
        close(image);
        close_server(server);
        if (round == 0) {
            threads = entries_of("/proc/self/task");
            descriptors = entries_of("/proc/self/fd");
        }
    }
    for (int moment = 0; moment < 500 && entries_of("/proc/self/task") > threads; ++moment) {
        usleep(10000); // a thread that was told to end takes its moment
    }
    EXPECT_EQ(entries_of("/proc/self/task"), threads);
    EXPECT_EQ(entries_of("/proc/self/fd"), descriptors);
    const lines requests = asked();
    EXPECT_EQ(std::count(requests.begin(), requests.end(), "destroy()"), 100);
}

} // namespace
