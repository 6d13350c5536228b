// Limits that operators set: what each session is told of them, and when.

#include "tests/service/ledger_fixture.h"

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr uint64_t whole_rate = 1'000'000;
constexpr int64_t every = 30;

limit_change read_limit(uint64_t rate) {
    return {{rate, std::nullopt}, std::nullopt, std::nullopt};
}
limit_change write_limit(uint64_t rate, std::optional<int64_t> seconds = std::nullopt) {
    return {{std::nullopt, rate}, std::nullopt, seconds};
}
limit_change most_connections(int64_t number) {
    return {{std::nullopt, std::nullopt}, number, std::nullopt};
}

class LiveLimit : public LedgerTest {
  protected:
    LiveLimit() {
        configure(row("s3", 4) + row("t3", 4) + row("AVAIL_BANDWIDTH", whole_rate) +
                  row("SAMPLE_INTERVAL", every));
    }
    limits_view limit(const std::optional<std::string>& whom, const limit_change& change) {
        return book.limit(whom, change, "user 7", now);
    }
    bool unlimit(const std::optional<std::string>& whom) {
        return book.unlimit(whom, "user 7", now);
    }
    /// An interval passes, in which a session has used all that its count let it.
    answer next_report(session_number who, const std::string& key = "w:s3") {
        pass(every);
        const uint64_t used = whole_rate / static_cast<uint64_t>(last_count_) * every;
        const answer said = report(who, key, used, every);
        last_count_ = std::max(key[0] == 'w' ? writers_in(said) : readers_in(said), 1L);
        return said;
    }

    long last_count_ = 1;
};

TEST_F(LiveLimit, HoldsFromTheNextReportOn) {
    EXPECT_EQ(writers_in(next_report(1)), 1);
    limit("s3", write_limit(whole_rate / 10));
    EXPECT_EQ(writers_in(next_report(1)), 10);
    EXPECT_EQ(writers_in(next_report(1)), 10);
    EXPECT_EQ(seen().now.write.allowed, whole_rate / 10);
    EXPECT_EQ(seen().now.read.allowed, whole_rate);
    EXPECT_TRUE(unlimit("s3"));
    EXPECT_EQ(writers_in(next_report(1)), 1);
    EXPECT_FALSE(unlimit("s3"));
}

TEST_F(LiveLimit, RunsOutAndSaysSo) {
    next_report(1);
    limit("s3", write_limit(whole_rate / 10, 2 * every));
    EXPECT_EQ(writers_in(next_report(1)), 10);
    EXPECT_EQ(writers_in(next_report(1)), 1);
    book.tick(now);
    EXPECT_THAT(book.limits(now), IsEmpty());
    EXPECT_THAT(lines, Contains("storage \"s3\": its limit of writes has run out"));
}

TEST_F(LiveLimit, GivesNobodyMoreThanTheirSettings) {
    next_report(1);
    const limits_view view = limit("s3", write_limit(whole_rate * 5));
    EXPECT_EQ(view.allowed[OPERATION_WRITE], whole_rate);
    EXPECT_EQ(view.allowed[OPERATION_READ], std::nullopt);
    EXPECT_EQ(view.sample_interval, every);
    EXPECT_EQ(writers_in(next_report(1)), 1);
    EXPECT_EQ(seen().now.write.allowed, whole_rate);
}

TEST_F(LiveLimit, NoCountOfItLeavesARateOf0) {
    next_report(1);
    limit("s3", write_limit(1));
    for (int each = 0; each < 20; ++each) {
        const long count = writers_in(next_report(1));
        EXPECT_GE(count, 1);
        EXPECT_LE(static_cast<uint64_t>(count), whole_rate);
    }
}

TEST_F(LiveLimit, APauseIsAWaitOfAWholeInterval) {
    next_report(1);
    limit("s3", write_limit(0));
    for (int each = 0; each < 5; ++each) {
        const answer said = next_report(1);
        EXPECT_EQ(wait_in(said), every);
        EXPECT_EQ(writers_in(said), 1);
    }
    EXPECT_EQ(wait_in(report(2, "r:s3")), 0) << "who reads isn't paused";
    EXPECT_EQ(wait_in(report(1, "r:s3")), every) << "one wait is for all that a session does";
    EXPECT_EQ(wait_in(end_flow(1, "w:s3")), 0) << "nor one that no longer writes";
    unlimit("s3");
    EXPECT_EQ(wait_in(next_report(1)), 0);
    EXPECT_EQ(seen().now.write.allowed, whole_rate);
}

TEST_F(LiveLimit, AFlowThatIsPausedIsHeardOnAndCountsAsNobodySilent) {
    next_report(1);
    limit("s3", write_limit(0));
    for (int each = 0; each < 200; ++each) {
        next_report(1);
    }
    EXPECT_EQ(seen().now.write.flows, 1);
}

TEST_F(LiveLimit, OfConnectionsDecidesWhoMayCome) {
    limit("s3", most_connections(1));
    EXPECT_EQ(connect(1).status, 0);
    EXPECT_EQ(connect(2).status, STS_ERR_MAX_CONNECTIONS);
    EXPECT_EQ(seen().limit, 1);
    limit("s3", most_connections(5)); // more than the settings say
    for (session_number who = 2; who < 6; ++who) {
        EXPECT_EQ(connect(who).status, 0);
    }
    limit("s3", most_connections(0));
    EXPECT_EQ(connect(9).status, STS_ERR_MAX_CONNECTIONS);
    EXPECT_EQ(connections(), 5) << "nobody is closed";
    unlimit("s3");
    EXPECT_EQ(seen().limit, 4);
}

TEST_F(LiveLimit, OneStandsBesideAnother) {
    limit("s3", write_limit(5));
    limit("s3", read_limit(6));
    const limits_view view = limit("s3", most_connections(7));
    EXPECT_EQ(view.limits.rates[OPERATION_READ]->value, 6);
    EXPECT_EQ(view.limits.rates[OPERATION_WRITE]->value, 5);
    EXPECT_EQ(view.limits.connections->value, 7);
    EXPECT_EQ(book.limits(now).size(), 1);
}

TEST_F(LiveLimit, OfTheHostIsForAllStoragesTogether) {
    report(1, "w:s3");
    report(2, "w:t3");
    limit(std::nullopt, write_limit(whole_rate / 5));
    double sum = 0;
    long counts[] = {1, 1};
    for (int each = 0; each < 20; ++each) {
        pass(every);
        for (const int which : {0, 1}) {
            const uint64_t used = whole_rate / static_cast<uint64_t>(counts[which]) * every;
            counts[which] = writers_in(report(1 + static_cast<session_number>(which),
                                              which == 0 ? "w:s3" : "w:t3", used, every));
            sum += each < 10 ? 0 : 1.0 / static_cast<double>(counts[which]) / 10;
        }
    }
    EXPECT_NEAR(sum, 0.2, 0.01);
    EXPECT_EQ(seen().now.write.allowed, whole_rate);
    EXPECT_TRUE(unlimit(std::nullopt));
    EXPECT_EQ(writers_in(next_report(1)), 1);
}

TEST_F(LiveLimit, OfTheHostPausesAll) {
    report(1, "w:s3");
    limit(std::nullopt, write_limit(0));
    EXPECT_EQ(wait_in(next_report(1)), every);
    EXPECT_EQ(wait_in(report(2, "w:t3")), every);
}

TEST_F(LiveLimit, MayBeThereBeforeItsStorage) {
    const limits_view view = limit("new", write_limit(whole_rate / 4));
    EXPECT_FALSE(view.is_known);
    EXPECT_EQ(view.allowed[OPERATION_WRITE], std::nullopt);
    EXPECT_EQ(writers_in(report(1, "w:new")), 4);
}

TEST_F(LiveLimit, TheLogTellsWhoSetIt) {
    limit("s3", write_limit(5, 60));
    EXPECT_EQ(lines.back(), "storage \"s3\": limited by user 7: writes 5 bytes/s, for 60 s");
    limit(std::nullopt, read_limit(0));
    EXPECT_EQ(lines.back(), "all storages of the host: limited by user 7: reads 0 bytes/s");
    unlimit("s3");
    EXPECT_EQ(lines.back(), "storage \"s3\": its limits are taken back by user 7");
}

TEST_F(LiveLimit, ThatCantBeIsRefusedAndChangesNothing) {
    EXPECT_THROW(limit("", write_limit(5)), limit_refused);
    EXPECT_THROW(limit("a\nb", write_limit(5)), limit_refused);
    EXPECT_THROW(limit("s3", {}), limit_refused);
    EXPECT_THROW(limit(std::nullopt, most_connections(5)), limit_refused);
    EXPECT_THAT(book.limits(now), IsEmpty());
}

TEST_F(LiveLimit, ThereAreSoManyAtMost) {
    for (size_t each = 0; each < most_storages; ++each) {
        limit("x" + std::to_string(each), write_limit(5));
    }
    EXPECT_THROW(limit("one more", write_limit(5)), limit_refused);
    limit("x7", write_limit(6));
    EXPECT_EQ(book.limits(now).size(), most_storages);
}

TEST_F(LiveLimit, CantMeetASessionThatIsNoLongerThere) {
    report(1, "w:s3");
    report(2, "w:t3");
    limit(std::nullopt, write_limit(whole_rate / 4));
    next_report(1);
    book.close(1, now);
    pass(200);
    book.tick(now); // the other one is silent
    report(3, "w:s3");
    EXPECT_EQ(writers_in(next_report(3)), 4);
    unlimit(std::nullopt);
    book.close(3, now);
}

TEST(LiveLimits, CantRaiseWhatIsAllowed) {
    EXPECT_EQ(limited(100, std::nullopt), 100);
    EXPECT_EQ(limited(100, 50), 50);
    EXPECT_EQ(limited(100, 100), 100);
    EXPECT_EQ(limited(100, 150), 100);
    EXPECT_EQ(limited(100, 0), 0);
}

TEST(LiveLimits, HoldUntilTheirTime) {
    const rate_limit limit = timed<uint64_t>{5, 100};
    EXPECT_EQ(in_force(limit, 99), 5);
    EXPECT_EQ(in_force(limit, 100), std::nullopt);
    EXPECT_EQ(in_force(rate_limit(timed<uint64_t>{5}), std::numeric_limits<int64_t>::max() - 1), 5);
    EXPECT_EQ(in_force(rate_limit(), 0), std::nullopt);
}

TEST(LiveLimits, APauseIsAnInterval) {
    EXPECT_EQ(pause_of(30), 30);
    EXPECT_EQ(pause_of(0), 0);
    EXPECT_EQ(pause_of(-1), 0);
}

} // namespace
