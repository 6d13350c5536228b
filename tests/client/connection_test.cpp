// From nothing to a session and its facets and back: what is asked in which order, what is asked
// again, and what a reference that comes back nil leads to.

#include "tests/client/client_fixture.h"

#include <vlsl.hh>

using Orvessa::Vaultaro::ActionFailedException;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

const std::string initialize = "4 CCloudVLSLClient::Initialize() ";
const std::string initialize_manager = "4 CCloudVLSLClient::InitializeCloudManager() ";
const std::string no_manager = "Failed to get instance of CloudManager from vlsl";

class Connection : public Client {
  protected:
    /// The exchange on each facet works.
    void expect_facets(CCloudVLSLClient& client) {
        EXPECT_EQ(shape_of("check_connections").run(client), STS_OK);
        EXPECT_EQ(shape_of("set_config_params").run(client), STS_OK);
    }
};

/// What a call throws that fails for a missing reference, in one line; "nothing" where it doesn't.
template <typename Call>
std::string failure_of(Call call) {
    try {
        call();
    } catch (const ActionFailedException& failed) {
        if (failed.eventSeq.length() != 1) {
            return "not one event";
        }
        const Orvessa::Vaultaro::ActionFailedEvent& event = failed.eventSeq[0];
        const char* reason = "not the reason";
        if (event.msg_info._d() == 0) {
            event.msg_info.unknownError() >>= reason;
        }
        return std::to_string(event.id.domain) + "/" + std::to_string(event.id.number) + " at " +
               std::to_string(event.when) + " \"" + event.hostName.in() + "\" \"" +
               event.serviceName.in() + "\" \"" + event.locale.in() + "\" " + reason;
    } catch (const CORBA::SystemException& failed) {
        return failed._name();
    }
    return "nothing";
}

const std::string missing_reference = "4/195 at 0 \"\" \"\" \"\" Corba error";

lines platform_log; // "LEVEL FUNCTION TEXT"

// --- the whole chain

TEST_F(Connection, BuildingAndDeletingAClientAsksNothing) {
    make().reset();
    make()->newSession("localhost", 1, false, 1);
    EXPECT_THAT(service.take(), IsEmpty());
    EXPECT_THAT(take_log(), IsEmpty());
}

TEST_F(Connection, InitializeGetsTheSessionTheManagerAndTheTwoFacetsInThisOrder) {
    const auto client = make();
    EXPECT_TRUE(client->Initialize());
    EXPECT_THAT(service.take(), ElementsAreArray(new_session));
    EXPECT_THAT(take_log(), IsEmpty());
    expect_facets(*client);
}

TEST_F(Connection, InitializeAsksNothingWhereAllIsThere) {
    const auto client = make_connected();
    EXPECT_TRUE(client->Initialize());
    EXPECT_TRUE(client->InitializeCloudManager());
    EXPECT_THAT(service.take(), IsEmpty());
}

TEST_F(Connection, TheCloudManagerGetsItsSessionFirst) {
    const auto client = make();
    EXPECT_TRUE(client->InitializeCloudManager());
    EXPECT_THAT(service.take(), ElementsAreArray(new_session));
    EXPECT_EQ(client->getSessionID(), 1);
    expect_facets(*client);
}

TEST_F(Connection, AsksForTheSessionOfItsHostInTheLocaleC) {
    const auto client = make();
    client->newSession("127.0.0.1", 0, false, 10);
    EXPECT_TRUE(client->Initialize());
    EXPECT_EQ(service.take().at(0), "getHostSession(\"127.0.0.1\", \"C\")");
}

TEST_F(Connection, APortThatIsNoneIsToldAndReachesNothing) {
    const std::string set = getenv("VLSL_PORT");
    const auto client = make();
    for (const char* const port : {"vlsl", "0", "-1", "65536", "99999999999", " 5638", "5638x"}) {
        setenv("VLSL_PORT", port, 1);
        platform_log.clear();
        EXPECT_EQ(failure_of([&] { client->Initialize(); }), missing_reference);
        EXPECT_THAT(take_log(), ElementsAre(initialize + "Failed to connect vlsl"));
        EXPECT_THAT(platform_log,
                    testing::Contains("4 Orb::connect VLSL_PORT is \"" + std::string(port) +
                                      "\", which is no port (1 to 65535)"));
    }
    EXPECT_THAT(service.take(), IsEmpty());
    setenv("VLSL_PORT", set.c_str(), 1);
    EXPECT_TRUE(client->Initialize());
}

// --- the number of sessions

TEST_F(Connection, CountsTheSessionsThatItMakes) {
    const auto client = make();
    EXPECT_EQ(client->getSessionID(), 0);
    client->Initialize();
    client->Initialize();
    EXPECT_EQ(client->getSessionID(), 1);
    client->newSession("localhost", 0, false, 10);
    EXPECT_EQ(client->getSessionID(), 1);
    client->Initialize();
    EXPECT_EQ(client->getSessionID(), 2);
    client->Shutdown();
    client->Initialize();
    EXPECT_EQ(client->getSessionID(), 3);
}

TEST_F(Connection, DoesNotCountASessionThatItDoesNotGet) {
    service.answer("getHostSession", {hands_out("nil"), raises("ActionFailedException"), {}});
    const auto client = make();
    EXPECT_THROW(client->Initialize(), ActionFailedException);
    EXPECT_THROW(client->Initialize(), ActionFailedException);
    EXPECT_EQ(client->getSessionID(), 0);
    EXPECT_TRUE(client->Initialize());
    EXPECT_EQ(client->getSessionID(), 1);
}

// --- the end of a session

TEST_F(Connection, DeletingAClientEndsItsSession) {
    make_connected().reset();
    EXPECT_THAT(service.take(), ElementsAre("destroy()"));
}

TEST_F(Connection, ShutdownEndsTheSessionOnceAndDropsAllReferences) {
    const auto client = make_connected();
    client->Shutdown();
    client->Shutdown();
    EXPECT_THAT(service.take(), ElementsAre("destroy()"));
    EXPECT_TRUE(client->InitializeCloudManager());
    EXPECT_THAT(service.take(), ElementsAreArray(new_session));
}

TEST_F(Connection, ShutdownSwallowsWhateverTheServiceSaysToTheEndOfTheSession) {
    for (const char* const exception : {"OBJECT_NOT_EXIST", "NO_RESOURCES", "VLSLOpException"}) {
        service.answer("destroy", raises(exception));
        const auto client = make_connected();
        client->Shutdown();
        EXPECT_THAT(service.take(), ElementsAre("destroy()"));
        EXPECT_THAT(take_log(), IsEmpty());
        EXPECT_TRUE(client->Initialize());
        EXPECT_THAT(service.take(), ElementsAreArray(new_session));
    }
}

TEST_F(Connection, ANewSessionEndsTheFormerOneAndIsMadeWhenItIsNeeded) {
    const auto client = make_connected();
    client->newSession("localhost", 77, false, 10);
    EXPECT_THAT(service.take(), ElementsAre("destroy()"));
    lines asked = new_session;
    asked.emplace_back(shape_of("check_connections").request);
    EXPECT_EQ(shape_of("check_connections").run(*client), STS_OK);
    EXPECT_THAT(service.take(), ElementsAreArray(asked));
}

// --- references that come back nil

TEST_F(Connection, ANilSessionIsAFailedAction) {
    service.answer("getHostSession", hands_out("nil"));
    const auto client = make();
    EXPECT_EQ(failure_of([&] { client->Initialize(); }), missing_reference);
    EXPECT_THAT(service.take(), ElementsAre("getHostSession(\"localhost\", \"C\")"));
    EXPECT_THAT(take_log(), ElementsAre(initialize + "Failed to get instance of HostSession"));
    EXPECT_EQ(failure_of([&] { client->InitializeCloudManager(); }), missing_reference);
    EXPECT_THAT(take_log(), ElementsAre(initialize + "Failed to get instance of HostSession"));
}

TEST_F(Connection, ANilManagerIsAFailedActionThatKeepsTheSession) {
    service.answer("getCloudManager", hands_out("nil"));
    const auto client = make();
    EXPECT_EQ(failure_of([&] { client->Initialize(); }), missing_reference);
    EXPECT_THAT(take_log(), ElementsAre(initialize_manager + no_manager));
    EXPECT_EQ(client->getSessionID(), 1);
    service.take();
    EXPECT_EQ(failure_of([&] { client->InitializeCloudManager(); }), missing_reference);
    EXPECT_THAT(service.take(), ElementsAre("getCloudManager()"));
    EXPECT_THAT(take_log(), ElementsAre(initialize_manager + no_manager));
    service.answer("getCloudManager", {});
    EXPECT_TRUE(client->Initialize());
    EXPECT_THAT(service.take(),
                ElementsAre("getCloudManager()", "aqueryFacet()", "amodifyFacet()"));
    EXPECT_EQ(client->getSessionID(), 1);
}

TEST_F(Connection, ANilFacetIsNoFailureAndIsAskedForAgain) {
    service.answer("aqueryFacet", hands_out("nil"));
    const auto client = make();
    EXPECT_TRUE(client->Initialize());
    EXPECT_THAT(take_log(), IsEmpty());
    EXPECT_EQ(shape_of("set_config_params").run(*client), STS_OK);
    service.take();
    EXPECT_TRUE(client->InitializeCloudManager());
    EXPECT_THAT(service.take(), ElementsAre("aqueryFacet()"));
}

TEST_F(Connection, AnExceptionForTheSessionPassesOut) {
    service.answer("getHostSession", {raises("ActionFailedException"), raises("NO_RESOURCES")});
    const auto client = make();
    EXPECT_EQ(failure_of([&] { client->Initialize(); }),
              "7/8 at 9 \"\" \"\" \"\" of the service's own");
    EXPECT_EQ(failure_of([&] { client->Initialize(); }), "NO_RESOURCES");
    EXPECT_THAT(take_log(), IsEmpty());
}

TEST_F(Connection, ASystemExceptionForTheManagerOrAFacetPassesOut) {
    for (const char* const operation : {"getCloudManager", "aqueryFacet", "amodifyFacet"}) {
        service.answer(operation, raises("NO_RESOURCES"));
        const auto client = make();
        EXPECT_EQ(failure_of([&] { client->Initialize(); }), "NO_RESOURCES") << operation;
        EXPECT_EQ(failure_of([&] { client->GetCloudManager(); }),
                  std::string(operation) == "getCloudManager" ? "NO_RESOURCES" : "nothing");
        service.answer(operation, {});
        EXPECT_TRUE(client->Initialize());
        EXPECT_EQ(client->getSessionID(), 1);
    }
}

TEST_F(Connection, FillsTheFirstEventOfAFailedActionAndLeavesTheOthers) {
    const auto client = make_connected();
    Orvessa::Vaultaro::ActionFailedEventSeq_var events =
        new Orvessa::Vaultaro::ActionFailedEventSeq;
    events->length(2);
    events[1].id.number = 12;
    client->InitializeActionFailedException(events);
    EXPECT_EQ(events[0].id.number, 195);
    EXPECT_EQ(events[1].id.number, 12);
}

// --- the manager, handed out

TEST_F(Connection, TheManagerIsHandedOverAndFetchedAgainWhereItIsNeededNext) {
    const auto client = make_connected();
    const Orvessa::Vaultaro::CloudManager_var first = client->GetCloudManager();
    EXPECT_FALSE(CORBA::is_nil(first));
    EXPECT_THAT(service.take(), IsEmpty());
    const Orvessa::Vaultaro::CloudManager_var second = client->GetCloudManager();
    EXPECT_FALSE(CORBA::is_nil(second));
    EXPECT_THAT(service.take(), ElementsAre("getCloudManager()"));
    client->Shutdown();
    const Corvane::Vaultaro::SL::QueryableFacet_var facet =
        first->aqueryFacet(); // it is the caller's
    EXPECT_FALSE(CORBA::is_nil(facet));
}

TEST_F(Connection, TheFacetsWorkOnWithoutTheManagerThatWasHandedOut) {
    const auto client = make_connected();
    const Orvessa::Vaultaro::CloudManager_var manager = client->GetCloudManager();
    expect_facets(*client);
    EXPECT_THAT(service.take(), ElementsAre(shape_of("check_connections").request,
                                            shape_of("set_config_params").request));
}

TEST_F(Connection, AnExchangeFetchesANewManagerOnlyWhereItsFacetIsMissing) {
    service.answer("amodifyFacet", {hands_out("nil"), {}});
    const auto client = make_connected();
    const Orvessa::Vaultaro::CloudManager_var manager = client->GetCloudManager();
    EXPECT_EQ(shape_of("check_connections").run(*client), STS_OK);
    EXPECT_THAT(service.take(), ElementsAre(shape_of("check_connections").request));
    EXPECT_EQ(shape_of("set_config_params").run(*client), STS_OK);
    EXPECT_THAT(service.take(), ElementsAre("getCloudManager()", "amodifyFacet()",
                                            shape_of("set_config_params").request));
}

TEST_F(Connection, TheManagerOfANewClientBringsItsSession) {
    const auto client = make();
    const Orvessa::Vaultaro::CloudManager_var manager = client->GetCloudManager();
    EXPECT_FALSE(CORBA::is_nil(manager));
    EXPECT_THAT(service.take(), ElementsAreArray(new_session));
}

TEST_F(Connection, ANilManagerToBeHandedOutIsAFailedAction) {
    service.answer("getCloudManager", hands_out("nil"));
    const auto client = make();
    EXPECT_EQ(failure_of([&] { client->GetCloudManager(); }), missing_reference);
    EXPECT_THAT(take_log(), ElementsAre(initialize_manager + no_manager));
}

// --- the time-out for silent sessions

TEST_F(Connection, AnswersTheServicesInactivityTimeout) {
    service.answer("getInactivityTimeout", returns(5'000'000'000));
    const auto client = make();
    EXPECT_EQ(client->getInactivityTimeout(), 5'000'000'000);
    lines asked = new_session;
    asked.emplace_back("getInactivityTimeout()");
    EXPECT_THAT(service.take(), ElementsAreArray(asked));
}

TEST_F(Connection, PassesAnExceptionOnThatTheInactivityTimeoutMeets) {
    service.answer("getInactivityTimeout", raises("NO_RESOURCES"));
    EXPECT_EQ(failure_of([&] { make()->getInactivityTimeout(); }), "NO_RESOURCES");
    service.answer("getHostSession", hands_out("nil"));
    EXPECT_EQ(failure_of([&] { make()->getInactivityTimeout(); }), missing_reference);
}

} // namespace

extern "C" __attribute__((visibility("default"))) void logmsg(int level, const char* text,
                                                              const char* who) {
    platform_log.push_back(std::to_string(level) + " " + who + " " + text);
}
