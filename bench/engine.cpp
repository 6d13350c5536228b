// The two paths of check_bandwidth that a transfer takes between reports, and a log call that goes
// nowhere; each beside calls of the C library that do comparable work.

#include "bench/measure.h"
#include "bench/plugin_host.h"

#include "engine/service_connector.h"
#include "plugin/throttling_log.h"

#include <cstdio>
#include <ctime>
#include <limits>

namespace {

void log_untaken(benchmark::State& state) {
    const sts_session_def_v7_t session = quiet_session();
    long seconds = 12;
    long bytes = 3456789;
    measure(state, [&] {
        benchmark::DoNotOptimize(seconds);
        benchmark::DoNotOptimize(log_msg(&session, __func__, 1, STS_SEV_DEBUG,
                                         "gap_seconds=%ld,bandwidth->data_length=%ld.", seconds,
                                         bytes));
    });
}

void log_snprintf(benchmark::State& state) {
    char text[4095];
    long seconds = 12;
    long bytes = 3456789;
    measure(state, [&] {
        benchmark::DoNotOptimize(seconds);
        benchmark::DoNotOptimize(snprintf(
            text, sizeof text, "gap_seconds=%ld,bandwidth->data_length=%ld.", seconds, bytes));
    });
}

/// A connected engine whose rate and interval are so high that it neither sleeps nor reports.
void check_bandwidth(benchmark::State& state, unsigned long data_length) {
    const sts_session_def_v7_t session = quiet_session();
    throttling_config_s config;
    config.avail_bandwidth = 1'000'000'000'000'000;
    config.sample_interval = std::numeric_limits<int32_t>::max();
    ServiceConnector connector;
    char type[] = "cloud";
    char name[] = "bench";
    connector.connect_service(&session, type, name);
    connector.set_config_params(&config, 0);
    const time_t now = time(nullptr);
    bandwidth_s sample = {OPERATION_WRITE, now, now, data_length};
    measure(state, [&] { benchmark::DoNotOptimize(connector.check_bandwidth(&sample, 0, 0)); });
    connector.disconnect_service();
}

void clock_gettime_once(benchmark::State& state) {
    timespec now = {};
    measure(state, [&] { benchmark::DoNotOptimize(clock_gettime(CLOCK_REALTIME, &now)); });
}

/// What the common path can't do without: two looks at the clock and the local hour.
void time_twice_and_local_hour(benchmark::State& state) {
    tm local = {};
    measure(state, [&] {
        benchmark::DoNotOptimize(time(nullptr));
        const time_t now = time(nullptr);
        benchmark::DoNotOptimize(localtime_r(&now, &local));
    });
}

BENCHMARK(log_untaken);
BENCHMARK(log_snprintf);
BENCHMARK_CAPTURE(check_bandwidth, idle, 0);
BENCHMARK_CAPTURE(check_bandwidth, common, 1'000'000);
BENCHMARK(clock_gettime_once);
BENCHMARK(time_twice_and_local_hour);

} // namespace
