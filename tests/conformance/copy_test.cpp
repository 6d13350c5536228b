// Asynchronous copies: start, wait, cancel, and what they leave behind. A copy that is to be met on
// its way runs at one byte per second: no test waits for time to pass.

#include "tests/conformance/storage.h"

#include <utility>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int32_t until_the_end = -1;

class Copy : public Storage {
  protected:
    void SetUp() override {
        Storage::SetUp();
        store("image", content, "group");
        ASSERT_EQ(create_lsu("target"), STS_OK);
    }
    /// Starts a copy of an image of "lsu" into "target".
    int start(handle& operation, const std::string& source, const std::string& copy,
              const sts_disk_copy_params_s& params = {}, const std::string& target_server = "",
              uint32_t flags = 0) {
        const sts_lsu_ref_s lsu = ref();
        const sts_image_def_s source_def = image_def(source);
        sts_copy_target_s target = {};
        set_field(target.server_name, target_server);
        set_field(target.lsu, "target");
        set_field(target.image, copy);
        sts_copy_params_s carried = {};
        memcpy(&carried, &params, sizeof carried);
        return call::async_copy_image(source_def, lsu, target, out(operation), flags, carried);
    }
    /// The status of starting a copy that can't begin.
    int start_status(const std::string& source, const std::string& copy,
                     const std::string& target_server = "", uint32_t flags = 0) {
        handle operation;
        const int status = start(operation, source, copy, {}, target_server, flags);
        EXPECT_TRUE(call::is_empty(operation));
        EXPECT_EQ(operation.value != nullptr, differs(rules::holders));
        call::release_operation(operation);
        return status;
    }
    handle start_slow() {
        handle operation;
        sts_disk_copy_params_s params = {};
        params.block_size = 1;
        params.bytes_per_second = 1;
        EXPECT_EQ(start(operation, "image", "copy", params), STS_OK);
        return operation;
    }
    sts_async_status_s wait(handle operation, int32_t seconds = until_the_end) {
        sts_async_status_s status = {};
        EXPECT_EQ(call::async_wait(&session, operation, seconds, &status), STS_OK);
        return status;
    }
    std::vector<std::string> peers(const std::string& lsu_name, bool sources) {
        const sts_lsu_ref_s lsu = ref(lsu_name);
        sts_replication_peer_s from[3] = {};
        sts_replication_peer_s to[3] = {};
        EXPECT_EQ(call::get_lsu_replication_prop(&lsu, 3, from, 3, to), STS_OK);
        return names_of(sources ? from : to);
    }

    const std::string content = std::string(3 << 20, 'x') + "end";
};

TEST_F(Copy, IsAnImageLikeItsSource) {
    handle operation;
    ASSERT_EQ(start(operation, "image", "copy"), STS_OK);
    const sts_async_status_s status = wait(operation);
    EXPECT_EQ(status.state, STS_ASYNC_ENDED);
    EXPECT_EQ(status.result, STS_OK);
    EXPECT_EQ(status.bytes_copied, content.size());
    EXPECT_EQ(status.bytes_total, content.size());
    call::release_operation(operation);
    const handle copy = open("copy", STS_IMAGE_READ, "target");
    EXPECT_TRUE(read(copy, content.size() + 1) == content);
    EXPECT_EQ(close(copy), STS_OK);
    EXPECT_THAT(image_names("target"), ElementsAre("copy"));
}

TEST_F(Copy, ThatRunsIsSeenAndCancelled) {
    const handle operation = start_slow();
    EXPECT_EQ(wait(operation, 0).state, STS_ASYNC_RUNNING);
    EXPECT_THAT(image_names("target"), IsEmpty());
    EXPECT_EQ(call::async_cancel(&session, operation), STS_OK);
    EXPECT_EQ(wait(operation).result, errno_status(ECANCELED));
    call::release_operation(operation);
    EXPECT_THAT(image_names("target"), IsEmpty());
}

TEST_F(Copy, IsReleasedByTheWaitThatFindsItEnded) {
    handle operation;
    ASSERT_EQ(start(operation, "image", "copy"), STS_OK);
    wait(operation);
    sts_async_status_s status = {};
    EXPECT_EQ(call::async_wait(&session, operation, 0, &status), STS_ERR_INVALID);
    EXPECT_EQ(call::async_cancel(&session, operation), STS_ERR_INVALID);
    call::release_operation(operation);
}

TEST_F(Copy, GoesToAnotherServerToo) {
    handle other = open_server("other");
    ASSERT_EQ(create_lsu_on(other, "target"), STS_OK);
    differs(rules::names_below);
    handle operation;
    ASSERT_EQ(start(operation, "image", "copy", {}, storage_name("other")), STS_OK);
    EXPECT_EQ(wait(operation).result, STS_OK);
    call::release_operation(operation);
    std::swap(server, other);
    EXPECT_THAT(image_names("target"), ElementsAre("copy"));
    EXPECT_THAT(peers("target", true), ElementsAre(storage_name() + " lsu"));
    std::swap(server, other);
    EXPECT_THAT(peers("lsu", false), ElementsAre(storage_name("other") + " target"));
    EXPECT_EQ(call::close_server(other), STS_OK);
}

TEST_F(Copy, IsRememberedByBothLsus) {
    handle operation;
    ASSERT_EQ(start(operation, "image", "copy"), STS_OK);
    wait(operation);
    call::release_operation(operation);
    differs(rules::names_below);
    EXPECT_THAT(peers("lsu", false), ElementsAre(storage_name() + " target"));
    EXPECT_THAT(peers("lsu", true), IsEmpty());
    EXPECT_THAT(peers("target", true), ElementsAre(storage_name() + " lsu"));
    const sts_lsu_ref_s lsu = ref("target");
    EXPECT_EQ(call::get_lsu_replication_prop(&lsu, 0, nullptr, 0, nullptr), STS_ERR_BUFFER_SPACE);
}

TEST_F(Copy, ThatCantBeginGivesItsStatus) {
    store("there", "content", "", "target");
    EXPECT_EQ(start_status("missing", "copy"), errno_status(ENOENT));
    EXPECT_EQ(start_status("image", "there"), errno_status(EEXIST));
    EXPECT_EQ(start_status("image", "../copy"), STS_ERR_INVALID);
    EXPECT_EQ(start_status("image", "copy", "", 1), STS_ERR_INVALID);
    differs(rules::names_below);
    EXPECT_EQ(start_status("image", "copy", "nobody:x"), STS_ERR_NOT_CLAIMED);
    EXPECT_EQ(start_status("image", "copy", storage_name("missing")), errno_status(ENOENT));
    EXPECT_THAT(image_names("target"), ElementsAre("there"));
}

TEST_F(Copy, NeedsItsArguments) {
    const handle operation = start_slow();
    sts_async_status_s status = {};
    EXPECT_EQ(call::async_wait(&session, handle{}, 0, &status), STS_ERR_INVALID);
    EXPECT_EQ(call::async_wait(&session, operation, 0, nullptr), STS_ERR_INVALID);
    EXPECT_EQ(call::async_cancel(&session, handle{}), STS_ERR_INVALID);
    EXPECT_EQ(call::async_cancel(&session, operation), STS_OK);
    EXPECT_EQ(wait(operation).state, STS_ASYNC_ENDED);
    call::release_operation(operation);
}

TEST_F(Copy, ThatStillRunsIsGivenUpAtTheEnd) {
    const handle operation = start_slow();
    EXPECT_EQ(call::close_server(server), STS_OK); // a copy doesn't hold its server
    server = {};
    call::release_operation(operation); // what it gave is the host's; the copy goes on
    ASSERT_EQ(stack::current().stop(), STS_OK);
    ASSERT_NO_FATAL_FAILURE(stack::current().start());
    server = open_server();
    EXPECT_THAT(image_names("target"), IsEmpty());
    EXPECT_EQ(call::delete_lsu(ref("target")), STS_OK);
}

} // namespace
