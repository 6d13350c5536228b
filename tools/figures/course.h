// The course of a run: what its streams have moved so far, second by second. The progress, the
// report and the picture are made of it.
//
// The job says what it does and when it begins and ends; each stream counts for itself. Another
// thread looks on from the start and takes the samples.
#pragma once

#include "tools/host/allowance.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
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

class run_course {
  public:
    explicit run_course(std::string operation) : operation_(std::move(operation)) {}

    const std::string& operation() const { return operation_; }

    // --- the job
    /// Says what is being done while no stream runs yet.
    void say(const std::string& phase);
    void add_stream(const std::string& name, uint64_t planned);
    /// The clock starts: no more streams.
    void begin(const allowance& allowed);
    /// The clock stops, once.
    void end();

    // --- who looks on
    std::string phase() const;
    bool is_running() const { return running_; }
    const std::vector<std::unique_ptr<stream>>& streams() const { return streams_; }
    /// Adds a sample when a second is over.
    void tick();
    /// Ends the run, whatever the job has come to, and adds the last sample. Nothing runs any more.
    void finish();
    const std::vector<sample>& samples() const { return samples_; }
    /// None before it begins.
    const std::optional<allowance>& allowed() const { return allowed_; }
    std::optional<uint64_t> allowed_now() const;
    double seconds() const;
    /// When it began, seconds since the epoch.
    time_t began_at() const { return began_at_; }

  private:
    using clock = std::chrono::steady_clock;
    void add_sample(double now);

    const std::string operation_;
    std::vector<std::unique_ptr<stream>> streams_;
    std::optional<allowance> allowed_;
    std::vector<sample> samples_;
    clock::time_point start_;
    time_t began_at_ = 0;
    std::atomic<double> seconds_{0};
    std::atomic<bool> running_{false};

    mutable std::mutex mutex_; ///< of what is below
    std::string phase_;
};
