// throttling_open_server_v7 where it succeeds: the handle, what is asked of the next layer, and
// what the settings file learns.

#include "tests/plugin/frame.h"
#include "tests/plugin/wrapped.h"

#include <cstring>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class ServerOpen : public Frame {
  protected:
    std::string plugin_file() const { return conf_dir::read(files.plugin_file()); }
};

TEST_F(ServerOpen, OpensASessionAndThenTheRestOfTheName) {
    throttling_server_s* opened = nullptr;
    const char* const name = "CS_throttle:cloud:disk:s3";
    EXPECT_EQ(throttling_open_server_v7(&session, name, nullptr, 7, &opened), STS_OK);
    const server_ptr server(opened);
    EXPECT_EQ(
        take_story(),
        (lines{"3 [throttling_open_server_v7]enter.",
               "3 [throttling_open_server_v7]the server name to throttling is "
               "CS_throttle:cloud:disk:s3.",
               "3 [throttling_open_server_v7]the server name to the next plugin in stack is "
               "disk:s3.",
               "-> open_session(session, out)", "-> open_server(#1, \"disk:s3\", null, 7, out)",
               "3 [throttling_open_server_v7]succeed to open server of the next plugin in "
               "stack.",
               "3 [throttling_open_server_v7]leave."}));
    EXPECT_THAT(service().exchanges, IsEmpty()); // no contact to the service yet
    EXPECT_EQ(service().clients_made, 0);
}

TEST_F(ServerOpen, ReadsTheServicesSecurityThenTheSettingsThenRecordsTheStorage) {
    throttling_server_s* opened = nullptr;
    EXPECT_EQ(throttling_open_server_v7(&session, "CS_throttle:cloud:", nullptr, 7, &opened),
              STS_OK);
    const server_ptr server(opened);
    const std::string none = " not found, use default ";
    EXPECT_EQ(
        take_whole_story(),
        (lines{"3 [throttling_open_server_v7]enter.", "3 [get_cssc_security]enter.",
               "2 [get_cssc_security]file " + files.service_file() + none + "issecure value.",
               "3 [read_config_file_to_var]enter.",
               "2 [read_config_file_to_var]file " + files.service_file() + none + "config setting.",
               "3 [read_config_file_to_var]enter.",
               "2 [read_config_file_to_var]file " + files.plugin_file() + none + "config setting.",
               "3 [write_config_file_from_var]enter.", "3 [write_config_file_from_var]leave.",
               "3 [throttling_open_server_v7]the server name to throttling is "
               "CS_throttle:cloud:.",
               "3 [throttling_open_server_v7]the server name to the next plugin in stack is "
               ".",
               "3 [throttling_open_server_v7]leave."}));
}

TEST_F(ServerOpen, HandleHoldsWhatItWasOpenedWith) {
    files.write_plugin_file("THR:READ_BANDWIDTH_PERCENT=44\nTHR:s3=5\n");
    files.write_service_file("CSSC_PORT=99\nCSSC_IS_SECURE=0\n");
    sts_server_def_s definition;
    memset(&definition, 0x3c, sizeof definition);
    throttling_server_s* opened = nullptr;
    EXPECT_EQ(
        throttling_open_server_v7(&session, "CS_throttle:cloud:disk:s3", &definition, 7, &opened),
        STS_OK);
    const server_ptr server(opened);
    EXPECT_EQ(server->magic, 0xab83356fU);
    EXPECT_EQ(server->open_handles, 0);
    EXPECT_EQ(memcmp(&server->session, &session, sizeof session), 0);
    EXPECT_STREQ(server->server_name, "CS_throttle:cloud:disk:s3");
    EXPECT_EQ(memcmp(&server->server_def, &definition, sizeof definition), 0);
    EXPECT_EQ(server->config.read_bandwidth_percent, 44);
    EXPECT_EQ(server->config.cssc_port_number, 99);
    EXPECT_EQ(server->config.connections, (std::map<std::string, uint32_t>{{"s3", 5}}));
    EXPECT_STREQ(server->next_server_name, "disk:s3");
    EXPECT_EQ(next_layer().text_of(server->next_session), "#1");
    EXPECT_EQ(next_layer().text_of(server->next_server), "#2");
    EXPECT_EQ(server->security, 0);
    EXPECT_EQ(server->connector.is_throttling_enabled(), 0);
}

TEST_F(ServerOpen, SamplesStartNowWithNothingMoved) {
    const server_ptr server = open();
    ASSERT_THAT(server->bandwidth, testing::SizeIs(2));
    for (const operation_type_t operation : {OPERATION_READ, OPERATION_WRITE}) {
        const bandwidth_s& sample = server->bandwidth[operation];
        EXPECT_EQ(sample.operation_type, operation);
        EXPECT_EQ(sample.start_time, clock.now());
        EXPECT_EQ(sample.end_time, clock.now());
        EXPECT_EQ(sample.data_length, 0U);
    }
}

TEST_F(ServerOpen, ServiceIsSecureWhereItsFileDoesntSay) { EXPECT_EQ(open()->security, 1); }

TEST_F(ServerOpen, NextLayerGetsTheHostsSessionAndWritesIntoTheHandle) {
    throttling_server_s* opened = nullptr;
    throttling_open_server_v7(&session, "CS_throttle:cloud:disk:s3", nullptr, 7, &opened);
    const server_ptr server(opened);
    const next_call& session_call = next_layer().last("open_session");
    EXPECT_EQ(session_call.pointer<const sts_session_def_v7_t>(0), &session);
    EXPECT_EQ(session_call.pointer<sts_next_session_s*>(1), &server->next_session);
    EXPECT_EQ(next_layer().last("open_server").pointer<sts_next_server_s*>(4),
              &server->next_server);
}

TEST_F(ServerOpen, ServerDefinitionIsHandedOnAsTheCallerGaveIt) {
    const sts_server_def_s definition = {};
    next_layer().name(&definition, "definition");
    throttling_server_s* opened = nullptr;
    throttling_open_server_v7(&session, "CS_throttle:cloud:disk:s3", &definition, UINT64_MAX,
                              &opened);
    server_ptr server(opened);
    EXPECT_EQ(next_layer().last("open_server").line(),
              "open_server(#1, \"disk:s3\", definition, 18446744073709551615, out)");
}

TEST_F(ServerOpen, NullServerDefinitionStaysNull) {
    throttling_server_s* opened = nullptr;
    throttling_open_server_v7(&session, "CS_throttle:cloud:disk:s3", nullptr, 0, &opened);
    server_ptr server(opened);
    EXPECT_EQ(next_layer().last("open_server").line(),
              "open_server(#1, \"disk:s3\", null, 0, out)");
}

TEST_F(ServerOpen, SettingsThatCantBeReadAreLoggedAndTheDefaultsUsed) {
    wrapped::read_config = STS_ERR_FILE;
    throttling_server_s* opened = nullptr;
    EXPECT_EQ(throttling_open_server_v7(&session, "CS_throttle:cloud:", nullptr, 7, &opened),
              STS_OK);
    wrapped::clear();
    const server_ptr server(opened);
    EXPECT_TRUE(
        has_logged(STS_SEV_ERROR, "[throttling_open_server_v7]read config error, use default."));
    EXPECT_EQ(server->config.read_bandwidth_percent, 100);
}

// --- names -------------------------------------------------------------------------------------

TEST_F(ServerOpen, GlobalServerOpensNothingBelowAndIsRecordedNowhere) {
    const server_ptr server = open("CS_throttle:global:");
    EXPECT_EQ(server->next_session, nullptr);
    EXPECT_EQ(server->next_server, nullptr);
    EXPECT_STREQ(server->next_server_name, "");
    EXPECT_THAT(server->config.connections, IsEmpty());
    EXPECT_EQ(plugin_file(), ""); // not even written
    EXPECT_THAT(next_layer().open_handles(), IsEmpty());
}

TEST_F(ServerOpen, GlobalServerWithANextNameOpensItAndIsRecordedNowhere) {
    const server_ptr server = open("CS_throttle:global:disk:s3");
    EXPECT_THAT(next_layer().open_handles(), ElementsAre("#1", "#2"));
    EXPECT_EQ(plugin_file(), "");
}

TEST_F(ServerOpen, TypeIsGlobalOnlyWhenSpelledExactlySo) {
    for (const char* type : {"Global", "global ", "globa", "globals", ""}) {
        conf_dir::write(files.plugin_file(), "");
        open("CS_throttle:" + std::string(type) + ":disk:s3");
        EXPECT_THAT(plugin_file(), HasSubstr("THR:s3=10\n")) << type;
    }
}

TEST_F(ServerOpen, EmptyNextNameOpensNothingBelowAndRecordsAnEmptyStorage) {
    const server_ptr server = open("CS_throttle:t1:");
    EXPECT_EQ(server->next_session, nullptr);
    EXPECT_EQ(server->next_server, nullptr);
    EXPECT_EQ(server->config.connections, (std::map<std::string, uint32_t>{{"", 10}}));
    EXPECT_THAT(plugin_file(), HasSubstr("THR:=10\n"));
}

TEST_F(ServerOpen, NamesAround511BytesAreCutInTheHandleButNotForTheNextLayer) {
    for (const size_t length : {511UL, 512UL, 513UL, 4096UL}) {
        const std::string next_name = "disk:" + std::string(length - 23, 's');
        const std::string name = "CS_throttle:cloud:" + next_name;
        ASSERT_EQ(name.size(), length);
        throttling_server_s* opened = nullptr;
        ASSERT_EQ(throttling_open_server_v7(&session, name.c_str(), nullptr, 7, &opened), STS_OK);
        const server_ptr server(opened);
        EXPECT_EQ(server->server_name, name.substr(0, 511)) << length;
        EXPECT_EQ(server->next_server_name, next_name.substr(0, 511)) << length;
        EXPECT_EQ(next_layer().last("open_server").arguments[1].content, next_name) << length;
        const std::string storage = name.substr(0, 511).substr(23); // of the cut copy
        EXPECT_EQ(server->config.connections.count(storage), 1U) << length;
        EXPECT_THAT(plugin_file(), HasSubstr("THR:" + storage + "=10\n")) << length;
    }
}

TEST_F(ServerOpen, TypeThatReachesBeyondTheCutIsAUsualServerOfNoType) {
    const std::string type(600, 't');
    const server_ptr server = open("CS_throttle:" + type + ":disk:s3");
    EXPECT_STREQ(server->next_server_name, "disk:s3");
    // The cut copy has one colon left: what is behind it is the storage.
    EXPECT_EQ(server->config.connections.count(type.substr(0, 499)), 1U);
}

TEST_F(ServerOpen, SecondColonWithinThePrefixesPlaceIsAServerOfNoType) {
    const server_ptr server = open("a:b:host");
    EXPECT_STREQ(server->next_server_name, "host");
    EXPECT_EQ(server->config.connections.count("host"), 1U);
}

TEST_F(ServerOpen, BytesOfNoEncodingPassThrough) {
    throttling_server_s* opened = nullptr;
    ASSERT_EQ(
        throttling_open_server_v7(&session, "CS_throttle:\xff:\x80n:s\xc3", nullptr, 7, &opened),
        STS_OK);
    const server_ptr server(opened);
    EXPECT_EQ(next_layer().last("open_server").arguments[1].content, "\x80n:s\xc3");
    EXPECT_THAT(plugin_file(), HasSubstr("THR:s\xc3=10\n"));
}

// --- recording the storage ---------------------------------------------------------------------

TEST_F(ServerOpen, FirstOpenRecordsTheStorageWithTheConfiguredLimit) {
    files.write_plugin_file("THR:DEFAULT_MAX_CONNECTIONS=7\nTHR:other=3\n");
    const server_ptr server = open();
    EXPECT_THAT(plugin_file(), HasSubstr("THR:other=3\nTHR:s3=7\n"));
    EXPECT_EQ(server->config.connections,
              (std::map<std::string, uint32_t>{{"other", 3}, {"s3", 7}}));
}

TEST_F(ServerOpen, SecondOpenOfAStorageLeavesTheFileAlone) {
    open();
    conf_dir::write(files.plugin_file(), "# kept\n" + plugin_file());
    const std::string before = plugin_file();
    const server_ptr server = open("CS_throttle:other:tape:s3");
    EXPECT_EQ(plugin_file(), before);
    EXPECT_EQ(server->config.connections.count("s3"), 1U);
}

} // namespace
