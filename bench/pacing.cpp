// Measures how fast data really comes through a pacer: the plugin, or another program that writes
// to our standard input. One meter for all of them, in real time.
//
//   pacing plugin --rate 50000000 --seconds 30 --interval 30
//   pv -q -L 50000000 /dev/zero | pacing stream --rate 50000000 --seconds 30
//
// Prints "BYTES SECONDS RATIO BUSIEST PAUSE": RATIO is achieved over allowed rate, BUSIEST the most
// that came within any one second over what is allowed in a second, PAUSE the longest wait for a
// block in seconds.

#include "bench/plugin_host.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <unistd.h>
#include <vector>

namespace {

/// Counts bytes from its first block until a block comes when the time is over.
class meter {
  public:
    meter(uint64_t rate, double seconds) : rate_(rate), seconds_(seconds) {}

    void start() { start_ = clock::now(); }

    /// Takes a block. False when the time is over.
    bool add(uint64_t bytes) {
        const double now = std::chrono::duration<double>(clock::now() - start_).count();
        pause_ = std::max(pause_, now - elapsed_);
        elapsed_ = now;
        const auto slice = static_cast<size_t>(elapsed_ * slices_per_second);
        slices_.resize(std::max(slices_.size(), slice + 1));
        slices_[slice] += bytes;
        total_ += bytes;
        return elapsed_ < seconds_;
    }

    void print() const {
        const auto allowed = static_cast<double>(rate_);
        const auto total = static_cast<double>(total_);
        printf("%.0f %.3f %.4f %.2f %.3f\n", total, elapsed_, total / elapsed_ / allowed,
               static_cast<double>(busiest_second()) / allowed, pause_);
    }

  private:
    using clock = std::chrono::steady_clock;
    static constexpr size_t slices_per_second = 100;

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

    const uint64_t rate_;
    const double seconds_;
    clock::time_point start_;
    double elapsed_ = 0; ///< seconds from the start to the last block
    double pause_ = 0;   ///< seconds
    uint64_t total_ = 0;
    std::vector<uint64_t> slices_; ///< bytes in each hundredth of a second
};

void through_plugin(meter& meter, uint64_t rate, int interval, size_t block) {
    const std::vector<char> data(block);
    const plugin_host host;
    const hosted_server server(host, throttled(rate, interval));
    const hosted_image image(server);
    uint64_t moved = 0;
    meter.start();
    do {
        if (image.write(data.data(), data.size(), &moved) != 0) {
            throw std::runtime_error("a write failed");
        }
    } while (meter.add(moved));
}

void from_stream(meter& meter, size_t block) {
    std::vector<char> data(block);
    const auto next = [&] { return read(STDIN_FILENO, data.data(), data.size()); };
    ssize_t moved = next(); // the other program starts in its own time
    meter.start();
    while (moved > 0 && meter.add(static_cast<uint64_t>(moved))) {
        moved = next();
    }
    if (moved <= 0) {
        throw std::runtime_error("the stream ended too early");
    }
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app(
        "Measures how well a pacer keeps a rate. Prints BYTES SECONDS RATIO BUSIEST PAUSE:\n"
        "achieved over allowed rate, the most in any one second over the rate, and the "
        "longest\nwait for a block in seconds.");
    uint64_t rate = 50'000'000;
    double seconds = 30;
    size_t block = 262144;
    int interval = 30;
    app.add_option("--rate", rate, "Allowed bytes per second")
        ->capture_default_str()
        ->check(CLI::Range(uint64_t{1}, uint64_t{1'000'000'000'000}));
    app.add_option("--seconds", seconds, "How long to measure")
        ->capture_default_str()
        ->check(CLI::Range(0.1, 86400.0));
    app.add_option("--block", block, "Bytes of one transfer")
        ->capture_default_str()
        ->check(CLI::Range(size_t{1}, size_t{1} << 30));
    app.require_subcommand(1)->fallthrough();
    CLI::App* const plugin = app.add_subcommand("plugin", "Writes through the plugin");
    plugin->add_option("--interval", interval, "THR:SAMPLE_INTERVAL, seconds")
        ->capture_default_str()
        ->check(CLI::Range(1, 86400));
    app.add_subcommand("stream", "Reads standard input");
    CLI11_PARSE(app, argc, argv);

    meter meter(rate, seconds);
    try {
        if (plugin->parsed()) {
            through_plugin(meter, rate, interval, block);
        } else {
            from_stream(meter, block);
        }
    } catch (const std::exception& error) {
        fprintf(stderr, "pacing: %s\n", error.what());
        return 1;
    }
    meter.print();
    return 0;
}
