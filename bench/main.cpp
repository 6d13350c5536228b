// Runs the benchmarks and prints what they show as two Markdown tables. Absolute times say little
// on a shared machine, so each measurement stands beside one that ran in turns with it, with their
// difference and ratio. The usual options of Google Benchmark are taken.
//
// With --count-allocations the times are left out: what may not allocate is run for a moment, and
// the program fails if it did.

#include "bench/comparison.h"
#include "bench/forwarded.h"
#include "bench/measure.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <map>
#include <string>
#include <vector>

namespace {

// clang-format off
const std::vector<comparison> calls = {
    {"read, throttling off", "read_plugin/off", "next layer's read", "read_next_layer", target::difference, 25},
    {"write, throttling off", "write_plugin/off", "next layer's write", "write_next_layer", target::difference, 25},
    {"read, throttling on", "read_plugin/on", "next layer's read", "read_next_layer", target::none, 0},
    {"write, throttling on", "write_plugin/on", "next layer's write", "write_next_layer", target::none, 0},
    {"open and close of an image, throttling off", "open_plugin", "next layer's", "open_next_layer", target::none, 0, true},
    {"log call that no sink takes", "log_untaken", "`snprintf` of its message", "log_snprintf", target::itself, 10},
    {"`check_bandwidth`, idle", "check_bandwidth/idle", "`clock_gettime`", "clock_gettime_once", target::none, 0},
    {"`check_bandwidth`, common path", "check_bandwidth/common", "`time` twice, `localtime_r` once",
     "time_twice_and_local_hour", target::none, 0},
};
// clang-format on

struct result {
    double nanoseconds; ///< the repetitions' median
    double allocations; ///< for each call of the repetition that made the most
};

/// Why a run failed; null: it didn't. Newer releases of the library have it in other members.
template <typename Run>
auto failure_of(const Run& run, int) -> decltype(run.error_message.c_str()) {
    return run.error_occurred ? run.error_message.c_str() : nullptr;
}
template <typename Run>
auto failure_of(const Run& run, long) -> decltype(run.skip_message.c_str()) {
    return run.skipped != decltype(run.skipped){} ? run.skip_message.c_str() : nullptr;
}

class results_keeper : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (const char* const failure = failure_of(run, 0)) {
                fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), failure);
            } else if (run.aggregate_name == "median") {
                results[run.run_name.function_name].nanoseconds = run.GetAdjustedCPUTime();
            } else if (run.run_type == Run::RT_Iteration) {
                double& most = results[run.run_name.function_name].allocations;
                most = std::max(most, run.counters.find(allocations_counter)->second.value);
            }
        }
    }

    std::map<std::string, result> results;
};

std::string verdict(const comparison& row, double own, double difference) {
    if (row.kind == target::none) {
        return "";
    }
    const bool on_difference = row.kind == target::difference;
    const double compared = on_difference ? difference : own;
    char text[64];
    snprintf(text, sizeof text, "at most %s%.0f: %s", on_difference ? "+" : "", row.limit,
             compared <= row.limit ? "met" : "missed");
    return text;
}

void print_table(const char* title, const std::vector<comparison>& rows,
                 const std::map<std::string, result>& results) {
    printf("| %s | ns | Beside | ns | Difference, ns | Ratio | Target, ns | Allocations |\n",
           title);
    printf("| --- | ---: | --- | ---: | ---: | ---: | --- | ---: |\n");
    for (const comparison& row : rows) {
        const auto own = results.find(row.benchmark);
        const auto beside = results.find(row.beside_benchmark);
        if (own == results.end() || beside == results.end()) {
            continue; // not asked for
        }
        const double time = own->second.nanoseconds;
        const double beside_time = beside->second.nanoseconds;
        printf("| %s | %.1f | %s | %.1f | %+.1f | %.2f | %s | %.3g |\n", row.call.c_str(), time,
               row.beside.c_str(), beside_time, time - beside_time, time / beside_time,
               verdict(row, time, time - beside_time).c_str(), own->second.allocations);
    }
}

/// Whether each call allocates if and only if it is meant to. One that is meant to has to be seen
/// doing so: otherwise nothing would be known of the others.
bool allocates_as_meant(const std::vector<comparison>& rows,
                        const std::map<std::string, result>& results) {
    bool all_well = true;
    for (const comparison& row : rows) {
        const auto own = results.find(row.benchmark);
        const bool measured = own != results.end();
        if (!measured || (own->second.allocations > 0) != row.allocates) {
            fprintf(stderr, "throttling_bench: %s: %s allocations expected, %s\n", row.call.c_str(),
                    row.allocates ? "some" : "no",
                    measured ? (std::to_string(own->second.allocations) + " a call").c_str()
                             : "not measured");
            all_well = false;
        }
    }
    return all_well;
}

void print_help() {
    printf(
        "throttling_bench [--count-allocations] [OPTIONS]\n\n"
        "Measures what the plugin costs for each call and prints two Markdown tables.\n\n"
        "  --count-allocations   measures no times, but fails if a call allocates that may not\n\n"
        "The options are those of Google Benchmark:\n\n");
    benchmark::PrintDefaultHelp();
}

/// Takes `option` out of the arguments. Whether it was there.
bool take_option(std::vector<char*>& arguments, const std::string& option) {
    const auto found = std::find(arguments.begin(), arguments.end(), option);
    const bool given = found != arguments.end();
    if (given) {
        arguments.erase(found);
    }
    return given;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<char*> given(argv + 1, argv + argc);
    const bool count_allocations = take_option(given, "--count-allocations");
    // Many short turns, in random order: what slows the machine for a while slows both of a pair.
    std::string turns = "--benchmark_repetitions=15";
    std::string turn_time = "--benchmark_min_time=0.03";
    std::string order = "--benchmark_enable_random_interleaving=true";
    if (count_allocations) {
        turns = "--benchmark_repetitions=1";
        turn_time = "--benchmark_min_time=0.001";
    }
    std::vector<char*> arguments = {argv[0], turns.data(), turn_time.data(), order.data()};
    arguments.insert(arguments.end(), given.begin(), given.end());
    auto count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data(), print_help);
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 1;
    }
    results_keeper reporter;
    std::vector<comparison> forwarded;
    try {
        forwarded = register_forwarded_entries();
        benchmark::RunSpecifiedBenchmarks(&reporter);
    } catch (const std::exception& error) {
        fprintf(stderr, "throttling_bench: %s\n", error.what());
        return 1;
    }
    if (count_allocations) {
        const bool calls_well = allocates_as_meant(calls, reporter.results);
        const bool all_well = allocates_as_meant(forwarded, reporter.results) && calls_well;
        printf("%zu calls: %s\n", calls.size() + forwarded.size(),
               all_well ? "each allocates only if it is meant to" : "failed");
        return all_well ? 0 : 1;
    }
    print_table("Call", calls, reporter.results);
    printf("\n");
    print_table("Forwarded entries", forwarded, reporter.results);
    return 0;
}
