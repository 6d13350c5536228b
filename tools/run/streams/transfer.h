// A run in progress: several streams that move data at once, each in its own thread, and the
// figures that the progress, the report and the picture are made of.
//
// The job opens its images, then calls `begin`, `run_streams` and `end`. Another thread looks on
// from the start, takes the samples and may ask for the end (`interrupt`).
#pragma once

#include "tools/host/allowance.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <string>
#include <vector>

/// One stream. The counters are read while it runs.
struct stream {
    stream(std::string stream_name, uint64_t planned_work)
        : name(std::move(stream_name)), planned(planned_work) {}

    const std::string name; ///< of its image
    const uint64_t planned; ///< work to do, in the operation's own measure
    std::atomic<uint64_t> done{0};
    std::atomic<uint64_t> bytes{0}; ///< moved through the plugin
    std::atomic<uint64_t> slept{0}; ///< seconds that the engine held it back
    double seconds = 0;             ///< it was at work; known when it has ended
};

/// What was there at one moment, counted from the beginning.
struct sample {
    double time = 0;                 ///< seconds since the beginning
    std::optional<uint64_t> allowed; ///< bytes per second for all streams together
    std::vector<uint64_t> bytes;     ///< of each stream
};

class transfer {
  public:
    /// `left_behind` says what an interrupt leaves.
    transfer(std::string operation, std::string left_behind)
        : operation_(std::move(operation)), left_behind_(std::move(left_behind)) {}

    const std::string& operation() const { return operation_; }
    const std::string& left_behind() const { return left_behind_; }

    // --- the job
    /// Says what is being done while no stream runs yet.
    void say(const std::string& phase);
    void add_stream(const std::string& name, uint64_t planned);
    /// The clock starts: no more streams.
    void begin(const allowance& allowed);
    /// Runs `work` for every stream at once and waits for all. The first failure stops the others
    /// and is thrown.
    void run_streams(const std::function<void(size_t index, stream& each)>& work);
    /// Runs `work`, which closes the image of that stream, on the stream's account.
    void on_account(size_t index, const std::function<void()>& work);
    /// The clock stops, once.
    void end();

    /// Throws `abandoned` when the streams are to stop, and a failure when the settings allow
    /// nothing now.
    void check_may_move() const;
    bool is_stopping() const { return stopping_; }
    /// Nothing is allowed now: what is open must be let go of, not closed.
    bool is_barred() const { return allowed_ && allowed_->is_nothing(); }

    // --- who looks on
    std::string phase() const;
    bool is_running() const { return running_; }
    const std::vector<std::unique_ptr<stream>>& streams() const { return streams_; }
    /// Adds a sample when a second is over.
    void tick();
    /// Ends the run, whatever the job has come to, and adds the last sample. Nothing runs any more.
    void finish();
    const std::vector<sample>& samples() const { return samples_; }
    std::optional<uint64_t> allowed_now() const;
    double seconds() const;
    /// When it began, seconds since the epoch.
    time_t began_at() const { return began_at_; }

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
    using clock = std::chrono::steady_clock;
    void add_sample(double now);
    void run_stream(size_t index, const std::function<void(size_t, stream&)>& work);
    void keep_failure(const std::exception_ptr& thrown, bool is_abandoned);

    const std::string operation_;
    const std::string left_behind_;
    std::vector<std::unique_ptr<stream>> streams_;
    std::optional<allowance> allowed_;
    std::vector<sample> samples_;
    clock::time_point start_;
    time_t began_at_ = 0;
    std::atomic<double> seconds_{0};
    std::atomic<bool> running_{false};
    std::atomic<bool> stopping_{false};
    std::atomic<bool> interrupted_{false};

    mutable std::mutex mutex_; ///< of what is below
    std::string phase_;
    std::vector<pthread_t> threads_;
    std::exception_ptr failure_;
    bool only_abandoned_ = true; ///< what `failure_` holds is no failure of its own
};
