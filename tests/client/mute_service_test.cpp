// A service that takes a request and never answers. These tests wait for real time: how long an
// exchange takes at most is what they are about.

#include "tests/client/client_fixture.h"

#include <chrono>
#include <cstdlib>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vlsl.hh>

using testing::ElementsAre;

namespace {

/// Seconds that `call` takes.
template <typename Call>
double seconds_of(Call call) {
    const auto start = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Takes connections and reads nothing. Clients find it while it lives.
class deaf_listener {
  public:
    deaf_listener() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const int port = free_port();
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<uint16_t>(port));
        EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(socket_, 16), 0);
        setenv("VLSL_PORT", std::to_string(port).c_str(), 1);
    }
    ~deaf_listener() { close(socket_); }
    deaf_listener(const deaf_listener&) = delete;
    deaf_listener& operator=(const deaf_listener&) = delete;

  private:
    int socket_;
};

class MuteServiceRealTime : public Client {};

TEST_F(MuteServiceRealTime, HoldsAnExchangeUpForTheTimeOutAndNoLonger) {
    const auto client = make_connected(1);
    for (const exchange_shape& shape : exchange_shapes) {
        service.answer(shape.asked, stays_silent());
        int status = STS_OK;
        EXPECT_LT(seconds_of([&] { status = shape.run(*client); }), 1.9) << shape.name;
        EXPECT_EQ(status, shape.corba_status) << shape.name;
        EXPECT_THAT(take_log(), ElementsAre(shape.corba_line()));
        EXPECT_THAT(service.take(), ElementsAre(shape.request)); // once
    }
}

TEST_F(MuteServiceRealTime, AnswersThatComeBeforeTheTimeOutAreTaken) {
    const auto client = make_connected(5);
    scripted_answer late = returns(3, "late");
    late.delay = 300;
    service.answer("check_connections", late);
    std::string out;
    EXPECT_EQ(shape_of("check_connections").run(*client, out), 3);
    EXPECT_EQ(out, "late");
}

TEST_F(MuteServiceRealTime, IsHeardAgainAfterATimeOut) {
    const auto client = make_connected(1);
    scripted_answer late = returns(0, "late");
    late.delay = 1500;
    service.answer("check_connections", {late, returns(0, "prompt")});
    std::string out;
    EXPECT_EQ(shape_of("check_connections").run(*client, out), failed_exchange);
    EXPECT_EQ(shape_of("check_connections").run(*client, out), STS_OK);
    EXPECT_EQ(out, "prompt"); // never the answer to the request before
}

TEST_F(MuteServiceRealTime, HoldsTheFirstExchangeOfAClientUpForOneTimeOut) {
    const deaf_listener listener;
    for (const char* const name : {"check_connections", "set_config_params"}) {
        const auto client = make(2);
        int status = STS_OK;
        EXPECT_LT(seconds_of([&] { status = shape_of(name).run(*client); }), 3.9) << name;
        EXPECT_EQ(status, failed_exchange) << name;
    }
}

TEST_F(MuteServiceRealTime, WhereverItStopsAnsweringInTheChainTheFirstExchangeFailsInOneTimeOut) {
    for (const char* const operation :
         {"getHostSession", "getCloudManager", "aqueryFacet", "amodifyFacet"}) {
        service.answer(operation, stays_silent());
        const auto client = make(2);
        int status = STS_OK;
        EXPECT_LT(seconds_of([&] { status = shape_of("check_connections").run(*client); }), 3.9)
            << operation;
        EXPECT_EQ(status, failed_exchange) << operation;
        service.answer(operation, {});
    }
}

TEST_F(MuteServiceRealTime, DoesNotKeepAClientFromGoing) {
    auto client = make_connected(1);
    service.answer("destroy", stays_silent());
    EXPECT_LT(seconds_of([&] { client.reset(); }), 1.9);
    EXPECT_THAT(service.take(), ElementsAre("destroy()"));
}

TEST_F(MuteServiceRealTime, IsGivenTheFiveSecondsOfThePluginAndNoMore) {
    const auto client = make_connected(5);
    service.answer("check_bandwidth", stays_silent());
    int status = STS_OK;
    EXPECT_LT(seconds_of([&] { status = shape_of("check_bandwidth").run(*client); }), 5.9);
    EXPECT_EQ(status, failed_exchange);
}

} // namespace
