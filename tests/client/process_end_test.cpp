// Exceptions that the client's connection doesn't let out end the process, whoever stands ready to
// catch them.

#include "tests/client/client_fixture.h"

#include <csignal>
#include <functional>
#include <memory>
#include <vlsl.hh>

namespace {

/// The child runs the test again, with a service of its own.
class ProcessEnd : public Client {
  protected:
    ProcessEnd() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    static void expect_abort(const std::function<void()>& call) {
        EXPECT_EXIT(
            {
                try {
                    call();
                } catch (...) {
                }
            },
            testing::KilledBySignal(SIGABRT), "");
    }
};

struct step {
    const char* name;
    std::function<void(std::unique_ptr<CCloudVLSLClient>&)> take;
};

void PrintTo(const step& each, std::ostream* out) { *out << each.name; }

// --- of the service, while the connection is made

class ProcessEndInTheChain : public ProcessEnd, public testing::WithParamInterface<step> {};

INSTANTIATE_TEST_SUITE_P(
    Of, ProcessEndInTheChain,
    testing::Values(
        step{"Initialize", [](auto& client) { client->Initialize(); }},
        step{"InitializeCloudManager", [](auto& client) { client->InitializeCloudManager(); }},
        step{"GetCloudManager", [](auto& client) { client->GetCloudManager(); }},
        step{"GetInactivityTimeout", [](auto& client) { client->getInactivityTimeout(); }},
        step{"AnExchangeThatCatchesAllElse",
             [](auto& client) { shape_of("check_connections").run(*client); }}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(ProcessEndInTheChain, IsByAnExceptionOfTheService) {
    for (const char* const operation : {"getCloudManager", "aqueryFacet", "amodifyFacet"}) {
        service.answer(operation, raises_operation_failed({1}));
        expect_abort([this] {
            auto client = make();
            GetParam().take(client);
        });
        service.answer(operation, {});
    }
}

// --- of nobody's, over a call that leaves the process

class ProcessEndInACall : public ProcessEnd, public testing::WithParamInterface<step> {};

INSTANTIATE_TEST_SUITE_P(
    Of, ProcessEndInACall,
    testing::Values(
        step{"Shutdown", [](auto& client) { client->Shutdown(); }},
        step{"NewSession", [](auto& client) { client->newSession("localhost", 0, false, 10); }},
        step{"GetInactivityTimeout", [](auto& client) { client->getInactivityTimeout(); }},
        step{"GetCloudManager",
             [](auto& client) { // it is fetched again
                 const Orvessa::Vaultaro::CloudManager_var had = client->GetCloudManager();
                 client->GetCloudManager();
             }},
        step{"Destructor", [](auto& client) { client.reset(); }}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(ProcessEndInACall, IsByWhatIsNoExceptionOfTheOrb) {
    expect_abort([this] {
        auto client = make_connected();
        const odd_requests meanwhile; // a client that gets over it ends as it should
        GetParam().take(client);
    });
}

TEST_P(ProcessEndInACall, IsNotByAnExceptionOfTheOrb) {
    auto client = make_connected();
    service.stop();
    try {
        GetParam().take(client);
    } catch (const CORBA::SystemException&) {
    }
}

} // namespace
