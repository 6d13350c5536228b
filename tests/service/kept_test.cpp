// What of the book outlasts the service, and what a file that isn't its own does to it.

#include "tests/service/ledger_fixture.h"

#include "service/kept_state.h"

#include <filesystem>
#include <fstream>
#include <sys/stat.h>

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

class Kept : public LedgerTest {
  protected:
    Kept() {
        std::string path = (std::filesystem::temp_directory_path() / "kept-XXXXXX").string();
        EXPECT_NE(mkdtemp(path.data()), nullptr);
        scratch_ = path;
        directory_.emplace(path);
        configure(row("s3", 3) + row("AVAIL_BANDWIDTH", 1000) + row("SAMPLE_INTERVAL", 30) +
                  row("WRITE_BANDWIDTH_PERCENT", 50));
        book.configure(9, row("tape", 7) + row("AVAIL_BANDWIDTH", 300), now);
    }
    ~Kept() override { std::filesystem::remove_all(scratch_); }

    void limit(const std::optional<std::string>& whom, uint64_t writes,
               std::optional<int64_t> seconds = std::nullopt) {
        book.limit(whom, {{std::nullopt, writes}, std::nullopt, seconds}, "a test", now);
    }
    /// A service that is started anew with what this one kept.
    std::unique_ptr<ledger> restarted() {
        auto next = std::make_unique<ledger>(lease, now, [](const std::string&) {});
        next->restore(parse_kept_book(text_of(book.keep(now))), now);
        return next;
    }
    static storage_view seen_of(ledger& which, moment when, const std::string& storage) {
        for (const storage_view& each : which.view(when).storages) {
            if (each.name == storage) {
                return each;
            }
        }
        return {};
    }
    answer report_to(ledger& which, session_number who, const std::string& key, uint64_t bytes) {
        const auto end = static_cast<uint32_t>(now.wall);
        return which.check_bandwidth(who, key, "host_1", {1U, end - 30, end, bytes}, now);
    }
    void write_book(const std::string& text) const {
        std::ofstream(scratch_ / "book") << text;
        std::filesystem::permissions(scratch_ / "book", std::filesystem::perms(0600));
    }

    std::filesystem::path scratch_;
    std::optional<state_directory> directory_;
};

TEST_F(Kept, SettingsAndLimitsOfEachStorageComeBack) {
    limit("s3", 40);
    limit("later", 50, 100);
    limit(std::nullopt, 60, 50);
    const std::unique_ptr<ledger> next = restarted();
    EXPECT_EQ(seen_of(*next, now, "s3").limit, 3);
    EXPECT_EQ(seen_of(*next, now, "s3").sample_interval, 30);
    EXPECT_EQ(seen_of(*next, now, "s3").now.read.allowed, 1000);
    EXPECT_EQ(seen_of(*next, now, "s3").now.write.allowed, 40);
    EXPECT_EQ(seen_of(*next, now, "tape").limit, 7);
    EXPECT_EQ(seen_of(*next, now, "tape").now.read.allowed, 300);
    next->check_connections(1, "a:new", "h", 1, now);
    EXPECT_EQ(seen_of(*next, now, "new").now.read.allowed, 300) << "as the last text says";
    EXPECT_EQ(next->limits(now).size(), 3);
    pass(60);
    EXPECT_EQ(next->limits(now).size(), 2) << "their time goes on";
    pass(60);
    EXPECT_EQ(next->limits(now).size(), 1);
}

TEST_F(Kept, ALimitRunsOutWhileNoServiceIsThere) {
    limit("s3", 40, 100);
    const kept_book kept = book.keep(now);
    pass(200);
    ledger next(lease, now, [](const std::string&) {});
    next.restore(kept, now);
    EXPECT_EQ(seen_of(next, now, "s3").now.write.allowed, 500);
    EXPECT_THAT(next.limits(now), IsEmpty());
}

TEST_F(Kept, ARestartInTheMiddleChangesNoRate) {
    for (const session_number who : {session_number{1}, session_number{2}, session_number{3}}) {
        report(who, "w:s3");
    }
    for (int each = 0; each < 20; ++each) {
        pass(30);
        for (const session_number who : {session_number{1}, session_number{2}, session_number{3}}) {
            report(who, "w:s3", 500 / 3 * 30, 30);
        }
    }
    const std::unique_ptr<ledger> next = restarted();
    pass(10);
    EXPECT_EQ(writers_in(report_to(*next, 1, "w:s3", 5000)), 3) << "of whom it has heard of one";
    EXPECT_EQ(writers_in(report_to(*next, 2, "w:s3", 5000)), 3);
    pass(20);
    EXPECT_EQ(writers_in(report_to(*next, 3, "w:s3", 5000)), 3);
}

TEST_F(Kept, NorDoesItUnderACapOfTheHost) {
    for (const session_number who : {session_number{1}, session_number{2}}) {
        report(who, "w:s3");
        report(who, "w:tape");
    }
    limit(std::nullopt, 100);
    const std::unique_ptr<ledger> next = restarted();
    EXPECT_EQ(writers_in(report_to(*next, 1, "w:s3", 0)), 20) << "500 of its own, of 100 a quarter";
}

TEST_F(Kept, WhoDoesNotComeBackIsNotWaitedForLongerThanASilentFlow) {
    report(1, "w:s3");
    report(2, "w:s3");
    const std::unique_ptr<ledger> next = restarted();
    EXPECT_EQ(writers_in(report_to(*next, 1, "w:s3", 0)), 2);
    pass(59);
    EXPECT_EQ(writers_in(report_to(*next, 1, "w:s3", 250 * 59)), 2);
    pass(1);
    EXPECT_EQ(writers_in(report_to(*next, 1, "w:s3", 250)), 1);
}

TEST_F(Kept, IsWrittenWhenItChanges) {
    book_keeper keeper(
        *directory_, book, [](const std::string&) {}, now);
    limit("s3", 40);
    keeper.tick(now);
    struct stat found = {};
    ASSERT_EQ(stat((scratch_ / "book").c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777U, 0600U);
    std::filesystem::remove(scratch_ / "book");
    keeper.tick(now);
    EXPECT_FALSE(std::filesystem::exists(scratch_ / "book")) << "nothing has changed";
    limit("s3", 40);
    keeper.tick(now);
    ledger next(lease, now, [](const std::string&) {});
    const book_keeper again(
        *directory_, next, [](const std::string&) {}, now);
    EXPECT_EQ(seen_of(next, now, "s3").now.write.allowed, 40);
}

TEST_F(Kept, ADamagedBookIsPutAsideWithAWarning) {
    const std::string good = text_of(book.keep(now));
    const std::vector<std::string> damaged = {
        "",
        "rubbish",
        "[]",
        "{}",
        good.substr(0, good.size() / 2),
        R"({"format":2,"settings":[],"storages":[],"limits":[]})",
        R"({"format":1,"settings":[7],"storages":[],"limits":[]})",
        R"({"format":1,"settings":[],"storages":[{}],"limits":[]})",
        R"({"format":1,"settings":[],"storages":[{"name":7,"settings":null,"limit":1,"readers":0,"writers":0}],"limits":[]})",
        R"({"format":1,"settings":[],"storages":[{"name":"x","settings":null,"limit":1,"readers":-1,"writers":0}],"limits":[]})",
        R"({"format":1,"settings":[],"storages":[{"name":"x","settings":null,"limit":1,"readers":1e99,"writers":0}],"limits":[]})",
        R"({"format":1,"settings":[],"storages":[],"limits":[{"storage":"x","read":{"value":-1,"until":null},"write":null,"connections":null}]})",
        R"({"format":1,"settings":[],"storages":[],"limits":[{"storage":"x","read":{"value":1,"until":9223372036854775807},"write":null,"connections":null}]})",
        R"({"format":1,"settings":[],"storages":[],"limits":[{"storage":"\u0100","read":null,"write":null,"connections":null}]})",
        std::string(100'000, '[')};
    for (const std::string& text : damaged) {
        write_book(text);
        std::vector<std::string> said;
        ledger next(lease, now, [](const std::string&) {});
        const book_keeper keeper(
            *directory_, next, [&](const std::string& line) { said.push_back(line); }, now);
        ASSERT_EQ(said.size(), 1) << text.substr(0, 200);
        EXPECT_THAT(said[0],
                    AllOf(StartsWith("warning: " + (scratch_ / "book").string() + ": "),
                          HasSubstr("; it is put aside as book.refused, and settings and limits "
                                    "begin anew")));
        EXPECT_FALSE(std::filesystem::exists(scratch_ / "book"));
        EXPECT_TRUE(std::filesystem::exists(scratch_ / "book.refused"));
        EXPECT_THAT(next.view(now).storages, IsEmpty());
        EXPECT_THAT(next.limits(now), IsEmpty());
    }
}

TEST_F(Kept, WhatOthersMayHaveWrittenIsNotBelieved) {
    write_book(text_of(book.keep(now)));
    std::filesystem::permissions(scratch_ / "book", std::filesystem::perms(0666));
    std::vector<std::string> said;
    ledger next(lease, now, [](const std::string&) {});
    const book_keeper keeper(
        *directory_, next, [&](const std::string& line) { said.push_back(line); }, now);
    EXPECT_THAT(said, Contains(HasSubstr("mode 0666")));
    EXPECT_THAT(next.view(now).storages, IsEmpty());
}

TEST_F(Kept, WhatCantBeIsLeftOutAndTheRestTaken) {
    kept_book kept = book.keep(now);
    kept.settings.push_back("rubbish");
    kept.storages.push_back({"a\nb", 0, 5, {0, 0}});
    kept.storages.push_back({"unread", kept.settings.size() - 1, 5, {0, 0}});
    kept.storages.push_back({"beyond", 999, 5, {0, 0}});
    kept.storages.push_back({"none", 0, 0, {0, 0}});
    kept.limits.push_back({"c\nd", {}, {}, true, std::nullopt});
    ledger next(lease, now, [](const std::string&) {});
    next.restore(kept, now);
    EXPECT_EQ(seen_of(next, now, "s3").limit, 3);
    EXPECT_EQ(seen_of(next, now, "unread").limit, 10);
    EXPECT_EQ(seen_of(next, now, "beyond").limit, 10);
    EXPECT_EQ(seen_of(next, now, "none").limit, 10);
    EXPECT_THAT(next.limits(now), IsEmpty());
    EXPECT_EQ(next.view(now).storages.size(), 5);
}

TEST_F(Kept, AFullBookComesBackWhole) {
    std::string rows;
    for (size_t each = 0; each < 900; ++each) {
        rows += "name=THR:" + std::string(20, 'n') + std::to_string(each) + ",value=5,";
    }
    configure(rows);
    const std::unique_ptr<ledger> next = restarted();
    EXPECT_EQ(next->view(now).storages.size(), 902);
}

} // namespace
