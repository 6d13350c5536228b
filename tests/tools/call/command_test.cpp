// "call": every entry of the table once, from its own list, and what can't be called.

#include "tests/support/conf_dir.h"
#include "tests/tools/tool_fixture.h"
#include "tools/host/entry_list.h"

#include <map>
#include <nlohmann/json.hpp>

using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

class CallCommand : public ToolTest {
  protected:
    CallCommand() { fill_store(); }

    ended call(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "call");
        return on_server(arguments);
    }

    /// For calls that leave something which can't be closed: it isn't this program's leak.
    void allow_leaks() { how.environment["ASAN_OPTIONS"] = "detect_leaks=0"; }

    json called(std::vector<std::string> arguments) const {
        arguments.emplace_back("--json");
        return json::parse(call(arguments).out);
    }

    void expect_usage(const std::vector<std::string>& arguments, const std::string& message) const {
        const ended result = call(arguments);
        EXPECT_EQ(result.code, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, HasSubstr(message));
    }
};

// --- every entry -------------------------------------------------------------------------------

/// A call that goes well on the store, and a piece of what it shows.
struct good_call {
    std::vector<std::string> arguments;
    json out;        ///< what has to be among what is handed out
    std::string log; ///< a message that the host receives; empty: it is told nothing
};

const json a_handle = "a handle";

const std::map<std::string, good_call>& good_calls() {
    static const std::string copy = "operation=daily/a";
    static const std::string row = "name=STS:EVENTS_KEPT,description=,type=int,value=8,fixed=n;";
    static const std::map<std::string, good_call> all = {
        {"async_flush", {{"image=daily/new"}, {}, ""}},
        {"async_wait",
         {{copy, "operation.to=weekly/c", "forwarded=-1"},
          {{"async_status", {{"state", "ended"}, {"result", 0}, {"bytes_copied", 11}}}},
          "[throttling_async_wait]enter."}},
        {"claim_v7", {{"name=CS_throttle:x"}, {}, ""}},
        {"close_evchannel",
         {{"channel=daily"}, {}, "[throttling_close_evchannel]exit stspi_close_evchannel"}},
        {"close_image_v7", {{"image=daily/a", "first_mode=1"}, {}, ""}},
        {"close_image_list_v7", {{"list=daily"}, {}, "[throttling_close_image_list_v7]leave."}},
        {"close_lsu_list_v7", {{}, {}, "[throttling_close_lsu_list_v7]leave."}},
        {"close_server_v7", {{}, {}, "[throttling_close_server_v7]leave."}},
        {"copy_extent",
         {{"image=daily/new", "other=daily/a", "second=6", "third=5"}, {{"fourth", 5}}, ""}},
        {"create_image_v10",
         {{"lsu=daily", "image_def=new", "image_def.group=g"}, {{"out", a_handle}}, ""}},
        {"delete_event", {{"event=1"}, {}, "[throttling_delete_event]exit stspi_delete_event"}},
        {"delete_files", {{"image=daily/a", "first=3"}, {}, ""}},
        {"delete_image_v10",
         {{"lsu=daily", "image_def=b"}, {}, "[throttling_delete_image_v10]leave."}},
        {"get_event",
         {{"channel=weekly"},
          {{"event", {{"number", 2}, {"kind", "lsu-created"}, {"lsu", "weekly"}}}},
          "[throttling_get_event]leave stspi_get_event"}},
        {"get_image_group",
         {{"image=daily/a"}, {{"first", {{"group", "full"}, {"images", 1}, {"size", 11}}}}, ""}},
        {"get_image_group_byname",
         {{"lsu=daily", "first=full"}, {{"second", {{"group", "full"}, {"images", 1}}}}, ""}},
        {"get_image_prop_v10",
         {{"handle=daily/a"}, {{"info", {{"image", "a"}, {"size", 11}}}}, ""}},
        {"get_image_prop_byname_v10",
         {{"lsu=daily", "image_def=b"}, {{"info", {{"image", "b"}, {"size", 5}}}}, ""}},
        {"get_lsu_prop_byname_v11",
         {{"lsu=daily"},
          {{"info", {{"lsu", "daily"}, {"label", "tape3"}, {"images", 2}}}},
          "[throttling_get_lsu_prop_byname_v9]leave."}},
        {"get_server_prop_v8",
         {{}, {{"info", {{"lsus", 2}}}}, "[throttling_get_server_prop_v8]leave."}},
        {"get_server_prop_byname_v8",
         {{}, {{"info", {{"lsus", 2}}}}, "[throttling_get_server_prop_byname_v8]leave."}},
        {"include_in_image",
         {{"image=daily/new", "first=2", "other=daily/a"}, {{"second", 11}}, ""}},
        {"ioctl_v9", {{"command=14", "buffer=" + row}, {}, "[throttling_ioctl_v9]set config OK."}},
        {"list_image_v10",
         {{"list=daily"},
          {{"entry", {{"image", "a"}, {"group", "full"}, {"size", 11}}}},
          "[throttling_list_image_v10]leave."}},
        {"list_lsu_v7", {{}, {{"entry", {{"lsu", "daily"}}}}, "[throttling_list_lsu_v7]leave."}},
        {"open_evchannel",
         {{"event_source.lsu=daily", "event_source.kinds=0x8", "source_parameter=1"},
          {{"out", a_handle}},
          "[throttling_open_evchannel]leave stspi_open_evchannel"}},
        {"open_lsu_list_v11", {{}, {{"out", a_handle}}, "[throttling_open_lsu_list_v9]leave."}},
        {"open_server_v7", {{}, {{"out", a_handle}}, "[throttling_open_server_v7]leave."}},
        {"open_target_server", {{}, {{"out", a_handle}}, ""}},
        {"open_image_v10", {{"lsu=daily", "image_def=a", "flags=2"}, {{"out", a_handle}}, ""}},
        {"open_image_group_list", {{"lsu=daily"}, {{"out", a_handle}}, ""}},
        {"open_image_list_v7",
         {{"lsu=daily"}, {{"out", a_handle}}, "[throttling_open_image_list_v7]leave."}},
        {"read_image_v7",
         {{"image=daily/a", "length=5", "position=6"},
          {{"buffer", "there"}, {"bytes_read", 5}},
          "[throttling_read_image_v7]<-read."}},
        {"terminate_v7", {{}, {}, ""}},
        {"write_image_v7",
         {{"image=daily/a", "buffer=HELLO"},
          {{"bytes_written", 5}},
          "[throttling_write_image_v7]<-write."}},
        {"find_lsu", {{"first=tape3"}, {{"second", {{"lsu", "daily"}}}}, ""}},
        {"label_lsu", {{"lsu=weekly", "label=tape4"}, {}, ""}},
        {"read_image_meta",
         {{"image=daily/a", "third=3"}, {{"first", "alogue"}, {"fourth", 6}}, ""}},
        {"write_image_meta", {{"image=daily/b", "first=note"}, {{"fourth", 4}}, ""}},
        {"async_cancel",
         {{copy, "operation.to=weekly/c", "operation.bytes_per_second=1"},
          {},
          "[throttling_async_cancel]leave."}},
        {"async_copy_image",
         {{"source=a", "lsu=daily", "target=c", "target.lsu=weekly", "copy_params.block_size=4"},
          {{"out", a_handle}},
          "[throttling_named_async_copy_image]leave."}},
        {"get_event_payload",
         {{"first=1"},
          {{"second", {{"length", 12}, {"text", "label=tape3\n"}}}},
          "[throttling_get_event_payload]exit stspi_get_event_payload"}},
        {"get_server_config_v11", {{}, {}, "[throttling_get_server_config_v11]leave."}},
        {"set_server_config_v11",
         {{"text=" + row}, {}, "[throttling_set_server_config_v11]leave."}},
        {"get_lsu_replication_prop",
         {{"lsu=daily"},
          {{"second", json::array()}, {"fourth", json::array()}},
          "[throttling_get_lsu_replication_prop]leave."}},
        {"create_lsu",
         {{"definition=monthly", "definition.label=x"},
          {{"out", a_handle}},
          "[throttling_create_lsu]leave."}},
        {"delete_lsu", {{"lsu=weekly"}, {}, "[throttling_delete_lsu]leave."}},
    };
    return all;
}

std::vector<std::string> names() {
    std::vector<std::string> all;
    for (const entry& each : all_entries()) {
        all.push_back(each.name);
    }
    return all;
}

class EveryEntry : public CallCommand, public testing::WithParamInterface<std::string> {};

INSTANTIATE_TEST_SUITE_P(Entries, EveryEntry, testing::ValuesIn(names()),
                         [](const auto& each) { return each.param; });

/// All that `wanted` holds has to be in `shown`, which may hold more; null holds nothing.
void expect_holds(const json& shown, const json& wanted) {
    if (!wanted.is_object()) {
        EXPECT_TRUE(wanted.is_null() || shown == wanted) << shown << " isn't " << wanted;
        return;
    }
    for (const auto& [name, value] : wanted.items()) {
        ASSERT_TRUE(shown.contains(name)) << name << " isn't in " << shown;
        expect_holds(shown.at(name), value);
    }
}

TEST_P(EveryEntry, AnswersAndShowsWhatItHandsOutAndWhatTheHostIsTold) {
    if (!find_entry(GetParam())->is_supported) {
        const json result = called({GetParam()});
        EXPECT_EQ(result.at("status"), STS_ERR_NOT_SUPPORTED);
        EXPECT_THAT(result.at("status_text").get<std::string>(),
                    StartsWith("STS_ERR_NOT_SUPPORTED (2060016)"));
        EXPECT_EQ(call({GetParam()}).code, 1);
        return;
    }
    ASSERT_EQ(good_calls().count(GetParam()), 1U) << "no good call of it is known";
    const good_call& good = good_calls().at(GetParam());
    std::vector<std::string> arguments = {GetParam()};
    arguments.insert(arguments.end(), good.arguments.begin(), good.arguments.end());
    arguments.emplace_back("--json");
    // A list of groups keeps its server busy, and a target closes the session of its server.
    const bool spoils_the_close =
        GetParam() == "open_image_group_list" || GetParam() == "open_target_server";
    if (spoils_the_close) {
        allow_leaks();
    }
    const ended called = call(arguments);
    EXPECT_EQ(called.code, spoils_the_close ? 1 : 0) << called.err;
    const json result = json::parse(called.out);
    EXPECT_EQ(result.at("entry"), GetParam());
    EXPECT_EQ(result.at("status"), 0);
    EXPECT_EQ(result.at("status_text"), "STS_OK (0): success");
    expect_holds(result.at("out"), good.out);
    std::vector<std::string> log;
    for (const json& message : result.at("log")) {
        log.push_back(message.at("text"));
    }
    if (good.log.empty()) {
        EXPECT_THAT(log, IsEmpty());
    } else {
        EXPECT_THAT(log, testing::Contains(good.log));
    }
}

// --- what a call does --------------------------------------------------------------------------

TEST_F(CallCommand, ForPeopleShowsStatusOutAndLog) {
    const ended result = call({"list_lsu_v7"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, "list_lsu_v7\nstatus     STS_OK (0): success\nentry.lsu  daily\n"
                          "log debug: [throttling_list_lsu_v7]enter.\n"
                          "log debug: [throttling_list_lsu_v7]leave.\n");
}

TEST_F(CallCommand, StatusThatIsNotZeroEndsWith1AndIsTold) {
    const ended result = call({"delete_lsu", "lsu=daily"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.out, HasSubstr("status  status 2061039: the storage says: Directory not "
                                      "empty\n"));
    const ended claim = tool({"call", "claim_v7", "name=CS_other:x"});
    EXPECT_EQ(claim.code, 1);
    EXPECT_THAT(claim.out, HasSubstr("STS_ERR_NOT_CLAIMED (2060009)"));
}

TEST_F(CallCommand, ErrorTextIsShownWhenTheCallFails) {
    const json result =
        called({"set_server_config_v11", "text=name=STS:EVENTS_KEPT,description=x,type=int,"
                                         "value=-9,fixed=n;"});
    EXPECT_EQ(result.at("status"), STS_ERR_INVALID);
    EXPECT_EQ(result.at("out").at("error_text"),
              "STS:EVENTS_KEPT: \"-9\" is not a number from 0 to 1000000");
}

TEST_F(CallCommand, BufferThatIsTooSmallIsNotWrittenBeyond) {
    const json result = called({"get_server_config_v11", "length=1000"});
    EXPECT_EQ(result.at("status"), STS_ERR_BUFFER_SPACE);
    EXPECT_LE(result.at("out").value("buffer", "").size(), 1000U);
    EXPECT_EQ(called({"read_image_v7", "image=daily/a", "length=0"}).at("status"), 0);
}

TEST_F(CallCommand, WrittenImageIsCompleteAndOneThatFailedIsGivenUp) {
    ASSERT_EQ(call({"write_image_v7", "image=daily/new", "buffer=content"}).code, 0);
    EXPECT_EQ(get_image("new"), "content");
    ASSERT_EQ(call({"write_image_v7", "image=daily/a", "buffer=HELLO"}).code, 0);
    EXPECT_EQ(get_image("a"), "HELLO there");
    ASSERT_EQ(call({"delete_files", "image=daily/a", "first=64"}).code, 1);
    ASSERT_EQ(call({"delete_files", "image=daily/other", "first=64"}).code, 1);
    EXPECT_EQ(get_image("a"), "HELLO there");
    EXPECT_THAT(on_server({"image", "list", "--lsu", "daily"}).out, Not(HasSubstr("other")));
}

TEST_F(CallCommand, WhatCanNotBeOpenedForItIsAFailure) {
    const ended result = call({"read_image_v7", "image=daily/none"});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("opening the image \"none\" of the server \"" + server() +
                                      "\" failed: status 2061002"));
    EXPECT_EQ(call({"async_cancel", "operation=daily/none", "operation.to=weekly/x"}).code, 1);
}

TEST_F(CallCommand, ServerThatCanNotBeClosedBehindItEndsWith1AndIsTold) {
    allow_leaks();
    const ended result = call({"open_image_group_list", "lsu=daily"});
    EXPECT_THAT(result.out, HasSubstr("status  STS_OK"));
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, StartsWith("throttlectl: closing behind the call of "
                                       "open_image_group_list failed: STS_ERR_BUSY (2060005)"));
}

TEST_F(CallCommand, HandleThatAFailedCallLeavesIsNoFailureOfItsOwn) {
    allow_leaks();
    const ended result = call({"open_image_group_list", "lsu=none"});
    EXPECT_THAT(result.out, HasSubstr("out     a handle\n"));
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err, "");
}

TEST_F(CallCommand, RateOfZeroIsSaidInsteadOfEndingTheProcess) {
    write_settings("THR:SAMPLE_INTERVAL=30\nTHR:WRITE_BANDWIDTH_PERCENT=0\n");
    const ended result = call({"write_image_v7", "image=daily/a", "buffer=x"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr("the settings allow 0 bytes per second"));
}

TEST_F(CallCommand, VerboseShowsTheCallsAroundItOnStandardError) {
    const ended result = call({"list_lsu_v7", "-v"});
    EXPECT_THAT(result.err, HasSubstr("plugin debug: [throttling_open_server_v7]enter.\n"));
    EXPECT_THAT(result.err, Not(HasSubstr("[throttling_list_lsu_v7]")));
    EXPECT_THAT(result.out, HasSubstr("[throttling_list_lsu_v7]"));
}

// --- the list ----------------------------------------------------------------------------------

TEST_F(CallCommand, ListShowsEveryEntryWithWhatItDoesAndTakes) {
    const ended list = tool({"call", "--list"});
    EXPECT_EQ(list.code, 0);
    for (const entry& each : all_entries()) {
        EXPECT_THAT("\n" + list.out, HasSubstr("\n" + each.name + ": "));
        for (const parameter& which : each.parameters) {
            EXPECT_THAT(list.out, testing::ContainsRegex("\n    \\(?" + which.name + "\\)? "));
        }
    }
    EXPECT_EQ(tool({"call", "--list", "claim_v7"}).out,
              "claim_v7: says whether a server's name is the plugin's\n"
              "    name               a server's name (default: --server)\n");
    EXPECT_EQ(tool({"call", "--list", "nothing"}).code, 2);
}

// --- bad input ---------------------------------------------------------------------------------

TEST_F(CallCommand, EntriesAndArgumentsThatAreNotThereAreNamed) {
    expect_usage({"reed_image"}, "there is no entry \"reed_image\"");
    expect_usage({"list_image_v10", "list=daily", "type=1"},
                 "\"type\" can't be given: list_image_v10 takes list");
    expect_usage({"get_lsu_prop_byname_v11", "lsu=daily", "info=1"}, "\"info\" can't be given");
    expect_usage({"create_image_v10", "lsu=daily", "image_def=x", "image_def.size=3"},
                 "takes lsu, image_def, image_def.group, flags");
    expect_usage({"terminate_v7", "now=1"}, "terminate_v7 takes no arguments");
    expect_usage({"copy_image", "a=b"}, "copy_image takes no arguments");
    expect_usage({"claim_v7", "x"}, "\"x\" isn't ARGUMENT=VALUE");
    expect_usage({"claim_v7", "=x"}, "\"=x\" isn't ARGUMENT=VALUE");
    expect_usage({"claim_v7", "name=a", "name=b"}, "\"name\" is given twice");
}

TEST_F(CallCommand, WhatIsMissingIsNamed) {
    EXPECT_THAT(tool({"call"}).err, HasSubstr("ENTRY or --list is required"));
    EXPECT_EQ(tool({"call"}).code, 2);
    expect_usage({"read_image_v7"}, "image is missing, as in image=VALUE: LSU/IMAGE");
    expect_usage({"write_image_v7", "image=daily/a"}, "buffer is missing");
    const ended no_server = tool({"call", "list_lsu_v7"});
    EXPECT_EQ(no_server.code, 2);
    EXPECT_THAT(no_server.err, HasSubstr("--server is required: list_lsu_v7"));
    EXPECT_THAT(tool({"call", "claim_v7"}).err, HasSubstr("--server is required"));
}

TEST_F(CallCommand, ValuesThatAreNoneAreNamed) {
    for (const char* const bad : {"daily", "/a", "daily/", ""}) {
        expect_usage({"read_image_v7", std::string("image=") + bad},
                     std::string("image=\"") + bad + "\" isn't LSU/IMAGE");
    }
    expect_usage({"read_image_v7", "image=daily/a", "length=much"},
                 "length=\"much\" is not a whole number");
    expect_usage({"open_image_list_v7", "lsu=daily", "type=9999999999"}, "type=\"9999999999\"");
    expect_usage({"read_image_v7", "image=daily/a", "length=99999999999"},
                 "length=99999999999 is more than buffer can hold: 16777216");
    expect_usage({"write_image_v7", "image=daily/a", "buffer=abc", "length=4"},
                 "length=4 is more than buffer can hold: 3");
    expect_usage({"get_lsu_replication_prop", "lsu=daily", "first=1000000"},
                 "first=1000000 is more than second can hold: 4096");
    EXPECT_EQ(get_image("a"), "hello there");
}

TEST_F(CallCommand, NamesThatDoNotFitAreToldWithTheirLengths) {
    const ended lsu = call({"get_lsu_prop_byname_v11", "lsu=" + std::string(1024, 'l')});
    EXPECT_EQ(lsu.code, 1);
    EXPECT_THAT(lsu.err, HasSubstr("is too long: 1024 bytes, at most 1023"));
    EXPECT_EQ(call({"delete_image_v10", "lsu=daily", "image_def=" + std::string(256, 'i')}).code,
              1);
    EXPECT_EQ(call({"ioctl_v9", "command=14", "buffer=" + std::string(10240, 'b')}).code, 1);
}

} // namespace
