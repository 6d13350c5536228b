// Event channels: each follows the events of the servers that were added to it, from where it was
// told to begin. An event stays in its server until somebody deletes it, so that every channel sees
// it.

#include "platform/sts/event_log.h"
#include "platform/sts/operations.h"

#include <cstring>
#include <mutex>

namespace disk {

namespace {

/// What a channel receives of one server.
struct event_source {
    std::shared_ptr<store> files;
    std::string lsu; ///< empty for all
    uint64_t kinds;  ///< 0 for all
    uint64_t seen;   ///< the number of the last event that was looked at
};

struct channel : object {
    static constexpr handle_kind kind = handle_kind::channel;
    std::mutex guard; // of what follows
    std::vector<event_source> sources;
    size_t turn = 0; // the source that is looked at first
};

bool wants(const event_source& source, const sts_event_s& event) {
    return (source.kinds == 0 || (source.kinds >> event.kind & 1U) != 0) &&
           (source.lsu.empty() || source.lsu == event.lsu);
}

/// Gives the source's next event; false when none is waiting.
bool next_event(event_source& source, sts_event_s& out) {
    for (const uint64_t last = last_event(*source.files); source.seen < last;) {
        ++source.seen;
        const std::optional<kept_event> event = read_event(*source.files, source.seen);
        if (event && wants(source, event->record)) {
            out = event->record;
            fill(out.server_name, source.files->server_name);
            return true;
        }
    }
    return false;
}

/// The number behind which a channel begins.
uint64_t start_of(const store& files, sts_forwarded_t start) {
    if (start == STS_EVENTS_FROM_NOW) {
        return last_event(files);
    }
    require(start == STS_EVENTS_KEPT);
    const uint64_t last = last_event(files);
    const uint64_t oldest = oldest_event(files);
    return oldest == 0 ? last : oldest - 1;
}

} // namespace

int open_evchannel(sts_next_session_s* session, sts_forwarded_t /*unused_2*/,
                   sts_forwarded_t /*unused_3*/, sts_next_evchannel_s** out) {
    require(out != nullptr);
    require_session(session);
    hand_out(std::make_unique<channel>(), out);
    return STS_OK;
}

int add_evsource(sts_next_evchannel_s* channel_handle, int /*unused_2*/, sts_forwarded_t start,
                 const char* server_name, void* given, int /*unused_6*/) {
    require(given != nullptr);
    const auto& wanted = *static_cast<const sts_event_source_s*>(given);
    const borrowed<channel> extended(channel_handle);
    event_source added = {open_store(server_name, missing_root::fails), text_of(wanted.lsu),
                          wanted.kinds, 0};
    added.seen = start_of(*added.files, start);
    const std::lock_guard<std::mutex> lock(extended->guard);
    extended->sources.push_back(std::move(added));
    return STS_OK;
}

int get_event(sts_next_evchannel_s* channel_handle, sts_event_s* event) {
    require(event != nullptr);
    const borrowed<channel> asked(channel_handle);
    const std::lock_guard<std::mutex> lock(asked->guard);
    for (size_t tried = 0; tried < asked->sources.size(); ++tried) {
        event_source& source = asked->sources[asked->turn];
        asked->turn = (asked->turn + 1) % asked->sources.size();
        if (next_event(source, *event)) {
            return STS_OK;
        }
    }
    return STS_ERR_NO_EVENT;
}

int get_event_payload(sts_next_server_s* server_handle, sts_forwarded_t event,
                      sts_forwarded_t payload) {
    const auto* const asked = pointer_of<const sts_event_s>(event);
    auto* const out = pointer_of<sts_event_payload_s>(payload);
    require(asked != nullptr && out != nullptr);
    const borrowed<server> owner(server_handle);
    const std::optional<kept_event> found = read_event(*owner->files, asked->number);
    if (!found) {
        return sts_status_of_errno(ENOENT);
    }
    fill(out->text, found->payload);
    out->length = static_cast<uint32_t>(strlen(out->text));
    return STS_OK;
}

int delete_event(sts_next_server_s* server_handle, sts_event_s* event) {
    require(event != nullptr);
    remove_event(*borrowed<server>(server_handle)->files, event->number);
    return STS_OK;
}

} // namespace disk
