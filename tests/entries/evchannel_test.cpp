// Event channels from open to close: what a channel holds after each failure, and the name on
// events.

#include "tests/plugin/frame.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace {

const std::string open_who = "3 [throttling_open_evchannel]";
const std::string open_error = "4 [throttling_open_evchannel]";
const std::string get_who = "3 [throttling_get_event]";
const std::string close_who = "3 [throttling_close_evchannel]";

class EventChannel : public Frame {
  protected:
    EventChannel() {
        event.fill('Z');
        next_layer().name(source, "source");
        next_layer().name(event.data(), "event");
    }
    ~EventChannel() override {
        if (channel != untouched<throttling_evchannel_s>()) {
            close();
        }
    }

    int open_channel(const std::string& name = "CS_throttle:cloud:disk:s3") {
        return throttling_open_evchannel(&session, name.c_str(), source, 1, 2, 3, 4, 5, &channel);
    }
    int close() {
        return throttling_close_evchannel(
            std::exchange(channel, untouched<throttling_evchannel_s>()));
    }
    int get_event() {
        return throttling_get_event(channel, reinterpret_cast<sts_event_s*>(event.data()));
    }
    /// The record holds that name in 512 bytes, zeros behind it, and is otherwise as it was.
    void expect_name_alone(const std::string& name) {
        std::array<char, 1024> expected;
        expected.fill('Z');
        memset(expected.data() + 16, 0, STS_NAME_SIZE);
        memcpy(expected.data() + 16, name.data(), name.size());
        EXPECT_TRUE(event == expected);
    }

    char source[16] = {};
    std::array<char, 1024> event;
    throttling_evchannel_s* channel = untouched<throttling_evchannel_s>();
};

// --- open --------------------------------------------------------------------------------------

TEST_F(EventChannel, OpenTakesASessionOfItsOwnAndAttachesTheServer) {
    EXPECT_EQ(open_channel(), STS_OK);
    EXPECT_EQ(channel->server_name, "CS_throttle:cloud:disk:s3");
    EXPECT_EQ(channel->session, &session);
    EXPECT_EQ(next_layer().text_of(channel->next_session), "#1");
    EXPECT_EQ(next_layer().text_of(channel->next_channel), "#2");
    EXPECT_EQ(take_whole_story(),
              (lines{open_who + "enter stspi_open_evchannel",
                     open_who + "Server Name = CS_throttle:cloud:disk:s3",
                     open_who + "the server name to the next plugin in stack is disk:s3.",
                     "-> open_session(session, out)", "-> open_evchannel(#1, 2, 3, out)",
                     "-> add_evsource(#2, 0, 5, \"disk:s3\", source, 0)",
                     open_who + "leave stspi_open_evchannel"}));
}

TEST_F(EventChannel, NameWithoutANextLayerGivesAChannelWithoutOne) {
    EXPECT_EQ(open_channel("CS_throttle:global:"), STS_OK);
    EXPECT_EQ(channel->next_session, nullptr);
    EXPECT_EQ(channel->next_channel, nullptr);
    forget();
    EXPECT_EQ(get_event(), STS_OK);
    EXPECT_EQ(take_whole_story(),
              (lines{get_who + "enter stspi_get_event", get_who + "null event channel handle",
                     get_who + "leave stspi_get_event"}));
    EXPECT_TRUE(std::all_of(event.begin(), event.end(), [](char each) { return each == 'Z'; }));
    EXPECT_EQ(close(), STS_OK);
    EXPECT_EQ(take_whole_story(), (lines{close_who + "enter stspi_close_evchannel",
                                         close_who + "exit stspi_close_evchannel"}));
}

TEST_F(EventChannel, NameWithOnlyOneColonIsInvalidAndLeavesOutAlone) {
    EXPECT_EQ(open_channel("CS_throttle:cloud"), STS_ERR_INVALID);
    EXPECT_EQ(channel, untouched<throttling_evchannel_s>());
    EXPECT_EQ(take_whole_story(),
              (lines{open_who + "enter stspi_open_evchannel",
                     open_who + "Server Name = CS_throttle:cloud",
                     open_error + "input server name CS_throttle:cloud is not valid.",
                     open_who + "leave stspi_open_evchannel"}));
}

TEST_F(EventChannel, WithoutMemoryForItselfOrItsNameIsNotHandedOut) {
    session.log_mask = 0; // what the host keeps of the log takes memory, too
    for (const int before : {0, 1}) {
        fault::fail_new_after(before);
        const int status = throttling_open_evchannel(&session, "CS_throttle:cloud:disk:s3", source,
                                                     1, 2, 3, 4, 5, &channel);
        fault::fail_new_after(-1);
        EXPECT_EQ(status, STS_ERR_NOMEM) << before;
        EXPECT_EQ(channel, untouched<throttling_evchannel_s>()) << before;
    }
    EXPECT_EQ(open_channel(), STS_OK);
}

TEST_F(EventChannel, NamesThatCannotBeSplitAreInvalid) {
    for (const char* const name : {"", ":", "::", "no colon", ":a:b"}) {
        EXPECT_EQ(open_channel(name), STS_ERR_INVALID) << name;
        EXPECT_EQ(channel, untouched<throttling_evchannel_s>());
    }
}

TEST_F(EventChannel, ChannelIsHandedOutBeforeTheNextLayerIsAsked) {
    next_layer().effects["open_session"] = [&](const next_call& call) {
        ASSERT_NE(channel, untouched<throttling_evchannel_s>());
        EXPECT_EQ(call.arguments[1].value, reinterpret_cast<uint64_t>(&channel->next_session));
        EXPECT_EQ(channel->next_session, nullptr);
        EXPECT_EQ(channel->next_channel, nullptr);
    };
    EXPECT_EQ(open_channel(), STS_OK);
}

TEST_F(EventChannel, FailedSessionLeavesAnEmptyChannelThatClosesWithoutACall) {
    next_layer().answers["open_session"] = 4711;
    EXPECT_EQ(open_channel(), 4711);
    EXPECT_EQ(channel->next_session, nullptr);
    EXPECT_EQ(channel->next_channel, nullptr);
    forget();
    EXPECT_EQ(close(), STS_OK);
    EXPECT_EQ(take_whole_story(), (lines{close_who + "enter stspi_close_evchannel",
                                         close_who + "exit stspi_close_evchannel"}));
}

TEST_F(EventChannel, FailedChannelLosesItsSessionAtClose) {
    next_layer().answers["open_evchannel"] = 4711;
    EXPECT_EQ(open_channel(), 4711);
    EXPECT_NE(channel->next_session, nullptr);
    EXPECT_EQ(channel->next_channel, nullptr);
    EXPECT_TRUE(has_logged(STS_SEV_ERROR, "[throttling_open_evchannel]open_evchannel failed, error "
                                          "code =  4711")); // two blanks
    EXPECT_EQ(close(), STS_OK);
    EXPECT_EQ(next_layer().open_handles(), lines{"#1"});
}

TEST_F(EventChannel, FailedSourceLeavesBothHandlesAndCloseClosesBoth) {
    next_layer().answers["add_evsource"] = 4711;
    EXPECT_EQ(open_channel(), 4711);
    EXPECT_NE(channel->next_session, nullptr);
    EXPECT_NE(channel->next_channel, nullptr);
    EXPECT_TRUE(has_logged(STS_SEV_ERROR, "[throttling_open_evchannel]add_evsource failed, error "
                                          "code =  4711")); // two blanks
    EXPECT_EQ(next_layer().open_handles(), (lines{"#1", "#2"}));
    EXPECT_EQ(close(), STS_OK);
    EXPECT_EQ(next_layer().open_handles(), lines{});
}

TEST_F(EventChannel, ChannelDoesNotCountOnItsServer) {
    const server_ptr server = open();
    EXPECT_EQ(open_channel(), STS_OK);
    EXPECT_EQ(server->open_handles, 0);
}

// --- events ------------------------------------------------------------------------------------

TEST_F(EventChannel, NoEventIsHandedUpWithoutALineOfFailureAndTheNameIsWrittenAllTheSame) {
    open_channel();
    forget();
    next_layer().answers["get_event"] = 2060043;
    EXPECT_EQ(get_event(), 2060043);
    EXPECT_EQ(take_whole_story(),
              (lines{get_who + "enter stspi_get_event", "-> get_event(#2, event)",
                     get_who + "The server name within event is CS_throttle:cloud:disk:s3",
                     get_who + "leave stspi_get_event"}));
    expect_name_alone("CS_throttle:cloud:disk:s3");
}

TEST_F(EventChannel, NameGoesOverWhatTheNextLayerLeftWithZerosToTheFieldsEnd) {
    open_channel();
    next_layer().effects["get_event"] = [](const next_call& call) {
        memset(call.pointer<char>(1) + 16, 'n', STS_NAME_SIZE);
    };
    EXPECT_EQ(get_event(), STS_OK);
    expect_name_alone("CS_throttle:cloud:disk:s3");
}

TEST_F(EventChannel, NameIsCutTo511Characters) {
    for (const size_t length : {511U, 512U, 513U, 4096U}) {
        const std::string start = "CS_throttle:cloud:disk:";
        const std::string name = start + std::string(length - start.size(), 's');
        EXPECT_EQ(open_channel(name), STS_OK);
        forget();
        event.fill('Z');
        EXPECT_EQ(get_event(), STS_OK);
        expect_name_alone(name.substr(0, 511));
        EXPECT_TRUE(has_logged(STS_SEV_DEBUG, "[throttling_get_event]The server name within event "
                                              "is " +
                                                  name.substr(0, 511)));
        close();
    }
}

TEST_F(EventChannel, EventsOfAServerWithoutANextLayerGoDownWithNull) {
    const server_ptr end = open("CS_throttle:global:");
    next_layer().answers = {{"delete_event", 4711}, {"get_event_payload", 4712}};
    EXPECT_EQ(throttling_delete_event(end.get(), reinterpret_cast<sts_event_s*>(event.data())),
              4711);
    EXPECT_EQ(throttling_get_event_payload(end.get(), 8, 9), 4712);
    EXPECT_EQ(take_whole_story(),
              (lines{"3 [throttling_delete_event]enter stspi_delete_event",
                     "-> delete_event(null, event)",
                     "4 [throttling_delete_event]Failed to call delete event, return: 4711",
                     "3 [throttling_delete_event]exit stspi_delete_event",
                     "3 [throttling_get_event_payload]enter stspi_get_event_payload",
                     "-> get_event_payload(null, 8, 9)",
                     "4 [throttling_get_event_payload]get event payload failed, return: 4712",
                     "3 [throttling_get_event_payload]exit stspi_get_event_payload"}));
}

// --- close -------------------------------------------------------------------------------------

TEST_F(EventChannel, CloseAnswersTheStatusOfItsSessionAlone) {
    open_channel();
    forget();
    next_layer().answers["close_handle"] = 4711;
    next_layer().effects["close_handle"] = [](const next_call&) { // of the next one
        next_layer().answers["close_handle"] = 0;
    };
    EXPECT_EQ(close(), STS_OK);
    EXPECT_EQ(take_whole_story(),
              (lines{close_who + "enter stspi_close_evchannel", "-> close_handle(#2, 0)",
                     "4 [throttling_close_evchannel]Failed to close evchannel, return: 4711",
                     "-> close_handle(#1, 0)", close_who + "exit stspi_close_evchannel"}));
}

TEST_F(EventChannel, CloseThatFailsTwiceReleasesTheChannelAllTheSame) { // a leak checker sees else
    open_channel();
    forget();
    next_layer().answers["close_handle"] = 4711;
    next_layer().effects["close_handle"] = [](const next_call&) {
        next_layer().answers["close_handle"] = 4712;
    };
    EXPECT_EQ(close(), 4712);
    EXPECT_EQ(take_whole_story(),
              (lines{close_who + "enter stspi_close_evchannel", "-> close_handle(#2, 0)",
                     "4 [throttling_close_evchannel]Failed to close evchannel, return: 4711",
                     "-> close_handle(#1, 0)", close_who + "Close session handle returned: 4712",
                     close_who + "exit stspi_close_evchannel"}));
}

} // namespace
