// A name with several addresses: they are tried in the resolver's order until one answers.

#include "tests/client/client_fixture.h"
#include "tests/support/certificates.h"
#include "tests/support/giop.h"
#include "tests/support/next_function.h"
#include "tests/support/stopwatch.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vlsl.hh>

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

/// Those of "localhost", in the resolver's order.
lines addresses;

/// A socket on 127.0.0.2 and a given port that nobody serves. It takes connections, on which nothing
/// is said, or none, when it `is_full`.
class unserved_listener {
  public:
    explicit unserved_listener(int port, bool is_full) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        inet_pton(AF_INET, "127.0.0.2", &address.sin_addr);
        const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
        EXPECT_EQ(bind(listener_, generic, sizeof address), 0);
        EXPECT_EQ(listen(listener_, is_full ? 0 : SOMAXCONN), 0);
        for (const int each : fillers_) {
            if (is_full) {
                connect(each, generic, sizeof address);
            }
        }
    }
    ~unserved_listener() {
        close(listener_);
        for (const int each : fillers_) {
            close(each);
        }
    }
    unserved_listener(const unserved_listener&) = delete;
    unserved_listener& operator=(const unserved_listener&) = delete;

  private:
    static int tcp() { return socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }
    const int listener_ = tcp();
    const int fillers_[4] = {tcp(), tcp(), tcp(), tcp()};
};

class Addresses : public Client {
  protected:
    ~Addresses() override { addresses.clear(); }

    void expect_reached() {
        const auto client = make();
        EXPECT_EQ(shape_of("check_connections").run(*client), STS_OK);
        lines asked = new_session;
        asked.emplace_back(shape_of("check_connections").request);
        EXPECT_THAT(service.take(), ElementsAreArray(asked));
        EXPECT_THAT(take_log(), IsEmpty());
    }
};

TEST_F(Addresses, TheSecondIsTakenWhereNobodyListensAtTheFirst) {
    addresses = {"::1", "127.0.0.1"};
    expect_reached();
}

TEST_F(Addresses, TheFirstIsTakenWhereItAnswers) {
    addresses = {"127.0.0.1", "::1"};
    expect_reached();
}

TEST_F(Addresses, TheNameIsResolvedWheneverASessionIsMade) {
    addresses = {"::1"};
    const auto client = make();
    EXPECT_EQ(shape_of("check_connections").run(*client), failed_exchange);
    addresses = {"127.0.0.1"};
    EXPECT_EQ(shape_of("check_connections").run(*client), STS_OK);
}

TEST_F(Addresses, TenDeadOnesComeBeforeTheOneThatAnswers) {
    for (int i = 2; i < 12; ++i) {
        addresses.push_back("127.0.0." + std::to_string(i));
    }
    addresses.emplace_back("127.0.0.1");
    expect_reached();
}

TEST_F(Addresses, NoMoreThanSixteenAreTried) {
    for (int i = 2; i < 18; ++i) {
        addresses.push_back("127.0.0." + std::to_string(i));
    }
    addresses.emplace_back("127.0.0.1");
    EXPECT_EQ(shape_of("check_connections").run(*make()), failed_exchange);
    take_log();
    addresses.erase(addresses.begin());
    expect_reached();
}

TEST_F(Addresses, ANameWithoutAnyFailsTheExchange) {
    const auto client = make();
    client->newSession("nowhere.invalid", 0, false, 10);
    EXPECT_EQ(shape_of("check_connections").run(*client), failed_exchange);
    EXPECT_THAT(take_log(), ElementsAre(shape_of("check_connections").corba_line()));
    EXPECT_THROW(client->Initialize(), CORBA::TRANSIENT);
}

/// In a service's place, one that doesn't take the connection or says nothing on it.
class AddressesRealTime : public Addresses, public testing::WithParamInterface<bool> {
  protected:
    const unserved_listener mute{service.port(), GetParam()};
};

TEST_P(AddressesRealTime, AMuteOneCostsItsPartOfTheTimeOut) {
    addresses = {"127.0.0.2", "127.0.0.1"};
    const double taken = seconds_of([this] {
        const auto client = make(2);
        EXPECT_EQ(shape_of("check_connections").run(*client), STS_OK);
    });
    EXPECT_GT(taken, 0.9); // it was asked
    EXPECT_LT(taken, 1.9);
    EXPECT_THAT(take_log(), IsEmpty());
}

TEST_P(AddressesRealTime, AllMuteOnesCostOneTimeOut) {
    addresses = {"127.0.0.2", "::1", "127.0.0.2", "127.0.0.3"};
    int status = STS_OK;
    EXPECT_LT(seconds_of([&] { status = shape_of("check_connections").run(*make(1)); }), 1.9);
    EXPECT_EQ(status, failed_exchange);
}

INSTANTIATE_TEST_SUITE_P(Each, AddressesRealTime, testing::Bool(), [](const auto& is_full) {
    return is_full.param ? "TakingNoConnection" : "SayingNothing";
});

TEST(TlsAddressesRealTime, OneThatNeverShakesHandsCostsItsPartOfTheTimeOut) {
    const certificates ours("ours");
    const remote_service service({ours.authority(), ours.key()});
    const unserved_listener mute(service.port(), false);
    setenv("VLSL_TLS_CA", ours.authority().c_str(), 1);
    setenv("VLSL_TLS_KEY", ours.key().c_str(), 1);
    addresses = {"127.0.0.2", "127.0.0.1"};
    take_log();
    sts_session_def_v7_t session = host_session("s", 0);
    CCloudVLSLClient client(&session, "localhost", true, 0, 4);
    const double taken =
        seconds_of([&] { EXPECT_EQ(shape_of("check_connections").run(client), STS_OK); });
    EXPECT_GT(taken, 1.9); // it was asked
    EXPECT_LT(taken, 3.9);
    EXPECT_THAT(take_log(), IsEmpty());
    unsetenv("VLSL_TLS_CA");
    unsetenv("VLSL_TLS_KEY");
    addresses.clear();
}

} // namespace

extern "C" __attribute__((visibility("default"))) int
getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result) {
    static auto* const real =
        next_function<int(const char*, const char*, const addrinfo*, addrinfo**)>("getaddrinfo");
    const std::string name = node != nullptr ? node : "";
    if (name != "localhost" || addresses.empty()) {
        return real(node, service, hints, result);
    }
    *result = nullptr;
    addrinfo** last = result;
    for (const std::string& each : addresses) {
        if (const int error = real(each.c_str(), service, hints, last); error != 0) {
            return error;
        }
        while (*last != nullptr) {
            last = &(*last)->ai_next;
        }
    }
    return 0;
}
