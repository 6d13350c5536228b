// A store's own settings, which the host reads and sets as rows of the server configuration text:
//
//   name=STS:KEY,description=...,type=int,value=N,fixed=n;
//
// They are kept in ROOT/.server/settings in that same form. Nothing is held in memory, so that
// every process that works on the store sees a change at once.
#pragma once

#include "platform/sts/store/store.h"

#include <string>

namespace disk {

struct settings {
    int64_t events_kept = 10000; ///< events that wait at most; 0: none are written
    int64_t sync_at_close = 1; ///< whether a completed image is on the disk when its close returns
};

/// What isn't there, or isn't good, has its default.
settings read_settings(const store& files);

/// The rows as text.
std::string settings_text(const settings& current);

/// Sets what the rows in `text` name and keeps it; rows of other layers are passed over. Changes
/// nothing when a row of ours is bad: then the reason is stored in `*error` and the status is
/// STS_ERR_INVALID.
int write_settings(const store& files, std::string_view text, std::string* error);

/// How an image is completed. Settings that can't be read don't keep one from it.
durability image_durability(const store& files) noexcept;

} // namespace disk
