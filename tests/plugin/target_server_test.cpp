// throttling_open_target_server: a second server made from an open one, as the target of a copy.

#include "tests/plugin/frame.h"

#include <cstring>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class TargetServer : public Frame {
  protected:
    TargetServer() {
        turn_throttling_on();
        source = open();
    }

    server_ptr open_target() {
        throttling_server_s* target = nullptr;
        EXPECT_EQ(throttling_open_target_server(source.get(), 11, 22, 33, &target), STS_OK);
        return server_ptr(target);
    }

    server_ptr source;
};

TEST_F(TargetServer, PassesTheForwardedArgumentsAndLogsNothing) {
    throttling_server_s* target = nullptr;
    EXPECT_EQ(throttling_open_target_server(source.get(), 11, 22, 33, &target), STS_OK);
    EXPECT_EQ(take_whole_story(), lines{"-> open_target_server(#2, 11, 22, 33, out)"});
    EXPECT_EQ(next_layer().text_of(target->next_server), "#3");
    close_at_end()(target);
}

TEST_F(TargetServer, IsInOutWithoutANextServerWhileTheSlotRuns) {
    throttling_server_s* target = nullptr;
    bool seen = false;
    next_layer().effects["open_target_server"] = [&](const next_call& call) {
        ASSERT_NE(target, nullptr);
        EXPECT_EQ(target->magic, 0xab83356fU);
        EXPECT_EQ(target->next_server, nullptr);
        EXPECT_EQ(call.pointer<sts_next_server_s*>(4), &target->next_server);
        seen = true;
    };
    throttling_open_target_server(source.get(), 11, 22, 33, &target);
    EXPECT_TRUE(seen);
    close_at_end()(target);
}

TEST_F(TargetServer, IsValidWhateverItsSourceWas) {
    source->magic = 0;
    const server_ptr target = open_target();
    source->magic = 0xab83356f;
    EXPECT_EQ(target->magic, 0xab83356fU);
}

TEST_F(TargetServer, CopiesEveryFieldOfItsSource) {
    memset(&source->server_def, 0x3c, sizeof source->server_def);
    source->security = 5;
    source->config.connections["other"] = 77;
    source->bandwidth[OPERATION_WRITE].data_length = 12345;
    clock.advance(100);
    const server_ptr target = open_target();
    EXPECT_EQ(target->magic, 0xab83356fU);
    EXPECT_EQ(memcmp(&target->session, &source->session, sizeof session), 0);
    EXPECT_STREQ(target->server_name, "CS_throttle:cloud:disk:s3");
    EXPECT_STREQ(target->next_server_name, "disk:s3");
    EXPECT_EQ(memcmp(&target->server_def, &source->server_def, sizeof target->server_def), 0);
    EXPECT_EQ(target->config.sample_interval, 30);
    EXPECT_EQ(target->config.avail_bandwidth, 1000U);
    EXPECT_EQ(target->config.connections, source->config.connections);
    EXPECT_EQ(target->next_session, source->next_session);
    EXPECT_EQ(target->security, 5);
    ASSERT_EQ(target->bandwidth.size(), 2U);
    EXPECT_EQ(target->bandwidth[OPERATION_READ].operation_type, OPERATION_READ);
    EXPECT_EQ(target->bandwidth[OPERATION_WRITE].operation_type, OPERATION_WRITE);
    EXPECT_EQ(target->bandwidth[OPERATION_WRITE].data_length, 12345U);
    EXPECT_EQ(target->bandwidth[OPERATION_WRITE].start_time, clock.now() - 100);
}

TEST_F(TargetServer, SharesNothingThatEitherOfThemChanges) {
    const server_ptr target = open_target();
    source->config.connections["s3"] = 99;
    source->bandwidth[OPERATION_READ].data_length = 5;
    source->open_handles = 3;
    EXPECT_EQ(target->config.connections["s3"], 10U);
    EXPECT_EQ(target->bandwidth[OPERATION_READ].data_length, 0U);
    EXPECT_EQ(target->open_handles, 0);
}

TEST_F(TargetServer, InheritsTheCountOfOpenHandlesAndCantCloseBeforeItIsZero) {
    const image_ptr image = open_image(source);
    server_ptr target = open_target();
    EXPECT_EQ(target->open_handles, 1);
    EXPECT_EQ(throttling_close_server_v7(target.get()), STS_ERR_BUSY);
    target->open_handles = 0;
    EXPECT_EQ(throttling_close_server_v7(target.release()), STS_OK);
}

TEST_F(TargetServer, ClosingBothClosesTheSharedSessionTwice) {
    server_ptr target = open_target();
    next_layer().take();
    EXPECT_EQ(throttling_close_server_v7(target.release()), STS_OK);
    EXPECT_EQ(throttling_close_server_v7(source.release()), STS_OK);
    EXPECT_THAT(next_layer().take(), ElementsAre("close_handle(#3, 0)", "close_handle(#1, 0)",
                                                 "close_handle(#2, 0)", "close_handle(#1, 0)"));
}

TEST_F(TargetServer, StaysInOutWhenTheNextLayerFails) {
    next_layer().answers["open_target_server"] = 4711;
    throttling_server_s* target = nullptr;
    EXPECT_EQ(throttling_open_target_server(source.get(), 11, 22, 33, &target), 4711);
    ASSERT_NE(target, nullptr);
    EXPECT_EQ(target->next_server, nullptr);
    EXPECT_EQ(take_whole_story(), lines{"-> open_target_server(#2, 11, 22, 33, out)"});
    EXPECT_EQ(throttling_close_server_v7(target), STS_OK);
    EXPECT_THAT(next_layer().open_handles(), ElementsAre("#1", "#2"));
}

TEST_F(TargetServer, StaysInOutWithNoNextLayerBound) {
    sts_api = nullptr;
    throttling_server_s* target = nullptr;
    EXPECT_EQ(throttling_open_target_server(source.get(), 11, 22, 33, &target), STS_ERR_NOT_INIT);
    ASSERT_NE(target, nullptr);
    EXPECT_EQ(target->next_server, nullptr);
    EXPECT_EQ(throttling_close_server_v7(target), STS_OK);
}

TEST_F(TargetServer, WithoutMemoryLeavesOutAsItWas) {
    int count = 0;
    for (;; ++count) {
        throttling_server_s* target = untouched<throttling_server_s>();
        next_layer().observer = nullptr; // nothing below needs memory before it is our turn
        fault::fail_new_after(count);
        const int status = throttling_open_target_server(source.get(), 11, 22, 33, &target);
        fault::fail_new_after(-1);
        if (target != untouched<throttling_server_s>()) {
            const server_ptr opened(target);
            break;
        }
        ASSERT_EQ(status, STS_ERR_NOMEM);
    }
    EXPECT_GE(count, 2); // the handle and what it owns
}

// --- the service -------------------------------------------------------------------------------

TEST_F(TargetServer, OfAConnectedServerConnectsAtItsOwnFirstImage) {
    open_image(source).reset();
    EXPECT_EQ(service().clients_made, 1);
    server_ptr target = open_target();
    EXPECT_EQ(target->connector.is_throttling_enabled(), 1);
    EXPECT_EQ(service().clients_made, 1);

    image_ptr image = open_image(target);
    EXPECT_EQ(service().clients_made, 2);
    EXPECT_EQ(service().clients_alive, 2);
    EXPECT_EQ(service().session, &target->session);
    image.reset();
    throttling_close_server_v7(target.release());
    EXPECT_EQ(service().clients_alive, 1);
    throttling_close_server_v7(source.release());
    EXPECT_EQ(service().clients_alive, 0);
}

TEST_F(TargetServer, OfAConnectedServerThatOpensNoImageTellsTheServiceNothing) {
    open_image(source).reset();
    service().take();
    server_ptr target = open_target();
    EXPECT_EQ(throttling_close_server_v7(target.release()), STS_OK);
    EXPECT_THAT(service().exchanges, IsEmpty());
    EXPECT_EQ(service().clients_alive, 1);
}

} // namespace
