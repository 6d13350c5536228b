// throttling_terminate_v7, and the binding to the next layer that it releases.

#include "tests/plugin/layer_start.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class LayerStop : public LayerStart {
  protected:
    void start() {
        ASSERT_EQ(stspi_init(12, path, &record), STS_OK);
        next_layer().take();
    }
};

TEST_F(LayerStop, StopsTheNextLayerAndThenTheLog) {
    const log_file log = log_everything();
    start();
    lines logged_before_release;
    next_layer().effects["stsm_terminate"] = [&](const next_call&) {
        logged_before_release = log.entries();
    };
    EXPECT_EQ(throttling_terminate_v7(), STS_OK);
    EXPECT_THAT(next_layer().take(), ElementsAre("stsm_terminate()"));
    EXPECT_EQ(sts_api, nullptr);
    EXPECT_EQ(logged_before_release.back(), "[DEBUG] [no session][throttling_terminate_v7]enter.");
    throttling_claim_v7("x"); // finds the log closed
    EXPECT_EQ(log.entries(), (lines{"[DEBUG] [no session][stspi_init]log inited.",
                                    "[DEBUG] [no session][throttling_terminate_v7]enter.",
                                    "[DEBUG] [no session][throttling_terminate_v7]leave."}));
}

TEST_F(LayerStop, OneStopOfTwoStartsEntersButDoesNotLeaveAndTheLayerStaysUsable) {
    const log_file log = log_everything();
    start();
    ASSERT_EQ(stspi_init(12, path, &record), STS_OK);
    EXPECT_EQ(throttling_terminate_v7(), STS_OK);
    EXPECT_EQ(log.entries(), (lines{"[DEBUG] [no session][stspi_init]log inited.",
                                    "[DEBUG] [no session][throttling_terminate_v7]enter."}));
    EXPECT_THAT(next_layer().calls, IsEmpty());
    EXPECT_NE(open(), nullptr);
}

TEST_F(LayerStop, WithTheCounterAtZeroRunsTheWholeShutdownAndLeavesItAtZero) {
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(throttling_terminate_v7(), STS_ERR_NOT_INIT);
        EXPECT_THAT(next_layer().take(), ElementsAre("stsm_terminate()"));
    }
    start(); // the first start again, with every step
    EXPECT_NE(sts_api, nullptr);
    EXPECT_EQ(throttling_terminate_v7(), STS_OK);
}

TEST_F(LayerStop, StartAfterTheLastStopRunsEveryStepAgain) {
    const log_file log = log_everything();
    start();
    EXPECT_EQ(throttling_terminate_v7(), STS_OK);
    next_layer().take();
    EXPECT_EQ(stspi_init(12, path, &record), STS_OK);
    EXPECT_THAT(next_layer().take(), ElementsAre("stsm_init(12, \"/some/plugins\", sts_api)"));
    EXPECT_EQ(log.entries().back(), "[DEBUG] [no session][stspi_init]log inited.");
}

TEST_F(LayerStop, ServiceLibraryThatFailsToStopIsLoggedAndTheStopGoesOn) {
    const log_file log = log_everything();
    start();
    wrapped::connector_terminate = 55;
    EXPECT_EQ(throttling_terminate_v7(), STS_ERR_NOT_INIT);
    wrapped::clear();
    EXPECT_THAT(next_layer().take(), ElementsAre("stsm_terminate()"));
    EXPECT_EQ(log.entries(),
              (lines{"[DEBUG] [no session][stspi_init]log inited.",
                     "[DEBUG] [no session][throttling_terminate_v7]enter.",
                     "[ERROR] [no session][throttling_terminate_v7]curl cleanup failed",
                     "[DEBUG] [no session][throttling_terminate_v7]leave."}));
}

TEST_F(LayerStop, ShutdownOfALogThatFailsToCloseIsIgnored) {
    const log_file log = log_everything();
    start();
    fault::fail("fclose", 5);
    EXPECT_EQ(throttling_terminate_v7(), STS_OK);
}

// --- the binding -------------------------------------------------------------------------------

TEST_F(LayerStop, BindingChecksTheVersionBeforeThePath) {
    EXPECT_EQ(sts_init(11, nullptr), STS_ERR_VERSION);
    EXPECT_EQ(sts_init(12, nullptr), STS_ERR_INVALID);
    EXPECT_THAT(next_layer().calls, IsEmpty());
    EXPECT_EQ(sts_init(12, ""), STS_OK);
    EXPECT_EQ(sts_api, fake_next_layer::table());
}

TEST_F(LayerStop, ReleaseThatTheStorageLibraryIgnoresIsNoFailureAndKeepsTheTable) {
    start();
    next_layer().answers["stsm_terminate"] = STS_ERR_TERMINATE_IGNORED;
    EXPECT_EQ(sts_terminate(), STS_OK);
    EXPECT_EQ(sts_api, fake_next_layer::table());
    EXPECT_EQ(throttling_terminate_v7(), STS_OK);
    EXPECT_EQ(sts_api, fake_next_layer::table());
}

TEST_F(LayerStop, ReleaseThatFailsKeepsTheTableAndTheStopIgnoresItsStatus) {
    start();
    next_layer().answers["stsm_terminate"] = 4711;
    EXPECT_EQ(sts_terminate(), 4711);
    EXPECT_EQ(sts_api, fake_next_layer::table());
    EXPECT_EQ(throttling_terminate_v7(), STS_OK);
    EXPECT_EQ(sts_api, fake_next_layer::table());
}

TEST_F(LayerStop, CleanReleaseForgetsTheTable) {
    start();
    EXPECT_EQ(sts_terminate(), STS_OK);
    EXPECT_EQ(sts_api, nullptr);
}

TEST_F(LayerStop, CallsAnswerNotInitWhileNothingIsBound) {
    EXPECT_EQ(sts_notinit(), STS_ERR_NOT_INIT);
}

} // namespace
