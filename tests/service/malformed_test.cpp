// Keys and texts that aren't any.

#include "tests/service/ledger_fixture.h"

#include "service/in_quotes.h"

#include "plugin/stsapi.h"

#include <gmock/gmock.h>

using testing::HasSubstr;

namespace {

class Malformed : public LedgerTest {
  protected:
    void expect_refused(const answer& reply) {
        EXPECT_EQ(reply.status, STS_ERR_INVALID);
        EXPECT_THAT(reply.text, testing::Not(HasSubstr("THR_")));
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_THAT(lines[0], HasSubstr(called(1) + ": refused, "));
        EXPECT_TRUE(book.view(now).storages.empty());
        lines.clear();
    }
    answer ask(const std::string& key, const std::string& text = "host_1", int delta = 1) {
        return book.check_connections(1, key, text, delta, now);
    }
};

const std::string no_keys[] = {"",
                               ":",
                               "a",
                               "a:",
                               "r:",
                               "s3",
                               "as3",
                               "x:s3",
                               "A:s3",
                               ":s3",
                               "aa:s3",
                               " a:s3",
                               "a:s\n3",
                               "a:\x7f",
                               std::string("a:s3\0", 5),
                               "a:" + std::string(STS_NAME_SIZE, 'n')};

TEST_F(Malformed, KeysAreRefusedWithALogLine) {
    for (const std::string& key : no_keys) {
        SCOPED_TRACE(key);
        expect_refused(ask(key));
        expect_refused(book.check_bandwidth(1, key, "host_1", {1, 0, 0, 0}, now));
    }
    EXPECT_EQ(book.view(now).malformed, static_cast<int64_t>(2 * std::size(no_keys)));
}

TEST_F(Malformed, TheLongestNameIsStillAKey) {
    EXPECT_EQ(ask("a:" + std::string(STS_NAME_SIZE - 1, 'n')).status, 0);
    EXPECT_EQ(ask("a:a:b,value=7;\xe4").status, 0);
}

TEST_F(Malformed, SessionTextsWithColonsOrControlCharactersAreRefused) {
    for (const std::string& text :
         {std::string("host:1"), std::string("a\nb"), std::string(STS_NAME_SIZE, 'x')}) {
        expect_refused(ask("a:s3", text));
        expect_refused(book.check_bandwidth(1, "w:s3", text, {1, 0, 0, 0}, now));
    }
    EXPECT_EQ(ask("a:s3", "").status, 0);
    EXPECT_EQ(ask("a:s3", "no_session_id").status, 0);
}

TEST_F(Malformed, OnlyOneAndMinusOneAreChanges) {
    for (const int delta : {0, 2, -2, INT32_MAX, INT32_MIN}) {
        expect_refused(ask("a:s3", "host_1", delta));
        expect_refused(ask("r:s3", "host_1", delta));
    }
}

TEST_F(Malformed, ASampleOfAnotherDirectionThanItsKeyIsRefused) {
    expect_refused(book.check_bandwidth(1, "w:s3", "h", {0, 0, 0, 0}, now));
    expect_refused(book.check_bandwidth(1, "r:s3", "h", {1, 0, 0, 0}, now));
    expect_refused(book.check_bandwidth(1, "r:s3", "h", {7, 0, 0, 0}, now));
}

TEST_F(Malformed, SamplesAreNotTakenForConnections) {
    expect_refused(book.check_bandwidth(1, "a:s3", "h", {0, 0, 0, 0}, now));
    expect_refused(book.check_bandwidth(1, "a:s3", "h", {1, 0, 0, 0}, now));
}

TEST_F(Malformed, WhatIsLoggedStaysOnItsLine) {
    ask("a:x\ny\"z\\");
    EXPECT_EQ(lines.at(0), called(1) + R"(: refused, no key: "a:x\x0ay\"z\\")");
}

TEST(InQuotes, CutsWhatIsTooLong) {
    EXPECT_EQ(in_quotes(std::string(128, 'x')), '"' + std::string(128, 'x') + '"');
    EXPECT_EQ(in_quotes(std::string(129, 'x')), '"' + std::string(128, 'x') + "...\"");
}

} // namespace
