// The events of a store, one file each, in the order in which they happened:
//
//   ROOT/.server/sequence       the number of the last one
//   ROOT/.server/events/NUMBER  the record, its payload behind it
//
// They are written under the control directory's lock, which readers don't take. So an event is
// there before it is counted: a reader that goes as far as the count misses none, and never finds
// a smaller number later.
#pragma once

#include "platform/sts/store/store.h"
#include "platform/sts/sts_records.h"

namespace disk {

/// What happened. `payload` is more about it, as "key=value" lines.
struct happening {
    sts_event_kind_t kind;
    std::string lsu;
    std::string image;
    std::string payload;
};

struct kept_event {
    sts_event_s record;
    std::string payload;
};

/// Writes an event and drops the one that is too old now. What has happened stays so when its event
/// can't be written.
void record_event(const store& files, const happening& what) noexcept;

/// Drops the events that are more than the settings keep. What can't be dropped stays.
void drop_surplus_events(const store& files) noexcept;

/// The number of the last event that was written, 0 for none.
uint64_t last_event(const store& files);
/// The numbers of the events that are kept behind `first`, up to `last`, sorted.
std::vector<uint64_t> events_between(const store& files, uint64_t first, uint64_t last);
/// Nothing when that event is gone.
std::optional<kept_event> read_event(const store& files, uint64_t number);
/// ENOENT's status when that event is gone.
void remove_event(const store& files, uint64_t number);

} // namespace disk
