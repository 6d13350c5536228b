// stspi_init: the steps of the first start, what each failure leaves behind, and further calls.

#include "tests/plugin/layer_start.h"

#include <cerrno>
#include <cstring>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

TEST_F(LayerStart, VersionBelowElevenIsRefusedAndLeavesTheCounterAtZero) {
    for (const uint64_t version : {0UL, 1UL, 10UL}) {
        EXPECT_EQ(stspi_init(version, path, &record), STS_ERR_PLUGIN_VERSION);
    }
    EXPECT_THAT(next_layer().calls, IsEmpty());
    EXPECT_FALSE(record_is_filled());
    EXPECT_EQ(throttling_terminate_v7(), STS_ERR_NOT_INIT);
}

TEST_F(LayerStart, VersionTwelveBindsTheNextLayerWithTheHostsVersionAndPath) {
    EXPECT_EQ(stspi_init(12, path, &record), STS_OK);
    ASSERT_THAT(next_layer().calls, testing::SizeIs(1));
    const next_call& call = next_layer().last("stsm_init");
    EXPECT_EQ(call.line(), "stsm_init(12, \"/some/plugins\", sts_api)");
    EXPECT_EQ(call.pointer<const char>(1), path);
    EXPECT_EQ(sts_api, fake_next_layer::table());
    EXPECT_TRUE(record_is_filled());
}

TEST_F(LayerStart, ConfigurationIsReadThenTheLogOpenedThenTheNextLayerBound) {
    log_file log = log_everything();
    lines logged_before_binding;
    next_layer().effects["stsm_init"] = [&](const next_call&) {
        logged_before_binding = log.entries();
    };
    EXPECT_EQ(stspi_init(12, path, &record), STS_OK);
    const lines inited = {"[DEBUG] [no session][stspi_init]log inited."};
    EXPECT_EQ(logged_before_binding, inited); // at the level that was configured
    EXPECT_EQ(log.entries(), inited);
}

TEST_F(LayerStart, FirstStartWritesTheDefaultSettings) {
    EXPECT_EQ(stspi_init(12, path, &record), STS_OK);
    EXPECT_EQ(conf_dir::read(files.plugin_file()), default_file());
}

TEST_F(LayerStart, FirstStartWithAVersionOtherThanTwelveOpensAndClosesTheLogAndCanBeRetried) {
    const log_file log = log_everything();
    for (const uint64_t version : {11UL, 13UL}) {
        EXPECT_EQ(stspi_init(version, path, &record), STS_ERR_VERSION);
        EXPECT_THAT(next_layer().take(), ElementsAre("stsm_terminate()"));
    }
    EXPECT_FALSE(record_is_filled());
    const lines start_and_stop = {"[DEBUG] [no session][stspi_init]log inited.",
                                  "[DEBUG] [no session][throttling_terminate_v7]enter.",
                                  "[DEBUG] [no session][throttling_terminate_v7]leave."};
    lines twice = start_and_stop;
    twice.insert(twice.end(), start_and_stop.begin(), start_and_stop.end());
    EXPECT_EQ(log.entries(), twice); // the error line finds the log closed

    EXPECT_EQ(throttling_terminate_v7(), STS_ERR_NOT_INIT); // the counter was at zero
    next_layer().take();
    EXPECT_EQ(stspi_init(12, path, &record), STS_OK);
    EXPECT_THAT(next_layer().calls, testing::SizeIs(1));
}

TEST_F(LayerStart, NullPathIsRefusedWhenTheNextLayerIsBound) {
    EXPECT_EQ(stspi_init(12, nullptr, &record), STS_ERR_INVALID);
    EXPECT_THAT(next_layer().take(), ElementsAre("stsm_terminate()"));
    EXPECT_EQ(throttling_terminate_v7(), STS_ERR_NOT_INIT);
}

TEST_F(LayerStart, StatusOfTheStorageLibraryIsTheResultAndTheStartCanBeRetried) {
    next_layer().answers["stsm_init"] = 4711;
    EXPECT_EQ(stspi_init(12, path, &record), 4711);
    EXPECT_THAT(next_layer().take(),
                ElementsAre("stsm_init(12, \"/some/plugins\", sts_api)", "stsm_terminate()"));
    EXPECT_EQ(sts_api, nullptr);
    EXPECT_FALSE(record_is_filled());
    next_layer().answers.clear();
    EXPECT_EQ(stspi_init(12, path, &record), STS_OK);
    EXPECT_NE(sts_api, nullptr);
    EXPECT_TRUE(record_is_filled());
}

TEST_F(LayerStart, SecondStartWithVersionElevenFillsTheRecordAndDoesNothingElse) {
    ASSERT_EQ(stspi_init(12, path, &record), STS_OK);
    next_layer().take();
    const log_file log = log_everything(); // would be opened if the settings were read again
    clear_record();
    EXPECT_EQ(stspi_init(11, nullptr, &record), STS_OK);
    EXPECT_TRUE(record_is_filled());
    EXPECT_THAT(next_layer().calls, IsEmpty());
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST_F(LayerStart, SecondStartBelowVersionElevenIsRefusedAndNotCounted) {
    ASSERT_EQ(stspi_init(12, path, &record), STS_OK);
    EXPECT_EQ(stspi_init(10, path, &record), STS_ERR_PLUGIN_VERSION);
    EXPECT_EQ(throttling_terminate_v7(), STS_OK);
    EXPECT_EQ(sts_api, nullptr); // that was the last one
}

// --- failures that leave the layer counted as started ------------------------------------------

TEST_F(LayerStart, UnreadableConfigurationFailsTheStartAndARepeatReportsSuccessUnbound) {
    const log_file log = log_everything();
    fault::fail("fopen", EACCES);
    EXPECT_EQ(stspi_init(12, path, &record), STS_ERR_FILE);
    EXPECT_THAT(log.entries(), IsEmpty());
    expect_counted_but_unbound();
}

TEST_F(LayerStart, LogThatCantBeOpenedFailsTheStartAndARepeatReportsSuccessUnbound) {
    files.write_plugin_file("THR:LOG_LEVEL=5\n");
    fault::redirect(THROTTLING_LOG_ROOT, files.path() + "/nowhere");
    EXPECT_EQ(stspi_init(12, path, &record), STS_ERR_OPEN);
    EXPECT_EQ(fault::last_opened().rfind(THROTTLING_LOG_ROOT "/vlcssc/throttlinglog_", 0), 0U);
    expect_counted_but_unbound();
}

TEST_F(LayerStart, ServiceLibraryThatFailsIsLoggedWithAZeroAndLeavesTheLogOpen) {
    const log_file log = log_everything();
    wrapped::connector_init = 55;
    EXPECT_EQ(stspi_init(12, path, &record), STS_ERR_NOT_INIT);
    wrapped::clear();
    EXPECT_EQ(log.entries(), (lines{"[DEBUG] [no session][stspi_init]log inited.",
                                    "[ERROR] [no session][stspi_init]fail to init curl:0."}));
    expect_counted_but_unbound();
    throttling_claim_v7("x");
    EXPECT_EQ(log.entries().back(), "[DEBUG] [no session][throttling_claim_v7]enter.");
}

} // namespace
