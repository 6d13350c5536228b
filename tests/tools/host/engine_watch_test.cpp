// What the host hears from the engine.

#include "tools/host/engine_watch.h"

#include <gtest/gtest.h>
#include <thread>

namespace {

class EngineWatch : public testing::Test {
  protected:
    EngineWatch() { say("[check_bandwidth]bandwidth_per_second=9,conne#=1."); }
    ~EngineWatch() override { say("[check_bandwidth]bandwidth_per_second=9,conne#=1."); }

    void say(const char* message, sts_severity_v7_t severity = STS_SEV_DEBUG) const {
        session.log(session.session_id, message, severity);
    }

    sts_session_def_v7_t session = watching_session("id", log_choice::nothing);
};

TEST_F(EngineWatch, HearsDebugMessagesAlsoWhenNothingIsShown) {
    EXPECT_EQ(session.log_mask, STS_LOG_DEBUG | STS_LOG_WARN | STS_LOG_ERROR);
    EXPECT_STREQ(session.session_id, "id");
}

TEST_F(EngineWatch, TakesWarningsAndErrorsWhenTheyAreShown) {
    EXPECT_EQ(watching_session("id", log_choice::problems).log_mask,
              STS_LOG_DEBUG | STS_LOG_INFO | STS_LOG_WARN | STS_LOG_ERROR | STS_LOG_HOST);
    watching_session("id", log_choice::nothing);
}

TEST_F(EngineWatch, AddsUpTheSecondsThatTheEngineSleeps) {
    std::atomic<uint64_t> slept{0};
    const slept_seconds account(slept);
    say("[check_bandwidth]enter.");
    say("[check_bandwidth]sleep locally=3.");
    say("[check_bandwidth]sleep for last transfer=40.");
    say("[check_connections]sleep for last transfer=500.");
    EXPECT_EQ(slept, 543U);
}

TEST_F(EngineWatch, TakesNoOtherMessageForASleep) {
    std::atomic<uint64_t> slept{0};
    const slept_seconds account(slept);
    say("[check_bandwidth]wait_seconds_=7.");
    say("[read_config_file_to_var]sleep locally=3.");
    say("[check_bandwidth]sleep locally=3.", STS_SEV_ERROR);
    say("sleep locally=3.");
    say("[check_bandwidth");
    say("[check_bandwidth]sleep locally=-3.");
    say("[check_bandwidth]sleep locally");
    say("");
    EXPECT_EQ(slept, 0U);
}

TEST_F(EngineWatch, AccountsToTheThreadThatSleeps) {
    std::atomic<uint64_t> here{0};
    std::atomic<uint64_t> there{0};
    const slept_seconds account(here);
    std::thread([&] {
        say("[check_bandwidth]sleep locally=100."); // on nobody's account
        const slept_seconds its_account(there);
        say("[check_bandwidth]sleep locally=1.");
    }).join();
    {
        const slept_seconds inner(there);
        say("[check_bandwidth]sleep locally=1.");
    }
    say("[check_bandwidth]sleep locally=5.");
    EXPECT_EQ(here, 5U);
    EXPECT_EQ(there, 2U);
}

TEST_F(EngineWatch, HearsHowManyConnectionsShare) {
    EXPECT_EQ(sharing_connections(), 1U);
    say("[check_bandwidth]bandwidth_per_second=1000,conne#=4.");
    EXPECT_EQ(sharing_connections(), 4U);
    say("[check_bandwidth]bandwidth_per_second=1000,conne#=-4.");
    EXPECT_EQ(sharing_connections(), 1U);
}

} // namespace
