// Who may connect to a storage: as many as its limit says.

#include "tests/service/ledger_fixture.h"

#include "plugin/stsapi.h"

using testing::HasSubstr;

namespace {

class Admission : public LedgerTest {
  protected:
    void SetUp() override {
        configure(row("s3", 2) + row("DEFAULT_MAX_CONNECTIONS", 3) + row("tape", 1));
    }
};

TEST_F(Admission, AdmitsUpToTheLimitAndAnswers2060020Beyond) {
    EXPECT_EQ(connect(1).status, 0);
    EXPECT_EQ(connect(2).status, 0);
    EXPECT_EQ(connect(3).status, 2060020);
    EXPECT_EQ(connections(), 2);
}

TEST_F(Admission, ARefusalSaysWhyAndHasNoRows) {
    connect(1);
    connect(2);
    const std::string text = connect(3).text;
    EXPECT_EQ(text, "storage \"s3\" has all 2 connections of its limit");
    EXPECT_THAT(lines.back(), HasSubstr("connection refused: storage \"s3\" has all 2"));
    EXPECT_EQ(seen().refused, 1);
}

TEST_F(Admission, GivenBackConnectionIsFreeForTheNext) {
    connect(1);
    connect(2);
    EXPECT_EQ(disconnect(1).status, 0);
    EXPECT_EQ(connect(3).status, 0);
    EXPECT_EQ(connections(), 2);
}

TEST_F(Admission, OneSessionMayHoldSeveral) {
    connect(1);
    connect(1);
    EXPECT_EQ(connect(1).status, STS_ERR_MAX_CONNECTIONS);
    disconnect(1);
    EXPECT_EQ(connections(), 1);
}

TEST_F(Admission, NeverFallsBelowZero) {
    EXPECT_EQ(disconnect(1).status, 0);
    connect(1);
    disconnect(1);
    disconnect(1);
    EXPECT_EQ(connections(), 0);
    connect(1);
    EXPECT_EQ(connections(), 1);
}

TEST_F(Admission, ASessionThatOnlyTransfersHasNothingToGiveBack) {
    book.open(5, now);
    report(5, "w:s3");
    disconnect(5);
    EXPECT_EQ(connections(), 0);
}

TEST_F(Admission, ASessionGivesBackNothingOfAnothers) {
    connect(1);
    disconnect(2);
    EXPECT_EQ(connections(), 1);
}

TEST_F(Admission, EachStorageHasItsOwnLimit) {
    EXPECT_EQ(connect(1, "tape").status, 0);
    EXPECT_EQ(connect(2, "tape").status, STS_ERR_MAX_CONNECTIONS);
    EXPECT_EQ(connect(2, "s3").status, 0);
}

TEST_F(Admission, AStorageWithoutARowHasTheDefaultLimit) {
    for (session_number each = 1; each <= 3; ++each) {
        EXPECT_EQ(connect(each, "other").status, 0);
    }
    EXPECT_EQ(connect(4, "other").status, STS_ERR_MAX_CONNECTIONS);
}

TEST_F(Admission, ALowerLimitEndsNobodyAndAdmitsNobody) {
    connect(1);
    connect(2);
    configure(row("s3", 1));
    EXPECT_EQ(connections(), 2);
    disconnect(1);
    EXPECT_EQ(connect(3).status, STS_ERR_MAX_CONNECTIONS);
    disconnect(2);
    EXPECT_EQ(connect(3).status, 0);
}

TEST_F(Admission, TheReplyHasTheFourRowsThatClientsRead) {
    EXPECT_EQ(connect(1).text,
              "name=THR_R_CONNECTION_COUNTS,description=sessions reading,type=int,value=1,fixed=y;"
              "name=THR_W_CONNECTION_COUNTS,description=sessions writing,type=int,value=1,fixed=y;"
              "name=THR_FREE_FLOW,description=bandwidth left[bytes/second],type=int,"
              "value=104857600,fixed=y;"
              "name=THR_WAIT_SECONDS,description=time to wait[seconds],type=int,value=0,fixed=y;");
}

TEST_F(Admission, ALineIsLoggedForEachChange) {
    lines.clear();
    book.open(7, now);
    connect(7);
    disconnect(7);
    book.close(7, now);
    EXPECT_THAT(lines,
                testing::ElementsAre(called(7) + " \"\": opened",
                                     called(7) + " \"host_1\": connects to \"s3\", 1 of 2",
                                     called(7) + " \"host_1\": disconnects from \"s3\", 0 left",
                                     called(7) + " \"host_1\": ended by its client"));
}

} // namespace
