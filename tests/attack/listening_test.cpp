// Nobody else gets the other half of the port: by default the service has it on all the loopback
// addresses that the host has.

#include "service/listening.h"

#include "tests/attack/crowd.h"
#include "tests/service/service_process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <system_error>

namespace {

bool has_v6() { return addresses_to_listen_on("").size() == 2; }

ended run_on(int port) {
    return run_process({service_process::program(), "--port", std::to_string(port), "--no-http"});
}

TEST(Listening, IsOnTheSamePortOfAllLoopbackAddresses) {
    service_process service;
    const int port = service.port();
    EXPECT_NO_THROW(crowd(port, 1, "127.0.0.1"));
    std::string line = "listening on 127.0.0.1:" + std::to_string(port);
    if (has_v6()) {
        EXPECT_NO_THROW(crowd(port, 1, "::1"));
        line += " and [::1]:" + std::to_string(port);
    }
    EXPECT_THAT(service.stop(SIGTERM).out, testing::StartsWith(line + "\n"));
}

TEST(Listening, IsOnAllOrNone) {
    const std::vector<std::string> all = addresses_to_listen_on("");
    for (const std::string& address : all) {
        const int free_on_all = listening_sockets(all, 0).port();
        const listening_sockets taken({address}, free_on_all);
        const ended result = run_on(taken.port());
        EXPECT_EQ(result.code, 1);
        EXPECT_EQ(result.err, "vlsld: can't listen on " + address + " port " +
                                  std::to_string(taken.port()) + ": Address already in use\n");
    }
}

TEST(Listening, AnAddressThatIsAskedForIsTheOnlyOne) {
    const service_process service({"--listen", "127.0.0.1"});
    EXPECT_NO_THROW(crowd(service.port(), 1, "127.0.0.1"));
    EXPECT_THROW(crowd(service.port(), 1, "::1"), std::system_error);
    if (has_v6()) {
        const service_process other({"--listen", "::1"});
        EXPECT_NO_THROW(crowd(other.port(), 1, "::1"));
        EXPECT_THROW(crowd(other.port(), 1, "127.0.0.1"), std::system_error);
    }
}

TEST(Listening, OnAllAddressesTakesBothKinds) {
    const service_process service({"--listen", "0.0.0.0"});
    EXPECT_NO_THROW(crowd(service.port(), 1, "127.0.0.1"));
    EXPECT_NO_THROW(crowd(service.port(), 1, "127.0.0.2"));
    if (has_v6()) {
        EXPECT_NO_THROW(crowd(service.port(), 1, "::1"));
    }
}

TEST(Listening, AFreePortIsFreeOnAll) {
    // Each has a port that the ones before may have on one address alone.
    std::vector<listening_sockets> some;
    for (int each = 0; each < 50; ++each) {
        some.emplace_back(std::vector<std::string>{"127.0.0.1"}, 0);
        some.emplace_back(addresses_to_listen_on(""), 0);
        EXPECT_NE(some.back().port(), 0);
    }
}

TEST(Listening, ReferencesNameTheFirstAddressThatIsListenedOn) {
    for (const std::string& address : {std::string(), std::string("127.0.0.2")}) {
        const service_process service(address.empty()
                                          ? std::vector<std::string>{}
                                          : std::vector<std::string>{"--listen", address});
        const crowd reachable(service.port(), 1, address.empty() ? "127.0.0.1" : address.c_str());
        giop::cdr_writer arguments;
        arguments.text("localhost");
        arguments.text("C");
        const giop::octets asked =
            giop::make_request(1, "HSFactory", "getHostSession", arguments.bytes());
        const std::string answer = reachable.ask(asked);
        EXPECT_THAT(answer, testing::HasSubstr(addresses_to_listen_on(address)[0] + '\0'));
        EXPECT_THAT(answer, testing::Not(testing::HasSubstr("::1")));
    }
}

} // namespace
