// The one value factory that the client registers, and the lines about it. This program's logmsg
// takes the place of the platform's, and its register_value_factory stands before the ORB's.

#include "client/ValuetypeRegistrations.h"
#include "tests/client/client_fixture.h"
#include "tests/support/fault.h"
#include "tests/support/next_function.h"

#include <csignal>
#include <stdexcept>
#include <vlsl.hh>

using Corvane::Vaultaro::SL::UserMgmt::UserInfo;
using Corvane::Vaultaro::SL::UserMgmt::UserInfo_init;
using Corvane::Vaultaro::SL::VLT_77::append_failure_string;
using Corvane::Vaultaro::SL::VLT_77::register_obv_factories;
using Corvane::Vaultaro::SL::VLT_77::register_value_factory;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

lines platform_log;
bool platform_log_throws = false;
bool memory_ends_at_first_line = false;
bool orb_throws = false;

const char* const user_info = "IDL:Corvane/Vaultaro/SL/UserMgmt/UserInfo:1.0";

const std::string start_line = "2 register_obv_factories UserManagement-ValueType Registaring";
const std::string failure_line = "2 register_obv_factories Couldn't register value factory for "
                                 "IDL:Corvane/Vaultaro/SL/UserMgmt/UserInfo:1.0";
const std::string end_line =
    "2 register_obv_factories UserManagement-ValueType Registration Completed";

/// Counts how many of it there are.
class counted_factory : public UserInfo_init {
  public:
    static int alive;
    counted_factory() { ++alive; }
    ~counted_factory() override { --alive; }
};
int counted_factory::alive = 0;

class Registrations : public testing::Test {
  protected:
    Registrations() {
        library.init(nullptr);
        platform_log.clear();
        platform_log_throws = false;
        orb_throws = false;
    }

    /// The factory of a value; null when there is none.
    CORBA::ValueFactoryBase_var registered(const char* id = user_info) {
        return library.orb->lookup_value_factory(id);
    }

    Orb library{"", "", "", false, 0};
};

// --- all of them

TEST_F(Registrations, UserInfoIsRegisteredWithALineBeforeAndAfter) {
    EXPECT_EQ(registered().in(), nullptr);
    register_obv_factories(library.orb);
    EXPECT_NE(dynamic_cast<UserInfo_init*>(registered().in()), nullptr);
    EXPECT_THAT(platform_log, ElementsAre(start_line, end_line));
}

TEST_F(Registrations, NoOtherValueIsRegistered) {
    register_obv_factories(library.orb);
    for (const char* const id : {"IDL:Corvane/Vaultaro/SL/CloudMgmt/ThrottlingBandwidth:1.0",
                                 "IDL:Corvane/Vaultaro/SL/CloudMgmt/MeteringDataInfo:1.0"}) {
        EXPECT_EQ(registered(id).in(), nullptr);
    }
}

TEST_F(Registrations, AFailureIsToldBetweenTheTwoLinesAndGoesNoFurther) {
    memory_ends_at_first_line = true;
    register_obv_factories(library.orb);
    EXPECT_THAT(platform_log, ElementsAre(start_line, failure_line, end_line));
    EXPECT_EQ(registered().in(), nullptr);
}

// --- one

TEST_F(Registrations, OverAnExistingFactoryTheFormerOneIsReleased) {
    EXPECT_TRUE((register_value_factory<counted_factory, UserInfo>(library.orb)));
    EXPECT_EQ(counted_factory::alive, 1);
    EXPECT_TRUE((register_value_factory<counted_factory, UserInfo>(library.orb)));
    EXPECT_EQ(counted_factory::alive, 1);
    EXPECT_TRUE((register_value_factory<UserInfo_init, UserInfo>(library.orb)));
    EXPECT_EQ(counted_factory::alive, 0);
    EXPECT_NE(registered().in(), nullptr);
}

TEST_F(Registrations, WithoutMemoryAnywhereOnTheWayTheAnswerIsFalseAndNothingIsKept) {
    int allocation = 0;
    bool done = false;
    while (!done) {
        fault::fail_new_after(allocation++);
        [[maybe_unused]] const leaks_on_purpose
            the_orbs; // it keeps a factory that it finds no place for
        done = register_value_factory<UserInfo_init, UserInfo>(library.orb);
        fault::clear();
        ASSERT_EQ(registered().in() != nullptr, done) << allocation;
    }
    EXPECT_GT(allocation, 2);
    EXPECT_THAT(platform_log, IsEmpty());
}

TEST_F(Registrations, WithoutMemoryForAFactoryThereIsNone) {
    fault::fail_new_after(0);
    EXPECT_FALSE((register_value_factory<counted_factory, UserInfo>(library.orb)));
    fault::clear();
    EXPECT_EQ(counted_factory::alive, 0);
}

TEST_F(Registrations, AnExceptionOfTheOrbIsDroppedAndTheFactoryReleased) {
    orb_throws = true;
    EXPECT_FALSE((register_value_factory<counted_factory, UserInfo>(library.orb)));
    EXPECT_EQ(counted_factory::alive, 0);
    register_obv_factories(library.orb);
    EXPECT_THAT(platform_log, ElementsAre(start_line, failure_line, end_line));
}

TEST_F(Registrations, AFailureIsNamedByTheValuesRepositoryId) {
    EXPECT_EQ(append_failure_string<UserInfo>("before "), std::string("before ") + user_info);
    EXPECT_EQ(append_failure_string<UserInfo>(""), user_info);
}

TEST_F(Registrations, AnExceptionThatWouldLeaveThemEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    static_assert(noexcept(register_obv_factories(nullptr)));
    static_assert(noexcept(register_value_factory<UserInfo_init, UserInfo>(nullptr)));
    static_assert(noexcept(append_failure_string<UserInfo>(std::string())));
    platform_log_throws = true;
    EXPECT_EXIT(register_obv_factories(library.orb), testing::KilledBySignal(SIGABRT), "");
}

TEST_F(Registrations, WithoutMemoryForALineOfTheirOwnTheyEndTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto without_memory = [](auto call) {
        fault::fail_new_after(0);
        call();
    };
    const std::string prefix(100, 'x');
    EXPECT_EXIT(without_memory([&] { register_obv_factories(library.orb); }),
                testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(without_memory([&] { append_failure_string<UserInfo>(prefix); }),
                testing::KilledBySignal(SIGABRT), "");
}

// --- when

class RegistrationsOfClients : public Client {
  protected:
    RegistrationsOfClients() {
        platform_log.clear();
        platform_log_throws = false;
        orb_throws = false;
    }
};

TEST_F(RegistrationsOfClients, AreMadeOnceForAllClientsOfAnOrb) {
    const auto first = make();
    EXPECT_THAT(platform_log, IsEmpty());
    first->Initialize();
    const auto second = make();
    second->Initialize();
    EXPECT_THAT(platform_log, ElementsAre(start_line, end_line));
}

TEST_F(RegistrationsOfClients, AreMadeAgainForTheNextOrb) {
    make()->Initialize();
    make()->Initialize();
    EXPECT_THAT(platform_log, ElementsAre(start_line, end_line, start_line, end_line));
}

TEST_F(RegistrationsOfClients, LeaveTheClientConnectedWhereTheyFail) {
    orb_throws = true;
    const auto client = make();
    EXPECT_TRUE(client->Initialize());
    EXPECT_EQ(shape_of("check_connections").run(*client), STS_OK);
    make()->Initialize(); // the start is done, and so are they
    EXPECT_THAT(platform_log, ElementsAre(start_line, failure_line, end_line));
}

/// Shows the state that all clients share.
struct shown : COrbClient {
    static bool init_done() { return s_bInitDone; }
};

TEST_F(RegistrationsOfClients, LeaveTheOrbStartedWhereTheyFail) {
    void (*const starts[])(CORBA::ORB*) = {
        [](CORBA::ORB* orb) {
            memory_ends_at_first_line = true;
            register_obv_factories(orb);
        },
        [](CORBA::ORB* orb) {
            orb_throws = true;
            register_obv_factories(orb);
        },
    };
    for (const auto start : starts) {
        COrbClient client;
        platform_log.clear();
        client.init(start);
        EXPECT_TRUE(shown::init_done());
        EXPECT_NE(client.getOrb(), nullptr);
        client.init([](CORBA::ORB*) { FAIL() << "a second start"; });
        EXPECT_THAT(platform_log, ElementsAre(start_line, failure_line, end_line));
    }
}

TEST_F(RegistrationsOfClients, AreNoneOfTheHostsLog) {
    make()->Initialize();
    EXPECT_THAT(take_log(), IsEmpty());
}

} // namespace

__attribute__((visibility("default"))) CORBA::ValueFactory
CORBA::ORB::register_value_factory(const char* id, CORBA::ValueFactory factory) {
    if (orb_throws) {
        throw CORBA::NO_RESOURCES();
    }
    using real_t = CORBA::ValueFactory(CORBA::ORB*, const char*, CORBA::ValueFactory);
    static const auto real =
        next_function<real_t>("_ZN5CORBA3ORB22register_value_factoryEPKcPNS_16ValueFactoryBaseE");
    return real(this, id, factory);
}

extern "C" __attribute__((visibility("default"))) void logmsg(int level, const char* text,
                                                              const char* who) {
    if (platform_log_throws) {
        throw std::runtime_error("no log");
    }
    platform_log.push_back(std::to_string(level) + " " + who + " " + text);
    if (memory_ends_at_first_line) {
        memory_ends_at_first_line = false;
        fault::fail_new_after(0);
    }
}
