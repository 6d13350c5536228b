// Asynchronous copies: the holder that a copy hands out, read by its wait and its cancel.

#include "tests/plugin/frame.h"

#include <array>
#include <cstdlib>
#include <cstring>

namespace {

class Async : public Frame {
  protected:
    Async() { record.fill('Z'); }
    ~Async() override { free(holder); }

    int copy() { return throttling_async_copy_image(1, 2, &lsu, 3, &holder, 4, parameters); }
    sts_async_status_s* async_status() {
        return reinterpret_cast<sts_async_status_s*>(record.data());
    }

    std::array<char, 64> record;
    sts_copy_params_s parameters = {};
    server_ptr server = open();
    sts_lsu_ref_s lsu = lsu_of(server.get());
    sts_next_operation_s** holder = nullptr;
};

TEST_F(Async, HolderOfACopyLeadsItsWaitAndItsCancelToTheOperation) {
    EXPECT_EQ(copy(), STS_OK);
    ASSERT_NE(holder, nullptr);
    next_layer().name(*holder, "operation'");
    forget();
    EXPECT_EQ(throttling_async_wait(&session, holder, -1, async_status()), STS_OK);
    EXPECT_EQ(throttling_async_cancel(&session, holder), STS_OK);
    EXPECT_EQ(next_layer().open_handles().size(), 3U); // session, server and the operation
    EXPECT_EQ(
        take_story(),
        (lines{"3 [throttling_async_wait]enter.", "-> async_wait(session, operation', -1, pointer)",
               "3 [throttling_async_wait]leave.", "3 [throttling_async_cancel]enter.",
               "-> async_cancel(session, operation')", "3 [throttling_async_cancel]leave."}));
}

TEST_F(Async, HolderIsHandedOutEmptyBeforeTheNextLayerIsAsked) {
    bool seen = false;
    next_layer().effects["async_copy_image"] = [&](const next_call& call) {
        EXPECT_EQ(call.pointer<sts_next_operation_s*>(4), holder);
        EXPECT_EQ(*holder, nullptr);
        seen = true;
    };
    EXPECT_EQ(copy(), STS_OK);
    EXPECT_TRUE(seen);
}

TEST_F(Async, HolderOfAFailedCopyStaysEmptyAndIsTheHosts) {
    next_layer().answers["async_copy_image"] = 4711;
    EXPECT_EQ(copy(), 4711);
    ASSERT_NE(holder, nullptr);
    EXPECT_EQ(*holder, nullptr);
    EXPECT_TRUE(has_logged(STS_SEV_DEBUG, "[throttling_named_async_copy_image]async copy image "
                                          "failed, error code = 4711"));
}

TEST_F(Async, EmptyHolderGoesDownAsItIs) {
    sts_next_operation_s* operation = nullptr;
    EXPECT_EQ(throttling_async_wait(&session, &operation, 0, async_status()), STS_OK);
    EXPECT_EQ(throttling_async_cancel(&session, &operation), STS_OK);
    EXPECT_EQ(next_layer().last("async_wait").arguments[1].text, "null");
    EXPECT_EQ(next_layer().last("async_cancel").arguments[1].text, "null");
}

TEST_F(Async, WaitWithoutAStatusRecordIsInvalidAndCallsNothing) {
    sts_next_operation_s* operation = untouched<sts_next_operation_s>();
    EXPECT_EQ(throttling_async_wait(&session, &operation, 0, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(take_story(), lines{});
}

TEST_F(Async, StatusOfAFailedWaitGoesIntoItsRecordAtOffset8OverWhatTheNextLayerLeft) {
    sts_next_operation_s* operation = untouched<sts_next_operation_s>();
    next_layer().answers["async_wait"] = 4711;
    next_layer().effects["async_wait"] = [](const next_call& call) {
        memset(call.pointer<char>(3), 'n', 16);
    };
    EXPECT_EQ(throttling_async_wait(&session, &operation, 0, async_status()), 4711);
    int32_t stored = 0;
    memcpy(&stored, record.data() + 8, sizeof stored);
    EXPECT_EQ(stored, 4711);
    EXPECT_EQ(std::string(record.data(), 8), std::string(8, 'n'));
    EXPECT_EQ(std::string(record.data() + 12, 8), "nnnnZZZZ");
}

TEST_F(Async, RecordOfAWaitThatSucceedsIsTheNextLayersAlone) {
    sts_next_operation_s* operation = untouched<sts_next_operation_s>();
    next_layer().effects["async_wait"] = [](const next_call& call) {
        memset(call.pointer<char>(3), 'n', 16);
    };
    EXPECT_EQ(throttling_async_wait(&session, &operation, 0, async_status()), STS_OK);
    EXPECT_EQ(std::string(record.data(), 20), std::string(16, 'n') + "ZZZZ");
}

} // namespace
