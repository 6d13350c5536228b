// A backup while the service isn't there, goes away or comes back, and what is left of the plugin's
// connection when it is closed.

#include "tests/client/plugin_fixture.h"
#include "tests/support/process_state.h"

#include <algorithm>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>

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
    EXPECT_THAT(take_errors(),
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

TEST_F(PluginAndService, AServiceThatDiesBeforeTheCloseIsToldAndTheCloseGoesOn) {
    throttling_server_s* const server = open_server();
    throttling_image_s* const image = create(server);
    write(image, 10);
    service.stop();
    take_errors();
    close(image);
    EXPECT_EQ(close_server(server), STS_OK);
    const lines told = take_errors();
    EXPECT_THAT(
        told, Contains("4 [throttling_close_image_v7]fail to check write bandwidth from service."));
    EXPECT_THAT(told,
                Contains("4 [throttling_close_image_v7]fail to check connections from service."));
}

// --- what is left

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
    const size_t threads_before = threads();
    throttling_server_s* const first = open_server();
    throttling_server_s* const second = open_server("CS_throttle:cloud:disk:glacier");
    close(create(first));
    close(create(second));
    EXPECT_GT(connections_to(service.port()), 0);
    close_server(first);
    EXPECT_GT(connections_to(service.port()), 0);
    close_server(second);
    EXPECT_EQ(connections_to(service.port()), 0);
    EXPECT_TRUE(comes_down_to(threads, threads_before));
}

TEST_F(PluginAndService, AHundredServersInARowLeaveNothingBehind) {
    size_t threads_after_one = 0;
    size_t descriptors_after_one = 0;
    for (int round = 0; round < 100; ++round) {
        throttling_server_s* const server = open_server();
        throttling_image_s* const image = create(server, "image" + std::to_string(round));
        write(image, 10);
        close(image);
        close_server(server);
        if (round == 0) {
            threads_after_one = threads();
            descriptors_after_one = descriptors();
        }
    }
    EXPECT_TRUE(comes_down_to(threads, threads_after_one));
    EXPECT_TRUE(comes_down_to(descriptors, descriptors_after_one));
    const lines requests = asked();
    EXPECT_EQ(std::count(requests.begin(), requests.end(), "destroy()"), 100);
}

} // namespace
