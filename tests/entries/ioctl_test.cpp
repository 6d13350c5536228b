// The ioctl: the configuration through a buffer of fixed size, and every other command relayed.

#include "tests/entries/config_store.h"

#include <cstring>

namespace {

const std::string who = "3 [throttling_ioctl_v9]";
const std::string error = "4 [throttling_ioctl_v9]";

class Ioctl : public ConfigStore {
  protected:
    sts_config_buffer_s* config() { return reinterpret_cast<sts_config_buffer_s*>(buffer.data()); }
    int call(const server_ptr& of, uint32_t command) {
        return throttling_ioctl_v9(of.get(), command, buffer.data());
    }
    /// The next layer writes `length` bytes of text and counts them.
    static void next_says(size_t length) {
        next_layer().effects["ioctl"] = [length](const next_call& arrived) {
            auto* const given = arrived.pointer<sts_config_buffer_s>(2);
            memset(given->text, 'n', length);
            given->used = static_cast<int32_t>(length);
        };
    }
    /// The buffer holds the text and its count; behind them it is as it was.
    bool holds_counted(const std::string& text, int32_t count) {
        std::array<char, 16384> copy = buffer;
        const bool counted = config()->used == count;
        memset(copy.data() + STS_CONFIG_SIZE, 'Z', sizeof(int32_t));
        return counted && holds(copy, text, STS_CONFIG_SIZE);
    }
};

// --- command 13 --------------------------------------------------------------------------------

TEST_F(Ioctl, ReadingFindsItsBufferClearedAndAppendsOurText) {
    next_layer().effects["ioctl"] = [&](const next_call& arrived) {
        EXPECT_TRUE(holds_counted("", 0));
        auto* const given = arrived.pointer<sts_config_buffer_s>(2);
        strcpy(given->text, "name=NEXT;");
        given->used = 10;
    };
    EXPECT_EQ(call(server, 13), STS_OK);
    EXPECT_TRUE(
        holds_counted("name=NEXT;" + own_text(), 10 + static_cast<int32_t>(own_text().size())));
    EXPECT_EQ(take_entry_story(), (lines{who + "enter.", "-> ioctl(#2, 13, buffer)",
                                         who + "get config OK.", who + "leave. return code 0"}));
}

TEST_F(Ioctl, ReadingWithoutANextLayerGivesOurTextAlone) {
    EXPECT_EQ(call(end, 13), STS_OK);
    EXPECT_EQ(config()->used, static_cast<int32_t>(strlen(config()->text)));
    EXPECT_EQ(strncmp(config()->text, "name=THR:", 9), 0);
    EXPECT_EQ(take_entry_story(),
              (lines{who + "enter.", who + "get config OK.", who + "leave. return code 0"}));
}

TEST_F(Ioctl, TotalThatFillsTheBufferPassesWithoutATerminator) {
    const std::string own = own_text();
    next_says(STS_CONFIG_SIZE - own.size());
    EXPECT_EQ(call(server, 13), STS_OK);
    EXPECT_TRUE(holds_counted(std::string(STS_CONFIG_SIZE - own.size(), 'n') + own, 10240));
}

TEST_F(Ioctl, OneByteMoreIsNotEnoughAndLeavesWhatTheNextLayerWrote) {
    const size_t length = STS_CONFIG_SIZE - own_text().size() + 1;
    next_says(length);
    EXPECT_EQ(call(server, 13), 2060031);
    EXPECT_TRUE(holds_counted(std::string(length, 'n'), static_cast<int32_t>(length)));
    EXPECT_EQ(take_entry_story().back(), error + "the buffer space is not enough.");
}

TEST_F(Ioctl, NextLayerThatCountsMoreThanThereIsLeavesNoRoom) {
    next_layer().effects["ioctl"] = [](const next_call& arrived) {
        arrived.pointer<sts_config_buffer_s>(2)->used = INT32_MAX;
    };
    EXPECT_EQ(call(server, 13), 2060031);
    EXPECT_TRUE(holds_counted("", INT32_MAX));
}

TEST_F(Ioctl, NextLayerThatFillsTheBufferAndCountsNothingMakesUsWriteNothingBehindIt) {
    next_layer().effects["ioctl"] = [](const next_call& arrived) {
        memset(arrived.pointer<char>(2), 'n', STS_CONFIG_SIZE);
    };
    EXPECT_EQ(call(server, 13), STS_OK);
    EXPECT_TRUE(
        holds_counted(std::string(STS_CONFIG_SIZE, 'n'), static_cast<int32_t>(own_text().size())));
}

TEST_F(Ioctl, ReadingThatTheNextLayerRefusesSkipsTheClosingLine) {
    next_layer().answers["ioctl"] = 4711;
    EXPECT_EQ(call(server, 13), 4711);
    EXPECT_EQ(take_entry_story(), (lines{who + "enter.", "-> ioctl(#2, 13, buffer)",
                                         error + "can not get underneath plug-in's config."}));
}

TEST_F(Ioctl, ReadingWithNoLayerBoundHasReadItsOwnFileFirst) {
    sts_api = nullptr;
    EXPECT_EQ(call(server, 13), 2060010);
    EXPECT_THAT(take_whole_story(), testing::Contains("3 [read_config_file_to_buf]leave."));
    EXPECT_TRUE(holds_counted("", 0));
}

// --- command 14 --------------------------------------------------------------------------------

TEST_F(Ioctl, WritingGoesDownFirstAndThenSetsOurOwnLimit) {
    strcpy(config()->text, text_setting(5).c_str());
    std::string limit_at_call;
    next_layer().effects["ioctl"] = [&](const next_call&) { limit_at_call = limit_in_file(); };
    EXPECT_EQ(call(server, 14), STS_OK);
    EXPECT_EQ(limit_at_call, "10");
    EXPECT_EQ(limit_in_file(), "5");
    EXPECT_EQ(take_entry_story(), (lines{who + "enter.", "-> ioctl(#2, 14, buffer)",
                                         who + "set config OK.", who + "leave. return code 0"}));
}

TEST_F(Ioctl, WritingReadsABufferWithoutATerminatorUpToItsEnd) {
    const std::string text = text_setting(5);
    memset(buffer.data(), 'x', buffer.size());
    memcpy(config()->text, text.data(), text.size());
    // Behind the text of the buffer, where only a reader that runs on would find it.
    memcpy(buffer.data() + STS_CONFIG_SIZE, text_setting(6).data(), text.size());
    EXPECT_EQ(call(server, 14), STS_OK);
    EXPECT_EQ(limit_in_file(), "5");
}

TEST_F(Ioctl, WritingFromAnEmptyBufferIsInvalidAndNeverReachesTheNextLayer) {
    config()->text[0] = '\0';
    EXPECT_EQ(call(server, 14), STS_ERR_INVALID);
    EXPECT_EQ(take_entry_story(),
              (lines{who + "enter.", error + "set config fail because empty buffer."}));
}

TEST_F(Ioctl, WritingThatTheNextLayerRefusesLeavesOurFile) {
    strcpy(config()->text, text_setting(5).c_str());
    next_layer().answers["ioctl"] = 4711;
    EXPECT_EQ(call(server, 14), 4711);
    EXPECT_EQ(limit_in_file(), "10");
    EXPECT_EQ(take_entry_story(),
              (lines{who + "enter.", "-> ioctl(#2, 14, buffer)", error + "set config fail."}));
}

TEST_F(Ioctl, WritingThatOurFileRefusesLeavesTheNextLayerChanged) {
    strcpy(config()->text, text_setting(5).c_str());
    fault::fail("fopen", 13, 1, 2); // the two reads pass
    EXPECT_EQ(call(server, 14), 2060013);
    EXPECT_EQ(limit_in_file(), "10");
    EXPECT_EQ(take_entry_story(),
              (lines{who + "enter.", "-> ioctl(#2, 14, buffer)", error + "set config fail."}));
}

TEST_F(Ioctl, WritingWithNoLayerBoundLeavesOurFileAsItWas) {
    strcpy(config()->text, text_setting(5).c_str());
    sts_api = nullptr;
    EXPECT_EQ(call(server, 14), 2060010);
    EXPECT_EQ(limit_in_file(), "10");
}

// --- any other command -------------------------------------------------------------------------

TEST_F(Ioctl, OtherCommandOnAServerWithoutANextLayerPassesNullDown) {
    next_layer().answers["ioctl"] = 4711;
    EXPECT_EQ(call(end, 7), 4711);
    EXPECT_EQ(take_entry_story(),
              (lines{who + "enter.", who + "relay the command 7 to the next plugin",
                     "-> ioctl(null, 7, buffer)", who + "leave. return code 4711"}));
    EXPECT_TRUE(holds(buffer, "", 0));
}

TEST_F(Ioctl, CommandsBesideTheTwoAreRelayedAsTheyAre) {
    for (const uint32_t command : {0U, 12U, 15U, 0xffffffffU}) {
        EXPECT_EQ(call(server, command), STS_OK);
        EXPECT_EQ(next_layer().last("ioctl").arguments[1].value, command);
    }
    EXPECT_TRUE(
        has_logged(STS_SEV_DEBUG, "[throttling_ioctl_v9]relay the command -1 to the next plugin"));
}

} // namespace
