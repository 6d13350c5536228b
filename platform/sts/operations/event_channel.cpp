// Event channels: each follows the events of the servers that were added to it, from where it was
// told to begin. An event stays in its server until somebody deletes it, so that every channel sees
// it.

#include "platform/sts/events/log.h"
#include "platform/sts/operations/operations.h"
#include "platform/sts/operations/server.h"
#include "platform/sts/plugins/calls.h"

#include <cstring>
#include <deque>
#include <mutex>

namespace disk {

namespace {

/// The events of a server of ours.
class disk_event_source : public event_source {
  public:
    disk_event_source(std::shared_ptr<store> files, std::string lsu, uint64_t kinds, uint64_t seen)
        : files_(std::move(files)), lsu_(std::move(lsu)), kinds_(kinds), seen_(seen) {}

    int next(sts_event_s* event) override {
        const uint64_t last = last_event(*files_);
        while (const std::optional<kept_event> kept = next_kept(last)) {
            if (wants(kept->record)) {
                *event = kept->record;
                fill(event->server_name, files_->server_name);
                return STS_OK;
            }
        }
        return STS_ERR_NO_EVENT;
    }

  private:
    /// Goes on to the next event that is kept, up to that number.
    std::optional<kept_event> next_kept(uint64_t last) {
        while (seen_ < last) {
            seen_ = ahead_.empty() ? seen_ + 1 : ahead_.front();
            if (!ahead_.empty()) {
                ahead_.pop_front();
            }
            if (std::optional<kept_event> kept = read_event(*files_, seen_)) {
                return kept;
            }
            if (ahead_.empty()) { // it was deleted, and who knows how many with it
                look_ahead(last);
            }
        }
        return std::nullopt;
    }
    /// Finds out which events up to that number are still there: one look for all of them, since
    /// looking for each would take as many times as long as there are.
    void look_ahead(uint64_t last) {
        const std::vector<uint64_t> numbers = events_between(*files_, seen_, last);
        ahead_.assign(numbers.begin(), numbers.end());
        if (ahead_.empty()) {
            seen_ = last;
        }
    }
    bool wants(const sts_event_s& event) const {
        return (kinds_ == 0 || (kinds_ >> event.kind & 1U) != 0) &&
               (lsu_.empty() || lsu_ == event.lsu);
    }

    std::shared_ptr<store> files_;
    std::string lsu_;            ///< empty for all
    uint64_t kinds_;             ///< 0 for all
    uint64_t seen_;              ///< the number of the last event that was looked at
    std::deque<uint64_t> ahead_; ///< those behind it that were seen to be there; empty for unknown
};

struct channel : object {
    static constexpr handle_kind kind = handle_kind::channel;
    channel(const sts_session_def_v7_t& owner, sts_forwarded_t given_first,
            sts_forwarded_t given_second)
        : session(owner), first(given_first), second(given_second) {}

    const sts_session_def_v7_t session; // this and the next two are for plugins
    const sts_forwarded_t first;
    const sts_forwarded_t second;
    std::mutex guard; // of what follows
    std::vector<std::unique_ptr<event_source>> sources;
    size_t turn = 0; // the source that is looked at first
};

/// The number behind which a channel begins.
uint64_t start_of(const store& files, sts_forwarded_t start) {
    if (start == STS_EVENTS_FROM_NOW) {
        return last_event(files);
    }
    require(start == STS_EVENTS_KEPT);
    const uint64_t last = last_event(files);
    const std::vector<uint64_t> kept = events_between(files, 0, last);
    return kept.empty() ? last : kept.front() - 1;
}

std::unique_ptr<event_source> open_disk_events(const sts_session_def_v7_t& session,
                                               const char* server_name,
                                               const sts_event_source_s& wanted,
                                               sts_forwarded_t start) {
    std::shared_ptr<store> files = open_store(server_name, missing_root::fails, {session, {}});
    const uint64_t seen = start_of(*files, start);
    return std::make_unique<disk_event_source>(std::move(files), text_of(wanted.lsu), wanted.kinds,
                                               seen);
}

} // namespace

int open_evchannel(sts_next_session_s* session, sts_forwarded_t first, sts_forwarded_t second,
                   sts_next_evchannel_s** out) {
    require(out != nullptr);
    hand_out(std::make_unique<channel>(definition_of(session), first, second), out);
    return STS_OK;
}

int add_evsource(sts_next_evchannel_s* channel_handle, int /*unused_2*/, sts_forwarded_t start,
                 const char* server_name, void* given, int /*unused_6*/) {
    require(given != nullptr && server_name != nullptr);
    const borrowed<channel> to(channel_handle);
    std::unique_ptr<event_source> added =
        is_disk_name(server_name)
            ? open_disk_events(to->session, server_name,
                               *static_cast<const sts_event_source_s*>(given), start)
            : open_plugin_events(to->session, server_name, given, to->first, to->second, start);
    const std::lock_guard<std::mutex> lock(to->guard);
    to->sources.push_back(std::move(added));
    return STS_OK;
}

int get_event(sts_next_evchannel_s* channel_handle, sts_event_s* event) {
    require(event != nullptr);
    const borrowed<channel> asked(channel_handle);
    const std::lock_guard<std::mutex> lock(asked->guard);
    for (size_t tried = 0; tried < asked->sources.size(); ++tried) {
        event_source& source = *asked->sources[asked->turn];
        asked->turn = (asked->turn + 1) % asked->sources.size();
        const int status = source.next(event);
        if (status != STS_ERR_NO_EVENT) {
            return status;
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
