// Counts the memory that an entry takes and gives back, and refuses it on demand. It looks at the
// plugin alone: what keeps lines and calls for the test steps aside with a pause_metering.
//
// It sees every function of the C library by which the program's own code can ask for a block, and
// every operator new; what the C library takes for itself (a stream's buffer) it doesn't see.
#pragma once

namespace memory_meter {

/// What happened while the meter ran.
struct reading {
    int asked = 0; ///< allocations, also those that were refused
    int kept = 0;  ///< blocks allocated less blocks released
};

/// The allocations that fail, from `first` to `last`, counted from 1; 0: none does.
struct refused {
    int first = 0;
    int last = 0;
};

constexpr refused all_refused = {1, 0x7fffffff};
constexpr refused only(int number) { return {number, number}; }

/// Starts at zero.
void start(refused which = {});

/// Ends it.
reading stop();

/// Whether it runs.
bool is_running();
void set_running(bool running);

} // namespace memory_meter

/// While one lives the meter stands still.
class pause_metering {
  public:
    pause_metering() : was_running_(memory_meter::is_running()) {
        memory_meter::set_running(false);
    }
    ~pause_metering() { memory_meter::set_running(was_running_); }
    pause_metering(const pause_metering&) = delete;
    pause_metering& operator=(const pause_metering&) = delete;

  private:
    const bool was_running_;
};
