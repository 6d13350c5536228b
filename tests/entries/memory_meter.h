// Counts the memory that an entry takes and gives back, and refuses it on demand. It looks at the
// plugin alone: what keeps lines and calls for the test steps aside with a pause_metering.
#pragma once

namespace memory_meter {

/// What happened while the meter ran.
struct reading {
    int asked = 0; ///< allocations, also those that were refused
    int kept = 0;  ///< blocks allocated less blocks released
};

/// Starts at zero; with `refuse` every allocation fails until stop.
void start(bool refuse = false);

/// Ends it.
reading stop();

} // namespace memory_meter

/// While one lives the meter stands still.
class pause_metering {
  public:
    pause_metering();
    ~pause_metering();
    pause_metering(const pause_metering&) = delete;
    pause_metering& operator=(const pause_metering&) = delete;

  private:
    const bool was_running_;
};
