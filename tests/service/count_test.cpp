// Which counts the replies tell: those of a fair share.

#include "tests/service/ledger_fixture.h"

#include <algorithm>

namespace {

class Count : public LedgerTest {
  protected:
    static constexpr uint64_t rate = 1000; // bytes per second
    static constexpr uint32_t interval = 30;

    void SetUp() override { configure(settings()); }

    static std::string settings(const std::string& more = "") {
        return row("s3", 99) + row("AVAIL_BANDWIDTH", rate) + row("SAMPLE_INTERVAL", interval) +
               more;
    }
    /// One that moves all that it may, beside one of `slow` bytes a second: what it is told at each
    /// of `intervals`.
    std::vector<long> beside_a_slow_one(int intervals, uint64_t slow) {
        long own = writers_in(report(1, "w:s3"));
        report(2, "w:s3");
        std::vector<long> told;
        for (int each = 0; each < intervals; ++each) {
            pass(interval);
            own = writers_in(
                report(1, "w:s3", rate * interval / static_cast<uint64_t>(own), interval));
            report(2, "w:s3", slow * interval, interval);
            told.push_back(own);
        }
        return told;
    }
};

TEST_F(Count, EqualFlowsAreToldTheirNumberHoweverOftenTheyAsk) {
    for (session_number each = 1; each <= 64; ++each) {
        EXPECT_EQ(writers_in(report(each, "w:s3")), static_cast<long>(each));
    }
    for (session_number each = 1; each <= 64; ++each) {
        EXPECT_EQ(writers_in(report(each, "w:s3")), 64);
    }
}

TEST_F(Count, WhatASlowOneLeavesIsTheOthers) {
    const std::vector<long> told = beside_a_slow_one(20, rate / 20);
    const auto ones = std::count(told.begin() + 5, told.end(), 1);
    EXPECT_GE(ones, 12) << "of 15";
    EXPECT_LT(ones, 15);
}

TEST_F(Count, WhatWasMovedBeforeANewcomerCameIsPaidBack) {
    report(1, "w:s3");
    for (int each = 0; each < 12; ++each) {
        pass(interval);
        EXPECT_EQ(writers_in(report(1, "w:s3", rate * interval, interval)), 1);
    }
    EXPECT_GT(writers_in(report(2, "w:s3")), 2) << "the other hasn't heard of it yet";
    pass(interval);
    EXPECT_GT(writers_in(report(1, "w:s3", rate * interval, interval)), 2);
}

TEST_F(Count, ItLeavesTheLowestRateOfTheWeekAboveZero) {
    configure(settings(row("OFF_TIME_BANDWIDTH_PERCENT", 2))); // 20 bytes a second
    for (session_number each = 1; each <= 64; ++each) {
        EXPECT_LE(writers_in(report(each, "w:s3")), 20);
        EXPECT_LE(writers_in(connect(100 + each)), 20);
    }
}

TEST_F(Count, HoursWithoutAnyRateDoNotCount) {
    configure(settings(row("OFF_TIME_BANDWIDTH_PERCENT", 0)));
    report(1, "w:s3");
    EXPECT_EQ(writers_in(report(2, "w:s3")), 2);
}

TEST_F(Count, AClientOfOtherSettingsIsToldByThem) {
    book.configure(3, row("tape", 9) + row("AVAIL_BANDWIDTH", 2 * rate), now); // not of this one
    report(1, "w:s3");
    EXPECT_EQ(writers_in(report(3, "w:s3")), 4) << "a quarter of 2000 is a half of 1000";
    book.configure(4, row("tape", 9) + row("AVAIL_BANDWIDTH", 2), now);
    EXPECT_LE(writers_in(report(4, "w:s3")), 2) << "it would be left with a rate of 0";
}

TEST_F(Count, TheWaitIsForWhatIsAboveThePartThatWasTold) {
    report(1, "w:s3"); // alone, so it may have all
    report(2, "w:s3");
    pass(interval);
    EXPECT_EQ(wait_in(report(1, "w:s3", rate * interval, interval)), 0);
}

TEST_F(Count, WhereNothingIsEverAllowedItIsTheirNumber) {
    configure(settings(row("WRITE_BANDWIDTH_PERCENT", 0)));
    report(1, "w:s3");
    EXPECT_EQ(writers_in(report(2, "w:s3", 5, 1)), 2);
}

} // namespace
