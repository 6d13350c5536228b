// Prints the tables of docs/pacing.md, and writes the runs of its pictures for "throttlectl plot".
// Virtual time, so the figures are always the same.
//
//   pacing_figures [DIRECTORY]     where the runs go: bursts.json, block.json, idle.json,
//                                  opening.json and closing.json; none are written without it

#include "tests/engine/pacing_cases.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

constexpr int32_t intervals[] = {2, 5, 10, 30, 60, 600};
constexpr uint64_t mebibyte = 1024 * 1024;

void print_bursts() {
    printf("| Sample interval, s | Achieved / allowed | Busiest second / allowed | Longest pause, "
           "s |\n"
           "| ---: | ---: | ---: | ---: |\n");
    for (const int32_t interval : intervals) {
        paced_stream stream = stream_at(interval);
        stream.lasts = 1800;
        const paced_course course = pace(stream);
        printf("| %d | %.3f | %.1f | %.0f |\n", interval, course.ratio(0, stream.lasts),
               course.busiest_second(0, stream.lasts), course.longest_pause(0, stream.lasts));
    }
}

void print_blocks() {
    printf("| Block, MiB | A block's worth, s | Longest pause, s | Achieved / allowed |\n"
           "| ---: | ---: | ---: | ---: |\n");
    for (const uint64_t block : {1U, 16U, 64U, 256U, 1024U}) {
        paced_stream stream = stream_at(5);
        stream.block = block * mebibyte;
        stream.lasts = 1800;
        const paced_course course = pace(stream);
        printf("| %lu | %.1f | %.0f | %.3f |\n", static_cast<unsigned long>(block),
               static_cast<double>(stream.block) / allowed_bandwidth,
               course.longest_pause(0, stream.lasts), course.ratio(0, stream.lasts));
    }
}

void print_bounds() {
    printf("| Sample interval, s | Idle: at once, s | 25 to 100 %%: at once, s | Busiest second / "
           "allowed | 100 to 25 %%: silence, s |\n| ---: | ---: | ---: | ---: | ---: |\n");
    for (const int32_t interval : intervals) {
        const boundary_figures opening = worst_at_boundary(interval, true);
        const boundary_figures closing = worst_at_boundary(interval, false);
        printf("| %d | %.0f | %.0f | %.1f | %.0f |\n", interval, most_after_idling(interval),
               opening.ahead, opening.busiest_second, closing.silence);
    }
}

/// The first seconds of a run, as "throttlectl run --json" tells of it and as far as a picture needs.
void write_run(const std::string& file, paced_stream stream, int seconds, int samples_a_second) {
    stream.lasts = seconds + 10;
    const paced_course course = pace(stream);
    std::ofstream out(file);
    out << R"({"backup": "one stream", "began": 0, "samples": [)";
    for (int sample = 1; sample <= seconds * samples_a_second; ++sample) {
        const double from = static_cast<double>(sample - 1) / samples_a_second;
        const double to = static_cast<double>(sample) / samples_a_second;
        out << (sample > 1 ? ",\n" : "\n") << R"({"time": )" << to << R"(, "bytes": [)"
            << std::llround(course.moved(from, to)) << R"(], "allowed_rate": )"
            << course.allowed_at(to) << "}";
    }
    out << "]}\n";
    out.close();
    if (!out) {
        fprintf(stderr, "pacing_figures: can't write %s\n", file.c_str());
        exit(EXIT_FAILURE);
    }
}

void write_runs(const std::string& directory) {
    write_run(directory + "/bursts.json", stream_at(5), 8, 10);

    paced_stream block = stream_at(5);
    block.block = 64 * mebibyte;
    write_run(directory + "/block.json", block, 40, 1);

    paced_stream idle = stream_at(30);
    idle.idles_at = 62;
    idle.idles_for = 25;
    write_run(directory + "/idle.json", idle, 150, 1);

    write_run(directory + "/opening.json", stream_over_boundary(30, 88, true), 180, 1);
    write_run(directory + "/closing.json", stream_over_boundary(30, 72, false), 180, 1);
}

} // namespace

int main(int argc, char** argv) {
    setenv("TZ", "UTC", 1);
    print_bursts();
    printf("\n");
    print_blocks();
    printf("\n");
    print_bounds();
    if (argc > 1) {
        write_runs(argv[1]);
    }
    return 0;
}
