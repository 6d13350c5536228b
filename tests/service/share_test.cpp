// Who takes more than its part of the book loses its own first.

#include "tests/service/ledger_fixture.h"

#include "plugin/stsapi.h"

using testing::Contains;
using testing::HasSubstr;

namespace {

const std::string greedy = "user 1";
const std::string modest = "user 2";

class Share : public LedgerTest {
  protected:
    bool open(const std::string& peer, session_number number) {
        return book.open({number, peer}, now);
    }
    answer connect_as(const std::string& peer, session_number number, const std::string& storage) {
        return book.check_connections({number, peer}, "a:" + storage, "h", 1, now);
    }
    size_t sessions() { return book.view(now).sessions; }
    size_t storages() { return book.view(now).storages.size(); }

    /// Numbers from 1.
    void fill_with_sessions(const std::string& peer) {
        for (session_number each = 1; each <= most_sessions; ++each) {
            ASSERT_TRUE(open(peer, each));
        }
    }
    /// As many storages as there may be, used1 and so on, all of them used by session 1.
    void fill_with_storages(const std::string& peer) {
        for (size_t each = 1; each <= most_storages; ++each) {
            ASSERT_EQ(connect_as(peer, 1, "used" + std::to_string(each)).status, 0);
        }
    }
};

// --- sessions ---

TEST_F(Share, AFullBookLetsInWhoHasLessAtTheCostOfWhoHasMost) {
    fill_with_sessions(greedy);
    book.check_connections({1, greedy}, "a:s3", "h", 1, now); // so 2 has been silent longest
    EXPECT_TRUE(open(modest, 100001));
    EXPECT_EQ(sessions(), most_sessions);
    EXPECT_THAT(lines, Contains(called(2) + " \"\": ended, its peer has more than its part"));
    EXPECT_EQ(lines.back(), called(100001) + " \"\": opened");
    EXPECT_EQ(connections(), 1) << "the session that spoke last isn't the one to go";
}

TEST_F(Share, WhoHasMostIsRefused) {
    fill_with_sessions(greedy);
    EXPECT_FALSE(open(greedy, 100001));
    EXPECT_EQ(connect_as(greedy, 100001, "s3").status, STS_ERR_NOMEM); // nor taken up again
    EXPECT_EQ(sessions(), most_sessions);
    EXPECT_THAT(lines, Contains(called(100001) + ": refused, 65536 sessions are open"));
}

TEST_F(Share, EachGetsAsMuchAsTheOtherAndNoMore) {
    fill_with_sessions(greedy);
    session_number next = 100000;
    for (size_t each = 0; each < most_sessions / 2; ++each) {
        ASSERT_TRUE(open(modest, ++next));
    }
    EXPECT_FALSE(open(modest, ++next));
    EXPECT_FALSE(open(greedy, ++next));
    EXPECT_TRUE(open("a third", ++next));
    EXPECT_EQ(sessions(), most_sessions);
}

TEST_F(Share, ASessionThatHadToGoGivesBackWhatItHeld) {
    open(greedy, 1);
    connect_as(greedy, 1, "s3");
    book.check_bandwidth({1, greedy}, "w:s3", "h", {1, 0, 1, 5}, now);
    for (session_number each = 2; each <= most_sessions; ++each) {
        ASSERT_TRUE(open(greedy, each));
    }
    open(modest, 100001);
    EXPECT_EQ(connections(), 0);
    EXPECT_EQ(seen().now.write.flows, 0);
    book.close({2, greedy}, now);
    EXPECT_EQ(connect_as(greedy, 1, "s3").status, 0) << "it is taken up again where there is room";
}

TEST_F(Share, ASessionCountsAsThePeersThatBeganIt) {
    fill_with_sessions(greedy);
    book.hear({1, modest}, now); // a reference may be handed to somebody else
    EXPECT_TRUE(open(modest, 100001));
    EXPECT_EQ(sessions(), most_sessions);
}

TEST_F(Share, WhoEndsItsSessionsHasLess) {
    fill_with_sessions(greedy);
    book.close({7, greedy}, now);
    EXPECT_TRUE(open(greedy, 100001));
    EXPECT_FALSE(open(greedy, 100002));
}

// --- storages ---

TEST_F(Share, AStorageThatOnePeerAloneUsesLeavesItsPlaceToAPeerThatHasFewer) {
    fill_with_storages(greedy);
    EXPECT_EQ(connect_as(greedy, 1, "one more").status, STS_ERR_NOMEM);
    EXPECT_EQ(connect_as(modest, 2, "one more").status, 0);
    EXPECT_EQ(storages(), most_storages);
    EXPECT_EQ(connections("one more"), 1);
    EXPECT_EQ(seen("used1").name, "");
    EXPECT_THAT(lines, Contains("storage \"used1\": dropped, its peer has more than its part"));
    EXPECT_THAT(lines, Contains(called(1) + " \"h\": disconnects from \"used1\", 0 left"));
    EXPECT_EQ(book.check_connections({1, greedy}, "a:used1", "h", -1, now).status, STS_ERR_NOMEM);
    EXPECT_EQ(storages(), most_storages) << "its own are all used, so it gets no other";
}

TEST_F(Share, ThoseThatNobodyUsesGoFirst) {
    fill_with_storages(greedy);
    book.check_connections({1, greedy}, "a:used500", "h", -1, now);
    EXPECT_EQ(connect_as(modest, 2, "one more").status, 0);
    EXPECT_EQ(seen("used500").name, "");
    EXPECT_EQ(connections("used1"), 1);
}

TEST_F(Share, AStorageThatOthersUseTooStays) {
    connect_as(greedy, 1, "used1");
    connect_as(modest, 2, "used1");
    fill_with_storages(greedy);
    EXPECT_EQ(connect_as("a third", 3, "one more").status, 0);
    EXPECT_EQ(connections("used1"), 3);
    EXPECT_EQ(seen("used10").name, ""); // the next by name, all were named at once
    book.close({2, modest}, now);
    EXPECT_EQ(connect_as("a third", 3, "two more").status, 0);
    EXPECT_EQ(seen("used1").name, "") << "it stayed when nobody else used it any more";
}

TEST_F(Share, NamingThousandsCostsNobodyElseTheirs) {
    ASSERT_EQ(book.configure({2, modest}, row("s3", 2), now), 0);
    pass(1);
    std::string text;
    for (size_t each = 0; each < 2 * most_storages; ++each) {
        text += "name=THR:n" + std::to_string(each) + ",value=3,";
    }
    EXPECT_EQ(book.configure({1, greedy}, text, now), 0);
    EXPECT_EQ(storages(), most_storages);
    EXPECT_EQ(seen().limit, 2) << "named longest ago, yet not by who has most";
    for (int each = 0; each < 3; ++each) {
        EXPECT_EQ(connect_as(greedy, 1, "again" + std::to_string(each)).status, 0);
    }
    EXPECT_EQ(seen().limit, 2);
    EXPECT_EQ(storages(), most_storages);
}

TEST_F(Share, ATextTakesFromWhoHasMostUntilBothHaveAsMany) {
    fill_with_storages(greedy);
    std::string text;
    for (size_t each = 0; each < most_storages; ++each) {
        text += "name=THR:m" + std::to_string(each) + ",value=3,";
    }
    EXPECT_EQ(book.configure({2, modest}, text, now), 0);
    size_t of_modest = 0;
    for (const storage_view& each : book.view(now).storages) {
        of_modest += each.name[0] == 'm' ? 1 : 0;
    }
    EXPECT_EQ(of_modest, most_storages / 2);
    EXPECT_EQ(storages(), most_storages);
}

// --- sessions that were ended ---

TEST_F(Share, NobodyIsHeardAsASessionThatItsClientEnded) {
    open(modest, 1);
    connect_as(modest, 1, "s3");
    book.close({1, modest}, now);
    const auto ended = [&](auto question) { EXPECT_THROW(question(), session_has_ended); };
    ended([&] { book.hear({1, modest}, now); });
    ended([&] { book.close({1, modest}, now); });
    ended([&] { connect_as(modest, 1, "s3"); });
    ended([&] { book.check_bandwidth({1, modest}, "w:s3", "h", {1, 0, 1, 5}, now); });
    ended([&] { book.configure({1, modest}, row("s3", 2), now); });
    EXPECT_EQ(sessions(), 0U);
    EXPECT_EQ(connections(), 0);
}

TEST_F(Share, OneThatEndedBeforeItWasHeardHereIsNoneEither) {
    book.close({1, modest}, now);
    EXPECT_THROW(book.hear({1, modest}, now), session_has_ended);
}

TEST_F(Share, OneWhoseLeaseRanOutIsTakenUpAgain) {
    open(modest, 1);
    pass(lease);
    book.tick(now);
    book.hear({1, modest}, now);
    EXPECT_EQ(sessions(), 1U);
}

TEST_F(Share, AsManyEndsAreRememberedAsThereMayBeSessions) {
    for (session_number each = 1; each <= most_sessions; ++each) {
        book.close(each, now);
    }
    EXPECT_THROW(book.hear(1, now), session_has_ended);
    book.close(100001, now);
    EXPECT_THROW(book.hear(2, now), session_has_ended);
    book.hear(1, now); // the one that was forgotten
    EXPECT_EQ(sessions(), 1U);
}

// --- keys that were never made ---

TEST_F(Share, FalseKeysAreCountedAndToldOnceAMinute) {
    for (int each = 0; each < 10000; ++each) {
        book.count_false_key();
    }
    book.tick(now);
    EXPECT_THAT(lines, testing::ElementsAre("refused 10000 requests for objects that don't exist"));
    for (int second = 0; second < 120; ++second) {
        book.count_false_key();
        pass(1);
        book.tick(now);
    }
    EXPECT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines.back(), "refused 60 requests for objects that don't exist");
    EXPECT_EQ(book.view(now).false_keys, 10120);
    EXPECT_EQ(sessions(), 0U);
}

} // namespace
