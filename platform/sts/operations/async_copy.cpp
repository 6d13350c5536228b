// Asynchronous copies: an image is copied by a thread of its own into a draft of the target LSU,
// block by block, and takes its place when it is whole. Cancelled, failed or killed it leaves
// nothing.

#include "platform/sts/operations/image.h"
#include "platform/sts/operations/operations.h"
#include "platform/sts/operations/server.h"
#include "platform/sts/plugins/calls.h"
#include "platform/sts/store/replication.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

namespace disk {

namespace {

using seconds = std::chrono::duration<double>;

constexpr uint64_t usual_block = 1U << 20U;
constexpr uint64_t largest_block = 1U << 30U;

/// What the copying thread and those who wait for it share.
class progress {
  public:
    explicit progress(uint64_t total) { status_.bytes_total = total; }

    void cancel() {
        const std::lock_guard<std::mutex> lock(guard_);
        cancelled_ = true;
        changed_.notify_all();
    }
    bool is_cancelled() {
        const std::lock_guard<std::mutex> lock(guard_);
        return cancelled_;
    }

    /// Counts bytes, then holds the copy up for as long as it is ahead of its rate. Fails once it
    /// was cancelled.
    void advance(uint64_t bytes, seconds pause) {
        std::unique_lock<std::mutex> lock(guard_);
        status_.bytes_copied += bytes;
        if (pause.count() > 0) {
            changed_.wait_for(lock, pause, [&] { return cancelled_; });
        }
        if (cancelled_) {
            fail_errno(ECANCELED);
        }
    }

    void end(int result) {
        const std::lock_guard<std::mutex> lock(guard_);
        status_.state = STS_ASYNC_ENDED;
        status_.result = result;
        changed_.notify_all();
    }

    /// Waits for the end: for ever when `limit` is negative.
    sts_async_status_s wait(int32_t limit) {
        std::unique_lock<std::mutex> lock(guard_);
        const auto has_ended = [&] { return status_.state == STS_ASYNC_ENDED; };
        if (limit < 0) {
            changed_.wait(lock, has_ended);
        } else {
            changed_.wait_for(lock, std::chrono::seconds(limit), has_ended);
        }
        return status_;
    }

  private:
    std::mutex guard_;
    std::condition_variable changed_;
    bool cancelled_ = false;
    sts_async_status_s status_ = {};
};

/// One copy, opened on both sides. Its stores are its own: a cancel ends what waits for their
/// locks.
struct copy_job {
    lsu_place from;
    lsu_place to;
    std::string name; ///< of the image to be made
    found_image image;
    uint64_t block_size;
    uint64_t bytes_per_second;
    std::shared_ptr<progress> done;
};

void copy_data(const copy_job& job, const draft& written) {
    uint64_t copied = 0;
    while (copied < job.image.header.size) {
        const uint64_t block = std::min(job.block_size, job.image.header.size - copied);
        const uint64_t count =
            copy_bytes(job.image.data.get(), copied, written.data(), copied, block);
        copied += count;
        const auto rate = static_cast<double>(job.bytes_per_second);
        job.done->advance(count, seconds(rate > 0 ? static_cast<double>(count) / rate : 0));
        if (count < block) {
            fail_errno(EBADMSG); // somebody cut the file
        }
    }
}

/// Before the copy takes its place: a copy that fails leaves no image, at most a peer too many.
void remember_peers(const copy_job& job) {
    add_peer(job.from, peer_role::target, job.to);
    add_peer(job.to, peer_role::source, job.from);
}

int run(const copy_job& job) {
    return status_of([&] {
        draft written(job.to.directory.get(), job.to.files->waiter);
        require_in_place(*job.to.files, job.to.name, job.to.directory.get());
        copy_data(job, written);
        if (job.image.meta) {
            copy_bytes(job.image.meta.get(), 0, written.make_meta().get(), 0,
                       size_of(job.image.meta.get()));
        }
        remember_peers(job);
        publish_image(*job.to.files, job.to.name, job.to.directory.get(), written, job.name,
                      new_header(job.image.header.group), placement::creates);
    });
}

/// A copy and its thread; ending the one cancels the other.
struct operation : object {
    static constexpr handle_kind kind = handle_kind::operation;

    explicit operation(copy_job started)
        : shared(started.done), thread([job = std::move(started)] { job.done->end(run(job)); }) {}
    ~operation() override {
        shared->cancel();
        thread.join();
    }

    std::shared_ptr<progress> shared;
    std::thread thread;
};

copy_job prepare(const sts_image_def_s& source, const sts_lsu_ref_s* lsu,
                 const sts_copy_target_s& target, const sts_disk_copy_params_s& params) {
    lsu_place from = open_lsu(lsu);
    found_image image = find_image(from.directory.get(), text_of(source.name));
    auto done = std::make_shared<progress>(image.header.size);
    const lock_waiter waiter = {{}, [done] { return done->is_cancelled(); }};
    from.files = open_store(*from.files, waiter);
    const std::string server_name = text_of(target.server_name);
    lsu_place to =
        open_lsu(server_name.empty() ? from.files
                                     : open_store(server_name.c_str(), missing_root::fails, waiter),
                 text_of(target.lsu));
    std::string name = text_of(target.image);
    if (image_exists(to.directory.get(), name)) {
        fail_errno(EEXIST);
    }
    const uint64_t block = params.block_size != 0 ? params.block_size : usual_block;
    return {std::move(from),
            std::move(to),
            std::move(name),
            std::move(image),
            std::min(block, largest_block),
            params.bytes_per_second,
            std::move(done)};
}

} // namespace

int async_copy_image(const sts_session_def_v7_t* /*session*/, sts_forwarded_t source,
                     const sts_lsu_ref_s* lsu, sts_forwarded_t target, sts_next_operation_s** out,
                     uint32_t flags, sts_copy_params_s params) {
    if (lsu != nullptr && is_of_plugin(lsu->server)) {
        return copy_plugin_image(source, lsu, target, out, flags, params);
    }
    const auto* const image_def = pointer_of<const sts_image_def_s>(source);
    const auto* const copy_target = pointer_of<const sts_copy_target_s>(target);
    require(image_def != nullptr && copy_target != nullptr && out != nullptr && flags == 0);
    sts_disk_copy_params_s known = {};
    memcpy(&known, &params, sizeof known);
    hand_out(std::make_unique<operation>(prepare(*image_def, lsu, *copy_target, known)), out);
    return STS_OK;
}

int async_wait(const sts_session_def_v7_t* session, sts_next_operation_s* operation_handle,
               int32_t limit, sts_async_status_s* status) {
    require(status != nullptr);
    if (is_of_plugin(operation_handle)) {
        return wait_for_plugin_copy(session, operation_handle, limit, status);
    }
    // Not borrowed while we wait: the operation may be closed meanwhile.
    const std::shared_ptr<progress> shared = borrowed<operation>(operation_handle)->shared;
    *status = shared->wait(limit);
    if (status->state == STS_ASYNC_ENDED) {
        (void)retire(operation_handle);
    }
    return STS_OK;
}

int async_cancel(const sts_session_def_v7_t* session, sts_next_operation_s* operation_handle) {
    if (is_of_plugin(operation_handle)) {
        return cancel_plugin_copy(session, operation_handle);
    }
    borrowed<operation>(operation_handle)->shared->cancel();
    return STS_OK;
}

} // namespace disk
