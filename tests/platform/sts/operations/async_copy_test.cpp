// Asynchronous copies of the storage library. A copy that is to be met on its way runs at one byte
// per second, so that it would end in days: no test waits for time to pass.

#include "tests/platform/sts/disk_store.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int32_t until_the_end = -1;

class StsAsync : public DiskStore {
  protected:
    StsAsync() {
        store("image", content, "group");
        create_lsu("target");
    }

    int start(sts_next_operation_s** operation, const std::string& source, const std::string& copy,
              const sts_disk_copy_params_s& params = {}, const std::string& target_server = "",
              uint32_t flags = 0) {
        const sts_lsu_ref_s lsu = ref();
        const sts_image_def_s source_def = image_def(source);
        sts_copy_target_s target = {};
        strcpy(target.server_name, target_server.c_str());
        strcpy(target.lsu, "target");
        strcpy(target.image, copy.c_str());
        sts_copy_params_s carried = {};
        memcpy(&carried, &params, sizeof carried);
        return api->async_copy_image(nullptr, forward(&source_def), &lsu, forward(&target),
                                     operation, flags, carried);
    }
    sts_next_operation_s* start_slow(const std::string& copy = "copy") {
        sts_next_operation_s* operation = nullptr;
        sts_disk_copy_params_s params = {};
        params.block_size = 1;
        params.bytes_per_second = 1;
        EXPECT_EQ(start(&operation, "image", copy, params), STS_OK);
        return operation;
    }
    sts_async_status_s wait(sts_next_operation_s* operation, int32_t seconds = until_the_end) {
        sts_async_status_s status = {};
        EXPECT_EQ(api->async_wait(nullptr, operation, seconds, &status), STS_OK);
        return status;
    }
    bool has_drafts() { return !fs::is_empty(path("store/target/new")); }
    std::vector<std::string> peers(const std::string& lsu_name, bool sources) {
        const sts_lsu_ref_s lsu = ref(lsu_name);
        sts_replication_peer_s from[3] = {};
        sts_replication_peer_s to[3] = {};
        EXPECT_EQ(api->get_lsu_replication_prop(&lsu, 3, from, 3, to), STS_OK);
        return names_of(sources ? from : to);
    }

    const std::string content = std::string(3 << 20, 'x') + "end";
};

TEST_F(StsAsync, CopyIsAnImageLikeItsSource) {
    sts_next_image_s* const image = open("image", STS_IMAGE_WRITE);
    uint64_t count = 0;
    ASSERT_EQ(api->write_image_meta(image, forward("meta"), 4, 0, forward(&count), 0), STS_OK);
    ASSERT_EQ(close(image), STS_OK);

    sts_next_operation_s* operation = nullptr;
    ASSERT_EQ(start(&operation, "image", "copy"), STS_OK);
    const sts_async_status_s status = wait(operation);
    EXPECT_EQ(status.state, STS_ASYNC_ENDED);
    EXPECT_EQ(status.result, STS_OK);
    EXPECT_EQ(status.bytes_copied, content.size());
    EXPECT_EQ(status.bytes_total, content.size());

    sts_next_image_s* const copy = open("copy", STS_IMAGE_READ, "target");
    EXPECT_EQ(read(copy, content.size() + 1), content);
    char meta[10] = {};
    EXPECT_EQ(api->read_image_meta(copy, forward(meta), 10, 0, forward(&count), 0), STS_OK);
    EXPECT_STREQ(meta, "meta");
    sts_image_info_s info = {};
    EXPECT_EQ(api->get_image_prop(copy, &info), STS_OK);
    EXPECT_STREQ(info.group, "group");
    EXPECT_FALSE(has_drafts());
}

TEST_F(StsAsync, CopyOfAnEmptyImageIsEmpty) {
    store("empty", "");
    sts_next_operation_s* operation = nullptr;
    ASSERT_EQ(start(&operation, "empty", "copy"), STS_OK);
    EXPECT_EQ(wait(operation).result, STS_OK);
    EXPECT_EQ(content_of("copy", "target"), "");
}

TEST_F(StsAsync, CopyGoesToAnotherServerToo) {
    sts_next_server_s* const first = server;
    server = open_server("other");
    create_lsu("target");
    server = first;
    sts_next_operation_s* operation = nullptr;
    ASSERT_EQ(start(&operation, "image", "copy", {}, server_name("other")), STS_OK);
    EXPECT_EQ(wait(operation).result, STS_OK);
    EXPECT_THAT(image_names("target"), IsEmpty());
    EXPECT_THAT(peers("lsu", false), ElementsAre(server_name("other") + " target"));
    server = open_server("other");
    EXPECT_THAT(image_names("target"), ElementsAre("copy"));
    EXPECT_THAT(peers("target", true), ElementsAre(server_name() + " lsu"));
}

TEST_F(StsAsync, CopyIsRememberedByBothLsusOnce) {
    for (const char* const name : {"first", "second"}) {
        sts_next_operation_s* operation = nullptr;
        ASSERT_EQ(start(&operation, "image", name), STS_OK);
        EXPECT_EQ(wait(operation).result, STS_OK);
    }
    EXPECT_THAT(peers("lsu", true), IsEmpty());
    EXPECT_THAT(peers("lsu", false), ElementsAre(server_name() + " target"));
    EXPECT_THAT(peers("target", true), ElementsAre(server_name() + " lsu"));
    EXPECT_THAT(peers("target", false), IsEmpty());
    const sts_lsu_ref_s lsu = ref();
    sts_replication_peer_s untouched[2] = {};
    EXPECT_EQ(api->get_lsu_replication_prop(&lsu, 2, untouched, 0, nullptr), STS_ERR_BUFFER_SPACE);
    EXPECT_STREQ(untouched[0].server_name, "");
}

TEST_F(StsAsync, CopyIsAnEventOfItsTarget) {
    sts_next_evchannel_s* channel = nullptr;
    ASSERT_EQ(api->open_evchannel(session, 0, 0, &channel), STS_OK);
    sts_event_source_s source = {};
    ASSERT_EQ(api->add_evsource(channel, 0, 0, server_name().c_str(), &source, 0), STS_OK);
    sts_next_operation_s* operation = nullptr;
    ASSERT_EQ(start(&operation, "image", "copy"), STS_OK);
    EXPECT_EQ(wait(operation).result, STS_OK);
    sts_event_s event = {};
    ASSERT_EQ(api->get_event(channel, &event), STS_OK);
    EXPECT_EQ(event.kind, STS_EVENT_IMAGE_CREATED);
    EXPECT_STREQ(event.lsu, "target");
    EXPECT_STREQ(event.image, "copy");
}

TEST_F(StsAsync, OperationIsReleasedByTheWaitThatFindsItEnded) {
    sts_next_operation_s* operation = nullptr;
    ASSERT_EQ(start(&operation, "image", "copy"), STS_OK);
    EXPECT_EQ(wait(operation).result, STS_OK);
    sts_async_status_s status = {};
    EXPECT_EQ(api->async_wait(nullptr, operation, 0, &status), STS_ERR_INVALID);
    EXPECT_EQ(api->async_cancel(nullptr, operation), STS_ERR_INVALID);
    EXPECT_EQ(close(operation), STS_ERR_INVALID);
}

TEST_F(StsAsync, OperationCanBeLookedAtWhileItRuns) {
    sts_next_operation_s* const operation = start_slow();
    const sts_async_status_s status = wait(operation, 0);
    EXPECT_EQ(status.state, STS_ASYNC_RUNNING);
    EXPECT_EQ(status.result, 0);
    EXPECT_LT(status.bytes_copied, content.size());
    EXPECT_EQ(status.bytes_total, content.size());
    EXPECT_EQ(open_status("copy", STS_IMAGE_READ, "target"), errno_status(ENOENT));
    EXPECT_EQ(wait(operation, 0).state, STS_ASYNC_RUNNING); // and is still there
}

TEST_F(StsAsync, OperationIsStillRunningAfterAWaitOfOneSecondOfRealTime) {
    EXPECT_EQ(wait(start_slow(), 1).state, STS_ASYNC_RUNNING);
}

TEST_F(StsAsync, CancelEndsACopyAndLeavesNothing) {
    sts_next_operation_s* const operation = start_slow();
    EXPECT_EQ(api->async_cancel(nullptr, operation), STS_OK);
    const sts_async_status_s status = wait(operation);
    EXPECT_EQ(status.state, STS_ASYNC_ENDED);
    EXPECT_EQ(status.result, errno_status(ECANCELED));
    EXPECT_EQ(open_status("copy", STS_IMAGE_READ, "target"), errno_status(ENOENT));
    EXPECT_FALSE(has_drafts());
    EXPECT_THAT(peers("lsu", false), IsEmpty());
}

TEST_F(StsAsync, CancelReachesThoseWhoWait) {
    sts_next_operation_s* const operation = start_slow();
    std::vector<std::thread> waiters;
    for (int each = 0; each < 3; ++each) {
        waiters.emplace_back([&] {
            sts_async_status_s status = {};
            const int answer = api->async_wait(nullptr, operation, until_the_end, &status);
            if (answer == STS_OK) { // else another one was quicker and the operation is gone
                EXPECT_EQ(status.result, errno_status(ECANCELED));
            } else {
                EXPECT_EQ(answer, STS_ERR_INVALID);
            }
        });
    }
    EXPECT_EQ(api->async_cancel(nullptr, operation), STS_OK);
    for (std::thread& each : waiters) {
        each.join();
    }
    EXPECT_EQ(close(operation), STS_ERR_INVALID);
}

TEST_F(StsAsync, CancelOfACopyThatHasEndedChangesNothing) {
    sts_next_operation_s* operation = nullptr;
    ASSERT_EQ(start(&operation, "image", "copy"), STS_OK);
    while (image_names("target").empty()) {
        std::this_thread::yield();
    }
    EXPECT_EQ(api->async_cancel(nullptr, operation), STS_OK);
    EXPECT_EQ(wait(operation).result, STS_OK);
    EXPECT_THAT(image_names("target"), ElementsAre("copy"));
}

TEST_F(StsAsync, CloseOfAnOperationCancelsIt) {
    sts_next_operation_s* const operation = start_slow();
    EXPECT_EQ(close(operation), STS_OK);
    EXPECT_FALSE(has_drafts());
}

TEST_F(StsAsync, OperationsAreCancelledByTheLastTerminate) {
    start_slow("first");
    start_slow("second");
    close_library();
    EXPECT_FALSE(has_drafts());
}

TEST_F(StsAsync, CopyGoesOnWhenItsServerIsClosed) {
    sts_next_operation_s* operation = nullptr;
    ASSERT_EQ(start(&operation, "image", "copy"), STS_OK);
    EXPECT_EQ(close(server), STS_OK);
    EXPECT_EQ(wait(operation).result, STS_OK);
}

TEST_F(StsAsync, CopyIsOfTheImageAsItWasAtTheStart) {
    sts_disk_copy_params_s params = {};
    params.block_size = 4096;
    sts_next_operation_s* operation = nullptr;
    ASSERT_EQ(start(&operation, "image", "copy", params), STS_OK);
    EXPECT_EQ(delete_image("image"), STS_OK);
    EXPECT_EQ(wait(operation).result, STS_OK);
    EXPECT_EQ(read(open("copy", STS_IMAGE_READ, "target"), content.size() + 1), content);
}

TEST_F(StsAsync, CopyDoesntTakeThePlaceOfAnImage) {
    store("there", "old", "", "target");
    sts_next_operation_s* operation = nullptr;
    EXPECT_EQ(start(&operation, "image", "there"), errno_status(EEXIST));
    EXPECT_EQ(operation, nullptr);
    sts_next_operation_s* const slow = start_slow("late");
    store("late", "quicker", "", "target");
    EXPECT_EQ(api->async_cancel(nullptr, slow), STS_OK);
    EXPECT_EQ(content_of("late", "target"), "quicker");
    EXPECT_EQ(content_of("there", "target"), "old");
}

TEST_F(StsAsync, CopyOfWhatIsntThereDoesntStart) {
    sts_next_operation_s* operation = nullptr;
    EXPECT_EQ(start(&operation, "none", "copy"), errno_status(ENOENT));
    EXPECT_EQ(start(&operation, "image", "copy", {}, server_name("none")), errno_status(ENOENT));
    EXPECT_EQ(start(&operation, "image", "copy", {}, "other:x"), STS_ERR_NOT_CLAIMED);
    const sts_lsu_ref_s target = ref("target");
    EXPECT_EQ(api->delete_lsu(&target), STS_OK);
    EXPECT_EQ(start(&operation, "image", "copy"), errno_status(ENOENT));
    EXPECT_EQ(operation, nullptr);
}

TEST_F(StsAsync, CopyThatFailsOnItsWayTellsWhy) {
    sts_next_operation_s* const operation = start_slow();
    fs::resize_file(path("store/lsu/images/image/data"), 0);
    EXPECT_EQ(wait(operation).result, errno_status(EBADMSG));
    EXPECT_FALSE(has_drafts());
}

TEST_F(StsAsync, CopyThatCantBeRememberedLeavesNoImage) {
    fs::create_directories(path("store/target/replication.new/in the way"));
    sts_next_operation_s* operation = nullptr;
    ASSERT_EQ(start(&operation, "image", "copy"), STS_OK);
    EXPECT_EQ(wait(operation).result, errno_status(EISDIR));
    EXPECT_THAT(image_names("target"), IsEmpty());
    EXPECT_FALSE(has_drafts());
}

TEST_F(StsAsync, CopyToOneLsuMoreThanCanBeRememberedIsRefused) {
    struct {
        uint64_t role = 1;
        sts_replication_peer_s peer = {};
    } record;
    std::ofstream file(path("store/target/replication"));
    for (int each = 0; each < 10000; ++each) {
        set_field(record.peer.lsu, std::to_string(each));
        file.write(reinterpret_cast<const char*>(&record), sizeof record);
    }
    file.close();
    sts_next_operation_s* operation = nullptr;
    ASSERT_EQ(start(&operation, "image", "copy"), STS_OK);
    EXPECT_EQ(wait(operation).result, errno_status(EFBIG));
    EXPECT_THAT(image_names("target"), IsEmpty());
}

TEST_F(StsAsync, RefusesFlagsAndNullArguments) {
    sts_next_operation_s* operation = nullptr;
    EXPECT_EQ(start(&operation, "image", "copy", {}, "", 1), STS_ERR_INVALID);
    EXPECT_EQ(start(nullptr, "image", "copy"), STS_ERR_INVALID);
    const sts_lsu_ref_s lsu = ref();
    const sts_image_def_s source = image_def("image");
    const sts_copy_target_s target = {};
    EXPECT_EQ(api->async_copy_image(nullptr, 0, &lsu, forward(&target), &operation, 0, {}),
              STS_ERR_INVALID);
    EXPECT_EQ(api->async_copy_image(nullptr, forward(&source), &lsu, 0, &operation, 0, {}),
              STS_ERR_INVALID);
    EXPECT_EQ(api->async_wait(nullptr, start_slow(), 0, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(operation, nullptr);
}

} // namespace
