// The settings that clients send: which count, which are refused.

#include "tests/service/ledger_fixture.h"

#include "plugin/stsapi.h"
#include "service/limits.h"

using testing::HasSubstr;

namespace {

class Settings : public LedgerTest {
  protected:
    void SetUp() override {
        configure(row("s3", 2) + row("SAMPLE_INTERVAL", 30));
        lines.clear();
    }
    /// Short rows of `count` storages.
    static std::string rows(const std::string& prefix, size_t count, uint64_t limit) {
        std::string text;
        for (size_t each = 0; each < count; ++each) {
            text += "name=THR:" + prefix + std::to_string(each) +
                    ",value=" + std::to_string(limit) + ",";
        }
        return text;
    }
    /// As many storages as there may be, all of them used.
    void fill_with_used() {
        for (size_t each = 1; each <= most_storages; ++each) {
            connect(1, "used" + std::to_string(each));
        }
    }
    void expect_unchanged() {
        EXPECT_EQ(seen().limit, 2);
        EXPECT_EQ(seen().sample_interval, 30);
    }
};

TEST_F(Settings, TheLastTextCounts) {
    EXPECT_EQ(configure(row("s3", 5)), 0);
    EXPECT_EQ(seen().limit, 5);
    EXPECT_EQ(seen().sample_interval, 0); // not named, so back at its default
}

TEST_F(Settings, AStorageKeepsTheLastTextThatNamedIt) {
    configure(row("tape", 7) + row("SAMPLE_INTERVAL", 60));
    expect_unchanged();
    EXPECT_EQ(seen("tape").limit, 7);
    EXPECT_EQ(seen("tape").sample_interval, 60);
}

TEST_F(Settings, AStorageThatNoTextNamesFollowsTheLastOfAll) {
    connect(1, "other");
    EXPECT_EQ(seen("other").limit, 10);
    configure(row("DEFAULT_MAX_CONNECTIONS", 4));
    EXPECT_EQ(seen("other").limit, 4);
    expect_unchanged();
}

TEST_F(Settings, AnEmptyTextIsRefusedBeforeAnyOther) {
    ledger fresh(lease, now, [](const std::string&) {});
    EXPECT_EQ(fresh.configure(1, "", now), STS_ERR_INVALID);
    EXPECT_EQ(fresh.view(now).malformed, 1);
}

TEST_F(Settings, BeforeAnyTextTheDefaultsHold) {
    ledger fresh(lease, now, [](const std::string&) {});
    fresh.check_connections(1, "a:s3", "h", 1, now);
    EXPECT_EQ(fresh.view(now).storages.at(0).limit, 10);
}

TEST_F(Settings, ATextWithoutAReadableRowIsRefusedAndChangesNothing) {
    const std::string long_text(longest_text + 1, 'x');
    for (const std::string& text : std::vector<std::string>{
             "", "rubbish", "name=,value=,", "name=THR:s3", "name=THR:s3,value=3",
             "name=OTHER:s3,description=d,type=int,value=3,fixed=n;",
             row("READ_BANDWIDTH_PERCENT", 101), row("SAMPLE_INTERVAL", 4294967295), "\x01\xff",
             row("s3", 9) + long_text}) {
        EXPECT_EQ(configure(text), STS_ERR_INVALID) << text.substr(0, 80);
        expect_unchanged();
        EXPECT_THAT(lines.back(), HasSubstr(called(1) + ": refused, settings"));
    }
    EXPECT_EQ(book.view(now).malformed, 10);
}

TEST_F(Settings, OneReadableRowAmongOthersIsEnough) {
    EXPECT_EQ(configure("rubbish;name=THR:x;" + row("READ_BANDWIDTH_PERCENT", 500) + row("s3", 3)),
              0);
    EXPECT_EQ(seen().limit, 3);
}

TEST_F(Settings, EverySettingIsReadableByItself) {
    for (const char* key :
         {"READ_BANDWIDTH_PERCENT", "WRITE_BANDWIDTH_PERCENT", "DEFAULT_MAX_CONNECTIONS",
          "AVAIL_BANDWIDTH", "WORK_TIME_START", "WORK_TIME_END", "WORK_TIME_BANDWIDTH_PERCENT",
          "OFF_TIME_START", "OFF_TIME_END", "OFF_TIME_BANDWIDTH_PERCENT", "WEEKEND_START",
          "WEEKEND_END", "WEEKEND_BANDWIDTH_PERCENT", "SAMPLE_INTERVAL", "anything"}) {
        EXPECT_EQ(configure(row(key, 1)), 0) << key;
    }
}

TEST_F(Settings, AChangeIsLoggedWithWhatChanged) {
    configure(row("s3", 5) + row("SAMPLE_INTERVAL", 60) + row("AVAIL_BANDWIDTH", 1000));
    EXPECT_THAT(lines, testing::ElementsAre(
                           called(1) +
                           " \"\": new settings; storage \"s3\": limit 2 -> 5, "
                           "THR:AVAIL_BANDWIDTH 104857600 -> 1000, THR:SAMPLE_INTERVAL 30 -> 60"));
}

TEST_F(Settings, TheSameAgainIsNoChange) {
    configure(row("s3", 2) + row("SAMPLE_INTERVAL", 30));
    configure(row("SAMPLE_INTERVAL", 30) + row("s3", 2)); // by another server, in other words
    EXPECT_TRUE(lines.empty());
}

TEST_F(Settings, ATextIsOneLineOfTheLog) {
    configure(rows("many", 8, 3));
    EXPECT_THAT(lines, testing::ElementsAre(
                           called(1) +
                           " \"\": new settings; storage \"many0\": limit 10 "
                           "-> 3, THR:SAMPLE_INTERVAL 30 -> 0; storage \"many1\": limit 10 -> 3, "
                           "THR:SAMPLE_INTERVAL 30 -> 0; storage \"many2\": limit 10 -> 3, "
                           "THR:SAMPLE_INTERVAL 30 -> 0; storage \"many3\": limit 10 -> 3, "
                           "THR:SAMPLE_INTERVAL 30 -> 0; storage \"many4\": limit 10 -> 3, "
                           "THR:SAMPLE_INTERVAL 30 -> 0; and 3 more"));
}

TEST_F(Settings, NamesThatNoKeyCanHaveAreLeftOut) {
    const std::string longest(STS_NAME_SIZE - 1, 'n');
    EXPECT_EQ(configure(row("a\tb\x01"
                            "c",
                            5) +
                        row(longest, 4) + row(longest + "n", 4)),
              0);
    EXPECT_EQ(seen(longest).limit, 4);
    EXPECT_EQ(book.view(now).storages.size(), 2U);
    EXPECT_THAT(lines.back(), HasSubstr("; not taken, no name: \"a\\x09b\\x01c\"; \"nnn"));
    EXPECT_EQ(configure(row("a\x7f", 5)), STS_ERR_INVALID); // and no other row is there
}

// --- whose settings they are ---

TEST_F(Settings, ATextThatWasCutChangesNothingOfWhatItNoLongerNames) {
    configure(row("AVAIL_BANDWIDTH", 1000) + row("SAMPLE_INTERVAL", 30) + row("s3", 4) +
              row("WORK_TIME_BANDWIDTH_PERCENT", 50));
    std::string cut;
    for (int each = 0; cut.size() < cut_text_size; ++each) {
        cut += row("a storage of 22 lette" + std::to_string(each % 10) + std::to_string(each), 7);
    }
    cut.resize(cut_text_size);
    for (const session_number who :
         {session_number{1}, session_number{2}}) { // which sent one before, and which didn't
        EXPECT_EQ(book.configure(who, cut, now), 0);
        EXPECT_EQ(seen("a storage of 22 lette00").limit, 7);
        EXPECT_EQ(seen("a storage of 22 lette00").now.write.allowed, 500);
        EXPECT_EQ(seen("a storage of 22 lette00").sample_interval, 30);
        EXPECT_EQ(seen().now.write.allowed, 500);
        EXPECT_EQ(seen().limit, 4);
        connect(who, "named by nobody");
        EXPECT_EQ(seen("named by nobody").now.write.allowed, 500);
    }
}

TEST_F(Settings, AClientChangesOnlyWhatDiffersFromItsEarlierText) {
    const std::string first = row("s3", 2) + row("SAMPLE_INTERVAL", 30); // as SetUp sent it
    book.configure(2, row("s3", 5) + row("SAMPLE_INTERVAL", 60) + row("AVAIL_BANDWIDTH", 1000),
                   now);
    EXPECT_EQ(configure(first), 0);
    EXPECT_EQ(seen().limit, 5);
    EXPECT_EQ(seen().sample_interval, 60);
    EXPECT_EQ(configure(first + row("READ_BANDWIDTH_PERCENT", 50) + row("t3", 1)), 0);
    EXPECT_EQ(seen().limit, 5);
    EXPECT_EQ(seen().sample_interval, 60);
    EXPECT_EQ(seen().now.read.allowed, 500);
    EXPECT_EQ(seen("t3").limit, 1);
    EXPECT_EQ(configure(row("s3", 3) + row("SAMPLE_INTERVAL", 30)), 0);
    EXPECT_EQ(seen().limit, 3);
    EXPECT_EQ(seen().sample_interval, 60);
}

TEST_F(Settings, TheLogNamesWhoChangedWhat) {
    book.configure({2, "user 7"}, row("s3", 5) + row("SAMPLE_INTERVAL", 30), now);
    EXPECT_EQ(lines.back(),
              called(2) + " \"\": new settings of user 7; storage \"s3\": limit 2 -> 5");
}

TEST_F(Settings, ThoseOfTheServiceHoldWhateverClientsSend) {
    auto own = std::make_shared<throttling_config_s>();
    own->avail_bandwidth = 1000;
    own->connections["s3"] = 3;
    own->sample_interval = 10;
    book.rule(own, now);
    EXPECT_EQ(book.configure({2, "user 7"}, row("s3", 9) + row("AVAIL_BANDWIDTH", 2000), now), 0);
    EXPECT_EQ(seen().limit, 3);
    EXPECT_EQ(seen().now.write.allowed, 1000);
    EXPECT_EQ(seen().sample_interval, 10);
    EXPECT_EQ(lines.back(),
              called(2) + " \"\": other settings of user 7, which don't hold here; "
                          "THR:AVAIL_BANDWIDTH 1000 -> 2000, THR:SAMPLE_INTERVAL 10 -> 0; storage "
                          "\"s3\": limit 3 -> 9");
    pass(10);
    EXPECT_EQ(writers_in(report(2, "w:s3")), 2) << "it has 2000 and may have 1000";
    own = std::make_shared<throttling_config_s>(*own);
    own->avail_bandwidth = 500;
    book.rule(own, now);
    EXPECT_EQ(seen().now.write.allowed, 500);
}

TEST_F(Settings, ManyTextsAreNotAllRemembered) {
    for (uint64_t each = 1; each <= 3 * most_texts; ++each) {
        EXPECT_EQ(book.configure(each, row("s3", each), now), 0);
    }
    EXPECT_EQ(seen().limit, static_cast<int64_t>(3 * most_texts));
    EXPECT_EQ(book.configure(2, row("s3", 2), now), 0); // as if it were new
    EXPECT_EQ(seen().limit, 2);
}

// --- how many storages there may be ---

TEST_F(Settings, StoragesInUseAreLimitedInNumber) {
    fill_with_used();
    EXPECT_EQ(connect(1, "one more").status, STS_ERR_NOMEM);
    EXPECT_EQ(configure(row("one more", 3) + row("used1", 4)), 0);
    EXPECT_EQ(lines.back(), called(1) +
                                " \"host_1\": new settings; storage \"used1\": limit 10 -> 4, "
                                "THR:SAMPLE_INTERVAL 30 -> 0; not taken, no room: \"one more\"");
    EXPECT_EQ(book.view(now).storages.size(), most_storages);
    EXPECT_EQ(connections("used1"), 1);
}

TEST_F(Settings, ATextNamesNoMoreThanThereIsRoomFor) {
    connect(1, "used");
    report(1, "r:read");
    report(1, "w:written");
    EXPECT_EQ(configure(rows("many", 2 * most_storages, 3)), 0);
    EXPECT_EQ(book.view(now).storages.size(), most_storages);
    EXPECT_EQ(connections("used"), 1);
    EXPECT_EQ(seen("read").now.read.flows, 1);
    EXPECT_EQ(seen("written").now.write.flows, 1);
}

TEST_F(Settings, AStorageThatIsUsedHasRoomWhateverATextNames) {
    configure(rows("many", 2 * most_storages, 3));
    EXPECT_EQ(connect(2, "brandnew").status, STS_OK);
    EXPECT_EQ(report(2, "w:other").status, STS_OK);
    EXPECT_EQ(book.view(now).storages.size(), most_storages);
    EXPECT_EQ(connections("brandnew"), 1);
}

TEST_F(Settings, WhatWasNamedLongestAgoLeavesItsPlaceFirst) {
    pass(1);
    configure(rows("named", most_storages - 1, 3));
    EXPECT_EQ(seen().limit, 2);
    pass(1);
    connect(1, "new");
    EXPECT_EQ(seen().name, "") << "s3, of the older text, is still there";
    EXPECT_EQ(book.view(now).storages.size(), most_storages);
}

TEST_F(Settings, ATextTakesThePlaceOfNamesThatNobodyUses) {
    pass(history_step);
    book.tick(now);
    configure(rows("old", most_storages - 1, 3));
    EXPECT_EQ(configure(row("s3", 2) + rows("new", 10, 4)), 0);
    EXPECT_EQ(seen("new0").limit, 4);
    EXPECT_EQ(seen().history.size(), 1U) << "s3, which the text names, had to leave too";
    EXPECT_EQ(book.view(now).storages.size(), most_storages);
}

TEST_F(Settings, AStorageThatLostItsPlaceHasItsLimitAgain) {
    configure(row("s3", 7));
    fill_with_used();
    EXPECT_EQ(seen().name, "");
    disconnect(1, "used1");
    EXPECT_EQ(configure(row("s3", 7)), 0);
    connect(1);
    EXPECT_EQ(seen().limit, 7);
    configure(row("other", 3) + row("DEFAULT_MAX_CONNECTIONS", 4));
    EXPECT_EQ(seen().limit, 7) << "another's text, which doesn't name it, counts";
}

} // namespace
