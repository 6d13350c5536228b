// Locks on the directories of a store, which several processes may work on.
//
// Whoever may read a directory can hold its lock, and be it for ever: so a wait for one is told to
// the session once it gets long, has an end, and is over at once when a signal interrupts it.
#pragma once

#include "platform/sts/store/files.h"
#include "plugin/stsapi.h"

#include <functional>
#include <optional>
#include <utility>

namespace disk {

/// For whom a lock is waited for.
struct lock_waiter {
    sts_session_def_v7_t session = {};  ///< that is told of a long wait; nobody as it is here
    std::function<bool()> is_cancelled; ///< whether to wait no longer; may be empty
};

/// Locks a directory for as long as it lives, against other processes too.
class directory_lock {
  public:
    enum class kind { shared, exclusive };
    /// Waits for the lock for half a minute at most: EBUSY's status when others hold it longer.
    /// EINTR's when a signal ends the wait, as it does unless its handler was set with SA_RESTART,
    /// and ECANCELED's when the waiter did.
    directory_lock(int directory, kind wanted, const lock_waiter& waiter);
    /// Doesn't wait: nothing when others hold it.
    static std::optional<directory_lock> try_exclusive(int directory);

  private:
    explicit directory_lock(unique_fd opened) : opened_(std::move(opened)) {}
    unique_fd opened_; // of its own, since a lock belongs to one opening of a file
};

} // namespace disk
