// The client's lines for the host's log.

#include "tests/client/client_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class ClientLog : public testing::Test {
  protected:
    ClientLog() { take_log(); }

    sts_session_def_v7_t session = host_session("the session", 0);
};

TEST_F(ClientLog, HandsOverTheSessionTheFormattedTextAndTheSeverity) {
    CCloudVLSLClient client(&session, "localhost", false, 0, 1);
    client.LogMsg(STS_SEV_WARN, "%s and %d", "text", 7);
    ASSERT_EQ(host_log().size(), 1U);
    EXPECT_EQ(host_log()[0].session, "the session");
    EXPECT_EQ(host_log()[0].text, "text and 7");
    EXPECT_EQ(host_log()[0].severity, STS_SEV_WARN);
}

TEST_F(ClientLog, DoesNotAskTheLogMask) {
    CCloudVLSLClient client(&session, "localhost", false, 0, 1);
    for (const auto severity :
         {STS_SEV_INFO, STS_SEV_WARN, STS_SEV_DEBUG, STS_SEV_ERROR, STS_SEV_HOST}) {
        client.LogMsg(severity, "line");
    }
    EXPECT_THAT(take_log(), ElementsAre("1 line", "2 line", "3 line", "4 line", "5 line"));
}

TEST_F(ClientLog, SaysNothingWithoutASession) {
    CCloudVLSLClient client(nullptr, "localhost", false, 0, 1);
    client.LogMsg(STS_SEV_ERROR, "line");
    EXPECT_THAT(take_log(), IsEmpty());
}

TEST_F(ClientLog, SaysNothingToASessionWithoutACallback) {
    session.log = nullptr;
    CCloudVLSLClient client(&session, "localhost", false, 0, 1);
    client.LogMsg(STS_SEV_ERROR, "line");
    EXPECT_THAT(take_log(), IsEmpty());
}

TEST_F(ClientLog, PassesASessionWithoutAnIdentifierOnAsItIs) {
    session.session_id = nullptr;
    CCloudVLSLClient client(&session, "localhost", false, 0, 1);
    client.LogMsg(STS_SEV_ERROR, "line");
    EXPECT_EQ(host_log().at(0).session, "(null)");
}

TEST_F(ClientLog, CutsALineAt1023Bytes) {
    CCloudVLSLClient client(&session, "localhost", false, 0, 1);
    for (const size_t length : {size_t{1022}, size_t{1023}, size_t{1024}, size_t{100'000}}) {
        const std::string text(length, 'x');
        client.LogMsg(STS_SEV_ERROR, "%s", text.c_str());
        EXPECT_EQ(host_log().back().text, text.substr(0, 1023));
    }
}

TEST_F(ClientLog, PassesAnEmptyLineOn) {
    CCloudVLSLClient client(&session, "localhost", false, 0, 1);
    client.LogMsg(STS_SEV_ERROR, "%s", "");
    EXPECT_THAT(take_log(), ElementsAre("4 "));
}

} // namespace
