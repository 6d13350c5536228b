// Lines of the log are written with nothing locked.

#include "service/line_queue.h"

#include "tests/service/ledger_fixture.h"

#include <condition_variable>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>

namespace {

TEST(LineQueue, HandsOverInOrder) {
    std::vector<std::string> lines;
    line_queue queue([&](const std::string& line) { lines.push_back(line); });
    queue.put("one");
    queue.put("two");
    EXPECT_TRUE(lines.empty());
    queue.hand_over();
    queue.hand_over();
    EXPECT_THAT(lines, testing::ElementsAre("one", "two"));
}

TEST(LineQueue, WhatIsPutInMeanwhileGoesAlong) {
    std::vector<std::string> lines;
    line_queue* itself = nullptr;
    line_queue queue([&](const std::string& line) {
        lines.push_back(line);
        if (line == "one") {
            itself->put("two");
            itself->hand_over(); // as another thread would
        }
    });
    itself = &queue;
    queue.put("one");
    queue.hand_over();
    EXPECT_THAT(lines, testing::ElementsAre("one", "two"));
}

TEST(LineQueue, LeavesOutAndTellsWhatIsTooMuch) {
    std::vector<std::string> lines;
    line_queue queue([&](const std::string& line) { lines.push_back(line); });
    for (size_t each = 0; each < most_waiting_lines + 3; ++each) {
        queue.put("x");
    }
    queue.hand_over();
    EXPECT_EQ(lines.size(), most_waiting_lines + 1);
    EXPECT_EQ(lines.back(), "3 lines left out, the log is slow");
}

/// A log that stands still at its first line until it is let go.
class slow_log {
  public:
    void take(const std::string& line) {
        std::unique_lock<std::mutex> guard(lock_);
        lines_.push_back(line);
        is_writing_ = true;
        changed_.notify_all();
        changed_.wait(guard, [&] { return may_go_on_; });
    }
    void await_line() {
        std::unique_lock<std::mutex> guard(lock_);
        changed_.wait(guard, [&] { return is_writing_; });
    }
    void let_go() {
        const std::lock_guard<std::mutex> guard(lock_);
        may_go_on_ = true;
        changed_.notify_all();
    }
    std::vector<std::string> lines() {
        const std::lock_guard<std::mutex> guard(lock_);
        return lines_;
    }

  private:
    std::mutex lock_;
    std::condition_variable changed_;
    std::vector<std::string> lines_;
    bool is_writing_ = false;
    bool may_go_on_ = false;
};

TEST(LedgerLog, ALineThatIsBeingWrittenHoldsNobodyUp) {
    slow_log log;
    const moment now = {1000, 1000};
    ledger book(3600, now, [&](const std::string& line) { log.take(line); });
    std::thread writer([&] { book.open(1, now); });
    log.await_line();
    // All of these would wait for the line if the book were locked meanwhile.
    book.open(2, now);
    EXPECT_EQ(book.check_connections(2, "a:s3", "h", 1, now).status, 0);
    EXPECT_EQ(book.check_bandwidth(2, "w:s3", "h", {1, 0, 1, 5}, now).status, 0);
    EXPECT_NE(book.configure(2, "rubbish", now), 0);
    book.hear(2, now);
    book.close(2, now);
    book.tick({now.uptime + 3600, now.wall});
    EXPECT_EQ(book.view(now).sessions, 0U);
    EXPECT_EQ(log.lines().size(), 1U);
    log.let_go();
    writer.join(); // it takes along what the others left
    EXPECT_THAT(
        log.lines(),
        testing::ElementsAre(called(1) + " \"\": opened", called(2) + " \"\": opened",
                             called(2) + " \"h\": connects to \"s3\", 1 of 10",
                             called(2) + " \"h\": writes \"s3\", one of 1",
                             called(2) + ": refused, settings without a readable row: \"rubbish\"",
                             called(2) + " \"h\": ended by its client",
                             called(2) + " \"h\": ended by its client: writes \"s3\", 0 left",
                             called(2) + " \"h\": disconnects from \"s3\", 0 left",
                             called(1) + " \"\": ended, its lease has run out"));
}

TEST(LedgerLog, ItsSinkMayAskTheBook) {
    ledger* itself = nullptr;
    const moment now = {1000, 1000};
    size_t seen = 0;
    ledger book(3600, now, [&](const std::string&) { seen = itself->view(now).sessions; });
    itself = &book;
    book.open(1, now);
    EXPECT_EQ(seen, 1U);
}

} // namespace
