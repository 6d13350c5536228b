// The properties of a server: the next layer fills them, and our longer name goes over its own.

#include "tests/plugin/frame.h"

#include <cstring>

using testing::Each;
using testing::IsEmpty;

namespace {

/// As much of a server information record as is known here, and what follows it.
struct info_record {
    char name[STS_NAME_SIZE];
    char rest[64];
};

class ServerProperties : public Frame {
  protected:
    ServerProperties() {
        next_layer().name(&info, "info");
        next_layer().name(&session, "the host's session");
        const auto fill = [this](const next_call&) { memset(&info, 'n', sizeof info); };
        next_layer().effects["get_server_prop"] = fill;
        next_layer().effects["get_server_prop_byname"] = fill;
    }

    sts_server_info_s* record() { return reinterpret_cast<sts_server_info_s*>(&info); }

    /// The name field holds that text and zeros to its end; the rest is the next layer's.
    void expect_name(const std::string& name) {
        EXPECT_EQ(std::string(info.name, sizeof info.name),
                  name + std::string(STS_NAME_SIZE - name.size(), '\0'));
        EXPECT_THAT(info.rest, Each('n'));
    }

    info_record info = {};
};

// --- by handle ---------------------------------------------------------------------------------

TEST_F(ServerProperties, OfAHandleCarryItsFullName) {
    const server_ptr server = open();
    EXPECT_EQ(throttling_get_server_prop_v8(server.get(), record()), STS_OK);
    expect_name("CS_throttle:cloud:disk:s3");
    EXPECT_EQ(take_whole_story(),
              (lines{"3 [throttling_get_server_prop_v8]enter.", "-> get_server_prop(#2, info)",
                     "3 [throttling_get_server_prop_v8]leave."}));
}

TEST_F(ServerProperties, OfAHandleWithALongNameCarryItCut) {
    const std::string name = "CS_throttle:cloud:" + std::string(4096, 'x');
    const server_ptr server = open(name);
    EXPECT_EQ(throttling_get_server_prop_v8(server.get(), record()), STS_OK);
    expect_name(name.substr(0, 511));
}

TEST_F(ServerProperties, OfAHandleThatTheNextLayerRefusesAreLeftToIt) {
    const server_ptr server = open();
    next_layer().answers["get_server_prop"] = 4711;
    EXPECT_EQ(throttling_get_server_prop_v8(server.get(), record()), 4711);
    EXPECT_THAT(info.name, Each('n'));
    EXPECT_EQ(take_whole_story(),
              (lines{"3 [throttling_get_server_prop_v8]enter.", "-> get_server_prop(#2, info)",
                     "4 [throttling_get_server_prop_v8]fail to get the server properties by handle "
                     "of the underlying plugin."}));
}

TEST_F(ServerProperties, OfAHandleWithoutANextLayerAreInvalid) {
    const server_ptr server = open("CS_throttle:global:");
    EXPECT_EQ(throttling_get_server_prop_v8(server.get(), record()), STS_ERR_INVALID);
    EXPECT_EQ(take_whole_story(), lines{});
}

TEST_F(ServerProperties, OfNothingAreInvalid) {
    const server_ptr server = open();
    EXPECT_EQ(throttling_get_server_prop_v8(nullptr, record()), STS_ERR_INVALID);
    EXPECT_EQ(throttling_get_server_prop_v8(server.get(), nullptr), STS_ERR_INVALID);
    server->magic = 0;
    EXPECT_EQ(throttling_get_server_prop_v8(server.get(), record()), STS_ERR_INVALID);
    server->magic = SERVER_MAGIC;
    EXPECT_EQ(take_whole_story(), lines{});
    EXPECT_THAT(info.name, Each('\0'));
}

TEST_F(ServerProperties, OfAHandleWithNoNextLayerBoundAnswerNotInit) {
    const server_ptr server = open();
    sts_api = nullptr;
    EXPECT_EQ(throttling_get_server_prop_v8(server.get(), record()), STS_ERR_NOT_INIT);
    EXPECT_THAT(info.name, Each('\0'));
}

// --- by name -----------------------------------------------------------------------------------

TEST_F(ServerProperties, OfANameAreAskedWithTheHostsSessionAndTheRestOfTheName) {
    EXPECT_EQ(throttling_get_server_prop_byname_v8(&session, "CS_throttle:cloud:disk:s3", record()),
              STS_OK);
    expect_name("CS_throttle:cloud:disk:s3");
    EXPECT_EQ(take_whole_story(),
              (lines{"3 [throttling_get_server_prop_byname_v8]enter.",
                     "-> get_server_prop_byname(the host's session, \"disk:s3\", info)",
                     "3 [throttling_get_server_prop_byname_v8]leave."}));
}

TEST_F(ServerProperties, OfALongNameAreAskedUncutAndCarryItCut) {
    const std::string next_name(4096, 'x');
    const std::string name = "CS_throttle:cloud:" + next_name;
    EXPECT_EQ(throttling_get_server_prop_byname_v8(&session, name.c_str(), record()), STS_OK);
    EXPECT_EQ(next_layer().last("get_server_prop_byname").arguments[1].content, next_name);
    expect_name(name.substr(0, 511));
}

TEST_F(ServerProperties, OfANameWithAnEmptyRestAreStillAsked) {
    EXPECT_EQ(throttling_get_server_prop_byname_v8(&session, "CS_throttle:global:", record()),
              STS_OK);
    EXPECT_EQ(next_layer().last("get_server_prop_byname").line(),
              "get_server_prop_byname(the host's session, \"\", info)");
}

TEST_F(ServerProperties, OfAnotherPluginsNameAreInvalid) {
    for (const std::string name : {"", "CS_throttle", "disk:a:b", ":::"}) {
        EXPECT_EQ(throttling_get_server_prop_byname_v8(&session, name.c_str(), record()),
                  STS_ERR_INVALID);
        EXPECT_EQ(take_whole_story(),
                  (lines{"3 [throttling_get_server_prop_byname_v8]enter.",
                         "4 [throttling_get_server_prop_byname_v8]the prefix of server name " +
                             name + " is not correct"}));
    }
    EXPECT_EQ(throttling_get_server_prop_byname_v8(&session, nullptr, record()), STS_ERR_INVALID);
}

TEST_F(ServerProperties, OfANameThatHasOnlyThePrefixAreInvalid) {
    for (const std::string name : {"CS_throttle:", "CS_throttle:cloud"}) {
        EXPECT_EQ(throttling_get_server_prop_byname_v8(&session, name.c_str(), record()),
                  STS_ERR_INVALID);
        EXPECT_EQ(take_whole_story(),
                  (lines{"3 [throttling_get_server_prop_byname_v8]enter.",
                         "4 [throttling_get_server_prop_byname_v8]there is only throttling "
                         "plugin's prefix in the server name " +
                             name + "."}));
    }
}

TEST_F(ServerProperties, OfANameThatTheNextLayerRefusesAreLeftToIt) {
    next_layer().answers["get_server_prop_byname"] = -3;
    EXPECT_EQ(throttling_get_server_prop_byname_v8(&session, "CS_throttle:cloud:disk:s3", record()),
              -3);
    EXPECT_THAT(info.name, Each('n'));
    EXPECT_EQ(take_whole_story(),
              (lines{"3 [throttling_get_server_prop_byname_v8]enter.",
                     "-> get_server_prop_byname(the host's session, \"disk:s3\", info)",
                     "4 [throttling_get_server_prop_byname_v8]fail to get the server properties of "
                     "the underlying plugin by name disk:s3, error code: -3"}));
}

TEST_F(ServerProperties, OfANameNeedASessionAndARecord) {
    const char* const name = "CS_throttle:cloud:disk:s3";
    EXPECT_EQ(throttling_get_server_prop_byname_v8(nullptr, name, record()), STS_ERR_INVALID);
    EXPECT_EQ(throttling_get_server_prop_byname_v8(&session, name, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(take_whole_story(), lines{});
    EXPECT_THAT(next_layer().calls, IsEmpty());
}

TEST_F(ServerProperties, OfANameWithNoNextLayerBoundAnswerNotInit) {
    sts_api = nullptr;
    EXPECT_EQ(throttling_get_server_prop_byname_v8(&session, "CS_throttle:cloud:disk:s3", record()),
              STS_ERR_NOT_INIT);
    EXPECT_THAT(info.name, Each('\0'));
}

} // namespace
