// The settings that clients send: which count, which are refused.

#include "tests/service/ledger_fixture.h"

#include "plugin/stsapi.h"

using testing::HasSubstr;

namespace {

class Settings : public LedgerTest {
  protected:
    void SetUp() override {
        configure(row("s3", 2) + row("SAMPLE_INTERVAL", 30));
        lines.clear();
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
        EXPECT_THAT(lines.back(), HasSubstr("session 0000000000000001: refused, settings"));
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
                           "storage \"s3\": limit 2 -> 5, THR:AVAIL_BANDWIDTH 104857600 -> 1000, "
                           "THR:SAMPLE_INTERVAL 30 -> 60"));
}

TEST_F(Settings, TheSameAgainIsNoChange) {
    configure(row("s3", 2) + row("SAMPLE_INTERVAL", 30));
    configure(row("SAMPLE_INTERVAL", 30) + row("s3", 2)); // by another server, in other words
    EXPECT_TRUE(lines.empty());
}

TEST_F(Settings, StoragesAreLimitedInNumber) {
    for (size_t each = 1; each <= most_storages; ++each) {
        connect(1, "storage" + std::to_string(each)); // s3 is there already, so one is too many
    }
    EXPECT_EQ(book.view(now).storages.size(), most_storages);
    EXPECT_EQ(connect(1, "one more").status, STS_ERR_NOMEM);
    EXPECT_EQ(configure(row("one more", 3)), 0);
    EXPECT_THAT(lines.back(), HasSubstr("settings of \"one more\" aren't kept"));
}

} // namespace
