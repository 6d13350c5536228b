// What a client asks of the ORB library, and what it makes of the library's answers. The library is
// the test's own.

#include "tests/client/client_fixture.h"
#include "tests/client/recording_orb.h"

#include <csignal>
#include <stdexcept>
#include <vlsl.hh>

using Orvessa::Vaultaro::ActionFailedException;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string made = "Orb(\"\", \"COrbClient\", \"\", false, 1024)";
const std::string ten_seconds = "connect(\"localhost\", \"vlsl\", \"HSFactory\", 10.0, 0.0, true, "
                                "false)";

class ClientOnAnOrb : public Client {
  protected:
    ClientOnAnOrb() { orbs() = {}; }
    ~ClientOnAnOrb() override { EXPECT_EQ(orbs().alive, 0); }
};

TEST_F(ClientOnAnOrb, StartsItBoundsItAndConnectsInThisOrder) {
    const auto client = make(5);
    EXPECT_THAT(orbs().take(), ElementsAre(made));
    client->Initialize();
    EXPECT_THAT(
        orbs().take(),
        ElementsAre("init(null)", "setOrbRequestTimeout(5.0)",
                    "connect(\"localhost\", \"vlsl\", \"HSFactory\", 5.0, 0.0, true, false)"));
    client->Initialize();
    EXPECT_THAT(orbs().take(), IsEmpty());
}

TEST_F(ClientOnAnOrb, ATimeOutOfZeroIsAZeroForTheOrb) {
    make(0)->Initialize();
    EXPECT_THAT(
        orbs().take(),
        ElementsAre(made, "init(null)", "setOrbRequestTimeout(0.0)",
                    "connect(\"localhost\", \"vlsl\", \"HSFactory\", 0.0, 0.0, true, false)",
                    "~Orb"));
}

TEST_F(ClientOnAnOrb, TakesHostAndTimeOutOfTheNewestSession) {
    const auto client = make();
    client->newSession("elsewhere", 0, false, 7);
    client->Initialize();
    EXPECT_THAT(
        orbs().take(),
        ElementsAre(made, "init(null)", "setOrbRequestTimeout(7.0)",
                    "connect(\"elsewhere\", \"vlsl\", \"HSFactory\", 7.0, 0.0, true, false)"));
}

TEST_F(ClientOnAnOrb, SecondClientsShareItAndItGoesWithTheLast) {
    auto first = make_connected();
    auto second = make_connected();
    EXPECT_THAT(orbs().take(), ElementsAre(made, "init(null)", "setOrbRequestTimeout(10.0)",
                                           ten_seconds, "setOrbRequestTimeout(10.0)", ten_seconds));
    first.reset();
    EXPECT_THAT(orbs().take(), IsEmpty());
    EXPECT_THAT(service.take(), ElementsAre("destroy()"));
    EXPECT_EQ(shape_of("check_connections").run(*second), STS_OK);
    second.reset();
    EXPECT_THAT(orbs().take(), ElementsAre("~Orb"));
}

TEST_F(ClientOnAnOrb, ForcedTlsIsSetBeforeTheStart) {
    CCloudVLSLClient client(&session, "localhost", true, 0, 10);
    EXPECT_FALSE(orbs().current->force_oxss_iop);
    client.Initialize();
    EXPECT_TRUE(orbs().current->force_oxss_iop);
    EXPECT_EQ(orbs().take().at(1), "init(null) for TLS");
}

TEST_F(ClientOnAnOrb, ForcedTlsEndsWithTheSessionUnlessTheNextOneAsksForIt) {
    CCloudVLSLClient client(&session, "localhost", true, 0, 10);
    client.Initialize();
    orbs().current->force_oxss_iop = false;
    client.Shutdown();
    client.Initialize();
    EXPECT_FALSE(orbs().current->force_oxss_iop);
    client.newSession("localhost", 0, true, 10);
    client.Initialize();
    EXPECT_TRUE(orbs().current->force_oxss_iop);
}

TEST_F(ClientOnAnOrb, ForwardsATimeOutForOneObject) {
    const auto client = make();
    char place;
    orbs().timed = reinterpret_cast<CORBA::Object*>(&place);
    orbs().take();
    EXPECT_EQ(client->setObjectRequestTimeout(nullptr, ACE_Time_Value(3)), orbs().timed);
    EXPECT_THAT(orbs().take(), ElementsAre("setObjectRequestTimeout(null, 3.0)"));
}

// --- connections that fail

class FailedConnection : public ClientOnAnOrb {
  protected:
    /// The first exchange fails, and only these lines tell of it.
    void expect_failure(CCloudVLSLClient& client, lines expected) {
        std::string out = "as it was";
        EXPECT_EQ(shape_of("check_connections").run(client, out), failed_exchange);
        EXPECT_EQ(out, "as it was");
        expected.push_back(shape_of("check_connections").corba_line());
        EXPECT_EQ(take_log(), expected);
    }
};

TEST_F(FailedConnection, NoObjectIsToldAndTriedAgainByTheNextExchange) {
    const auto client = make();
    for (CORBA::Object* const none :
         {static_cast<CORBA::Object*>(nullptr), CORBA::Object::_nil()}) {
        orbs().connects_to = [none] { return none; };
        orbs().take();
        expect_failure(*client, {"4 CCloudVLSLClient::Initialize() Failed to connect vlsl"});
        EXPECT_EQ(orbs().take().back(), ten_seconds);
    }
    orbs().connects_to = nullptr;
    EXPECT_EQ(shape_of("check_connections").run(*client), STS_OK);
}

TEST_F(FailedConnection, NoObjectIsAFailedActionForWhoAsksForTheSession) {
    orbs().connects_to = [] { return CORBA::Object::_nil(); };
    const auto client = make();
    EXPECT_THROW(client->Initialize(), ActionFailedException);
    EXPECT_THROW(client->InitializeCloudManager(), ActionFailedException);
    EXPECT_THROW(client->GetCloudManager(), ActionFailedException);
    EXPECT_THROW(client->getInactivityTimeout(), ActionFailedException);
    EXPECT_EQ(client->getSessionID(), 0);
    EXPECT_THAT(service.take(), IsEmpty());
}

TEST_F(FailedConnection, AnObjectThatIsNoFactoryIsToldAndReleased) {
    const auto client = make_connected();
    const Orvessa::Vaultaro::CloudManager_var manager = client->GetCloudManager();
    orbs().connects_to = [&] { return CORBA::Object::_duplicate(manager); };
    client->newSession("localhost", 0, false, 10);
    expect_failure(*client, {"4 CCloudVLSLClient::Initialize() Failed to get instance of "
                             "HostSessionFactory"});
    EXPECT_THROW(client->Initialize(), ActionFailedException);
}

TEST_F(FailedConnection, ASystemExceptionOfTheLibraryPassesOut) {
    orbs().at = [](const std::string& operation) {
        if (operation == "connect") {
            throw CORBA::NO_RESOURCES();
        }
    };
    const auto client = make();
    expect_failure(*client, {});
    EXPECT_THROW(client->Initialize(), CORBA::NO_RESOURCES);
}

TEST_F(FailedConnection, AStartThatFailsIsTriedAgainByTheNextExchange) {
    orbs().at = [](const std::string& operation) {
        if (operation == "init") {
            throw CORBA::INITIALIZE();
        }
    };
    const auto client = make();
    expect_failure(*client, {});
    orbs().at = nullptr;
    EXPECT_EQ(shape_of("check_connections").run(*client), STS_OK);
}

TEST_F(FailedConnection, AnyOtherExceptionOfTheLibraryEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    orbs().at = [](const std::string& operation) {
        if (operation == "connect") {
            throw std::runtime_error("no such thing");
        }
    };
    EXPECT_EXIT(shape_of("check_connections").run(*make()), testing::KilledBySignal(SIGABRT), "");
}

TEST_F(FailedConnection, AnOrbThatCannotBeMadeIsNoClient) {
    orbs().at = [](const std::string&) { throw std::runtime_error("no ORB"); };
    EXPECT_THROW(make(), std::runtime_error);
    orbs().at = nullptr;
    make()->Initialize();
}

} // namespace
