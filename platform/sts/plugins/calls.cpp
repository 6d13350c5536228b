// Calls into plugins that aren't a swap of handles: servers and events by their names, LSUs, which
// have a table of their own, and asynchronous copies, which have a holder.

#include "platform/sts/plugins/calls.h"

#include "platform/sts/caller/failure.h"
#include "platform/sts/plugins/routed.h"

#include <atomic>
#include <cstdlib>

namespace disk {

namespace {

/// For calls that nobody's session stands behind.
constexpr sts_session_def_v7_t no_session = {};

constexpr sts_forwarded_t unread = 0; // by any plugin

/// For what a plugin takes from malloc, or gives from there.
struct release_memory {
    void operator()(void* memory) const { free(memory); }
};

// --- events

class plugin_events : public event_source {
  public:
    /// Takes a channel of the plugin's.
    plugin_events(const plugin& owner, throttling_evchannel_s* channel)
        : owner_(owner), channel_(channel) {}
    ~plugin_events() override {
        if (channel_ != nullptr) {
            (void)owner_.call<&stspi_ep_t::close_evchannel>(channel_);
        }
    }
    throttling_evchannel_s** place() { return &channel_; }

    int next(sts_event_s* event) override {
        sts_event_s given = {};
        const int status = owner_.call<&stspi_ep_t::get_event>(channel_, &given);
        if (status != STS_OK) {
            return status;
        }
        if (given.number == 0) {
            return STS_ERR_NO_EVENT; // a channel with nothing below answers 0 and gives nothing
        }
        *event = given;
        return STS_OK;
    }

  private:
    const plugin& owner_;
    throttling_evchannel_s* channel_;
};

// --- LSUs

/// What create_lsu hands out of a plugin. It has no entry to close one with: what stands in its
/// holder is its next layer's, and where that is us we close it.
struct plugin_lsu : object {
    ~plugin_lsu() override {
        (void)status_of([&] { return disk::close(next, 0); });
    }
    void* next = nullptr;
};

// --- copies

/// A plugin's copy, in the holder that it gave. Ending it cancels the copy and waits for its end.
struct plugin_operation : object {
    static constexpr handle_kind kind = of_plugin(handle_kind::operation);
    using holder = std::shared_ptr<sts_next_operation_s*>;

    explicit plugin_operation(const plugin& gives) : owner(gives) {}
    ~plugin_operation() override {
        if (place != nullptr && !has_ended) {
            sts_async_status_s last = {};
            (void)owner.call<&stspi_ep_t::async_cancel>(&no_session, place.get());
            (void)owner.call<&stspi_ep_t::async_wait>(&no_session, place.get(), -1, &last);
        }
    }

    const plugin& owner;
    holder place; ///< outlives the operation while somebody waits for it
    std::atomic<bool> has_ended{false};
};

} // namespace

// --- by name ------------------------------------------------------------------------------------

int open_plugin_server(const sts_session_def_v7_t& session, const char* name,
                       const sts_server_def_s* server_def, sts_forwarded_t forwarded,
                       sts_next_server_s** out) {
    return through_plugin(name, session, [&](const plugin& claimant) {
        auto opened = std::make_unique<wrapped_server>(claimant, nullptr);
        const int status = claimant.call<&stspi_ep_t::open_server_v7>(&session, name, server_def,
                                                                      forwarded, &opened->theirs);
        if (status == STS_OK && opened->theirs != nullptr) {
            hand_out(std::move(opened), out);
        }
        return status;
    });
}

int get_plugin_server_prop(const sts_session_def_v7_t& session, const char* name,
                           sts_server_info_s* info) {
    return through_plugin(name, session, [&](const plugin& claimant) {
        return claimant.call<&stspi_ep_t::get_server_prop_byname_v8>(&session, name, info);
    });
}

std::unique_ptr<event_source> open_plugin_events(const sts_session_def_v7_t& session,
                                                 const char* server_name, void* source,
                                                 sts_forwarded_t first, sts_forwarded_t second,
                                                 sts_forwarded_t start) {
    std::unique_ptr<plugin_events> opened;
    const int status = through_plugin(server_name, session, [&](const plugin& claimant) {
        opened = std::make_unique<plugin_events>(claimant, nullptr);
        return claimant.call<&stspi_ep_t::open_evchannel>(
            &session, server_name, source, unread, first, second, unread, start, opened->place());
    });
    if (status != STS_OK) {
        fail(status); // a channel that was given all the same is closed
    }
    return opened;
}

// --- LSUs ---------------------------------------------------------------------------------------

int create_plugin_lsu(sts_next_server_s* server_handle, const sts_lsu_def_s* definition,
                      void** out) {
    require(definition != nullptr && out != nullptr);
    addressee<sts_next_server_s*> to(server_handle);
    auto wrapper = std::make_unique<plugin_lsu>();
    plugin_lsu& made = *wrapper;
    void* const handle = enlist(handle_kind::lsu, std::move(wrapper));
    void** given = nullptr;
    const int status = to.owner().create_lsu(to.get(), definition, &given);
    const std::unique_ptr<void*, release_memory> holder(given);
    if (status == STS_OK && holder != nullptr) {
        made.next = *holder;
        *out = handle;
    } else {
        (void)retire(handle);
    }
    return status;
}

int delete_plugin_lsu(const sts_lsu_ref_s* lsu) {
    const addressee<const sts_lsu_ref_s*> to(lsu);
    auto* const given_up = static_cast<sts_lsu_ref_s*>(malloc(sizeof(sts_lsu_ref_s)));
    if (given_up == nullptr) {
        return STS_ERR_NOMEM;
    }
    *given_up = *to.get();
    return to.owner().delete_lsu(given_up); // which releases it
}

// --- images -------------------------------------------------------------------------------------

int get_plugin_image_prop(void* handle, sts_image_info_s* info) {
    constexpr auto entry = &stspi_ep_t::get_image_prop_v10;
    return kind_of(handle) == of_plugin(handle_kind::image_list)
               ? hand_on<entry>(static_cast<sts_next_image_list_s*>(handle), info)
               : hand_on<entry>(static_cast<sts_next_image_s*>(handle), info);
}

// --- copies -------------------------------------------------------------------------------------

int copy_plugin_image(sts_forwarded_t source, const sts_lsu_ref_s* lsu, sts_forwarded_t target,
                      sts_next_operation_s** out, uint32_t flags, const sts_copy_params_s& params) {
    require(out != nullptr);
    const addressee<const sts_lsu_ref_s*> from(lsu);
    auto started = std::make_unique<plugin_operation>(from.owner());
    sts_next_operation_s** given = nullptr;
    const int status = from.owner().call<&stspi_ep_t::async_copy_image>(
        unread, source, from.get(), target, &given, flags, params);
    plugin_operation::holder holder(given, release_memory());
    if (status == STS_OK && holder != nullptr) {
        started->place = std::move(holder);
        hand_out(std::move(started), out);
    }
    return status;
}

int wait_for_plugin_copy(const sts_session_def_v7_t* session,
                         sts_next_operation_s* operation_handle, int32_t seconds,
                         sts_async_status_s* status) {
    require(status != nullptr);
    // Not borrowed while we wait: the operation may be closed meanwhile.
    const auto [owner, place] = [&] {
        const borrowed<plugin_operation> asked(operation_handle);
        return std::pair<const plugin*, plugin_operation::holder>(&asked->owner, asked->place);
    }();
    const int answer = owner->call<&stspi_ep_t::async_wait>(session, place.get(), seconds, status);
    if (answer == STS_OK && status->state == STS_ASYNC_ENDED) {
        (void)status_of([&] { borrowed<plugin_operation>(operation_handle)->has_ended = true; });
        (void)retire(operation_handle);
    }
    return answer;
}

int cancel_plugin_copy(const sts_session_def_v7_t* session,
                       sts_next_operation_s* operation_handle) {
    const borrowed<plugin_operation> asked(operation_handle);
    return asked->owner.call<&stspi_ep_t::async_cancel>(session, asked->place.get());
}

} // namespace disk
