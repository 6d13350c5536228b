// Reads and writes through the loaded plugin, and the same calls made straight at the next layer.

#include "bench/measure.h"
#include "bench/next_layer.h"
#include "bench/plugin_host.h"

#include <cstring>
#include <limits>
#include <stdexcept>

namespace {

constexpr uint64_t block = 262144;

/// Settings under which the engine works at every call but never finds a reason to sleep or report.
std::string throttled_without_waits() {
    return throttled(1'000'000'000'000'000, std::numeric_limits<int32_t>::max());
}

char* buffer() {
    static char bytes[block];
    return bytes;
}

void read_next_layer(benchmark::State& state) {
    const sts_api_t* const api = &idle_next_layer();
    uint64_t moved = 0;
    measure(state, [&] {
        benchmark::DoNotOptimize(api->read_image(nullptr, buffer(), block, 0, &moved));
    });
}

void write_next_layer(benchmark::State& state) {
    const sts_api_t* const api = &idle_next_layer();
    uint64_t moved = 0;
    measure(state, [&] {
        benchmark::DoNotOptimize(api->write_image(nullptr, 0, buffer(), block, 0, &moved));
    });
}

/// The one that does allocate: shows that the counter sees what the plugin takes.
void open_next_layer(benchmark::State& state) {
    const sts_api_t* const api = &idle_next_layer();
    sts_next_image_s* image = nullptr;
    measure(state, [&] {
        benchmark::DoNotOptimize(api->create_image(nullptr, nullptr, 0, &image));
        benchmark::DoNotOptimize(api->close_handle(image, 0));
    });
}

void open_plugin(benchmark::State& state) {
    const hosted_server server(the_plugin_host(), std::string());
    measure(state, [&] { const hosted_image image(server); });
}

using transfer_t = int (*)(const hosted_image& image, uint64_t* moved);

int read_block(const hosted_image& image, uint64_t* moved) {
    return image.read(buffer(), block, moved);
}

int write_block(const hosted_image& image, uint64_t* moved) {
    return image.write(buffer(), block, moved);
}

bool engine_asked;

void notice_engine(const char*, const char* message, sts_severity_v7_t) {
    engine_asked = engine_asked || strncmp(message, "[check_bandwidth]", 17) == 0;
}

/// Throws unless a transfer moves its block, and asks the engine where throttling is on and not
/// where it is off: no figure is then that of another path than the one it names.
void require_path(const std::string& settings, transfer_t transfer) {
    sts_session_def_v7_t talkative = quiet_session();
    talkative.log = notice_engine;
    talkative.log_mask = STS_LOG_DEBUG;
    engine_asked = false;
    const hosted_server server(the_plugin_host(), settings, talkative);
    const hosted_image image(server);
    uint64_t moved = 0;
    require_ok(transfer(image, &moved), "a transfer");
    if (moved != block || engine_asked == settings.empty()) {
        throw std::runtime_error("a transfer took another path than its settings say");
    }
}

void transfer_plugin(benchmark::State& state, transfer_t transfer, const std::string& settings) {
    require_path(settings, transfer);
    const hosted_server server(the_plugin_host(), settings);
    const hosted_image image(server);
    uint64_t moved = 0;
    measure(state, [&] { benchmark::DoNotOptimize(transfer(image, &moved)); });
}

void read_plugin(benchmark::State& state, const std::string& settings) {
    transfer_plugin(state, read_block, settings);
}

void write_plugin(benchmark::State& state, const std::string& settings) {
    transfer_plugin(state, write_block, settings);
}

BENCHMARK(open_next_layer);
BENCHMARK(open_plugin);
BENCHMARK(read_next_layer);
BENCHMARK_CAPTURE(read_plugin, off, std::string());
BENCHMARK_CAPTURE(read_plugin, on, throttled_without_waits());
BENCHMARK(write_next_layer);
BENCHMARK_CAPTURE(write_plugin, off, std::string());
BENCHMARK_CAPTURE(write_plugin, on, throttled_without_waits());

} // namespace
