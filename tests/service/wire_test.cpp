// The service over the wire, from finding it to the end of a session.

#include "tests/service/service_process.h"
#include "tests/service/wire_client.h"

#include "plugin/stsapi.h"

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace CloudMgmt = Corvane::Vaultaro::SL::CloudMgmt;
using testing::HasSubstr;

namespace {

const std::string two_for_s3 = "name=THR:s3,description=d,type=int,value=2,fixed=n;"
                               "name=THR:AVAIL_BANDWIDTH,description=d,type=int,value=1000,fixed=y;"
                               "name=THR:SAMPLE_INTERVAL,description=d,type=int,value=30,fixed=y;";

TEST(Wire, TheFactoryIsOfItsInterfaceAndHandsOutTheWholeChain) {
    const service_process service;
    const Orvessa::Vaultaro::HostSessionFactory_var factory = find_factory(service.port());
    EXPECT_TRUE(factory->_is_a("IDL:Orvessa/Vaultaro/HostSessionFactory:1.0"));
    EXPECT_FALSE(factory->_is_a("IDL:Orvessa/Vaultaro/HostSession:1.0"));
    const remote_session client(factory);
    EXPECT_TRUE(client.session->_is_a("IDL:Orvessa/Vaultaro/HostSession:1.0"));
    EXPECT_TRUE(client.manager->_is_a("IDL:Corvane/Vaultaro/SL/CommonMgmt:1.0"));
    EXPECT_FALSE(CORBA::is_nil(client.query));
    EXPECT_FALSE(CORBA::is_nil(client.modify));
    EXPECT_EQ(service.status()["sessions"], 1);
}

TEST(Wire, TheInactivityTimeoutIsTheLease) {
    const service_process usual;
    const Orvessa::Vaultaro::HostSessionFactory_var factory = find_factory(usual.port());
    EXPECT_EQ(factory->getInactivityTimeout(), 3600);
    const service_process shorter({"--lease", "77"});
    const Orvessa::Vaultaro::HostSessionFactory_var other = find_factory(shorter.port());
    EXPECT_EQ(other->getInactivityTimeout(), 77);
}

TEST(Wire, ConnectionsAreAdmittedUpToTheLimitOfTheSettingsSent) {
    const service_process service;
    const remote_session one(service.port());
    const remote_session other(service.port());
    ASSERT_EQ(one.configure(two_for_s3), 0);
    EXPECT_EQ(one.check_connections("a:s3", 1).status, 0);
    EXPECT_EQ(other.check_connections("a:s3", 1).status, 0);
    const exchange refused = other.check_connections("a:s3", 1);
    EXPECT_EQ(refused.status, STS_ERR_MAX_CONNECTIONS);
    EXPECT_EQ(refused.text, "storage \"s3\" has all 2 connections of its limit");
    EXPECT_EQ(one.check_connections("a:s3", -1).status, 0);
    EXPECT_EQ(other.check_connections("a:s3", 1).status, 0);
    EXPECT_EQ(service.storage("s3")["connections"], 2);
}

TEST(Wire, AReportIsAnsweredWithCountsFreeFlowAndWait) {
    const service_process service;
    const remote_session one(service.port());
    const remote_session other(service.port());
    one.configure(two_for_s3);
    other.report("w:s3", 100 * 10, 10);
    const exchange reply = one.report("w:s3", 200 * 10, 10); // at half of 1000 it takes 4 s
    EXPECT_EQ(reply.status, 0);
    EXPECT_THAT(reply.text, HasSubstr("name=THR_R_CONNECTION_COUNTS,description=sessions "
                                      "reading,type=int,value=1,fixed=y;"));
    EXPECT_THAT(reply.text, HasSubstr("name=THR_W_CONNECTION_COUNTS,description=sessions "
                                      "writing,type=int,value=2,fixed=y;"));
    EXPECT_THAT(reply.text, HasSubstr("left[bytes/second],type=int,value=700,fixed=y;"));
    EXPECT_THAT(reply.text, HasSubstr("name=THR_WAIT_SECONDS,description=time to "
                                      "wait[seconds],type=int,value=0,fixed=y;"));
    EXPECT_THAT(one.report("w:s3", 500 * 15, 10).text,
                HasSubstr("wait[seconds],type=int,value=5,fixed=y;"));
}

TEST(Wire, TwoSessionsOfOneProcessAreTwo) {
    const service_process service;
    const remote_session one(service.port());
    const remote_session other(service.port());
    one.report("r:s3");
    other.report("r:s3");
    EXPECT_EQ(service.storage("s3")["read"]["flows"], 2);
    one.check_connections("r:s3", -1);
    EXPECT_EQ(service.storage("s3")["read"]["flows"], 1);
}

TEST(Wire, DestroyEndsTheSessionAndGivesBackWhatItHeld) {
    const service_process service;
    const remote_session one(service.port());
    one.check_connections("a:s3", 1);
    one.report("w:s3");
    one.session->destroy();
    EXPECT_EQ(service.status()["sessions"], 0);
    EXPECT_EQ(service.storage("s3")["connections"], 0);
    EXPECT_EQ(service.storage("s3")["write"]["flows"], 0);
}

TEST(Wire, MalformedQuestionsGetAStatusAndALogLine) {
    service_process service;
    const remote_session client(service.port());
    EXPECT_EQ(client.check_connections("s3", 1).status, STS_ERR_INVALID);
    EXPECT_EQ(client.check_connections("a:s3", 2).status, STS_ERR_INVALID);
    EXPECT_EQ(client.report("a:s3").status, STS_ERR_INVALID);
    EXPECT_EQ(client.configure("rubbish"), STS_ERR_INVALID);
    EXPECT_EQ(service.metric("vlsld_malformed_total"), 4);
    EXPECT_TRUE(service.await_log("refused, no key: \"s3\""));
    EXPECT_TRUE(service.await_log("refused, settings without a readable row: \"rubbish\""));
}

TEST(Wire, ANullSampleIsRefused) {
    service_process service;
    const remote_session client(service.port());
    CORBA::String_var text;
    EXPECT_EQ(client.query->check_bandwidth("w:s3", "h", nullptr, text.out()), STS_ERR_INVALID);
    EXPECT_STREQ(text, "a null sample");
    EXPECT_TRUE(service.await_log("refused, a null sample"));
}

TEST(Wire, NamesPassByteForByteAndAreShownAsLatin1) {
    const service_process service;
    const remote_session client(service.port());
    EXPECT_EQ(client.check_connections("a:caf\xc3\xa9", 1).status, 0);
    EXPECT_EQ(service.storage("caf\u00c3\u00a9")["connections"], 1);
    EXPECT_EQ(client.check_connections("a:caf\xe9", 1).status, 0);
    EXPECT_EQ(service.storage("caf\u00e9")["connections"], 1);
}

TEST(Wire, KeysThatNameNoSessionAreNoObjects) {
    const service_process service;
    const remote_session client(service.port());
    const CORBA::String_var good = client_orb()->object_to_string(client.session);
    const Orvessa::Vaultaro::HostSessionFactory_var factory = find_factory(service.port());
    for (const char* key : {"HSFactorz", "session", "%ff%fe%00%01session", ""}) {
        const std::string name =
            "corbaloc:iiop:1.2@127.0.0.1:" + std::to_string(service.port()) + "/" + key;
        const CORBA::Object_var object = client_orb()->string_to_object(name.c_str());
        const Orvessa::Vaultaro::HostSession_var session =
            Orvessa::Vaultaro::HostSession::_unchecked_narrow(object);
        EXPECT_THROW(session->destroy(), CORBA::OBJECT_NOT_EXIST) << key;
    }
    EXPECT_EQ(factory->getInactivityTimeout(), 3600);
}

// --- started anew ---

/// Ends a service with `signal`, and starts another on its port.
void restart(std::optional<service_process>& service, int signal) {
    const std::string port = std::to_string(service->port());
    service->stop(signal);
    service.emplace(std::vector<std::string>{"--port", port});
}

/// The first question over a connection that the old service left behind may find it broken.
template <typename Question>
auto ask_again(Question question) {
    try {
        return question();
    } catch (const CORBA::SystemException&) {
        return question();
    }
}

TEST(Wire, ReferencesGoOnWithAServiceThatWasStartedAnew) {
    for (const int signal : {SIGTERM, SIGKILL}) {
        std::optional<service_process> service(std::in_place);
        const remote_session client(service->port());
        client.check_connections("a:s3", 1);
        client.report("w:s3");
        restart(service, signal);
        EXPECT_EQ(service->status()["sessions"], 0);
        EXPECT_EQ(ask_again([&] { return client.report("w:s3"); }).status, 0);
        EXPECT_EQ(service->status()["sessions"], 1);
        EXPECT_EQ(service->status()["sessions_opened"], 0);
        EXPECT_EQ(service->storage("s3")["write"]["flows"], 1);
        EXPECT_EQ(service->storage("s3")["connections"], 1);
        EXPECT_EQ(client.configure(two_for_s3), 0);
        EXPECT_EQ(client.check_connections("a:s3", -1).status, 0);
        EXPECT_EQ(service->storage("s3")["connections"], 0);
        client.session->destroy();
        EXPECT_EQ(service->status()["sessions"], 0);
        EXPECT_TRUE(service->await_log("taken up again"));
    }
}

TEST(Wire, SessionsOfBothRunsStayApart) {
    std::optional<service_process> service(std::in_place);
    const remote_session before(service->port());
    restart(service, SIGTERM);
    const remote_session after(ask_again([&] { return remote_session(service->port()); }));
    before.report("w:s3");
    after.report("w:s3");
    EXPECT_EQ(service->storage("s3")["write"]["flows"], 2);
}

} // namespace
