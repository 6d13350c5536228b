// How sessions begin and end, and how those of an earlier run are taken up.

#include "tests/service/ledger_fixture.h"

#include <thread>

using testing::Contains;
using testing::HasSubstr;

namespace {

class Lease : public LedgerTest {
  protected:
    size_t sessions() { return book.view(now).sessions; }
};

TEST_F(Lease, ASilentSessionEndsAndGivesBackWhatItHeld) {
    connect(1);
    connect(1, "tape");
    report(1, "w:s3");
    pass(lease);
    book.tick(now);
    EXPECT_EQ(sessions(), 0U);
    EXPECT_EQ(connections(), 0);
    EXPECT_EQ(connections("tape"), 0);
    EXPECT_THAT(lines, Contains(HasSubstr("ended, its lease has run out")));
    EXPECT_EQ(book.view(now).sessions_expired, 1);
}

TEST_F(Lease, WhoeverSpeaksKeepsIts) {
    connect(1);
    book.open(2, now);
    pass(lease - 1);
    report(1, "w:s3");
    book.hear(2, now);
    pass(lease - 1);
    book.tick(now);
    EXPECT_EQ(sessions(), 2U);
    pass(1);
    book.tick(now);
    EXPECT_EQ(sessions(), 0U);
}

TEST_F(Lease, AnExpiredConnectionIsFreeForTheNextQuestion) {
    configure(row("s3", 1));
    connect(1);
    pass(lease);
    EXPECT_EQ(connect(2).status, 0);
}

TEST_F(Lease, EndingGivesBackWhatWasHeld) {
    connect(1);
    connect(1);
    connect(2);
    report(1, "r:s3");
    book.close(1, now);
    EXPECT_EQ(connections(), 1);
    EXPECT_EQ(seen().now.read.flows, 0);
}

TEST_F(Lease, EndingASessionThatIsNotThereDoesNothing) {
    book.close(99, now);
    EXPECT_EQ(sessions(), 0U);
    EXPECT_TRUE(lines.empty());
}

TEST_F(Lease, ANumberIsOpenedOnce) {
    EXPECT_TRUE(book.open(5, now));
    EXPECT_FALSE(book.open(5, now));
}

TEST_F(Lease, AnUnknownSessionIsTakenUpWhenItSpeaks) {
    book.hear(77, now);
    EXPECT_EQ(sessions(), 1U);
    EXPECT_THAT(lines.back(), HasSubstr("taken up again"));
    EXPECT_EQ(book.view(now).sessions_opened, 0);
}

TEST_F(Lease, ASessionThatIsTakenUpHoldsTheConnectionThatItTransfersOn) {
    report(77, "w:s3");
    EXPECT_EQ(connections(), 1);
    report(77, "r:s3");
    EXPECT_EQ(connections(), 1);
    disconnect(77);
    EXPECT_EQ(connections(), 0);
}

TEST_F(Lease, ASessionThatSaidWhatItHoldsIsGivenNoMore) {
    connect(77);
    disconnect(77);
    report(77, "w:s3");
    EXPECT_EQ(connections(), 0);
    book.open(78, now);
    report(78, "w:s3");
    EXPECT_EQ(connections(), 0);
}

TEST_F(Lease, SessionsAreLimitedInNumber) {
    for (session_number each = 1; each <= most_sessions; ++each) {
        ASSERT_TRUE(book.open(each, now));
    }
    EXPECT_FALSE(book.open(0, now));
    EXPECT_NE(connect(0).status, 0);
    EXPECT_EQ(sessions(), most_sessions);
    book.close(1, now);
    EXPECT_TRUE(book.open(0, now));
}

TEST_F(Lease, ThreadsMayAskAtOnce) {
    std::vector<std::thread> clients;
    configure(row("s3", 1000));
    for (session_number client = 1; client <= 4; ++client) {
        clients.emplace_back([this, client] {
            for (int round = 0; round < 200; ++round) {
                connect(client);
                report(client, "w:s3", 10, 1);
                book.view(now);
                book.tick(now);
                disconnect(client);
            }
            book.close(client, now);
        });
    }
    for (std::thread& each : clients) {
        each.join();
    }
    EXPECT_EQ(connections(), 0);
    EXPECT_EQ(seen().now.write.flows, 0);
    EXPECT_EQ(sessions(), 0U);
}

} // namespace
