// A run in progress: several streams that move data at once, each in its own thread.
//
// The job opens its images, then calls `begin`, `run_streams` and `end`. Another thread looks on
// from the start and may ask for the end (`interrupt`).
#pragma once

#include "tools/figures/course.h"

#include <atomic>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <pthread.h>
#include <string>
#include <vector>

class transfer : public run_course {
  public:
    /// `left_behind` says what an interrupt leaves.
    transfer(std::string operation, std::string left_behind)
        : run_course(std::move(operation)), left_behind_(std::move(left_behind)) {}

    const std::string& left_behind() const { return left_behind_; }

    // --- the job
    /// Runs `work` for every stream at once and waits for all. The first failure stops the others
    /// and is thrown.
    void run_streams(const std::function<void(size_t index, stream& each)>& work);
    /// Runs `work`, which closes the image of that stream, on the stream's account.
    void on_account(size_t index, const std::function<void()>& work);

    /// Throws `abandoned` when the streams are to stop, and a failure when the settings allow
    /// nothing now.
    void check_may_move() const;
    bool is_stopping() const { return stopping_; }
    /// Nothing is allowed now: what is open must be let go of, not closed.
    bool is_barred() const { return allowed() && allowed()->is_nothing(); }

    // --- who looks on
    /// Stops all streams; they end as `abandoned`.
    void interrupt();
    bool is_interrupted() const { return interrupted_; }
    /// Cuts short the sleeps of the threads that stop.
    void poke_threads() const;
    /// While one lives, its thread may be poked.
    class pokable {
      public:
        explicit pokable(transfer& run);
        ~pokable();
        pokable(const pokable&) = delete;
        pokable& operator=(const pokable&) = delete;

      private:
        transfer& run_;
    };

  private:
    void run_stream(size_t index, const std::function<void(size_t, stream&)>& work);
    void keep_failure(const std::exception_ptr& thrown, bool is_abandoned);

    const std::string left_behind_;
    std::atomic<bool> stopping_{false};
    std::atomic<bool> interrupted_{false};

    mutable std::mutex mutex_; ///< of what is below
    std::vector<pthread_t> threads_;
    std::exception_ptr failure_;
    bool only_abandoned_ = true; ///< what `failure_` holds is no failure of its own
};
