// Measures how data really comes through a pacer: the plugin, or another program that writes to our
// standard input or keeps a log of its blocks. One meter for all of them, in real time.
//
//   pacing plugin --rate 50000000 --seconds 30 --interval 30 --streams 16
//   pv -q -L 50000000 /dev/zero | pacing stream --rate 50000000 --seconds 30 --idle 10
//   pacing log --rate 50000000 --seconds 30 < fio_bw.1.log
//
// Prints "BYTES SECONDS RATIO BUSIEST PAUSE AHEAD": RATIO is achieved over allowed rate, BUSIEST the
// most that came within any one second over what is allowed in a second, PAUSE the longest wait for
// a block in seconds, and AHEAD the most that passed at once: what came in any span of time beyond
// what is allowed in that, in seconds of the allowed rate.

#include "bench/plugin_host.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

/// Counts bytes from its start until a block comes when the time is over.
class meter {
  public:
    meter(uint64_t rate, double seconds) : rate_(static_cast<double>(rate)), seconds_(seconds) {}

    /// Takes a block that came so many seconds after the start. False when the time is over.
    bool add(double now, uint64_t bytes) {
        pause_ = std::max(pause_, now - last_);
        last_ = now;
        const auto slice = static_cast<size_t>(now * slices_per_second);
        slices_.resize(std::max(slices_.size(), slice + 1));
        slices_[slice] += bytes;
        least_surplus_ = std::min(least_surplus_, surplus());
        total_ += bytes;
        ahead_ = std::max(ahead_, surplus() - least_surplus_);
        return now < seconds_;
    }

    /// Until this moment nothing was asked for: no pause of the pacer's.
    void idled_until(double now) { last_ = now; }

    void print() const {
        const auto total = static_cast<double>(total_);
        printf("%.0f %.3f %.4f %.2f %.3f %.2f\n", total, last_, total / last_ / rate_,
               static_cast<double>(busiest_second()) / rate_, pause_, ahead_);
    }

  private:
    static constexpr size_t slices_per_second = 100;

    /// How far the pacer is ahead of its rate since the start, in seconds.
    double surplus() const { return static_cast<double>(total_) / rate_ - last_; }

    uint64_t busiest_second() const {
        uint64_t within = 0;
        uint64_t most = 0;
        for (size_t i = 0; i < slices_.size(); ++i) {
            within += slices_[i];
            if (i >= slices_per_second) {
                within -= slices_[i - slices_per_second];
            }
            most = std::max(most, within);
        }
        return most;
    }

    const double rate_; ///< bytes a second
    const double seconds_;
    double last_ = 0;  ///< when the last block came
    double pause_ = 0; ///< seconds
    double least_surplus_ = 0;
    double ahead_ = 0; ///< seconds
    uint64_t total_ = 0;
    std::vector<uint64_t> slices_; ///< bytes in each hundredth of a second
};

/// Seconds since this was made.
class stopwatch {
  public:
    double now() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }

  private:
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// A time of no demand: nothing is asked of the pacer from `begin` on, for `length` seconds.
struct idle_time {
    double begin;
    double length;

    void pass(const stopwatch& watch, meter& meter) {
        if (length > 0 && watch.now() >= begin) {
            std::this_thread::sleep_for(std::chrono::duration<double>(length));
            length = 0;
            meter.idled_until(watch.now());
        }
    }
};

void through_plugin(meter& meter, idle_time idle, uint64_t rate, int interval, int streams,
                    size_t block) {
    const std::vector<char> data(block);
    const plugin_host host;
    const hosted_server server(host, throttled(rate, interval));
    std::vector<std::unique_ptr<hosted_image>> images; // a host opens and closes one at a time
    for (int each = 0; each < streams; ++each) {
        images.push_back(std::make_unique<hosted_image>(server));
    }
    std::mutex one_at_a_time; // the meter, the idle time and what ends the streams
    bool over = false;
    bool failed = false;
    const stopwatch watch;
    const auto write_until_over = [&](const hosted_image& image) {
        for (;;) {
            uint64_t moved = 0;
            const int status = image.write(data.data(), data.size(), &moved);
            const std::lock_guard<std::mutex> turn(one_at_a_time);
            failed = failed || status != 0;
            if (over || failed) {
                return;
            }
            over = !meter.add(watch.now(), moved);
            idle.pass(watch, meter);
        }
    };
    std::vector<std::thread> threads;
    for (const auto& image : images) {
        threads.emplace_back(write_until_over, std::cref(*image));
    }
    for (std::thread& each : threads) {
        each.join();
    }
    if (failed) {
        throw std::runtime_error("a write failed");
    }
}

void from_stream(meter& meter, idle_time idle, size_t block) {
    std::vector<char> data(block);
    const auto next = [&] { return read(STDIN_FILENO, data.data(), data.size()); };
    ssize_t moved = next(); // the other program starts in its own time
    const stopwatch watch;
    while (moved > 0 && meter.add(watch.now(), static_cast<uint64_t>(moved))) {
        idle.pass(watch, meter);
        moved = next();
    }
    if (moved <= 0) {
        throw std::runtime_error("the stream ended too early");
    }
}

/// Reads lines as fio writes them: milliseconds since its start, a rate, a direction, bytes, ...
void from_log(meter& meter) {
    unsigned long long milliseconds = 0;
    unsigned long long bytes = 0;
    bool goes_on = true;
    while (goes_on && scanf("%llu, %*u, %*u, %llu%*[^\n]", &milliseconds, &bytes) == 2) {
        goes_on = meter.add(static_cast<double>(milliseconds) / 1000, bytes);
    }
    if (goes_on) {
        throw std::runtime_error("the log ends too early");
    }
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app(
        "Measures how well a pacer keeps a rate. Prints BYTES SECONDS RATIO BUSIEST PAUSE "
        "AHEAD:\nachieved over allowed rate, the most in any one second over the rate, the longest "
        "wait\nfor a block in seconds, and the most that passed at once beyond the rate, in "
        "seconds "
        "of it.");
    uint64_t rate = 50'000'000;
    double seconds = 30;
    size_t block = 262144;
    double idle = 0;
    int interval = 30;
    int streams = 1;
    app.add_option("--rate", rate, "Allowed bytes per second")
        ->capture_default_str()
        ->check(CLI::Range(uint64_t{1}, uint64_t{1'000'000'000'000}));
    app.add_option("--seconds", seconds, "How long to measure")
        ->capture_default_str()
        ->check(CLI::Range(0.1, 86400.0));
    app.add_option("--block", block, "Bytes of one transfer")
        ->capture_default_str()
        ->check(CLI::Range(size_t{1}, size_t{1} << 30));
    app.add_option("--idle", idle, "Ask for nothing for so many seconds, after a third of the time")
        ->capture_default_str()
        ->check(CLI::Range(0.0, 86400.0));
    app.require_subcommand(1)->fallthrough();
    CLI::App* const plugin = app.add_subcommand("plugin", "Writes through the plugin");
    plugin->add_option("--interval", interval, "THR:SAMPLE_INTERVAL, seconds")
        ->capture_default_str()
        ->check(CLI::Range(1, 86400));
    plugin->add_option("--streams", streams, "Threads, each with an image of its own")
        ->capture_default_str()
        ->check(CLI::Range(1, 1000));
    const CLI::App* const stream = app.add_subcommand("stream", "Reads standard input");
    app.add_subcommand("log", "Reads fio's log of a bandwidth, a line a block, on standard input");
    CLI11_PARSE(app, argc, argv);

    meter meter(rate, seconds);
    const idle_time pause = {seconds / 3, idle};
    try {
        if (plugin->parsed()) {
            through_plugin(meter, pause, rate, interval, streams, block);
        } else if (stream->parsed()) {
            from_stream(meter, pause, block);
        } else {
            from_log(meter);
        }
    } catch (const std::exception& error) {
        fprintf(stderr, "pacing: %s\n", error.what());
        return 1;
    }
    meter.print();
    return 0;
}
