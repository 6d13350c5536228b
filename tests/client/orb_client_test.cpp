// The one ORB that all clients of a process share, on an ORB library of the test's own: any other
// than the one built here can take its place.

#include "client/OrbClient.h"
#include "tests/client/recording_orb.h"
#include "tests/support/fault.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <stdexcept>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string made = "Orb(\"\", \"COrbClient\", \"\", false, 1024)";

/// Shows the state that all clients share.
class shown : public COrbClient {
  public:
    static Orb* orb() { return s_pOrb; }
    static bool init_done() { return s_bInitDone; }
    static int users() { return s_nRefCount; }
};

int callbacks = 0;
CORBA::ORB* called_with = nullptr;

void callback(CORBA::ORB* orb) {
    ++callbacks;
    called_with = orb;
}

void failing_callback(CORBA::ORB*) {
    ++callbacks;
    throw std::runtime_error("callback");
}

class OrbClient : public testing::Test {
  protected:
    OrbClient() {
        orbs() = {};
        callbacks = 0;
        called_with = nullptr;
    }
    ~OrbClient() override {
        EXPECT_EQ(shown::orb(), nullptr);
        EXPECT_EQ(orbs().alive, 0);
    }

    /// The next call of an Orb's operation throws.
    static void fail_at(const std::string& operation) {
        orbs().at = [operation](const std::string& arriving) {
            if (arriving == operation) {
                orbs().at = nullptr;
                throw std::runtime_error(operation);
            }
        };
    }
};

// --- making and deleting

TEST_F(OrbClient, TheFirstMakesTheOrbAndStartsNothing) {
    EXPECT_EQ(shown::orb(), nullptr);
    const COrbClient client;
    EXPECT_THAT(orbs().take(), ElementsAre(made));
    EXPECT_EQ(shown::orb(), orbs().current);
    EXPECT_EQ(shown::users(), 1);
    EXPECT_FALSE(shown::init_done());
}

TEST_F(OrbClient, TwoShareOneOrbAndTheLastDeletesIt) {
    auto first = std::make_unique<COrbClient>();
    auto second = std::make_unique<COrbClient>();
    EXPECT_THAT(orbs().take(), ElementsAre(made));
    EXPECT_EQ(shown::users(), 2);
    first.reset();
    EXPECT_EQ(orbs().alive, 1);
    EXPECT_EQ(shown::users(), 1);
    EXPECT_EQ(shown::orb(), orbs().current);
    second.reset();
    EXPECT_THAT(orbs().take(), ElementsAre("~Orb"));
    EXPECT_EQ(shown::users(), 0);
    EXPECT_EQ(shown::orb(), nullptr);
}

TEST_F(OrbClient, AfterTheLastANewOneStartsAnewWithItsCallback) {
    {
        COrbClient client;
        client.init(callback);
    }
    EXPECT_FALSE(shown::init_done());
    orbs().take();
    COrbClient client;
    client.init(callback);
    EXPECT_THAT(orbs().take(), ElementsAre(made, "init(null)"));
    EXPECT_EQ(callbacks, 2);
}

TEST_F(OrbClient, AnOrbThatCannotBeMadeCountsNobody) {
    fail_at("Orb");
    EXPECT_THROW(COrbClient(), std::runtime_error);
    EXPECT_EQ(shown::orb(), nullptr);
    EXPECT_EQ(shown::users(), 0);
    const COrbClient client;
    EXPECT_EQ(shown::users(), 1);
}

TEST_F(OrbClient, WithoutMemoryForTheOrbNobodyIsCounted) {
    bool failed = false;
    fault::fail_new_after(0);
    try {
        const COrbClient client;
    } catch (const std::bad_alloc&) {
        failed = true;
    }
    fault::clear();
    EXPECT_TRUE(failed);
    EXPECT_THAT(orbs().take(), IsEmpty());
    EXPECT_EQ(shown::orb(), nullptr);
    EXPECT_EQ(shown::users(), 0);
}

TEST_F(OrbClient, IsDeletedThroughItsBase) {
    std::unique_ptr<COrbClient> client = std::make_unique<shown>();
    client.reset();
    EXPECT_EQ(orbs().alive, 0);
}

// --- starting

TEST_F(OrbClient, StartsTheOrbOnceAndHandsItToTheFirstCallback) {
    COrbClient client;
    COrbClient other;
    client.init(callback);
    EXPECT_TRUE(shown::init_done());
    EXPECT_EQ(called_with, orbs().current->orb);
    client.init(callback);
    other.init(callback);
    EXPECT_EQ(callbacks, 1);
    EXPECT_THAT(orbs().take(), ElementsAre(made, "init(null)"));
}

TEST_F(OrbClient, AStartWithoutACallbackCountsAsDone) {
    COrbClient client;
    client.init(nullptr);
    EXPECT_TRUE(shown::init_done());
    client.init(callback);
    EXPECT_EQ(callbacks, 0);
    EXPECT_THAT(orbs().take(), ElementsAre(made, "init(null)"));
}

TEST_F(OrbClient, AStartThatFailsIsMadeAgain) {
    COrbClient client;
    fail_at("init");
    EXPECT_THROW(client.init(callback), std::runtime_error);
    EXPECT_FALSE(shown::init_done());
    EXPECT_EQ(callbacks, 0);
    client.init(callback);
    EXPECT_TRUE(shown::init_done());
    EXPECT_EQ(callbacks, 1);
    EXPECT_THAT(orbs().take(), ElementsAre(made, "init(null)", "init(null)"));
}

TEST_F(OrbClient, ACallbackThatFailsHasAllDoneAgain) {
    COrbClient client;
    EXPECT_THROW(client.init(failing_callback), std::runtime_error);
    EXPECT_FALSE(shown::init_done());
    client.init(callback);
    EXPECT_TRUE(shown::init_done());
    EXPECT_EQ(callbacks, 2);
    EXPECT_THAT(orbs().take(), ElementsAre(made, "init(null)", "init(null)"));
}

void callback_with_clients(CORBA::ORB* orb) {
    callback(orb);
    const auto use_another = [] {
        COrbClient client;
        client.init(callback); // the ORB runs: there is nothing to do
    };
    use_another();
    std::thread(use_another).join();
}

TEST_F(OrbClient, ACallbackMayMakeClientsAndWaitForThoseOfOtherThreads) {
    COrbClient client;
    client.init(callback_with_clients);
    EXPECT_TRUE(shown::init_done());
    EXPECT_EQ(callbacks, 1);
    EXPECT_EQ(shown::users(), 1);
    EXPECT_THAT(orbs().take(), ElementsAre(made, "init(null)"));
}

TEST_F(OrbClient, HandsOutTheOrbOfTheLibrary) {
    COrbClient client;
    client.init(nullptr);
    EXPECT_EQ(client.getOrb(), orbs().current->orb);
}

TEST_F(OrbClient, TlsIsForThePresentOrbOnly) {
    {
        COrbClient client;
        client.forceOxSSIOP();
        EXPECT_TRUE(orbs().current->force_oxss_iop);
        const COrbClient other;
        EXPECT_TRUE(orbs().current->force_oxss_iop);
    }
    const COrbClient client;
    EXPECT_FALSE(orbs().current->force_oxss_iop);
}

// --- what is forwarded

TEST_F(OrbClient, ForwardsAConnectionWithItsTwoFlags) {
    COrbClient client;
    char place;
    auto* const object = reinterpret_cast<CORBA::Object*>(&place);
    orbs().connects_to = [&] { return object; };
    orbs().take();
    EXPECT_EQ(client.connectToObject("host", "service", "key", ACE_Time_Value(5, 1),
                                     ACE_Time_Value(6, 2)),
              object);
    EXPECT_THAT(orbs().take(),
                ElementsAre("connect(\"host\", \"service\", \"key\", 5.1, 6.2, true, false)"));
}

TEST_F(OrbClient, PassesOnWhatAConnectionOrATimeOutThrows) {
    COrbClient client;
    fail_at("connect");
    EXPECT_THROW(client.connectToObject("h", "s", "k", ACE_Time_Value(1), ACE_Time_Value(0)),
                 std::runtime_error);
    fail_at("setObjectRequestTimeout");
    EXPECT_THROW(client.setObjectRequestTimeout(nullptr, ACE_Time_Value(1)), std::runtime_error);
    fail_at("setOrbRequestTimeout");
    EXPECT_THROW(client.SetOrbRequestTimeout(ACE_Time_Value(1)), std::runtime_error);
}

TEST_F(OrbClient, ForwardsTheTimeOutsAndTheAnswer) {
    COrbClient client;
    char place;
    orbs().timed = reinterpret_cast<CORBA::Object*>(&place);
    orbs().take();
    EXPECT_EQ(client.setObjectRequestTimeout(nullptr, ACE_Time_Value(7, 8)), orbs().timed);
    client.SetOrbRequestTimeout(ACE_Time_Value(9));
    client.SetOrbRequestTimeout(ACE_Time_Value::zero);
    EXPECT_THAT(orbs().take(),
                ElementsAre("setObjectRequestTimeout(null, 7.8)", "setOrbRequestTimeout(9.0)",
                            "setOrbRequestTimeout(0.0)"));
}

// --- the library's contract

TEST_F(OrbClient, CarriesNoDataButItsTable) { EXPECT_EQ(sizeof(COrbClient), sizeof(void*)); }

/// The table of an object's virtual operations, as the C++ ABI of this platform lays it out: the
/// destructor takes the first two slots.
template <typename Function>
Function* slot(const void* object, size_t number) {
    void* const* const table = *static_cast<void* const* const*>(object);
    return reinterpret_cast<Function*>(table[number]);
}

TEST_F(OrbClient, TheLibrarysOperationsAndItsOrbStandInTheirPlaces) {
    auto* const orb = new Orb("", "", "", false, 0);
    orb->orb = nullptr;
    char place;
    orbs().connects_to = [&] { return reinterpret_cast<CORBA::Object*>(&place); };
    orbs().timed = reinterpret_cast<CORBA::Object*>(&place);
    orbs().take();
    const std::string text = "x";
    const ACE_Time_Value time(1);
    const bool yes = true;
    const bool no = false;
    using connect_t =
        CORBA::Object*(Orb*, const std::string&, const std::string&, const std::string&,
                       const ACE_Time_Value&, const ACE_Time_Value&, const bool&, const bool&);
    EXPECT_EQ(slot<connect_t>(orb, 2)(orb, text, text, text, time, time, yes, no), orbs().timed);
    using timeout_t = CORBA::Object*(Orb*, CORBA::Object*, const ACE_Time_Value&);
    EXPECT_EQ(slot<timeout_t>(orb, 3)(orb, nullptr, time), orbs().timed);
    EXPECT_EQ(static_cast<void*>(&orb->orb), reinterpret_cast<char*>(orb) + sizeof(void*));
    slot<void(Orb*)>(orb, 1)(orb);
    EXPECT_THAT(orbs().take(), ElementsAre("connect(\"x\", \"x\", \"x\", 1.0, 1.0, true, false)",
                                           "setObjectRequestTimeout(null, 1.0)", "~Orb"));
    EXPECT_EQ(orbs().alive, 0);
}

} // namespace
