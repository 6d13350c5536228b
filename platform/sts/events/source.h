// What an event channel receives of one server, ours or a plugin's.
#pragma once

#include "platform/sts/sts_records.h"

namespace disk {

class event_source {
  public:
    event_source() = default;
    event_source(const event_source&) = delete;
    event_source& operator=(const event_source&) = delete;
    virtual ~event_source() = default;
    /// Gives the next event; STS_ERR_NO_EVENT when none is waiting.
    virtual int next(sts_event_s* event) = 0;
};

} // namespace disk
