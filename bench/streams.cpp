// Many streams of one server, each in a thread of its own, through the built plugin: how many
// transfers they make together beside what one makes, and how well they keep their rate together.
//
//   streams_bench [SECONDS]     how long each row is measured, 5 unless given
//
// The next layer answers at once. Achieved / allowed is over ten sample intervals or more of a
// second each; the last column is what the streams may forget beyond it, a block of each for each
// interval.

#include "bench/plugin_host.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <limits>
#include <memory>
#include <thread>
#include <vector>

namespace {

constexpr uint64_t block = 65536;
constexpr uint64_t rate = 200'000'000; // bytes a second
constexpr int stream_counts[] = {1, 4, 16, 64};

struct result {
    double transfers; ///< made in all
    double seconds;
};

/// Lets so many streams write for that long, each to an image of its own.
result run(const std::string& settings, int streams, double seconds) {
    using clock = std::chrono::steady_clock;
    const hosted_server server(the_plugin_host(), settings);
    std::vector<std::unique_ptr<hosted_image>> images; // a host opens and closes one at a time
    for (int each = 0; each < streams; ++each) {
        images.push_back(std::make_unique<hosted_image>(server));
    }
    static const std::vector<char> data(block);
    std::atomic<bool> over{false};
    std::atomic<uint64_t> transfers{0};
    const auto start = clock::now();
    std::vector<std::thread> threads;
    for (const auto& image : images) {
        threads.emplace_back([&] {
            uint64_t own = 0;
            uint64_t moved = 0;
            for (; !over; ++own) {
                image->write(data.data(), block, &moved);
            }
            transfers += own;
        });
    }
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    over = true;
    const double taken = std::chrono::duration<double>(clock::now() - start).count();
    for (std::thread& each : threads) {
        each.join();
    }
    return {static_cast<double>(transfers), taken};
}

void print_throughput(const char* name, const std::string& settings, double seconds) {
    double alone = 0;
    for (const int streams : stream_counts) {
        const result made = run(settings, streams, seconds);
        const double each_second = made.transfers / made.seconds;
        alone = streams == 1 ? each_second : alone;
        printf("| %s | %d | %.2f | %.2f |\n", name, streams, each_second / 1e6,
               each_second / alone);
    }
}

/// Waits for the start of a second, when the clock has shown it.
void wait_for_second() {
    for (const time_t now = time(nullptr); time(nullptr) == now;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

/// The share of what is allowed that the streams move in ten intervals of a second.
double achieved(int streams) {
    constexpr int intervals = 10;
    wait_for_second();
    const result made = run(throttled(rate, 1), streams, intervals - 0.1);
    return made.transfers * block / (static_cast<double>(rate) * intervals);
}

} // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? atof(argv[1]) : 5;
    if (argc > 2 || seconds <= 0) {
        fprintf(stderr, "streams_bench [SECONDS]\n");
        return 2;
    }
    try {
        printf("| Throttling | Streams | Million transfers/s | Beside one stream |\n"
               "| --- | ---: | ---: | ---: |\n");
        print_throughput("off", std::string(), seconds);
        print_throughput("on", throttled(1'000'000'000'000'000, std::numeric_limits<int>::max()),
                         seconds);
        printf("\n| Streams | Achieved / allowed | May be forgotten |\n| ---: | ---: | ---: |\n");
        for (const int streams : stream_counts) {
            const double forgotten = static_cast<double>(block) * streams / rate;
            printf("| %d | %.4f | %.4f |\n", streams, achieved(streams), forgotten);
        }
    } catch (const std::exception& error) {
        fprintf(stderr, "streams_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
