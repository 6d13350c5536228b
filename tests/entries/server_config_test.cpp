// The configuration through a buffer of the caller's: the next layer's text and ours behind it on a
// read, the same text to both on a write.

#include "tests/entries/config_store.h"

#include <cstring>

namespace {

const std::string get_config = "3 [throttling_get_server_config_v11]";
const std::string get_error = "4 [throttling_get_server_config_v11]";
const std::string set_who = "3 [throttling_set_server_config_v11]";
const std::string set_error = "4 [throttling_set_server_config_v11]";

class ServerConfig : public ConfigStore {
  protected:
    /// The next layer writes that text and says how long it is.
    static void next_says(const std::string& text) {
        next_layer().effects["get_server_config"] = [text](const next_call& call) {
            memcpy(call.pointer<char>(1), text.data(), text.size());
            *call.pointer<uint32_t>(3) = static_cast<uint32_t>(text.size());
        };
    }
    int get(size_t length, const server_ptr& of) {
        buffer.fill('Z');
        return throttling_get_server_config_v11(of.get(), buffer.data(),
                                                static_cast<uint32_t>(length), &used);
    }
    int set(const server_ptr& of, std::string text, uint32_t error_length = 64) {
        return throttling_set_server_config_v11(of.get(), text.data(), buffer.data(), error_length);
    }

    uint32_t used = 77;
};

// --- reading -----------------------------------------------------------------------------------

TEST_F(ServerConfig, OwnTextStandsBehindTheNextLayers) {
    next_says("name=NEXT;");
    EXPECT_EQ(get(4000, server), STS_OK);
    EXPECT_EQ(used, 10 + own_text().size());
    EXPECT_TRUE(holds(buffer, "name=NEXT;" + own_text(), 4000));
    EXPECT_EQ(take_entry_story(),
              (lines{get_config + "enter.", "-> get_server_config(#2, buffer, 4000, pointer)",
                     get_config + "leave."}));
}

TEST_F(ServerConfig, OwnRowAloneIsMarkedAsTheServersToChange) {
    EXPECT_EQ(get(4000, server), STS_OK);
    EXPECT_NE(
        std::string(buffer.data())
            .find("name=THR:s3,description=maximum connections for cloud storage,type=int,value=10,"
                  "fixed=n;"),
        std::string::npos);
    EXPECT_NE(
        std::string(buffer.data())
            .find("name=THR:SAMPLE_INTERVAL,description=the interval of sampling[seconds],type=int,"
                  "value=0,fixed=y;"),
        std::string::npos);
    EXPECT_EQ(get(4000, end), STS_OK); // a global server has it the other way round
    EXPECT_NE(std::string(buffer.data()).find("value=0,fixed=n;"), std::string::npos);
    EXPECT_NE(std::string(buffer.data()).find("value=10,fixed=y;"), std::string::npos);
}

TEST_F(ServerConfig, LengthOfExactlyTheTotalSucceedsWithoutATerminator) {
    next_says("name=NEXT;");
    const std::string total = "name=NEXT;" + own_text();
    EXPECT_EQ(get(total.size(), server), STS_OK);
    EXPECT_EQ(used, total.size());
    EXPECT_TRUE(holds(buffer, total, total.size()));
}

TEST_F(ServerConfig, OneByteLessIsNotEnoughAndTheTotalIsToldAllTheSame) {
    next_says("name=NEXT;");
    const std::string total = "name=NEXT;" + own_text();
    EXPECT_EQ(get(total.size() - 1, server), 2060031);
    EXPECT_EQ(used, total.size());
    EXPECT_TRUE(holds(buffer, "name=NEXT;", total.size() - 1)); // as the next layer left it
    EXPECT_EQ(take_entry_story().back(), get_error + "the buffer space is not enough.");
}

TEST_F(ServerConfig, LengthOfNothingTellsTheTotalAndWritesNothing) {
    EXPECT_EQ(get(0, end), 2060031);
    EXPECT_TRUE(holds(buffer, "", 0));
    EXPECT_GT(used, 0U);
}

TEST_F(ServerConfig, TextWithoutANextLayerIsOursAlone) {
    EXPECT_EQ(get(4000, end), STS_OK);
    EXPECT_EQ(used, strlen(buffer.data()));
    EXPECT_EQ(strncmp(buffer.data(), "name=THR:READ_BANDWIDTH_PERCENT,", 32), 0);
    EXPECT_EQ(take_entry_story(), (lines{get_config + "enter.", get_config + "leave."}));
}

TEST_F(ServerConfig, OwnTextIsAppendedAtTheFirstZeroWhateverTheNextLayerCounted) {
    next_layer().effects["get_server_config"] = [](const next_call& call) {
        memcpy(call.pointer<char>(1), "two", 3);
        *call.pointer<uint32_t>(3) = 100;
    };
    EXPECT_EQ(get(4000, server), STS_OK);
    EXPECT_EQ(used, 100 + own_text().size());
    EXPECT_TRUE(holds(buffer, "two" + own_text(), 4000));
}

TEST_F(ServerConfig, NextLayerThatCountsTooLittleMakesUsWriteNothingBehindTheBuffer) {
    next_layer().effects["get_server_config"] = [](const next_call& call) {
        memset(call.pointer<char>(1), 'n', 4000);
        *call.pointer<uint32_t>(3) = 1;
    };
    EXPECT_EQ(get(4000, server), STS_OK);
    EXPECT_EQ(used, 1 + own_text().size());
    EXPECT_TRUE(holds(buffer, std::string(4000, 'n'), 4000));
}

TEST_F(ServerConfig, NextLayerThatCountsBeyond32BitsIsNotBelieved) {
    next_layer().effects["get_server_config"] = [](const next_call& call) {
        *call.pointer<uint32_t>(3) = 0xffffffff;
    };
    EXPECT_EQ(get(4000, server), 2060031);
}

TEST_F(ServerConfig, FailureOfTheNextLayerLeavesTheCountAsItWas) {
    next_layer().answers["get_server_config"] = 4711;
    EXPECT_EQ(get(4000, server), 4711);
    EXPECT_EQ(used, 77U);
    EXPECT_EQ(take_entry_story().back(), get_error + "can not get underneath plug-in's config.");
}

TEST_F(ServerConfig, ReadWithNoLayerBoundHasReadItsOwnFileFirst) {
    sts_api = nullptr;
    EXPECT_EQ(get(4000, server), 2060010);
    const lines story = take_whole_story();
    EXPECT_THAT(story, testing::Contains("3 [read_config_file_to_buf]leave."));
    EXPECT_EQ(story.back(), get_error + "can not get underneath plug-in's config.");
    EXPECT_TRUE(holds(buffer, "", 4000));
}

// --- writing -----------------------------------------------------------------------------------

TEST_F(ServerConfig, TextGoesDownFirstAndThenSetsOurOwnLimit) {
    std::string limit_at_call;
    next_layer().effects["set_server_config"] = [&](const next_call&) {
        limit_at_call = limit_in_file();
    };
    EXPECT_EQ(set(server, text_setting(5)), STS_OK);
    EXPECT_EQ(limit_at_call, "10");
    EXPECT_EQ(limit_in_file(), "5");
    EXPECT_TRUE(holds(buffer, "", 0));
    EXPECT_EQ(take_entry_story(),
              (lines{set_who + "enter.",
                     "-> set_server_config(#2, \"" + text_setting(5) + "\", buffer, 64)",
                     set_who + "leave."}));
}

TEST_F(ServerConfig, GlobalServerSetsWhatIsSharedWithoutANextLayer) {
    EXPECT_EQ(set(end, "name=THR:READ_BANDWIDTH_PERCENT,description=x,type=int,value=50,fixed=n;"),
              STS_OK);
    EXPECT_NE(conf_dir::read(files.plugin_file()).find("THR:READ_BANDWIDTH_PERCENT=50\n"),
              std::string::npos);
    EXPECT_EQ(take_entry_story(), (lines{set_who + "enter.", set_who + "leave."}));
}

TEST_F(ServerConfig, EmptyTextIsInvalid) {
    EXPECT_EQ(set(server, ""), STS_ERR_INVALID);
    EXPECT_EQ(set(end, ""), STS_ERR_INVALID);
    EXPECT_EQ(take_whole_story(), lines{});
}

TEST_F(ServerConfig, FailureOfTheNextLayerKeepsItsReasonAndOurFile) {
    next_layer().answers["set_server_config"] = 4711;
    next_layer().effects["set_server_config"] = [](const next_call& call) {
        strcpy(call.pointer<char>(2), "the reason");
    };
    EXPECT_EQ(set(server, text_setting(5)), 4711);
    EXPECT_STREQ(buffer.data(), "the reason");
    EXPECT_EQ(limit_in_file(), "10");
    EXPECT_EQ(take_entry_story().back(), set_error + "can not set underneath plug-in's config.");
}

TEST_F(ServerConfig, FailureOfOurOwnFileGivesTheReasonInWordsAndUndoesNothing) {
    fault::fail("fopen", 13, 1, 2); // the two reads pass
    EXPECT_EQ(set(server, text_setting(5)), 2060013);
    EXPECT_TRUE(holds(buffer, std::string("set config fail.") + '\0', 0));
    EXPECT_EQ(limit_in_file(), "10");
    const lines story = take_entry_story();
    EXPECT_EQ(story[1].rfind("-> set_server_config(", 0), 0U);
    EXPECT_EQ(story.back(), set_error + "set config fail.");
}

TEST_F(ServerConfig, ReasonIsCutToItsBufferWithATerminatorWhereOneByteIsThere) {
    for (const uint32_t length : {0U, 1U, 2U, 16U, 17U, 18U}) {
        buffer.fill('Z');
        fault::fail("fopen", 13, 1, 2);
        EXPECT_EQ(set(server, text_setting(5), length), 2060013);
        const std::string words =
            length == 0 ? "" : std::string("set config fail.").substr(0, length - 1) + '\0';
        EXPECT_TRUE(holds(buffer, words, 0)) << length;
    }
}

TEST_F(ServerConfig, WriteWithNoLayerBoundLeavesOurFileAsItWas) {
    sts_api = nullptr;
    EXPECT_EQ(set(server, text_setting(5)), 2060010);
    EXPECT_EQ(limit_in_file(), "10");
    EXPECT_TRUE(holds(buffer, "", 0));
}

} // namespace
