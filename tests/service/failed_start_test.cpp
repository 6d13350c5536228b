// A server that can't be put together: what its ORB leaves behind. In a process of its own, whose
// only ORB it is.

#include "service/corba_server.h"

#include "service/moment.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <stdexcept>

namespace {

const corba_options any_port = {"127.0.0.1", 0, "", "", -1};

/// Takes the name of an adapter that the server makes too, in the ORB that it will find.
void take_adapter_name() {
    int count = 0;
    const CORBA::ORB_var orb = CORBA::ORB_init(count, nullptr);
    const CORBA::Object_var object = orb->resolve_initial_references("RootPOA");
    const PortableServer::POA_var root = PortableServer::POA::_narrow(object);
    const PortableServer::POA_var taken = root->create_POA("session", nullptr, {});
}

const object_keys keys(new_secret());

void expect_failure(ledger& book, const ledger::log_sink& log) {
    try {
        const corba_server server(any_port, book, keys, log);
    } catch (const std::runtime_error& error) {
        fprintf(stderr, "%s\n", error.what());
        return;
    }
    exit(2);
}

/// Makes the ORB say something.
void complain() {
    const char* options[][2] = {{"noSuchOption", "1"}, {nullptr, nullptr}};
    int count = 0;
    omniORB::traceLevel = 1;
    try {
        const CORBA::ORB_var orb = CORBA::ORB_init(count, nullptr, "omniORB4", options);
    } catch (const CORBA::INITIALIZE&) {
        return;
    }
    exit(3);
}

TEST(FailedStartDeathTest, EndsItsOrbSoThatAnotherCanStart) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const auto start_twice = [] {
        const ledger::log_sink log = [](const std::string&) {};
        ledger book(60, this_moment(), log);
        take_adapter_name();
        expect_failure(book, log);
        const corba_server second(any_port, book, keys, log);
        exit(second.port() != 0 ? 0 : 4);
    };
    EXPECT_EXIT(start_twice(), testing::ExitedWithCode(0),
                "can't listen on giop:tcp:127.0.0.1:[0-9]+: the ORB says CORBA::AdapterAlready");
}

TEST(FailedStartDeathTest, LeavesNothingOfItsLogToTheOrb) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const auto start_and_complain = [] {
        bool has_log = true;
        const ledger::log_sink log = [&](const std::string&) {
            if (!has_log) {
                exit(5);
            }
        };
        ledger book(60, this_moment(), log);
        take_adapter_name();
        expect_failure(book, log);
        has_log = false;
        complain();
        exit(0);
    };
    EXPECT_EXIT(start_and_complain(), testing::ExitedWithCode(0), "noSuchOption");
}

} // namespace
