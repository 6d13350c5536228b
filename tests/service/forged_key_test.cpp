// What can be done to the service with keys that it never handed out, or that it took back:
// nothing.

#include "tests/service/service_process.h"
#include "tests/service/wire_client.h"

#include "tests/support/conf_dir.h"
#include "tests/support/giop.h"

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <sys/stat.h>

using testing::HasSubstr;
using testing::Not;

namespace {

constexpr size_t proved_part = 48; ///< of a key: its number and its proof

std::string key_of(CORBA::Object_ptr object) {
    const CORBA::String_var ior = client_orb()->object_to_string(object);
    return giop::parse_reference(ior.in()).object_key;
}

std::string front_of(const std::string& key) { return key.substr(0, key.size() - proved_part); }
std::string back_of(const std::string& key) { return key.substr(key.size() - proved_part); }

/// What the service answers to requests without arguments, over one connection.
class asker {
  public:
    explicit asker(int port) : connection_(giop::connection::to(static_cast<uint16_t>(port))) {}

    /// "" for an answer without an exception, else the exception's repository id.
    std::string ask(const std::string& key, const std::string& operation) {
        if (!send(key, operation)) {
            return "gone";
        }
        return take();
    }
    bool send(const std::string& key, const std::string& operation) {
        return connection_.send(giop::make_request(++id_, key, operation, {}));
    }
    std::string take() {
        const auto message = connection_.receive();
        if (!message) {
            return "gone";
        }
        const giop::reply reply = giop::parse_reply(*message);
        return reply.status == giop::reply_status::no_exception
                   ? ""
                   : giop::cdr_reader(reply.body, reply.little_endian).text();
    }

  private:
    giop::connection connection_;
    uint32_t id_ = 0;
};

const std::string no_object = "IDL:omg.org/CORBA/OBJECT_NOT_EXIST:1.0";

TEST(ForgedKey, InventedOnesByTheThousandEnterNothing) {
    service_process service;
    const remote_session client(service.port());
    client.check_connections("a:s3", 1);
    struct {
        std::string key;
        const char* operation;
    } const targets[] = {{key_of(client.session), "getCloudManager"},
                         {key_of(client.session), "destroy"},
                         {key_of(client.manager), "aqueryFacet"},
                         {key_of(client.manager), "amodifyFacet"}};
    std::mt19937_64 random(4711);
    asker attacker(service.port());
    constexpr int rounds = 100;
    constexpr int batch = 25;
    for (int round = 0; round < rounds; ++round) {
        for (int each = 0; each < batch; ++each) {
            for (const auto& [key, operation] : targets) {
                std::string forged = front_of(key);
                while (forged.size() < key.size()) {
                    forged += "0123456789abcdef"[random() % 16];
                }
                ASSERT_TRUE(attacker.send(forged, operation));
            }
        }
        for (size_t each = 0; each < batch * std::size(targets); ++each) {
            ASSERT_EQ(attacker.take(), no_object);
        }
    }
    EXPECT_EQ(service.status()["sessions"], 1);
    EXPECT_EQ(service.status()["false_keys"], rounds * batch * 4);
    EXPECT_EQ(service.metric("vlsld_false_keys_total"), rounds * batch * 4);
    EXPECT_EQ(client.check_connections("a:s3", -1).status, 0);
    const std::string log = service.stop(SIGTERM).err;
    EXPECT_LT(std::count(log.begin(), log.end(), '\n'), 20) << log;
}

TEST(ForgedKey, AKeyWithADigitChangedIsFalse) {
    const service_process service;
    const remote_session client(service.port());
    asker attacker(service.port());
    for (const auto& [key, operation] : {std::pair{key_of(client.session), "destroy"},
                                         std::pair{key_of(client.manager), "aqueryFacet"}}) {
        for (size_t place = key.size() - proved_part; place < key.size(); ++place) {
            std::string changed = key;
            changed[place] = changed[place] == '0' ? '1' : '0';
            EXPECT_EQ(attacker.ask(changed, operation), no_object) << place;
        }
        EXPECT_EQ(attacker.ask(key.substr(0, key.size() - 32), operation), no_object)
            << "the number alone";
        EXPECT_EQ(attacker.ask(key + "0", operation), no_object);
        EXPECT_EQ(attacker.ask(front_of(key), operation), no_object);
    }
    EXPECT_EQ(attacker.ask(key_of(client.session), "getCloudManager"), "");
}

TEST(ForgedKey, TheKeyOfOneKindOfObjectIsNoneOfAnother) {
    const service_process service;
    const remote_session client(service.port());
    asker attacker(service.port());
    const std::string session = front_of(key_of(client.session));
    for (const CORBA::Object_ptr each : {static_cast<CORBA::Object_ptr>(client.manager),
                                         static_cast<CORBA::Object_ptr>(client.query),
                                         static_cast<CORBA::Object_ptr>(client.modify)}) {
        EXPECT_EQ(attacker.ask(session + back_of(key_of(each)), "destroy"), no_object);
    }
    EXPECT_EQ(service.status()["sessions"], 1);
    EXPECT_EQ(attacker.ask(key_of(client.session), "destroy"), "");
}

TEST(ForgedKey, NothingThatOthersSeeLeadsToOne) {
    service_process service;
    const remote_session client(service.port());
    client.check_connections("a:s3", 1);
    client.report("w:s3");
    client.configure("rubbish");
    const std::string number = back_of(key_of(client.session)).substr(0, 16);
    const std::string seen = service.get("/status") + service.get("/metrics") + service.get("/");
    client.session->destroy();
    const std::string log = service.stop(SIGTERM).err;
    EXPECT_THAT(log, HasSubstr("ended by its client"));
    EXPECT_THAT(log, testing::ContainsRegex("session [0-9a-f]{8} \"\": opened"));
    EXPECT_THAT(log, Not(testing::ContainsRegex("[0-9a-f]{16}")));
    EXPECT_THAT(log + seen, Not(HasSubstr(number)));
    EXPECT_THAT(log + seen, Not(HasSubstr(number.substr(0, 8))));
    EXPECT_THAT(log + seen, Not(HasSubstr(number.substr(8))));
}

TEST(ForgedKey, ASessionThatWasDestroyedIsNoObjectAnyMore) {
    const service_process service;
    const remote_session client(service.port());
    const remote_session other(service.port());
    client.check_connections("a:s3", 1);
    client.session->destroy();
    EXPECT_THROW(client.session->destroy(), CORBA::OBJECT_NOT_EXIST);
    EXPECT_THROW(client.session->getCloudManager(), CORBA::OBJECT_NOT_EXIST);
    EXPECT_THROW(client.manager->aqueryFacet(), CORBA::OBJECT_NOT_EXIST);
    EXPECT_THROW(client.manager->amodifyFacet(), CORBA::OBJECT_NOT_EXIST);
    EXPECT_THROW(client.check_connections("a:s3", 1), CORBA::OBJECT_NOT_EXIST);
    EXPECT_THROW(client.report("w:s3"), CORBA::OBJECT_NOT_EXIST);
    EXPECT_THROW(client.configure("rubbish"), CORBA::OBJECT_NOT_EXIST);
    EXPECT_EQ(service.status()["sessions"], 1);
    EXPECT_EQ(service.storage("s3")["connections"], 0);
    EXPECT_EQ(other.check_connections("a:s3", 1).status, 0);
}

// --- where the secret is kept ---

class State : public testing::Test {
  protected:
    ~State() override { std::filesystem::remove_all(scratch); }

    static std::string make_scratch() {
        std::string path = (std::filesystem::temp_directory_path() / "state-XXXXXX").string();
        EXPECT_NE(mkdtemp(path.data()), nullptr);
        return path;
    }
    static ended start(const std::vector<std::string>& arguments,
                       const std::map<std::string, std::string>& environment = {}) {
        std::vector<std::string> command = {service_process::program(), "--port", "0", "--no-http"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return run_process(command, {environment, "", false});
    }

    const std::string scratch = make_scratch();
};

TEST_F(State, IsMadeForTheServiceAlone) {
    const std::string directory = scratch + "/new/state";
    const service_process service({"--state", directory});
    struct stat found = {};
    ASSERT_EQ(stat(directory.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777U, 0700U);
    ASSERT_EQ(stat((directory + "/secret").c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777U, 0600U);
}

TEST_F(State, WhatOneServiceHandedOutAnotherWithTheSameStateTakes) {
    const service_process one({"--state", scratch});
    const service_process other({"--state", scratch});
    const service_process stranger;
    const remote_session client(one.port());
    EXPECT_EQ(asker(other.port()).ask(key_of(client.session), "getCloudManager"), "");
    EXPECT_EQ(other.status()["sessions"], 1);
    EXPECT_EQ(asker(stranger.port()).ask(key_of(client.session), "getCloudManager"), no_object);
    EXPECT_EQ(stranger.status()["sessions"], 0);
}

TEST_F(State, OneThatIsNamedHasToWork) {
    { const service_process made({"--state", scratch}); }
    const std::string file = scratch + "/secret";
    chmod(file.c_str(), 0644);
    const ended open_to_others = start({"--state", scratch});
    EXPECT_EQ(open_to_others.code, 1);
    EXPECT_THAT(open_to_others.err,
                HasSubstr("vlsld: " + file + ": others may have read it (owner "));
    chmod(file.c_str(), 0600);
    ASSERT_EQ(truncate(file.c_str(), 10), 0);
    const ended damaged = start({"--state", scratch});
    EXPECT_EQ(damaged.code, 1);
    EXPECT_THAT(damaged.err, HasSubstr("vlsld: " + file + ": is damaged: 10 bytes"));
    const ended nowhere = start({"--state", "/proc/no/such"});
    EXPECT_EQ(nowhere.code, 1);
    EXPECT_THAT(nowhere.err, HasSubstr("vlsld: /proc/no: "));
    EXPECT_EQ(start({"--state", ""}).code, 2);
}

TEST_F(State, WhereNothingCanBeKeptAWarningSaysWhatItCosts) {
    const std::string ports = scratch + "/ports";
    tool_process service(
        {service_process::program(), "--port", "0", "--no-http", "--port-file", ports},
        {{{"STATE_DIRECTORY", "/proc/no/such"}}, "", false});
    ASSERT_TRUE(service.await_err("is ready"));
    service.send(SIGTERM);
    const ended end = service.wait();
    EXPECT_EQ(end.code, 0);
    EXPECT_THAT(end.err, HasSubstr("warning: the secret of object keys isn't kept: /proc/no: "));
    EXPECT_THAT(end.err, HasSubstr("When the service is started anew, sessions that are open are "
                                   "refused"));
}

TEST_F(State, IsWhereTheEnvironmentSaysByDefault) {
    tool_process service({service_process::program(), "--port", "0", "--no-http"},
                         {{{"STATE_DIRECTORY", scratch + "/one:" + scratch + "/two"}}, "", false});
    ASSERT_TRUE(service.await_err("is ready"));
    service.send(SIGTERM);
    EXPECT_THAT(service.wait().err, Not(HasSubstr("warning")));
    EXPECT_TRUE(std::filesystem::exists(scratch + "/one/secret"));
}

} // namespace
