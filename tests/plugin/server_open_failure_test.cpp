// throttling_open_server_v7 where it fails: status, messages and what is taken back.

#include "tests/plugin/frame.h"
#include "tests/plugin/memory_layer.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

using testing::IsEmpty;

namespace {

class ServerOpenFailure : public Frame {
  protected:
    /// Opens a server and expects that to fail with nothing handed out.
    int fail_to_open(const char* name = "CS_throttle:cloud:disk:s3") {
        throttling_server_s* out = untouched<throttling_server_s>();
        const int status = throttling_open_server_v7(&session, name, nullptr, 7, &out);
        EXPECT_EQ(out, untouched<throttling_server_s>());
        return status;
    }

    const std::string enter = "3 [throttling_open_server_v7]enter.";
    const std::string leave = "3 [throttling_open_server_v7]leave.";
    const std::string open_session = "-> open_session(session, out)";
    const std::string open_server = "-> open_server(#1, \"disk:s3\", null, 7, out)";
    const lines both_names = {
        "3 [throttling_open_server_v7]the server name to throttling is CS_throttle:cloud:disk:s3.",
        "3 [throttling_open_server_v7]the server name to the next plugin in stack is disk:s3."};

    static std::string failure(const std::string& message) {
        return error_line("throttling_open_server_v7", message);
    }
};

TEST_F(ServerOpenFailure, NullArgumentsAreRefusedWithoutALine) {
    throttling_server_s* out = untouched<throttling_server_s>();
    const char* const name = "CS_throttle:cloud:disk:s3";
    EXPECT_EQ(throttling_open_server_v7(nullptr, name, nullptr, 7, &out), STS_ERR_INVALID);
    EXPECT_EQ(throttling_open_server_v7(&session, nullptr, nullptr, 7, &out), STS_ERR_INVALID);
    EXPECT_EQ(throttling_open_server_v7(&session, name, nullptr, 7, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(out, untouched<throttling_server_s>());
    EXPECT_EQ(take_whole_story(), lines{});
}

TEST_F(ServerOpenFailure, NameWithoutASecondColonIsInvalidAndRecordedNowhere) {
    for (const std::string name : {"", "CS_throttle", "CS_throttle:", "CS_throttle:t1", ":a:b"}) {
        EXPECT_EQ(fail_to_open(name.c_str()), STS_ERR_INVALID);
        EXPECT_EQ(
            take_story(),
            (lines{enter,
                   "3 [throttling_open_server_v7]the server name to throttling is " + name + ".",
                   failure("input server name " + name + " is not valid."), leave}));
        EXPECT_FALSE(std::filesystem::exists(files.plugin_file())) << name;
    }
}

TEST_F(ServerOpenFailure, LongNameWithoutASecondColonIsInvalid) {
    EXPECT_EQ(fail_to_open(("CS_throttle:" + std::string(4096, 'x')).c_str()), STS_ERR_INVALID);
    EXPECT_EQ(fail_to_open(std::string(4096, '\xff').c_str()), STS_ERR_INVALID);
    EXPECT_THAT(next_layer().calls, IsEmpty());
}

TEST_F(ServerOpenFailure, SettingsFileThatCantBeWrittenFailsTheOpen) {
    std::filesystem::create_directory(files.plugin_file()); // can be read but not written
    EXPECT_EQ(fail_to_open(), STS_ERR_END_OF_LIST);
    EXPECT_EQ(take_story(), (lines{enter, failure("write config error."), leave}));
    std::filesystem::remove(files.plugin_file());

    fault::fail("fputs", ENOSPC);
    EXPECT_EQ(fail_to_open(), STS_ERR_FILE);
    EXPECT_EQ(take_story(), (lines{enter, failure("write config error."), leave}));
}

TEST_F(ServerOpenFailure, SettingsFileIsntWrittenForAGlobalServer) {
    std::filesystem::create_directory(files.plugin_file());
    open("CS_throttle:global:disk:s3");
}

TEST_F(ServerOpenFailure, SessionThatCantBeOpenedLeavesNothingToClose) {
    next_layer().answers["open_session"] = 4711;
    EXPECT_EQ(fail_to_open(), 4711);
    EXPECT_EQ(take_story(), (lines{enter, both_names[0], both_names[1], open_session,
                                   failure("fail to open session, return code: 4711"), leave}));
}

TEST_F(ServerOpenFailure, SessionThatFailedButWasHandedOutIsClosed) {
    next_layer().answers["open_session"] = 4711;
    next_layer().hands_out_when_failing = true;
    EXPECT_EQ(fail_to_open(), 4711);
    EXPECT_EQ(take_story(), (lines{enter, both_names[0], both_names[1], open_session,
                                   failure("fail to open session, return code: 4711"),
                                   "-> close_handle(#1, 0)", leave}));
}

TEST_F(ServerOpenFailure, ServerThatCantBeOpenedClosesTheSession) {
    next_layer().answers["open_server"] = -5;
    EXPECT_EQ(fail_to_open(), -5);
    EXPECT_EQ(take_story(),
              (lines{enter, both_names[0], both_names[1], open_session, open_server,
                     failure("fail to open server of the next plugin in stack, return code: -5"),
                     "-> close_handle(#1, 0)", leave}));
    EXPECT_THAT(next_layer().open_handles(), IsEmpty());
}

TEST_F(ServerOpenFailure, ServerThatFailedButWasHandedOutIsClosedBeforeItsSession) {
    next_layer().answers["open_server"] = 4711;
    next_layer().answers["close_handle"] = 99; // ignored
    next_layer().hands_out_when_failing = true;
    EXPECT_EQ(fail_to_open(), 4711);
    const lines story = take_story();
    EXPECT_EQ((lines{story.end() - 3, story.end()}),
              (lines{"-> close_handle(#2, 0)", "-> close_handle(#1, 0)", leave}));
}

TEST_F(ServerOpenFailure, StorageStaysRecordedAfterANextLayersFailure) {
    next_layer().answers["open_server"] = 4711;
    fail_to_open();
    EXPECT_THAT(conf_dir::read(files.plugin_file()), testing::HasSubstr("THR:s3=10\n"));
}

TEST_F(ServerOpenFailure, WithNoNextLayerBoundTheStatusIsNotInit) {
    sts_api = nullptr;
    EXPECT_EQ(fail_to_open(), STS_ERR_NOT_INIT);
    EXPECT_EQ(take_story(), (lines{enter, both_names[0], both_names[1],
                                   failure("fail to open session, return code: 2060010"), leave}));
}

TEST_F(ServerOpenFailure, TableIsReadAfreshForEachCall) {
    next_layer().effects["open_session"] = [](const next_call&) { sts_api = nullptr; };
    EXPECT_EQ(fail_to_open(), STS_ERR_NOT_INIT);
    EXPECT_EQ(
        take_story(),
        (lines{enter, both_names[0], both_names[1], open_session,
               failure("fail to open server of the next plugin in stack, return code: 2060010"),
               leave})); // nor is the session closed: that call reads the table too
}

TEST_F(ServerOpenFailure, ServerWithoutANextLayerOpensWithNoneBound) {
    sts_api = nullptr;
    EXPECT_NE(open("CS_throttle:cloud:"), nullptr);
}

// --- memory ------------------------------------------------------------------------------------

int lines_of_the_open = 0;
bool left = false;

/// Counts lines without needing memory.
void count_line(const char*, const char* message, sts_severity_v7_t) {
    ++lines_of_the_open;
    left = left || strcmp(message, "[throttling_open_server_v7]leave.") == 0;
}

TEST_F(ServerOpenFailure, NoMemoryAtAnyAllocationTakesEverythingBackAndLogsNoLeave) {
    sts_api = memory_layer::table();
    session.log = count_line;
    const long open_before = memory_layer::open_handles();
    int failures = 0;
    for (int count = 0;; ++count) {
        files.write_plugin_file("THR:AVAIL_BANDWIDTH=5000\nTHR:some_other_storage_of_ours=3\n");
        throttling_server_s* out = untouched<throttling_server_s>();
        lines_of_the_open = 0;
        left = false;
        fault::fail_new_after(count);
        const int status =
            throttling_open_server_v7(&session, "CS_throttle:cloud:disk:s3", nullptr, 7, &out);
        fault::fail_new_after(-1);
        if (status == STS_OK) {
            EXPECT_TRUE(left);
            const server_ptr server(out);
            break;
        }
        ++failures;
        ASSERT_EQ(status, STS_ERR_NOMEM) << count;
        EXPECT_EQ(out, untouched<throttling_server_s>()) << count;
        EXPECT_GT(lines_of_the_open, 0) << count;
        EXPECT_FALSE(left) << count;
        EXPECT_EQ(memory_layer::open_handles(), open_before) << count;
    }
    EXPECT_GE(failures, 3); // the handle, an entry of the settings, the samples
}

} // namespace
