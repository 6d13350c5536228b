// How much of what a neighbour brings about gets into the log.

#include "service/log_budget.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int64_t hour = 3600;

class Budget : public testing::Test {
  protected:
    static constexpr size_t line_size = 96 + bytes_beside;

    int64_t now = 100000;
    log_budget budget{now};

    /// Bytes that are admitted of `lines` different ones.
    size_t flood(log_kind kind, int lines) {
        size_t written = 0;
        for (int each = 0; each < lines; ++each) {
            const log_line line(std::string(90, 'x') + std::to_string(next_++), kind);
            written += budget.admits(line, now) ? line_size : 0;
        }
        return written;
    }

  private:
    int next_ = 100000;
};

TEST_F(Budget, AFloodOfRefusalsIsBoundedByTheHour) {
    size_t written = 0;
    for (int64_t second = 0; second < 10 * hour; ++second) {
        written += flood(log_kind::refusal, 20);
        ++now;
    }
    const log_allowance& allowance = log_allowances[static_cast<size_t>(log_kind::refusal)];
    EXPECT_LE(written, static_cast<size_t>(allowance.bytes_at_once + 10 * allowance.bytes_an_hour));
    EXPECT_GE(written, static_cast<size_t>(10 * allowance.bytes_an_hour) * 9 / 10);
}

TEST_F(Budget, OneKindDoesntUseUpWhatAnotherMayTake) {
    flood(log_kind::refusal, 10000);
    flood(log_kind::orb, 10000);
    EXPECT_EQ(flood(log_kind::refusal, 10), 0U);
    EXPECT_EQ(flood(log_kind::change, 10000), 10000U * line_size);
}

TEST_F(Budget, WhatIsLeftOutIsCountedAndToldAfterAMinute) {
    const size_t written = flood(log_kind::refusal, 10000) / line_size;
    EXPECT_THAT(budget.untold(now + told_every - 1), IsEmpty());
    now += told_every;
    EXPECT_THAT(budget.untold(now), ElementsAre(std::to_string(10000 - written) +
                                                " more refusals were left out, the last: " +
                                                std::string(90, 'x') + "109999"));
    EXPECT_THAT(budget.untold(now + hour), IsEmpty()); // once
}

TEST_F(Budget, ALineThatIsRepeatedIsCounted) {
    const log_line line("session 1: refused, no key", log_kind::refusal);
    EXPECT_TRUE(budget.admits(line, now));
    for (int each = 0; each < 12345; ++each) {
        EXPECT_FALSE(budget.admits(line, now + 1));
    }
    EXPECT_THAT(budget.untold(now + 1 + told_every),
                ElementsAre("12345 more refusals were left out, the last: " + line.text));
}

TEST_F(Budget, TheSameLineIsWrittenAgainAfterAMinute) {
    const log_line line("session 1: opened");
    EXPECT_TRUE(budget.admits(line, now));
    EXPECT_TRUE(budget.admits(line, now + told_every));
}

TEST_F(Budget, ATimeWithoutLinesGivesTheWholeAllowanceBack) {
    const size_t first = flood(log_kind::refusal, 1000);
    now += 1000 * hour;
    EXPECT_EQ(flood(log_kind::refusal, 1000), first);
}

TEST_F(Budget, AClockThatStandsStillOrGoesBackGivesNothing) {
    flood(log_kind::refusal, 1000);
    now -= 1000;
    EXPECT_EQ(flood(log_kind::refusal, 1000), 0U);
}

TEST_F(Budget, TheEndTellsAllThatWasLeftOut) {
    flood(log_kind::refusal, 10000);
    flood(log_kind::orb, 10000);
    EXPECT_EQ(budget.all_untold().size(), 2U);
    EXPECT_THAT(budget.all_untold(), IsEmpty());
}

} // namespace
